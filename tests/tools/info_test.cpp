// What `qnwave info` tells of sound, odd and damaged files.
#include <tuple>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

class Info : public ToolTest {
 protected:
  static std::string Told(const std::string& path) {
    const ToolRun run = Qnwave({"info", "--json", path});
    EXPECT_EQ(run.exit, 0) << path << run.out << run.err;
    return run.out;
  }
};

TEST_F(Info, TellsTheFormatAndLengthOfRecordings) {
  const std::string path = kRecording;
  EXPECT_EQ(Jq(Told(path), ".[0] | [.container, .format.type, .format.rate, .dataOffset, .frames] | @csv"),
            "\"WAV\",\"s16\",48000,44,68545");
  const ToolRun text = Qnwave({"info", path});
  for (const char* words : {"WAV (RIFF)", "16-bit integer", "PCM: 48,000 Hz, 16 Bit, Mono", "mono",
                            "48000 Hz", "68,545", "0:00:01.428"}) {
    EXPECT_NE(text.out.find(words), std::string::npos) << words << text.out;
  }
}

TEST_F(Info, DressesNumbersAndTimesOnRequest) {
  // The recording has 137,134 bytes and 68,545 frames at 48 kHz.
  const auto info = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {"info", kRecording});
    return Qnwave(words).out;
  };
  const std::pair<std::vector<std::string>, std::vector<const char*>> kCases[] = {
      {{"--lang", "de"},
       {"137.134 bytes, 133 KB\n", "PCM: 48.000 Hz; 16 Bit; Mono\n", "48.000 Hz", "68.545\n",
        "00:00:01,428\n"}},
      {{"--lang", "fr", "--time-format", "seconds"}, {" 133 Ko\n", "  Duration   1,428\n"}},
      {{"--time-format", "samples"}, {"  Frames     68,545\n", "  Duration   68,545\n", "48000 Hz"}},
      {{"--time-format", "frames", "--frame-rate", "24000/1001"}, {"  Duration   34.238\n"}},
      {{"--time-format", "5", "--tempo", "60", "--beats", "1"}, {"  Duration   2.1.410\n"}}};
  for (const auto& [words, expected] : kCases) {
    const std::string text = info(words);
    for (const char* part : expected) EXPECT_NE(text.find(part), std::string::npos) << part << text;
  }
  EXPECT_EQ(info({"--json", "--lang", "de"}), info({"--json"}));
}

TEST_F(Info, TellsFilesOfOtherPrograms) {
  // The file's name, how it is made, and its container, type, channels and whether it is readable.
  const std::tuple<std::string, std::string, std::string> kCases[] = {
      {"f32.w64", "sox %i -e float -b 32 %o", "Wave64,f32,1,true"},
      {"s16.aiff", "sox %i %o", "AIFF,s16be,1,true"},
      {"rf64.wav", "ffmpeg -v error -i %i -rf64 always %o", "RF64,s16,1,true"},
      {"alaw.wav", "sox %i -e a-law %o", "WAV,null,1,false"}};
  for (const auto& [name, command, expected] : kCases) {
    const std::string path = Path(name);
    Make(command, "/usr/share/sounds/alsa/Noise.wav", path);
    const char* const filter =
        ".[0] | [.container, .format.type, .format.channels, .readable, .damaged, (.problems + .notes | "
        "length)]"
        " | map(tostring) | join(\",\")";
    EXPECT_EQ(Jq(Told(path), filter), expected + ",false,0") << path;
  }
  if (!QN_HAS_CODEC_NAMES) return;
  const std::string alaw = Qnwave({"info", Path("alaw.wav"), "--lang", "fr"}).out;
  EXPECT_NE(alaw.find("PCM A-law / G.711 A-law: "), std::string::npos) << alaw;
  EXPECT_EQ(Jq(Told(Path("alaw.wav")), ".[0].format.words"), "PCM A-law / G.711 A-law");
}

