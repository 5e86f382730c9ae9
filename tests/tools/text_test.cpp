// qntext: texts, times and tokens in the languages, and what it refuses.
#include "tests/tools/tool.h"

namespace qntest {
namespace {

using Words = std::vector<std::string>;

TEST(TextTool, PrintsFormatsInALanguage) {
  const std::pair<Words, const char*> kCases[] = {
      {{"--lang", "de", "$d Hz$, %d Bit$, %s", "44100", "16", "Stereo"}, "44.100 Hz; 16 Bit; Stereo\n"},
      {{"--lang=en-US", "%I64d|%llu|%x|%-5d|%hd|%i", "-3000000000", "5000000000", "255", "7", "1", "2"},
       "-3000000000|5000000000|ff|7    |1|2\n"},
      {{"--lang", "pt-BR", "$.2z %.1f %g %E", "123456", "2.25", "1e300", ".5"},
       "1.234,56 2.2 1e+300 5.000000E-01\n"},
      {{"--lang", "ja", "%c%ls%hs", "é", "--lang", "Käse"}, "é--langKäse\n"},
      {{"%%$$$%$!:$!x$&,%d", "-1"}, "%$%:x,-1\n"},
      {{"--lang", "de", "$(1234.5)$(12x%d$(No) %5", "7"}, "1.234,5$(12x7$(No) %5\n"},
      {{"$(Open %d"}, "$(Open %d\n"},
      {{"--token", "appname=A=B", "--token", "x y=", "$(AppName)$(x y)"}, "A=B\n"},
      {{"--lang", "zh_TW", "$(SMPTE.Label.Drop.Full)"}, "小時:分鐘:秒,影格\n"},
      {{"--", ""}, "\n"}};
  for (const auto& [words, expected] : kCases) {
    const ToolRun run = Qntext(words);
    EXPECT_EQ(run.out, expected) << run.err;
    EXPECT_EQ(run.exit, 0);
  }
  const ToolRun polish = Qntext({"$.1f $(MusicTime.Label)", "0.5"}, "LC_ALL=pl_PL.UTF-8");
  EXPECT_EQ(polish.out, "0,5 tk.ud.ti\n");
  EXPECT_NE(Qntext({"--lang", "fi", "--tokens"}).out.find("  $(SMPTE.Label.NonDrop)       tt:mm:ss.rr\n"),
            std::string::npos);
}

TEST(TextTool, RefusesWhatDoesNotFitTheFormat) {
  using Row = std::pair<Words, const char*>;
  for (const auto& [words, message] :
       {Row({}, "no format"), Row({"--tokens", "x"}, "no operand"),
        Row({"--tokens", "--print-time", "1"}, "do not go together"),
        Row({"--lang", "xx", ""}, "unknown language 'xx'"),
        Row({"--token", "x", ""}, "'x' is not NAME=VALUE"),
        Row({"100 % done"}, "no argument is left for '% d'"),
        Row({"%d", "1", "2"}, "no conversion is left for '2'"), Row({"%d", "2147483648"}, "not '2147483648'"),
        Row({"%u", "-1"}, "not '-1'"), Row({"%d", "1.5"}, "not '1.5'"), Row({"$f", "1,5"}, "not '1,5'"),
        Row({"%c", "ab"}, "not 'ab'"), Row({"%hf", "1"}, "'%hf' is no conversion"),
        Row({"%S is", "1"}, "'%S i' is no conversion"), Row({"%99999999d", "1"}, "too long"),
        Row({"$(" + std::string(300, 'x') + "%s", "1"}, "too long"),
        Row({"--print-time", "smpte", "1"}, "unknown time format 'smpte'"),
        Row({"--print-time", "1", "1:00"}, "'1:00' is no time"),
        Row({"--frame-rate", "25/0", "--print-time", "frames", "1"}, "bad value '25/0' for --frame-rate")}) {
    const ToolRun run = Qntext(words);
    ExpectRun(run, 2, message);
    EXPECT_EQ(run.out, "");
  }
}

TEST(TextTool, WritesAndReadsTimesInAllFormats) {
  const char* const kNames[] = {"samples",  "time",        "seconds",      "time-frames",     "frames",
                                "measures", "smpte-29.97", "smpte-30",     "smpte-drop",      "smpte-25",
                                "smpte-24", "nanotime",    "microseconds", "measures-from-0", "beats",
                                "feet-40",  "feet-16",     "cd",           "smpte-23.976",    "compact"};
  for (size_t i = 0; i < std::size(kNames); ++i) {
    SCOPED_TRACE(kNames[i]);
    const std::string shown = Qntext({"--lang", "de", "--print-time", kNames[i], "612345678"}).out;
    EXPECT_EQ(Qntext({"--lang", "de", "--print-time", std::to_string(i), "612345678"}).out, shown);
    if (i == 14 || i == 19) continue;  // written only
    const std::string text = shown.substr(0, shown.size() - 1);
    const std::string read = Qntext({"--lang", "de", "--parse-time", kNames[i], text}).out;
    const std::string time = read.substr(0, read.find(','));
    EXPECT_EQ(read, time + ", read to the end\n");
    EXPECT_EQ(Qntext({"--lang", "de", "--print-time", kNames[i], time}).out, shown);
  }
  const std::pair<Words, const char*> kCases[] = {
      {{"--print-time", "smpte-drop", "600600000", "-600600000"}, "00:01:00;02\n-00:01:00;02\n"},
      {{"--short", "--tempo", "60", "--beats", "3", "--print-time", "measures", "40000000"}, "2.2\n"},
      {{"--rate", "44100", "--offset", "10000000", "--print-time", "samples", "20000000"}, "44,100\n"},
      {{"--absolute", "--offset", "10000000", "--parse-time", "seconds", "-1"},
       "-10000000, read to the end\n"},
      {{"--parse-time", "seconds", "1.5 s"}, "15000000, stopped at ' s'\n"}};
  for (const auto& [words, expected] : kCases) EXPECT_EQ(Qntext(words, "LC_ALL=C").out, expected);
}

}  // namespace
}  // namespace qntest
