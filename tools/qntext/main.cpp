// qntext: tries a text of the library on the command line, as a translator or the author of a plug-in needs
// it.
#include <cstdio>
#include <string>

#include "qn/platform/text.h"
#include "qn/text/qnprint.h"
#include "qn/text/qntimetext.h"
#include "tools/common/options.h"
#include "tools/common/report.h"
#include "tools/common/time_format.h"
#include "tools/common/tool.h"
#include "tools/qntext/format.h"

const char qntool::kProgram[] = "qntext";

namespace qntext {
namespace {

using namespace qntool;

constexpr Option kOptions[] = {
    {"token", "NAME=VALUE", "add a token, or give it another value; may be given several times"},
    {"tokens", nullptr, "show the tokens, separators and numbers of the language"},
    {"print-time", "FORMAT", "print the operands, times in units of 100 nanoseconds, in a time format"},
    {"parse-time", "FORMAT", "read the operands, texts of a time format: the time and where reading stopped"},
    {"short", nullptr, "time formats: without milliseconds, frames, decimals or ticks"},
    {"absolute", nullptr, "time formats: without the offset, and measures count from 0"},
    kRateOption,
    kFrameRateOption,
    kTempoOption,
    kBeatsOption,
    kTicksOption,
    kOffsetOption,
    {"version", nullptr, "show the version and exit"},
};

void PrintText(std::u16string_view text) {
  const std::string bytes = qn::ToUtf8(text);
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

int Usage(const std::string& mistake) {
  ReportUsage("", mistake);
  return kExitUsage;
}

int PrintFormat(const std::vector<std::string>& operands) {
  std::string mistake;
  const auto pieces = CutFormat(qn::FromUtf8(operands[0]), &mistake);
  if (!pieces) return Usage(mistake);
  std::u16string text;
  size_t next = 1;
  for (const Piece& piece : *pieces) {
    const bool takesOne = piece.takes != Takes::kNothing;
    if (takesOne && next == operands.size())
      return Usage("no argument is left for " + Quoted(qn::ToUtf8(piece.format)));
    if (!PrintPiece(piece, takesOne ? operands[next++] : "", &text, &mistake)) return Usage(mistake);
  }
  if (next != operands.size()) return Usage("no conversion is left for " + Quoted(operands[next]));
  PrintText(text + u"\n");
  return kExitOk;
}

int PrintTimes(const _qnposfmt& format, DWORD flags, const std::vector<std::string>& operands) {
  for (const std::string& operand : operands) {
    const auto time = ParseNumber<LONGLONG>(operand, INT64_MIN, INT64_MAX);
    if (!time) return Usage(Quoted(operand) + " is no time: a whole number, 10000000 to the second");
    WCHAR text[128];
    QnNanoTimeToTextExN(text, 128, &format, *time, flags);
    PrintText(std::u16string(text) + u"\n");
  }
  return kExitOk;
}

void ParseTimes(const _qnposfmt& format, DWORD flags, const std::vector<std::string>& operands) {
  for (const std::string& operand : operands) {
    const std::u16string text = qn::FromUtf8(operand);
    const WCHAR* end = text.c_str();
    const LONGLONG time = QnTextToNanoTimeToken2(text.c_str(), &format, 0, 0, 0, flags, &end);
    const std::string rest = qn::ToUtf8(end);
    std::printf("%lld, %s\n", static_cast<long long>(time),
                rest.empty() ? "read to the end" : ("stopped at " + Quoted(rest)).c_str());
  }
}

struct SampleRow {
  const char* format;
  const char* words = "";
  const char* argument = "";
};

void ShowTokens() {
  WCHAR name[64];
  QnGetInatN(2, name, 64);
  PrintText(name);
  QnGetInatN(3, name, 64);
  PrintText(u" (" + std::u16string(name) + u")\n");
  constexpr SampleRow kRows[] = {
      {"$d", "whole number", "-1234567"},
      {"$.2f", "decimals", "1234.5"},
      {"$*", "decimal separator"},
      {"$,", "list separator"},
      {"$:", "time separator"},
      {"$!:", "timecode separator"},
      {"$!.", "timecode separator of frames"},
      {"$!,", "timecode separator of drop frames"},
      {"$&:", "separator of measure and beat"},
      {"$&.", "separator of beat and tick"},
      {"$(SMPTE.Whole)"},
      {"$(SMPTE.NonDrop)"},
      {"$(SMPTE.Drop)"},
      {"$(SMPTE.Label.NonDrop)"},
      {"$(SMPTE.Label.Drop)"},
      {"$(SMPTE.Label.NonDrop.Full)"},
      {"$(SMPTE.Label.Drop.Full)"},
      {"$(m.b)"},
      {"$(b.t)"},
      {"$(MusicTime.Label)"},
      {"$(MusicTime.Label.Full)"},
      {"$(AppName)", "added by applications"},
  };
  for (const SampleRow& row : kRows) {
    std::string mistake;
    std::u16string text;
    for (const Piece& piece : CutFormat(qn::FromUtf8(row.format), &mistake).value_or(std::vector<Piece>()))
      PrintPiece(piece, row.argument, &text, &mistake);
    std::printf("  %-29s", row.format);
    PrintText(text);
    std::printf("%s%s\n", *row.words ? "  " : "", row.words);
  }
}

int Run(const Arguments& arguments) {
  if (arguments.Has("version")) {
    std::printf("qntext %s\n", QNTEXT_VERSION);
    return kExitOk;
  }
  const auto& operands = arguments.Operands();
  const auto printed = arguments.Value("print-time");
  const auto parsed = arguments.Value("parse-time");
  const bool showsTokens = arguments.Has("tokens");
  if (printed.has_value() + parsed.has_value() + showsTokens > 1)
    return Usage("--print-time, --parse-time and --tokens do not go together");
  if (showsTokens != operands.empty())
    return Usage(showsTokens ? "--tokens takes no operand" : "no format is given");

  for (const std::string_view token : arguments.Values("token")) {
    const size_t equals = token.find('=');
    const std::u16string name = qn::FromUtf8(token.substr(0, equals));
    if (name.empty() || equals == std::string_view::npos || name.find(u')') != std::u16string::npos)
      return Usage(Quoted(token) + " is not NAME=VALUE");
    QnPrintF_AddToken(name.c_str(), qn::FromUtf8(token.substr(equals + 1)).c_str());
  }
  if (showsTokens) {
    ShowTokens();
    return kExitOk;
  }
  if (!printed && !parsed) return PrintFormat(operands);
  std::string mistake;
  const auto format = ReadTimeFormat(arguments, printed ? *printed : *parsed, &mistake);
  if (!format) return Usage(mistake);
  const DWORD flags =
      (arguments.Has("short") ? QNTIMETEXT_SHORT : 0) | (arguments.Has("absolute") ? QNTIMETEXT_ABSOLUTE : 0);
  if (printed) return PrintTimes(*format, flags, operands);
  ParseTimes(*format, flags, operands);
  return kExitOk;
}

int Main(std::span<char* const> words) {
  const std::string details =
      "A FORMAT is what the library's formatter takes: $d prints a number in the dress of the language, %d "
      "as C does. A time format is a number from 0 to 19 or one of " +
      TimeFormatNames() + ". Options stand in front of the operands. 'man qntext' tells more.";
  const Command command = {
      "",
      "FORMAT [ARGUMENT...]",
      "Print a text of the library with arguments in a language.",
      details.c_str(),
      kOptions,
      Run,
      true,
  };
  return RunCommand(command, words);
}

}  // namespace
}  // namespace qntext

int main(int count, char** words) {
  return qntool::RunTool(count, words, qntext::Main);
}
