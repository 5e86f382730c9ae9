// qnmetric: the settings that applications keep through the library, on the command line.
#include <algorithm>
#include <cstdio>

#include "qn/platform/text.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/failure.h"
#include "tools/common/options.h"
#include "tools/common/report.h"
#include "tools/common/tool.h"
#include "tools/qnmetric/language.h"
#include "tools/qnmetric/operands.h"
#include "tools/qnmetric/settings_text.h"
#include "tools/qnmetric/text_file.h"

const char qntool::kProgram[] = "qnmetric";

namespace qnmetric {
namespace {

using namespace qntool;

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

int Fail(const std::string& subject, LSTATUS error, const Message& details = {}) {
  ReportFailure(subject, kDuringOperation, QnErrorHandler_TranslateWin32Error(static_cast<DWORD>(error)),
                details);
  return kExitFailed;
}

// What a failure is about: the application and the setting with its key, if any.
std::string Subject(const Place& place, const Arguments& arguments, const std::u16string& name = {}) {
  const std::string application = arguments.Operands()[0] + " " + arguments.Operands()[1];
  const std::string setting = qn::ToUtf8(Joined(place.subKey, name));
  return setting.empty() ? application : application + ": " + setting;
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
bool MayReplace(const std::string& subject, std::optional<DWORD> old, DWORD type, bool force) {
  if (force || !old || *old == type) return true;
  ReportError(subject, {messages::TypeDiffers, {Message(TypeName(*old)), Message(TypeName(type))}});
  return false;
}

// True for a key that holds settings of a version, or of none.
bool HoldsSettings(const std::u16string& path, const std::u16string& version, LSTATUS* error) {
  if (version == u"Metrics") return true;
  if (version == u"none" || !ReadVersion(qn::ToUtf8(version))) return false;
  const auto below = SubKeys(Joined(path, version), error).value_or(std::vector<std::u16string>());
  return std::find(below.begin(), below.end(), u"Metrics") != below.end();
}

int ListApplications(const Arguments& arguments) {
  if (arguments.Has("key")) return Usage("list", "--key goes with an application and its version");
  const auto company = ReadCompany("list", arguments);
  if (!company) return kExitUsage;
  const std::u16string root = RootOf(*company);
  // What is not there, or not any more, is no failure.
  const auto isFailure = [](LSTATUS error) {
    return error != ERROR_SUCCESS && error != ERROR_FILE_NOT_FOUND && error != ERROR_KEY_DELETED;
  };
  LSTATUS error;
  const auto applications = SubKeys(root, &error).value_or(std::vector<std::u16string>());
  if (isFailure(error)) return Fail("", error);
  for (const std::u16string& application : applications) {
    const std::u16string path = Joined(root, application);
    const std::string name = qn::ToUtf8(application);
    const auto versions = SubKeys(path, &error).value_or(std::vector<std::u16string>());
    if (isFailure(error)) return Fail(name, error);
    for (const std::u16string& version : versions) {
      const bool holds = HoldsSettings(path, version, &error);
      if (isFailure(error)) return Fail(name, error);
      if (!holds) continue;
      Print(Quoted(name) + " " + (version == u"Metrics" ? "none" : qn::ToUtf8(version)) + "\n");
    }
  }
  return kExitOk;
}

int List(const Arguments& arguments) {
  if (arguments.Operands().empty()) return ListApplications(arguments);
  const auto place = ReadPlace("list", arguments, 2, 2);
  if (!place) return kExitUsage;
  LSTATUS error;
  const auto settings = ReadAll(*place, &error);
  if (!settings) return Fail(Subject(*place, arguments), error);
  Print(PrintSettings(*settings));
  return kExitOk;
}

int Get(const Arguments& arguments) {
  const auto place = ReadPlace("get", arguments, 3, 3);
  if (!place) return kExitUsage;
  const std::u16string name = qn::FromUtf8(arguments.Operands()[2]);
  LSTATUS error;
  const auto setting = ReadOne(*place, name, &error);
  if (!setting) return Fail(Subject(*place, arguments, name), error);
  Print(PrintSetting(*setting) + "\n");
  return kExitOk;
}

int Set(const Arguments& arguments) {
  const auto place = ReadPlace("set", arguments, 4, SIZE_MAX);
  if (!place) return kExitUsage;
  const auto& operands = arguments.Operands();
  const std::u16string name = qn::FromUtf8(operands[2]);
  const std::string subject = Subject(*place, arguments, name);
  std::optional<DWORD> old;
  LSTATUS error = ReadType(*place, name, &old);
  if (error != ERROR_SUCCESS) return Fail(subject, error);
  std::optional<DWORD> type = old ? old : TypeOfName(operands[2]);
  if (const auto wanted = arguments.Value("type")) {
    type = FindType(*wanted);
    if (!type) return Usage("set", Quoted(*wanted) + " is no type: number, string, binary or multi-string");
  }
  if (!type) return Usage("set", "--type tells what " + Quoted(operands[2]) + " is");
  std::string mistake;
  const auto setting = MakeSetting(*type, {operands.begin() + 3, operands.end()}, &mistake);
  if (!setting) return Usage("set", mistake);
  if (!MayReplace(subject, old, setting->type, arguments.Has("force"))) return kExitFailed;
  error = Write(*place, name, *setting);
  return error == ERROR_SUCCESS ? kExitOk : Fail(subject, error);
}

int DeleteSettings(const Arguments& arguments) {
  const auto place = ReadPlace("delete", arguments, 3, SIZE_MAX);
  if (!place) return kExitUsage;
  int exitCode = kExitOk;
  for (size_t i = 2; i < arguments.Operands().size(); ++i) {
    const std::u16string name = qn::FromUtf8(arguments.Operands()[i]);
    const LSTATUS error = Delete(*place, name);
    if (error != ERROR_SUCCESS) exitCode = Fail(Subject(*place, arguments, name), error);
  }
  return exitCode;
}

constexpr size_t kFileOperand = 2;

int Export(const Arguments& arguments) {
  const auto place = ReadPlace("export", arguments, 2, 3, kFileOperand);
  if (!place) return kExitUsage;
  const auto& operands = arguments.Operands();
  LSTATUS error;
  const auto settings = ReadAll(*place, &error);
  if (!settings) return Fail(Subject(*place, arguments), error);
  const std::string text =
      "# Settings of " + Shown(operands[0]) + " " + operands[1] + "\n" + PrintSettings(*settings);
  if (operands.size() == 3 && operands[kFileOperand] != "-")
    return WriteWhole(operands[kFileOperand], text, arguments.Has("force")) ? kExitOk : kExitFailed;
  Print(text);
  return kExitOk;
}

int Import(const Arguments& arguments) {
  const auto place = ReadPlace("import", arguments, 2, 3, kFileOperand);
  if (!place) return kExitUsage;
  const auto& operands = arguments.Operands();
  const bool isStream = operands.size() < 3 || operands[kFileOperand] == "-";
  const std::string file = isStream ? Message(messages::StandardInput).Shown() : operands[kFileOperand];
  const auto text = isStream ? ReadStream(stdin, file) : ReadWhole(file);
  if (!text) return kExitFailed;
  Mistake mistake;
  const auto settings = ReadSettings(*text, *place, &mistake);
  if (!settings) {
    ReportError(file, {messages::LineMistake,
                       {Message::Number(static_cast<uint64_t>(mistake.line)), mistake.reason}});
    return kExitFailed;
  }
  // All is looked at before anything is written.
  bool mayReplace = true;
  for (const auto& [key, name, setting] : *settings) {
    const Place below = place->Below(key);
    const std::string subject = Subject(below, arguments, name);
    std::optional<DWORD> old;
    const LSTATUS error = ReadType(below, name, &old);
    if (error != ERROR_SUCCESS) return Fail(subject, error);
    mayReplace &= MayReplace(subject, old, setting.type, arguments.Has("force"));
  }
  if (!mayReplace) return kExitFailed;
  const Message total = Message::Number(settings->size());
  size_t count = 0;
  for (const auto& [key, name, setting] : *settings) {
    const Place below = place->Below(key);
    const LSTATUS error = Write(below, name, setting);
    if (error != ERROR_SUCCESS) {
      return Fail(Subject(below, arguments, name), error,
                  {messages::ImportStopped, {Message::Number(count), total}});
    }
    ++count;
  }
  Print(Message(messages::SettingsImported, {total}).Shown() + "\n");
  return kExitOk;
}

int Language(const Arguments& arguments) {
  const auto place = ReadPlace("language", arguments, 2, 3);
  if (!place) return kExitUsage;
  const auto& operands = arguments.Operands();
  LCID lcid = 0;
  LSTATUS error;
  if (operands.size() == 2) {
    error = ReadLanguage(*place, &lcid);
    if (error == ERROR_SUCCESS) Print(LanguageName(lcid) + "\n");
  } else if (operands[2] == "none") {
    error = RemoveLanguage(*place);
  } else {
    lcid = LocaleNameToLCID(qn::FromUtf8(operands[2]).c_str(), 0);
    if (lcid == 0) return Usage("language", "unknown language " + Quoted(operands[2]));
    error = StoreLanguage(*place, lcid);
  }
  return error == ERROR_SUCCESS ? kExitOk : Fail(Subject(*place, arguments), error);
}

constexpr char kNameDetails[] =
    "VERSION is MAJOR.MINOR, such as 2026.0, or none. NAME is the name of the value: that of a metric is its "
    "number, for strings behind S, for binary data behind B, for multi-strings behind Z. 'man qnmetric' "
    "tells more.";

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
     "LANG is a name such as de, pt-BR or zh_TW; none removes what is stored. The tools of the library look "
     "at their own, without a version: qnmetric language qnwave none de.",
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

int main(int count, char** words) {
  return qntool::RunTool(count, words, qnmetric::Main);
}