TEST_F(Info, WritesValidJsonForAnyNameAndListsNestedChunks) {
  const Bytes inner = Hex("'INFO'") + Wav::Chunk("INAM", {'x', 0, 0}) + Wav::Chunk("I\"\x01q", {});
  const Bytes file = Wav::Form(Wav::Chunk("fmt ", Record(1, 2, 8000, 16)) + Wav::Chunk("LIST", inner) +
                               Wav::Chunk("data", Noise(40)));
  const std::string name = Path("a \"b\" \n\t \x7F \xF0\x9F\x8E\xB5.wav");
  WriteFileBytes(name, file);
  const ToolRun run = Qnwave({"info", "--json", name, Path("missing"), name});
  EXPECT_EQ(run.exit, 1);
  EXPECT_EQ(Jq(run.out, "length"), "2");
  EXPECT_EQ(Jq(run.out, ".[1].file"), name);
  EXPECT_EQ(Jq(run.out,
               "[.[0].chunks.chunks[] | .id, .type, .offset, .chunks[0].id] | map(tostring) | join(\" \")"),
            "fmt  null 12 null LIST INFO 36 INAM data null " + std::to_string(44 + inner.size()) + " null");
}

TEST_F(Info, TakesOddFilesForWhatTheyAre) {
  const Bytes record = Record(1, 1, 8000, 16), audio = Noise(400), odd = Wav::Chunk("odd ", Noise(7));
  const Bytes format = Wav::Chunk("fmt ", record), data = Wav::Chunk("data", audio);
  const Bytes unpadded(odd.begin(), odd.end() - 1);
  const std::pair<const char*, Bytes> kCases[] = {
      {"padded with a non-zero byte", Wav::Form(unpadded + Hex("FF") + format + data)},
      {"unpadded", Wav::Form(unpadded + format + data)},
      {"chunks behind the samples",
       Wav::Form(format + data + Wav::Chunk("LIST", Noise(7)) + Wav::Chunk("id3 ", audio))},
      {"a broken chunk behind them", Wav::Form(format + data + Hex("'cue '") + Le(99999, 4))},
      {"a large LIST of zeros", Wav::Form(format + Wav::Chunk("LIST", Bytes(400000)) + data)},
      {"zeros behind the samples", Wav::Form(format + data + Bytes(5000))},
      {"something behind the form", Wav::Form(format + data) + Noise(5000)},
      {"a form size that counts its own header", Wav::Form(format + data, format.size() + data.size() + 12)},
      {"a long format chunk", WaveFile(record + Bytes(50), audio)}};
  for (const auto& [what, bytes] : kCases) {
    SCOPED_TRACE(what);
    Write("x.wav", bytes);
    EXPECT_EQ(Jq(Told(Path("x.wav")), ".[0] | .frames, .damaged, .readable"), "200\nfalse\ntrue");
    // What is healthy is not touched.
    EXPECT_NE(Run("repair x.wav").out.find("healthy"), std::string::npos);
    EXPECT_EQ(Read("x.wav"), bytes);
    EXPECT_EQ(Names(), std::vector<std::string>{"x.wav"});
  }
}

TEST_F(Info, CountsChunksWithoutEnd) {
  const Bytes junk = Hex("'junk' *4");
  Bytes empty;
  for (int i = 0; i < 400000; ++i) empty.insert(empty.end(), junk.begin(), junk.end());
  Write("x.wav", Wav::Form(Wav::Chunk("fmt ", Record(1, 1, 8000, 16)) + empty + Wav::List("INFO", empty) +
                           Wav::Chunk("data", Noise(8))));
  const ToolRun run = Run("info x.wav");
  EXPECT_EQ(run.exit, 0);
  EXPECT_LT(run.out.size(), 32u << 10);
  EXPECT_NE(run.out.find("more"), std::string::npos);
  EXPECT_EQ(Jq(Told(Path("x.wav")), ".[0] | .frames, .chunks.chunks[-1].id"), "4\ndata");
}

TEST_F(Info, ReadsSizesAtTheEdgeOfTheFormats) {
  const Bytes format = Wav::Chunk("fmt ", Record(1, 1, 8000, 8));
  for (const uint64_t bytes : {uint64_t{0x7FFFFFFF}, uint64_t{0x80000000}, uint64_t{0xFFFFFFFF - 36}}) {
    const Bytes header = Wav::Form(format + Hex("'data'") + Le(bytes, 4), bytes + 36);
    MakeSparse(Path("x.wav"), header, bytes + 44);
    EXPECT_EQ(Jq(Told(Path("x.wav")), ".[0].frames"), std::to_string(bytes));
  }
}

}  // namespace
}  // namespace qntest
