// `qnwave repair`: every kind of damage on the headers of several programs.
#include <filesystem>
#include <functional>
#include <map>

#include "tests/tools/tool.h"

namespace qntest {
namespace {

using Repair = ToolTest;

// Where the fields of a healthy file stand, from a walk of its own.
struct Map {
  bool wave64 = false;
  std::map<std::string, size_t> chunks;  // the headers
  size_t start = 0;                      // of the samples

  size_t format() const { return chunks.at("fmt "); }
  int sizeBytes() const { return wave64 ? 8 : 4; }
  size_t idBytes() const { return wave64 ? 16 : 4; }
  size_t headerBytes() const { return wave64 ? 24 : 8; }
  size_t formSizeAt() const { return idBytes(); }
  size_t typeAt() const { return headerBytes(); }
  size_t dataSizeAt() const { return start - static_cast<size_t>(sizeBytes()); }
};

Map MapOf(const Bytes& file) {
  Map map;
  map.wave64 = file[0] == 'r';
  for (size_t at = map.headerBytes() + map.idBytes(); at + map.headerBytes() <= file.size();) {
    const std::string id(file.begin() + static_cast<ptrdiff_t>(at),
                         file.begin() + static_cast<ptrdiff_t>(at) + 4);
    const size_t size = Get(file, at + map.idBytes(), map.sizeBytes()) - (map.wave64 ? 24 : 0);
    map.chunks[id] = at;
    if (id == "data") {
      map.start = at + map.headerBytes();
      return map;
    }
    const size_t unit = map.wave64 ? 8 : 2;
    at += map.headerBytes() + (size + unit - 1) / unit * unit;
  }
  ADD_FAILURE() << "no data chunk";
  return map;
}

using Damager = std::function<void(Bytes*, const Map&)>;

void Zero(Bytes* file, size_t from, size_t count) {
  for (size_t i = from; i < from + count; ++i) file->at(i) = 0;
}

constexpr uint64_t kKeep = 1;

// Other sizes of the file and of the data.
Damager Sizes(uint64_t form, uint64_t data) {
  return [=](Bytes* f, const Map& m) {
    if (form != kKeep) Put(f, m.formSizeAt(), form, m.sizeBytes());
    if (data != kKeep) Put(f, m.dataSizeAt(), data, m.sizeBytes());
  };
}

const std::pair<const char*, Damager> kDamages[] = {
    {"both sizes 0", Sizes(0, 0)},
    {"as it was started", [](auto* f, auto& m) { Sizes(m.start, m.wave64 ? 24 : 0)(f, m); }},
    {"both sizes open", Sizes(~uint64_t{0}, ~uint64_t{0})},
    {"sizes beyond the end", Sizes(100'000'000, 90'000'000)},
    {"a data size that is too small", Sizes(kKeep, 4096)},
    {"the form size alone", Sizes(0, kKeep)},
    {"the id of the file", [](auto* f, auto&) { Put(f, 0, 0x58585858, 4); }},
    {"the form type", [](auto* f, auto& m) { Zero(f, m.typeAt(), 4); }},
    {"a zeroed file header", [](auto* f, auto& m) { Zero(f, 0, m.headerBytes() + m.idBytes()); }},
    {"the id of the format chunk", [](auto* f, auto& m) { Put(f, m.format(), 0x04030201, 4); }},
    {"a printable one", [](auto* f, auto& m) { Put(f, m.format(), 0x20786D66, 4); }},
    {"the id of the data chunk", [](auto* f, auto& m) { Put(f, m.start - m.headerBytes(), 0x0201FF00, 4); }},
    {"a zeroed data header", [](auto* f, auto& m) { Zero(f, m.start - m.headerBytes(), m.headerBytes()); }},
    {"zeros up to the record", [](auto* f, auto& m) { Zero(f, 0, m.format() + m.headerBytes()); }},
    {"a frame size of 0", [](auto* f, auto& m) { Zero(f, m.format() + m.headerBytes() + 12, 2); }},
    {"a chunk that leads astray", [](auto* f, auto& m) {
       for (const char* id : {"LIST", "fact"}) {
         if (m.chunks.count(id)) Put(f, m.chunks.at(id) + m.idBytes(), 77777, m.sizeBytes());
       }
     }}};

class RepairOf : public ToolTest, public testing::WithParamInterface<const char*> {};

TEST_P(RepairOf, BringsEveryFrameBack) {
  const std::string command = GetParam();
  const bool wave64 = command.find("w64") != std::string::npos;
  const std::string path = Path(wave64 ? "x.w64" : "x.wav");
  Make(command, kRecording, path);
  const Bytes healthy = ReadFileBytes(path);
  const Map map = MapOf(healthy);
  const Sound sound = ReadSound(path);
  const auto withoutSamples = [&](const Bytes& file) {
    return Bytes(file.begin(), file.begin() + static_cast<ptrdiff_t>(map.start));
  };
  for (const auto& [name, damage] : kDamages) {
    SCOPED_TRACE(command + ": " + name);
    Bytes damaged = healthy;
    damage(&damaged, map);
    if (damaged == healthy) continue;
    WriteFileBytes(path, damaged);
    const ToolRun info = Qnwave({"info", path});
    EXPECT_EQ(info.exit, 3);
    EXPECT_NE(info.out.find("qnwave repair"), std::string::npos) << info.out;
    EXPECT_EQ(Qnwave({"repair", "--dry-run", path}).exit, 3);
    EXPECT_EQ(ReadFileBytes(path), damaged);

    const ToolRun run = Qnwave({"repair", path});
    ASSERT_EQ(run.exit, 0) << run.out << run.err;
    const Bytes repaired = ReadFileBytes(path);
    ASSERT_EQ(repaired.size(), healthy.size());
    EXPECT_TRUE(std::equal(healthy.begin() + static_cast<ptrdiff_t>(map.start), healthy.end(),
                           repaired.begin() + static_cast<ptrdiff_t>(map.start)));
    EXPECT_TRUE(ReadSound(path) == sound);
    EXPECT_EQ(ReadFileBytes(path + ".header.bak"), withoutSamples(damaged));
    EXPECT_NE(Qnwave({"repair", path}).out.find("healthy"), std::string::npos);
    EXPECT_EQ(ReadFileBytes(path), repaired);
    std::filesystem::remove(path + ".header.bak");
  }
}

INSTANTIATE_TEST_SUITE_P(Headers, RepairOf,
                         testing::Values("sox %i -c 2 %o",              // 44 bytes
                                         "sox %i -b 24 -c 6 %o",        // extensible
                                         "sox %i -b 32 -e float %o",    // with a fact chunk
                                         "ffmpeg -v error -i %i %o",    // with a LIST
                                         "sox %i -b 16 -c 2 %o # w64",  // 104 bytes
                                         "ffmpeg -v error -i %i -c:a pcm_s24le -ac 2 %o # w64"));

TEST_F(Repair, SetsTheSizesAloneWhereTheyAloneAreWrong) {
  const std::string path = Path("x.wav");
  Make("sox %i -b 24 -c 6 %o", kRecording, path);
  const Bytes healthy = ReadFileBytes(path);
  const Map map = MapOf(healthy);
  Bytes damaged = healthy;
  kDamages[0].second(&damaged, map);
  // The recording was cut off in the middle of a frame.
  damaged.resize(damaged.size() - 7);
  WriteFileBytes(path, damaged);
  const ToolRun run = Qnwave({"repair", "--no-backup", path});
  EXPECT_NE(run.out.find("set the sizes of the file and of the data; the rest"), std::string::npos)
      << run.out;
  EXPECT_EQ(Names(), std::vector<std::string>{"x.wav"});
  Bytes expected = damaged;
  const size_t data = (damaged.size() - map.start) / 18 * 18;
  Put(&expected, 4, map.start + data - 8, 4);
  Put(&expected, map.dataSizeAt(), data, 4);
  EXPECT_EQ(ReadFileBytes(path), expected);
}

TEST_F(Repair, WritesALostHeaderWithTheDefaultsGiven) {
  const std::string path = Path("x.wav");
  for (const size_t start : {size_t{44}, size_t{46}, size_t{52}, size_t{4096}}) {
    const Bytes audio = Noise(4 * 1000);
    WriteFileBytes(path, Bytes(start) + audio);
    std::vector<std::string> words = {"repair", "--no-backup", path};
    // The two usual starts are told apart by the frames that fill the file.
    if (start > 46) words.insert(words.end(), {"--limit", std::to_string(start)});
    const ToolRun run = Qnwave(words);
    ASSERT_EQ(run.exit, 0) << run.out << run.err;
    EXPECT_NE(run.out.find("guess"), std::string::npos) << run.out;
    const Sound sound = ReadSound(path);
    EXPECT_EQ(sound.rate, 44100);
    EXPECT_EQ(sound.channels, 2);
    ASSERT_EQ(sound.samples.size(), 2000u) << start;
    EXPECT_EQ(sound.samples[0] * 32768, static_cast<int16_t>(Get(audio, 0, 2))) << start;
  }
  WriteFileBytes(path, Bytes(44) + Noise(6000));
  EXPECT_EQ(Qnwave({"repair", path, "--format", "s24,22050,1", "--channels=4", "--rate", "96000"}).exit, 0);
  const Sound sound = ReadSound(path);
  EXPECT_EQ(sound.rate, 96000);
  EXPECT_EQ(sound.channels, 4);
  EXPECT_EQ(sound.samples.size(), 2000u);
}

TEST_F(Repair, NeverOverwritesABackup) {
  for (int i = 0; i < 2; ++i) {
    Write("x.wav", Wav::Form(Wav::Chunk("fmt ", Record(1, 1, 8000, 16)) + Hex("'data' *4") + Noise(100)));
    EXPECT_EQ(Run("repair x.wav").exit, 0);
  }
  EXPECT_EQ(Names(), (std::vector<std::string>{"x.wav", "x.wav.header.bak", "x.wav.header.bak.1"}));
}

TEST_F(Repair, LeavesWhatItIsNotFor) {
  Make("ffmpeg -v error -i %i -rf64 always %o", kRecording, Path("rf64.wav"));
  Make("sox %i %o", kRecording, Path("x.aiff"));
  Make("sox %i %o", kRecording, Path("x.ogg"));
  Write("noise", Noise(5000));
  Write("avi.wav", Hex("'RIFF' 64 *3 'AVI ' *96"));
  Write("short.wav", Hex("'RIFF' *4 'WAVE'"));
  for (const char* name : {"rf64.wav", "x.aiff", "x.ogg", "noise", "avi.wav", "short.wav"}) {
    const Bytes before = Read(name);
    ExpectRun(Qnwave({"repair", Path(name)}), 1, name);
    EXPECT_EQ(Read(name), before) << name;
  }
  EXPECT_EQ(Names().size(), 6u);
  // What a file was can be told.
  EXPECT_EQ(Qnwave({"repair", Path("noise"), "--container", "wav"}).exit, 0);
}

}  // namespace
}  // namespace qntest
