#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <tuple>
#include <utility>
#include <vector>

#include "qn/media/qnwav.h"
#include "qn/settings/qnstatus.h"
#include "tests/media/media_bytes.h"

namespace {

using namespace qntest;

// Either container through one door.
HRESULT Insert(bool wave64, HANDLE file, const WAVEFORMATEX& format, int64_t bytes, int64_t offset) {
  return wave64
             ? QnInsertW64Header(file, &format, bytes, offset)
             : QnInsertWavHeader(file, &format, static_cast<uint32_t>(bytes), static_cast<uint32_t>(offset));
}
HRESULT Fix(bool wave64, HANDLE file, const WAVEFORMATEX* format, int64_t limit) {
  return wave64 ? QnFixTrashedW64(file, format, limit)
                : QnFixTrashedWav(file, format, static_cast<uint32_t>(limit));
}

// The repaired file is the undamaged one, byte for byte, and a second repair changes nothing.
TEST(QnWavRepair, BringsBackDamagedRecordings) {
  const std::string folder = "/usr/share/sounds/alsa";
  if (!std::filesystem::exists(folder)) GTEST_SKIP() << "needs the recordings of alsa-utils";
  constexpr int kRandom = -1;
  struct Damage {
    const char* what;
    size_t from, to;
    int value;  // or kRandom
  };
  for (const char* name : {"/Front_Center.wav", "/Noise.wav", "/Side_Left.wav"}) {
    const Bytes recording = ReadFileBytes(folder + name);
    ASSERT_GT(recording.size(), 44u);
    const Bytes samples(recording.begin() + 44, recording.end());
    WAVEFORMATEX format{};
    std::memcpy(&format, &recording[20], 16);
    for (const bool wave64 : {false, true}) {
      for (const size_t header :
           {wave64 ? size_t{112} : size_t{46}, size_t{136}, size_t{512}, size_t{8192}}) {
        const size_t end = header, tag = end - (wave64 ? 24 : 8), size = end - (wave64 ? 8 : 4);
        const size_t record = wave64 ? 64 : 20, recordEnd = wave64 ? 88 : 38;
        const Damage damages[] = {
            {"none", 0, 0, 0},
            {"file id", 0, 4, kRandom},
            {"file size 0", wave64 ? 16u : 4u, wave64 ? 24u : 8u, 0},
            {"file size all bits", wave64 ? 16u : 4u, wave64 ? 24u : 8u, 0xFF},
            {"format chunk", record - 8, record, kRandom},
            {"all before the record", 0, record, 0},
            {"all before the samples' chunk", 0, tag, 0},
            {"record", record, recordEnd, 0},
            {"chunk behind the record", recordEnd, recordEnd + 4, 0xFF},
            {"data size 0", size, end, 0},
            {"data size all bits", size, end, 0xFF},
            {"data tag", tag, size, 0xEE},
            {"all of it, zeros", 0, end, 0},
            {"all of it, ones", 0, end, 0xFF},
        };
        Bytes whole = Bytes(header) + samples + Bytes(header == 512 ? 1 : 0);
        TestFile reference(whole);
        ASSERT_EQ(Insert(wave64, reference.Open(), format, samples.size(), header), S_OK);
        reference.Close();
        whole = reference.Content();
        for (const Damage& damage : damages) {
          SCOPED_TRACE(std::string(damage.what) + (wave64 ? ", Wave64, " : ", WAV, ") +
                       std::to_string(header));
          Bytes spoilt = whole;
          for (size_t i = damage.from; i < damage.to; ++i) {
            spoilt[i] = static_cast<uint8_t>(damage.value == kRandom ? Random()() : damage.value);
          }
          TestFile file(spoilt);
          file.Move(5, FILE_BEGIN);
          ASSERT_EQ(Fix(wave64, file.Open(), &format, header), S_OK);
          ASSERT_TRUE(file.Content() == whole);
          ASSERT_EQ(Fix(wave64, file.Open(), nullptr, header), S_OK);
          ASSERT_TRUE(file.Content() == whole);
          EXPECT_EQ(file.Position(), 5);
        }
        uint64_t frames = 0;
        uint64_t start = 0;
        std::free(QnGetFileWfx(reference.Path(), &frames, &start));
        EXPECT_EQ(std::tuple(frames, start), std::tuple(samples.size() / 2, header));
      }
    }
  }
}

// What stands at the record's place, and what is made of it.
TEST(QnWavRepair, SanitisesFieldByField) {
  const WAVEFORMATEX integer = MakeFormat(1, 6, 96000, 64);
  const WAVEFORMATEX floating = MakeFormat(3, 4, 1000, 64);
  const WAVEFORMATEX eight = MakeFormat(0xFE01, 1, 8000, 8);
  struct Case {
    WAVEFORMATEX stored;
    const WAVEFORMATEX* defaults;
    WAVEFORMATEX expected;
  } cases[] = {
      {MakeFormat(1, 2, 48000, 16), nullptr, MakeFormat(1, 2, 48000, 16)},
      {MakeFormat(0, 0, 0, 0), nullptr, MakeFormat(1, 2, 44100, 16)},
      {MakeFormat(1, 1, 2000, 24), &integer, MakeFormat(1, 1, 2000, 24)},
      {MakeFormat(3, 2, 192000, 64), &integer, MakeFormat(3, 2, 192000, 64)},
      {MakeFormat(2, 3, 1999, 20), &integer, MakeFormat(1, 6, 96000, 32)},
      {MakeFormat(2, 3, 192001, 20), &floating, MakeFormat(3, 4, 1000, 64)},
      {MakeFormat(1, 2, 44100, 64), &floating, MakeFormat(1, 2, 44100, 32)},
      {MakeFormat(3, 2, 44100, 16), &eight, MakeFormat(3, 2, 44100, 32)},
      {MakeFormat(0xFFFE, 9, 1, 9), &eight, eight},
  };
  for (Case c : cases) {
    c.stored.cbSize = 22;
    c.stored.nBlockAlign = 1;
    for (const bool wave64 : {false, true}) {
      const size_t at = wave64 ? 64 : 20;
      Bytes bytes(1000);
      std::memcpy(&bytes[at], &c.stored, sizeof c.stored);
      TestFile file(bytes);
      EXPECT_EQ(Fix(wave64, file.Open(), c.defaults, 200), S_OK);
      const Bytes content = file.Content();
      EXPECT_EQ(Bytes(content.begin() + at, content.begin() + at + 18), BytesOf(c.expected));
    }
  }
  WAVEFORMATEX useless = MakeFormat(1, 2, 44100, 20);
  TestFile file(Bytes(1000));
  EXPECT_EQ(QnFixTrashedWav(file.Open(), &useless, 200), QN_E_MEDIA_TYPE);
  useless.nChannels = 0;
  useless.wBitsPerSample = 16;
  EXPECT_EQ(QnFixTrashedW64(file.Open(), &useless, 200), QN_E_MEDIA_TYPE);
  EXPECT_EQ(file.Content(), Bytes(1000));
  // The forms of the library's own record.
  _qnwaveformat own;
  own.Init(22050, QNST_FLOAT32, 2, 0, sizeof own);
  EXPECT_EQ(QnFixTrashedWav(file.Open(), &own, 200), S_OK);
  const Bytes content = file.Content();
  EXPECT_EQ(Bytes(content.begin() + 20, content.begin() + 38), BytesOf(MakeFormat(3, 2, 22050, 32)));
  EXPECT_EQ(QnFixTrashedWav(file.Open(), nullptr, 200), S_OK);
}

// Where the samples are found to start, in files of 0x01 (a walk over which fails) with text put in.
TEST(QnWavRepair, FindsTheSamples) {
  const std::string guid = "'data' F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A";
  struct Case {
    bool wave64;
    size_t length;
    std::vector<std::pair<size_t, std::string>> put;
    int64_t limit;
    int64_t start;  // 0: no header ends there
    HRESULT status = S_OK;
  } cases[] = {
      {false, 9000, {{4132, "'data'"}}, 9000, 4140},                    // across the first block's end
      {false, 9000, {{4130, "'data'"}, {4200, "'data'"}}, 9000, 4138},  // its last four bytes
      {false, 9000, {{4131, "'data'"}}, 9000, 0, QN_E_CHUNK_SIZE},      // an odd place
      {false, 9000, {{400, "'data'"}}, 100, 408},                       // in the block that reaches the limit
      {false, 9000, {{5000, "'data'"}}, 4134, 4134},                    // behind it
      {false, 9000, {{5000, "'data'"}}, 4136, 5008},                    // one block more
      {false, 9000, {}, 1 << 20, 9000},                                 // the limit is the file's end
      {false, 9000, {}, 48, 0, QN_E_CHUNK_SIZE},
      {false, 9000, {{38, "'data'"}}, 46, 46},
      {false, 9000, {{34, "'data'"}}, 60, 60},                               // before the record's end
      {false, 9000, {{8996, "'data'"}}, 9000, 9004},                         // in the file's last bytes
      {false, 9000, {{38, "'JUNK' 03 00 00 00 'abc' 00 'data'"}}, 100, 58},  // by the chunks
      {false, 9000, {{38, "'JUNK' 08 00 00 00 'dataxxxx' 'data'"}}, 100, 62},
      {false,
       9000,
       {{38, "'JUNK' 08 00 00 00 'dataxxxx' 'data'"}},
       23,
       54},  // not by them: the budget is short
      {false, 38, {}, 100, 0, QN_E_CHUNK_SIZE},
      {false, 37, {}, 100, 0, QN_E_FILE_READ},
      {true, 9000, {{4176, guid}}, 9000, 4200},
      {true, 9000, {{4170, guid}}, 9000, 0, QN_E_CHUNK_SIZE},
      {true, 9000, {{88, "*16 1A *7 *8 " + guid}}, 4096, 144},  // by the chunks, rounded up to 8
      {true, 9000, {{400, "'data'"}}, 4095, 4088},
      {true, 9000, {}, -9, 0, QN_E_CHUNK_SIZE},
      {true, 81, {}, 100, 0, QN_E_FILE_READ},
  };
  for (const Case& c : cases) {
    Bytes bytes(c.length, 1);
    for (const auto& [at, text] : c.put) {
      const Bytes patch = Hex(text);
      std::copy(patch.begin(), patch.end(), bytes.begin() + at);
    }
    TestFile file(bytes);
    SCOPED_TRACE(std::to_string(c.limit) + " " + std::to_string(c.start));
    file.Move(3, FILE_BEGIN);
    EXPECT_EQ(Fix(c.wave64, file.Open(), nullptr, c.limit), c.status);
    EXPECT_EQ(file.Position(), 3);
    if (c.status != S_OK) {
      EXPECT_EQ(file.Content(), bytes) << "nothing is written";
      continue;
    }
    const Bytes content = file.Content();
    EXPECT_TRUE(std::equal(bytes.begin() + std::min<int64_t>(c.start, c.length), bytes.end(),
                           content.begin() + std::min<int64_t>(c.start, c.length)));
    file.Close();
    uint64_t frames = 0;
    uint64_t start = 0;
    std::free(QnGetFileWfx(file.Path(), &frames, &start));
    const uint64_t behind = std::max<int64_t>(static_cast<int64_t>(c.length) - c.start, 0);
    EXPECT_EQ(std::tuple(start, frames), std::tuple(static_cast<uint64_t>(c.start), behind / 4));
  }
}

TEST(QnWavRepair, CountsWholeFramesOfFilesOfAnySize) {
  const int64_t gib = int64_t{1} << 30;
  const WAVEFORMATEX format = MakeFormat(1, 2, 44100, 16);
  struct Case {
    int64_t length;
    uint32_t data;
  } cases[] = {{4096 + 1003, 1000},       {2 * gib - 1, 0x7FFFEFFC}, {2 * gib + 1, 0x7FFFF000},
               {3 * gib, 0xBFFFF000},     {4 * gib - 1, 0xFFFFEFFC}, {4 * gib, 0xFFFFF000},
               {4 * gib + 1, 0xFFFFF000}, {5 * gib, 0xFFFFF004}};  // as many as the RIFF size can count
  for (const Case& c : cases) {
    for (const bool wave64 : {false, true}) {
      TestFile file(Bytes(0));
      file.Move(c.length, FILE_BEGIN);
      ASSERT_TRUE(SetEndOfFile(file.Open()));
      EXPECT_EQ(Fix(wave64, file.Open(), &format, 4096), S_OK);
      EXPECT_EQ(file.Move(0, FILE_END), c.length);
      file.Close();
      uint64_t frames = 0;
      uint64_t start = 0;
      std::free(QnGetFileWfx(file.Path(), &frames, &start));
      EXPECT_EQ(frames, wave64 ? static_cast<uint64_t>(c.length - 4096) / 4 : c.data / 4) << c.length;
      EXPECT_EQ(start, 4096u);
    }
  }
}

}  // namespace
