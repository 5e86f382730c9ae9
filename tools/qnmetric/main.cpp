// qnmetric: the settings that applications keep through the library, on the command line.
#include <algorithm>
#include <cstdio>
#include <new>

#include "qn/platform/locale.h"
#include "qn/platform/text.h"
#include "qn/settings/qnstatus.h"
#include "qn/text/qnlang.h"
#include "tools/common/failure.h"
#include "tools/common/options.h"
#include "tools/common/report.h"
#include "tools/qnmetric/settings_file.h"
#include "tools/qnmetric/store.h"

const char qntool::kProgram[] = "qnmetric";

namespace qnmetric {
namespace {

using namespace qntool;

constexpr const char* kCompanyName = "Marlow Creative Works";
constexpr Option kCompany = {"company", "NAME", "whose application it is (default: Marlow Creative Works)"};
constexpr Option kKey = {"key", "SUBKEY", "a key below the application's settings, such as Kernel"};
constexpr Option kPlaceOptions[] = {kCompany, kKey};
constexpr Option kLanguageOptions[] = {kCompany};
constexpr Option kSetOptions[] = {
    kCompany,
    kKey,
    {"type", "TYPE",
     "number, string, binary (hexadecimal digits) or multi-string (one VALUE a text); default: the type that "
     "the setting has, or that its name tells"},
    {"force", nullptr, "replace a setting of another type"},
};
constexpr Option kExportOptions[] = {
    kCompany,
    kKey,
    {"force", nullptr, "replace FILE if it is there"},
};
constexpr Option kImportOptions[] = {
    kCompany,
    kKey,
    {"force", nullptr, "replace settings of another type"},
};

int Usage(const char* command, const std::string& mistake) {
  ReportUsage(command, mistake);
  return kExitUsage;
}

int Fail(const std::string& subject, LSTATUS error) {
  ReportFailure(subject, kDuringOperation, QnErrorHandler_TranslateWin32Error(static_cast<DWORD>(error)));
  return kExitFailed;
}

std::string Name(const std::u16string& name) {
  return qn::ToUtf8(name);
}

// APPLICATION and VERSION, the first two operands, of at least `least` and at most `most`.
std::optional<Place> ReadPlace(const char* command, const Arguments& arguments, size_t least, size_t most) {
  const auto& operands = arguments.Operands();
  std::string mistake;
  const auto company = std::string(arguments.Value("company").value_or(kCompanyName));
  if (operands.size() < least) {
    mistake = operands.size() < 2 ? "give an application and its version" : "an operand is missing";
  } else if (operands.size() > most) {
    mistake = "there is no use for " + Quoted(operands[most]);
  } else if (operands[0].empty() || operands[0].find('\\') != std::string::npos) {
    mistake = Quoted(operands[0]) + " is no name of an application";
  } else if (company.empty() || company.find('\\') != std::string::npos) {
    mistake = Quoted(company) + " is no name of a company";
  } else if (!ReadVersion(operands[1])) {
    mistake = Quoted(operands[1]) + " is no version: MAJOR.MINOR, such as 2026.0, or none";
  }
  if (!mistake.empty()) {
    Usage(command, mistake);
    return std::nullopt;
  }
  return Place{qn::FromUtf8(company), qn::FromUtf8(operands[0]), *ReadVersion(operands[1]),
               qn::FromUtf8(arguments.Value("key").value_or(""))};
}

void Print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
}

// The type that the name of a metric tells: a number alone, or one behind S, B or Z.
std::optional<DWORD> TypeOfName(const std::string& name) {
  constexpr std::pair<char, DWORD> kMarks[] = {{'S', REG_SZ}, {'B', REG_BINARY}, {'Z', REG_MULTI_SZ}};
  const auto isNumber = [](std::string_view text) {
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
  };
  if (isNumber(name)) return REG_DWORD;
  for (const auto& [mark, type] : kMarks) {
    if (name[0] == mark && isNumber(std::string_view(name).substr(1))) return type;
  }
  return std::nullopt;
}

// True unless a setting of another type stands in the way, which is reported.
bool MayReplace(const Place& place, const std::u16string& name, const Setting& setting, bool force) {
  LSTATUS error;
  const auto old = ReadOne(place, name, &error);
  if (force || !old || old->type == setting.type) return true;
  ReportError(Name(name),
              {messages::TypeDiffers, {Message(TypeName(old->type)), Message(TypeName(setting.type))}});
  return false;
}

int ListApplications(const Arguments& arguments) {
  const std::u16string root = u"Software\\" + qn::FromUtf8(arguments.Value("company").value_or(kCompanyName));
  LSTATUS error;
  const auto applications = SubKeys(root, &error);
  if (!applications) return error == ERROR_FILE_NOT_FOUND ? kExitOk : Fail("", error);
  for (const std::u16string& application : *applications) {
    const std::u16string path = root + u"\\" + application;
    for (const std::u16string& version : SubKeys(path, &error).value_or(std::vector<std::u16string>())) {
      const std::string shown = version == u"Metrics" ? "none" : Name(version);
      if (!ReadVersion(shown)) continue;
      const auto below = version == u"Metrics" ? std::nullopt : SubKeys(path + u"\\" + version, &error);
      if (below && std::find(below->begin(), below->end(), u"Metrics") == below->end()) continue;
      Print(Quoted(Name(application)) + " " + shown + "\n");
    }
  }
  return kExitOk;
}

int List(const Arguments& arguments) {
  if (arguments.Operands().empty()) return ListApplications(arguments);
  const auto place = ReadPlace("list", arguments, 2, 2);
  if (!place) return kExitUsage;
  LSTATUS error;
  const auto tree = ReadTree(*place, &error);
  if (!tree) return Fail(arguments.Operands()[0] + " " + arguments.Operands()[1], error);
  Print(PrintTree(*tree));
  return kExitOk;
}

int Get(const Arguments& arguments) {
  const auto place = ReadPlace("get", arguments, 3, 3);
  if (!place) return kExitUsage;
  LSTATUS error;
  const auto setting = ReadOne(*place, qn::FromUtf8(arguments.Operands()[2]), &error);
  if (!setting) return Fail(arguments.Operands()[2], error);
  Print(PrintSetting(*setting) + "\n");
  return kExitOk;
}

int Set(const Arguments& arguments) {
  const auto place = ReadPlace("set", arguments, 4, SIZE_MAX);
  if (!place) return kExitUsage;
  const auto& operands = arguments.Operands();
  const std::u16string name = qn::FromUtf8(operands[2]);
  LSTATUS error;
  const auto old = ReadOne(*place, name, &error);
  std::optional<DWORD> type = old ? std::optional(old->type) : TypeOfName(operands[2]);
  if (const auto wanted = arguments.Value("type")) {
    type = FindType(*wanted);
    if (!type) return Usage("set", Quoted(*wanted) + " is no type: number, string, binary or multi-string");
  }
  if (!type) return Usage("set", "--type tells what " + Quoted(operands[2]) + " is");
  const auto setting = MakeSetting(*type, {operands.begin() + 3, operands.end()});
  if (!setting) return Usage("set", Quoted(operands[3]) + " is no " + TypeName(*type));
  if (!MayReplace(*place, name, *setting, arguments.Has("force"))) return kExitFailed;
  error = Write(*place, name, *setting);
  return error == ERROR_SUCCESS ? kExitOk : Fail(operands[2], error);
}

int DeleteSettings(const Arguments& arguments) {
  const auto place = ReadPlace("delete", arguments, 3, SIZE_MAX);
  if (!place) return kExitUsage;
  int exitCode = kExitOk;
  for (size_t i = 2; i < arguments.Operands().size(); ++i) {
    const std::string& name = arguments.Operands()[i];
    const LSTATUS error = Delete(*place, qn::FromUtf8(name));
    if (error != ERROR_SUCCESS) exitCode = Fail(name, error);
  }
  return exitCode;
}

int Export(const Arguments& arguments) {
  const auto place = ReadPlace("export", arguments, 2, 3);
  if (!place) return kExitUsage;
  const auto& operands = arguments.Operands();
  LSTATUS error;
  const auto tree = ReadTree(*place, &error);
  if (!tree) return Fail(operands[0] + " " + operands[1], error);
  const std::string text =
      "# Settings of " + Shown(operands[0]) + " " + operands[1] + "\n" + PrintTree(*tree);
  if (operands.size() == 3 && operands[2] != "-")
    return WriteWhole(operands[2], text, arguments.Has("force")) ? kExitOk : kExitFailed;
  Print(text);
  return kExitOk;
}

std::u16string Joined(const std::u16string& key, const std::u16string& below) {
  return key.empty() || below.empty() ? key + below : key + u"\\" + below;
}

int Import(const Arguments& arguments) {
  const auto place = ReadPlace("import", arguments, 2, 3);
  if (!place) return kExitUsage;
  const auto& operands = arguments.Operands();
  const bool isStream = operands.size() < 3 || operands[2] == "-";
  const std::string file = isStream ? Message(messages::StandardInput).Shown() : operands[2];
  const auto text = isStream ? ReadStream(stdin, file) : ReadWhole(file);
  if (!text) return kExitFailed;
  int line;
  const auto tree = ReadTreeText(*text, &line);
  if (!tree) {
    ReportFailure(file, kOpeningFiles, QN_E_FILE_FORMAT,
                  {messages::LineNoSetting, {Message(std::to_string(line))}});
    return kExitFailed;
  }
  // All is looked at before anything is written.
  bool mayReplace = true;
  const auto visit = [&](auto action) {
    for (const auto& [key, names] : *tree) {
      Place below = *place;
      below.subKey = Joined(place->subKey, key);
      for (const auto& [name, setting] : names) {
        if (!action(below, name, setting)) return;
      }
    }
  };
  visit([&](const Place& below, const std::u16string& name, const Setting& setting) {
    mayReplace &= MayReplace(below, name, setting, arguments.Has("force"));
    return true;
  });
  if (!mayReplace) return kExitFailed;
  int exitCode = kExitOk;
  size_t count = 0;
  visit([&](const Place& below, const std::u16string& name, const Setting& setting) {
    const LSTATUS error = Write(below, name, setting);
    if (error != ERROR_SUCCESS) exitCode = Fail(Name(name), error);
    count += error == ERROR_SUCCESS;
    return error == ERROR_SUCCESS;
  });
  std::fprintf(stderr, "%zu settings imported.\n", count);
  return exitCode;
}

int Language(const Arguments& arguments) {
  const auto place = ReadPlace("language", arguments, 2, 3);
  if (!place) return kExitUsage;
  const auto& operands = arguments.Operands();
  const WCHAR* const application = place->application.c_str();
  if (operands.size() == 3) {
    const LCID lcid = LocaleNameToLCID(qn::FromUtf8(operands[2]).c_str(), 0);
    if (lcid == 0) return Usage("language", "unknown language " + Quoted(operands[2]));
    if (QnLang_SaveUserLCIDMetricAppReg(application, place->version, lcid, place->company.c_str()))
      return kExitOk;
    ReportFailure(operands[0], kDuringOperation, E_FAIL);
    return kExitFailed;
  }
  DWORD lcid;
  if (!QnLang_LoadUserLCIDMetricAppReg(application, place->version, &lcid, place->company.c_str()))
    return Fail(operands[0], ERROR_FILE_NOT_FOUND);
  WCHAR name[64] = {};
  GetLocaleInfoW(lcid, LOCALE_SENGLANGUAGE, name, 64);
  Print(qn::ToUtf8(name) + "\n");
  return kExitOk;
}

constexpr char kNameDetails[] =
    "VERSION is MAJOR.MINOR, such as 2026.0, or none. NAME is the name of the value: that of a metric is its "
    "number, for strings behind S, for binary data behind B, for multi-strings behind Z. 'man qnmetric' "
    "tells "
    "more.";

constexpr Command kCommands[] = {
    {"list", "[APPLICATION VERSION]", "Show the applications with settings, or the settings of one.",
     kNameDetails, kPlaceOptions, List},
    {"get", "APPLICATION VERSION NAME", "Show one setting.", kNameDetails, kPlaceOptions, Get},
    {"set", "APPLICATION VERSION NAME VALUE...", "Store a setting.", kNameDetails, kSetOptions, Set},
    {"delete", "APPLICATION VERSION NAME...", "Remove settings.", kNameDetails, kPlaceOptions,
     DeleteSettings},
    {"export", "APPLICATION VERSION [FILE]", "Write the settings of an application to a text file.",
     kNameDetails, kExportOptions, Export},
    {"import", "APPLICATION VERSION [FILE]", "Store the settings of a text file that was exported.",
     kNameDetails, kImportOptions, Import},
    {"language", "APPLICATION VERSION [LANG]", "Show or store the language that an application comes up in.",
     "The tools of the library look at their own, without a version: qnmetric language qnwave none de.",
     kLanguageOptions, Language},
};

int Main(std::span<char* const> words) {
  const std::string_view first = words.empty() ? std::string_view() : words[0];
  if (first == "--help" || first == "-h" || first == "help") {
    std::printf("Usage: qnmetric COMMAND [OPTIONS] [APPLICATION VERSION ...]\n\nCommands:\n");
    for (const Command& command : kCommands) std::printf("  %-10s%s\n", command.name, command.summary);
    std::printf("\n'qnmetric COMMAND --help' tells more, 'qnmetric --version' the version.\n");
    return kExitOk;
  }
  if (first == "--version") {
    std::printf("qnmetric %s\n", QNMETRIC_VERSION);
    return kExitOk;
  }
  for (const Command& command : kCommands) {
    if (first == command.name) return RunCommand(command, words.subspan(1));
  }
  return Usage("", words.empty() ? "no command is given" : "unknown command " + Quoted(first));
}

}  // namespace
}  // namespace qnmetric

int main(int count, char** words) try {
  return qntool::FinishOutput(qnmetric::Main({words + 1, static_cast<size_t>(count > 0 ? count - 1 : 0)}));
} catch (const std::bad_alloc&) {
  qntool::ReportFailure("", qntool::kDuringOperation, E_OUTOFMEMORY);
  return qntool::kExitFailed;
}
