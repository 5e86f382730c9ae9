// Mistakes, help, error messages and exit codes.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

TEST(CommandLine, HelpTellsEveryCommandAndItsOptions) {
  const ToolRun overview = Qnwave({"--help"});
  EXPECT_EQ(overview.exit, 0);
  for (const char* command : {"info", "convert", "repair"}) {
    EXPECT_NE(overview.out.find(command), std::string::npos) << command;
    const ToolRun help = Qnwave({command, "--help"});
    EXPECT_EQ(help.exit, 0);
    EXPECT_NE(help.out.find("Usage: qnwave " + std::string(command)), std::string::npos);
    EXPECT_NE(help.out.find("--help"), std::string::npos);
  }
  EXPECT_EQ(Qnwave({"--version"}).out.rfind("qnwave ", 0), 0u);
}

TEST(CommandLine, MistakesSayWhatIsWrong) {
  const struct {
    std::vector<std::string> words;
    const char* message;
  } kCases[] = {
      {{}, "no command"},
      {{"info"}, "no file"},
      {{"info", "--frob", "x"}, "unknown option '--frob'"},
      {{"info", "--lang", "xx", "x"}, "unknown language 'xx'"},
      {{"info", "--time-format", "20", "x"}, "unknown time format '20'"},
      {{"convert", "a.wav"}, "two files"},
      {{"convert", "a.wav", "b.wav", "--gain", "loud"}, "bad gain 'loud'"},
      {{"convert", "a.wav", "b.wav", "--type", "s17"}, "unknown sample type 's17'"},
      {{"convert", "a.wav", "b.mp3"}, "tells no container"},
      {{"convert", "a.wav", "b.wav", "--raw-in", "s16,44100"}, "is not TYPE,RATE,CHANNELS"},
  };
  for (const auto& test : kCases) {
    const ToolRun run = Qnwave(test.words);
    EXPECT_EQ(run.exit, 2) << test.message;
    EXPECT_NE(run.err.find(test.message), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("--help"), std::string::npos) << run.err;
    EXPECT_EQ(run.out, "");
  }
}

TEST(CommandLine, ErrorsNameTheFileTheReasonAndTheStatus) {
  const ScratchFolder folder;
  ASSERT_EQ(mkfifo(folder.Native("pipe").c_str(), 0600), 0);
  WriteFileBytes(folder.Native("text"), {'n', 'o'});
  WriteFileBytes(folder.Native("a\\b.wav"), {});
  WriteFileBytes(folder.Native("caf\xE9.wav"), {});
  const struct {
    const char* name;
    const char* reason;
    const char* status;
  } kCases[] = {
      {"pipe", "no regular file", "(0x8004E007)"},
      {"text", "no WAV", "(0x8004E00B)"},
      {"a\\b.wav", "backslash", "(0x8004E00D)"},
      {"caf\xE9.wav", "not valid UTF-8", "(0x8004E00D)"},
  };
  for (const auto& test : kCases) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"info", folder.Native(test.name)},
          {"convert", folder.Native(test.name), folder.Native("out.wav")}}) {
      const ToolRun run = Qnwave(words);
      EXPECT_EQ(run.exit, 1);
      EXPECT_EQ(run.err.rfind("qnwave: ", 0), 0u) << run.err;
      EXPECT_NE(run.err.find(test.reason), std::string::npos) << run.err;
      EXPECT_NE(run.err.find(test.status), std::string::npos) << run.err;
    }
  }
  // Control characters of a name do not reach the terminal.
  EXPECT_NE(Qnwave({"info", "a\x1B[31m\n"}).err.find("qnwave: a\\x1B[31m\\x0A: "), std::string::npos);
  EXPECT_EQ(Qnwave({"--help"}, "exec >/dev/full;").exit, 1);
}

}  // namespace
}  // namespace qntest
