// Mistakes, help, error messages and exit codes.
#include <sys/stat.h>

#include <tuple>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

using CommandLine = ToolTest;

TEST_F(CommandLine, HelpTellsEveryCommandAndItsOptions) {
  const ToolRun overview = Qnwave({"--help"});
  EXPECT_EQ(overview.exit, 0);
  for (const char* command : {"info", "convert", "cut", "join", "split", "repair", "tags", "peaks", "draw"}) {
    EXPECT_NE(overview.out.find(command), std::string::npos) << command;
    const ToolRun help = Qnwave({command, "--help"});
    EXPECT_EQ(help.exit, 0);
    EXPECT_NE(help.out.find("Usage: qnwave " + std::string(command)), std::string::npos);
    EXPECT_NE(help.out.find("--help"), std::string::npos);
  }
  EXPECT_EQ(Qnwave({"--version"}).out.rfind("qnwave ", 0), 0u);
}

TEST_F(CommandLine, MistakesSayWhatIsWrong) {
  using Row = std::pair<std::vector<std::string>, const char*>;
  for (const auto& [words, message] :
       {Row({}, "no command"), Row({"info"}, "no file"),
        Row({"info", "--frob", "x"}, "unknown option '--frob'"),
        Row({"info", "--lang", "xx", "x"}, "unknown language 'xx'"), Row({"convert", "a.wav"}, "two files"),
        Row({"info", "--time-format", "20", "x"}, "unknown time format '20'"),
        Row({"convert", "a.wav", "b.wav", "--gain", "loud"}, "bad gain 'loud'"),
        Row({"convert", "a.wav", "b.wav", "--type", "s17"}, "unknown sample type 's17'"),
        Row({"convert", "a.wav", "b.mp3"}, "tells no container"),
        Row({"convert", "a.wav", "b.wav", "--raw-in", "s16,44100"}, "is not TYPE,RATE,CHANNELS")}) {
    const ToolRun run = Qnwave(words);
    ExpectRun(run, 2, message);
    EXPECT_NE(run.err.find("--help"), std::string::npos) << run.err;
    EXPECT_EQ(run.out, "");
  }
}

TEST_F(CommandLine, ErrorsNameTheFileTheReasonAndTheStatus) {
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  Write("text", {'n', 'o'});
  Write("a\\b.wav", {});
  Write("caf\xE9.wav", {});
  using Row = std::tuple<const char*, const char*, const char*>;
  for (const auto& [name, reason, status] :
       {Row("pipe", "no regular file", "(0x8004E007)"), Row("text", "no WAV", "(0x8004E00B)"),
        Row("a\\b.wav", "backslash", "(0x8004E00D)"),
        Row("caf\xE9.wav", "not valid UTF-8", "(0x8004E00D)")}) {
    const std::string file = Path(name);
    for (const ToolRun& run : {Qnwave({"info", file}), Qnwave({"convert", file, Path("out.wav")})}) {
      EXPECT_EQ(run.err.rfind("qnwave: ", 0), 0u) << run.err;
      ExpectRun(run, 1, reason);
      ExpectRun(run, 1, status);
    }
  }
  // Control characters of a name do not reach the terminal.
  EXPECT_NE(Qnwave({"info", "a\x1B[31m\n"}).err.find("qnwave: a\\x1B[31m\\x0A: "), std::string::npos);
  EXPECT_EQ(Qnwave({"--help"}, "exec >/dev/full;").exit, 1);
}

TEST_F(CommandLine, FailuresAreInTheLanguageOfTheUserAndJsonInEnglish) {
  const std::string file = Path("x.wav");
  WriteFileBytes(file,
                 Wav::Form(Wav::Chunk("fmt ", Record(1, 1, 8000, 16)) + Hex("'data' *4") + Noise(4000)));
  using Row = std::tuple<const char*, const char*, const char*>;
  for (const auto& [language, damage, hint] :
       {Row("de", "Der Daten-Chunk gibt die Größe 0 an, aber es folgen 4.000 Byte Samples.",
            "Versuchen Sie: "),
        Row("ja",
            "データチャンクのサイズは 0 と記載されていますが、後ろに 4,000 バイトのサンプルが続いています。",
            "次のコマンドを試してください: ")}) {
    const std::string line = std::string(damage) + " " + hint + "qnwave repair '" + file + "'";
    const ToolRun run = Qnwave({"convert", "--lang", language, file, Path("out.wav")});
    EXPECT_NE(run.err.find(line), std::string::npos) << run.err;
    EXPECT_NE(Qnwave({"info", "--lang", language, file}).out.find(damage), std::string::npos);
    EXPECT_EQ(Jq(Qnwave({"info", "--json", "--lang", language, file}).out, ".[0].problems[0]"),
              "The data chunk states a size of 0, but 4,000 bytes of samples follow.");
  }
}

}  // namespace
}  // namespace qntest
