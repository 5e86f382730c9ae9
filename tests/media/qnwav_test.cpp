#include "qn/media/qnwav.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <bit>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <tuple>
#include <vector>

#include "qn/settings/qnstatus.h"
#include "tests/media/media_bytes.h"

namespace {

using namespace qntest;

const std::string kRecord = "01 00 02 00 44 AC 00 00 10 B1 02 00 04 00 10 00 00 00 ";  // 16 bits, stereo
const std::string kRiff64 = "'riff' 2E 91 CF 11 A5 D6 28 DB 04 C1 00 00 ";
const std::string kTail64 = " F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A ";
const std::string kJunk64 = "'junk' F3 AC 3D 11 8C D1 00 C0 4F 8E DB 8A ";
const std::string kForm64 = "'wave'" + kTail64 + "'fmt '" + kTail64 + "2A *7 " + kRecord + "*6 ";

struct Found {
  std::unique_ptr<WAVEFORMATEX, decltype(&std::free)> record{nullptr, &std::free};
  uint64_t frames = 77;
  uint64_t start = 77;
};
Found Get(const TestFile& file) {
  Found found;
  found.record.reset(QnGetFileWfx(file.Path(), &found.frames, &found.start));
  if (found.record) {  // all that the record says it has can be read
    const auto bytes = reinterpret_cast<const uint8_t*>(found.record.get());
    EXPECT_EQ(Bytes(bytes, bytes + 18 + found.record->cbSize)[0], bytes[0]);
  }
  return found;
}

TEST(QnWav, NewHeaders) {
  const WAVEFORMATEX format = MakeFormat(1, 2, 44100, 16);
  const Bytes start = Hex("'WAVEfmt ' 12 *3 " + kRecord);
  TestFile file;
  EXPECT_EQ(QnInitializeWav(file.Path(), &format, CREATE_NEW), S_OK);
  EXPECT_EQ(file.Content(), Hex("'RIFF' 26 *3 ") + start + Hex("'data' *4"));
  const Found found = Get(file);
  ASSERT_TRUE(found.record);
  EXPECT_EQ(std::tuple(found.frames, found.start), std::tuple(0u, 46u));
  EXPECT_EQ(BytesOf(*found.record), BytesOf(format));

  EXPECT_EQ(QnInitializeWavWithJunk(file.Path(), &format, CREATE_ALWAYS, 4095), S_OK);
  EXPECT_EQ(file.Content(), Hex("'RIFF' F8 0F *2 ") + start + Hex("'JUNK' CA 0F *2 *4042 'data' *4"));
  EXPECT_EQ(QnInitializeWavWithJunk(file.Path(), &format, OPEN_ALWAYS, 53), S_OK);
  EXPECT_EQ(file.Content(), Hex("'RIFF' 2E *3 ") + start + Hex("'JUNK' *4 'data' *4"));

  EXPECT_EQ(QnInitializeWav64(file.Path(), &format, OPEN_EXISTING), S_OK);
  EXPECT_EQ(file.Content(), Hex(kRiff64 + "82 *7 " + kForm64 + "'data'" + kTail64 + "18 *7"));
  EXPECT_EQ(Get(file).start, 112u);
  EXPECT_EQ(QnInitializeWav64WithJunk(file.Path(), &format, OPEN_EXISTING, 129), S_OK);
  EXPECT_EQ(file.Content(), Hex(kRiff64 + "A0 *7 " + kForm64 + kJunk64 + "18 *7 'data'" + kTail64 + "18 *7"));
  EXPECT_EQ(QnInitializeWav64WithJunk(file.Path(), &format, OPEN_EXISTING, 4096), S_OK);
  EXPECT_EQ(file.Content(),
            Hex(kRiff64 + "18 10 *6 " + kForm64 + kJunk64 + "90 0F *6 *3960 'data'" + kTail64 + "18 *7"));
}

TEST(QnWav, NewFilesKeepTheOrderOfTheirTests) {
  const WAVEFORMATEX good = MakeFormat(1, 2, 44100, 16);
  TestFile file;
  EXPECT_EQ(QnInitializeWav(file.Path(), &good, OPEN_EXISTING), QN_E_FILE_OPEN);
  EXPECT_FALSE(std::filesystem::exists(file.Native()));
  WriteFileBytes(file.Native(), {1, 2, 3});
  EXPECT_EQ(QnInitializeWav64(file.Path(), &good, CREATE_NEW), QN_E_FILE_OPEN);

  WAVEFORMATEX twenty = MakeFormat(1, 2, 44100, 20);
  WAVEFORMATEX unaligned = good;
  unaligned.nBlockAlign = 3;
  WAVEFORMATEX longer = MakeFormat(3, 2, 44100, 32);
  longer.cbSize = 2;
  for (const WAVEFORMATEX& bad : {twenty, unaligned, longer}) {
    EXPECT_EQ(QnInitializeWav(file.Path(), &bad, CREATE_ALWAYS), QN_E_MEDIA_TYPE);
    EXPECT_EQ(QnInitializeWav64WithJunk(file.Path(), &bad, CREATE_ALWAYS, 0), QN_E_MEDIA_TYPE);
    EXPECT_EQ(QnInsertWavHeader(file.Open(), &bad, 0, 1), QN_E_MEDIA_TYPE);
  }
  file.Close();
  EXPECT_EQ(file.Content(), Bytes({1, 2, 3}));
  // Too small a reserve is seen only when the file has been emptied.
  EXPECT_EQ(QnInitializeWavWithJunk(file.Path(), &good, OPEN_EXISTING, 52), E_INVALIDARG);
  EXPECT_TRUE(file.Content().empty());
  EXPECT_EQ(QnInitializeWavWithJunk(file.Path(), &good, OPEN_EXISTING, 0xFFFFFFFF), E_INVALIDARG);
  for (int64_t size : {int64_t{128}, int64_t{-1}, INT64_MIN, INT64_MAX}) {
    EXPECT_EQ(QnInitializeWav64WithJunk(file.Path(), &good, OPEN_EXISTING, size), E_INVALIDARG) << size;
  }
  EXPECT_TRUE(file.Content().empty());
  twenty.wFormatTag = 0x55;  // other tags are not looked into
  EXPECT_EQ(QnInitializeWav(file.Path(), &twenty, OPEN_ALWAYS), S_OK);

  _qnwaveformat record;
  record.Init(44100, QNST_PCM16, 2, 0, sizeof record);
  EXPECT_EQ(QnInitializeWav(file.Path(), &record, OPEN_ALWAYS), S_OK);
  EXPECT_EQ(Bytes(file.Content()).size(), 46u);
  EXPECT_EQ(BytesOf(*Get(file).record), BytesOf(good));
  record.Init(44100, QNST_PCM16, 2, 4, sizeof record);  // a mask takes an extensible header
  EXPECT_EQ(QnInitializeWav(file.Path(), &record, OPEN_ALWAYS), QN_E_MEDIA_TYPE);
}

TEST(QnWav, InsertedHeadersMoveNothing) {
  const WAVEFORMATEX format = MakeFormat(1, 2, 44100, 16);
  const Bytes old(300, 0xEE);
  const std::string start = "'WAVEfmt ' 12 *3 " + kRecord;
  const std::string data64 = "'data'" + kTail64 + "18 01 *6";
  struct Case {
    bool wave64;
    int64_t offset;
    std::string header;
  } cases[] = {
      {false, 46, "'RIFF' 26 01 *2 " + start + "'data' 00 01 *2"},
      {false, 54, "'RIFF' 2E 01 *2 " + start + "'JUNK' *4 'data' 00 01 *2"},
      {false, 56, "'RIFF' 30 01 *2 " + start + "'JUNK' 02 *3 *2 'data' 00 01 *2"},
      {true, 112, kRiff64 + "70 01 *6 " + kForm64 + data64},
      {true, 136, kRiff64 + "88 01 *6 " + kForm64 + kJunk64 + "18 *7 " + data64},
      {true, 152, kRiff64 + "98 01 *6 " + kForm64 + kJunk64 + "28 *7 *16 " + data64},
  };
  for (const Case& c : cases) {
    TestFile file(old);
    file.Move(7, FILE_BEGIN);
    const HRESULT status =
        c.wave64 ? QnInsertW64Header(file.Open(), &format, 256, c.offset)
                 : QnInsertWavHeader(file.Open(), &format, 256, static_cast<uint32_t>(c.offset));
    EXPECT_EQ(status, S_OK) << c.offset;
    EXPECT_EQ(file.Position(), 7);
    const Bytes header = Hex(c.header);
    EXPECT_EQ(file.Content(), header + Bytes(old.begin() + header.size(), old.end())) << c.offset;
  }
  TestFile file(old);
  for (uint32_t offset : {0, 44, 45, 47, 48, 52, 57}) {
    EXPECT_EQ(QnInsertWavHeader(file.Open(), &format, 256, offset), QN_E_CHUNK_SIZE) << offset;
  }
  for (int64_t offset : {-8, 104, 113, 120, 128, 140}) {
    EXPECT_EQ(QnInsertW64Header(file.Open(), &format, 256, offset), QN_E_CHUNK_SIZE) << offset;
  }
  EXPECT_EQ(file.Content(), old);
  TestFile small(Bytes(45));
  EXPECT_EQ(QnInsertWavHeader(small.Open(), &format, 0, 46), QN_E_CHUNK_SIZE);
  TestFile wide(Bytes(46));
  EXPECT_EQ(QnInsertWavHeader(wide.Open(), &format, 0xFFFFFFF0, 46), S_OK);
  const Bytes header = wide.Content();
  EXPECT_EQ(Bytes(header.begin() + 4, header.begin() + 8), Bytes(4, 0xFF)) << "no wrapped RIFF size";
}

// Files as others write them: what is read, and whether the file is recognised without and with its format
// being looked into.
TEST(QnWav, ReadsWhatOthersWrite) {
  const std::string wave = "'RIFF' FF *3 'WAVE' ";
  const std::string most = "'RIFF' FF FF FF FF 'WAVE' ";
  const std::string pcm = "01 00 02 00 44 AC 00 00 10 B1 02 00 04 00 10 00 ";
  const std::string fmt = "'fmt ' 10 *3 " + pcm;
  const std::string extensible = "'fmt ' 28 *3 FE FF" + pcm.substr(5) + "16 00 10 00 03 00 00 00 ";
  const std::string data = "'data' 08 *3";
  const std::string wave64 = kRiff64 + "00 20 *6 'wave'" + kTail64;
  const std::string fmt64 = "'fmt '" + kTail64 + "2A *7 " + kRecord + "*6 ";
  const std::string data64 = "'data'" + kTail64 + "24 *7";
  const std::string ones = "FF FF FF FF FF FF FF ";
  struct Case {
    const char* what;
    std::string text;
    uint64_t start;  // 0: nothing is read
    uint64_t frames;
    int is;  // 0 no, 1 with compressed formats allowed, 2 yes
  } cases[] = {
      {"16 bytes of format", wave + fmt + data, 44, 2, 2},
      {"odd chunks, padded", wave + "'LIST' 03 *3 'abc' 00 " + fmt + "'x y ' 01 *3 01 02 " + data, 66, 2, 2},
      {"extensible", wave + extensible + "01 *5 10 00 80 00 00 AA 00 38 9B 71 " + data, 68, 2, 2},
      {"unknown sub-format", wave + extensible + "*16 " + data, 0, 0, 1},
      {"cbSize beyond the chunk", wave + "'fmt ' 12 *3 " + pcm + "FF FF " + data, 46, 2, 2},
      {"block align 0", wave + "'fmt ' 10 *3 01 00 02 00 44 AC *6 *2 04 00 " + data, 0, 0, 2},
      {"compressed", wave + "'fmt ' 10 *3 02 00 02 00 44 AC *6 04 00 04 00 " + data, 0, 0, 1},
      {"no data", wave + fmt, 0, 0, 2},
      {"cut in the format", wave + "'fmt ' 12 *3 02 00 02 00", 0, 0, 1},
      // The format chunk itself is not taken off the budget of the walk to the data.
      {"a size that ends before the data", "'RIFF' 14 *3 'WAVE' " + fmt + data, 44, 2, 2},
      {"a size that ends at the format", "'RIFF' 0B *3 'WAVE' " + fmt + data, 0, 0, 0},
      {"a size below the form", "'RIFF' 03 *3 'WAVE' " + fmt + data, 0, 0, 0},
      {"data of the largest size", most + fmt + "'data' FF FF FF FF", 44, 0x3FFFFFFF, 2},
      {"another form", "'RIFF' 24 *3 'AVI ' " + fmt + data, 0, 0, 0},
      {"format of 4 GiB", most + "'fmt ' FF FF FF FF " + pcm + "*40", 0, 0, 2},
      {"chunk over the end", most + "'LIST' FE FF FF FF " + fmt + data, 0, 0, 0},
      {"a short header", "'RIFF' 24 00", 0, 0, 0},
      {"nothing", "", 0, 0, 0},
      {"Wave64", wave64 + fmt64 + data64, 112, 3, 2},
      {"Wave64, a negative size", wave64 + fmt64 + "'data'" + kTail64 + ones + "FF", 112, uint64_t(-6), 2},
      {"Wave64, another form", kRiff64 + "FF *7 " + kJunk64 + fmt64 + data64, 0, 0, 0},
      {"Wave64, a format over 4,096 bytes",
       wave64 + "'fmt '" + kTail64 + "19 10 *6 " + kRecord + "*4086 " + data64, 0, 0, 2},
      {"Wave64, sizes that lead nowhere", wave64 + kJunk64 + ones + "7F " + kJunk64 + "E8 " + ones, 0, 0, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const TestFile file(Hex(c.text));
    const Found found = Get(file);
    EXPECT_EQ(found.record != nullptr, c.start != 0);
    EXPECT_EQ(found.start, c.start ? c.start : 77) << "outputs stay on failure";
    EXPECT_EQ(found.frames, c.start ? c.frames : 77);
    const bool is64 = c.text.starts_with(kRiff64);
    EXPECT_EQ(QnFileIsWave(file.Path(), 0) + QnFileIsWave(file.Path(), 1), is64 ? 0 : c.is);
    EXPECT_EQ(QnFileIsWave64(file.Path(), 0) + QnFileIsWave64(file.Path(), 1), is64 ? c.is : 0);
  }
  const TestFile twenty(Hex(wave + "'fmt ' 10 *3 " + pcm.substr(0, 42) + "14 00 'data' 0C *3"));
  const Found found = Get(twenty);
  EXPECT_EQ(std::tuple(found.record->wBitsPerSample, found.record->nBlockAlign), std::tuple(24, 6));
  EXPECT_EQ(found.frames, 2u);
  EXPECT_EQ(QnGetFileWfx(W("\\no\\such\\file"), nullptr, nullptr), nullptr);
}

TEST(QnWav, SetFileWfx) {
  const WAVEFORMATEX format = MakeFormat(1, 1, 8000, 8);
  const Bytes chunk = Hex("'fmt ' 12 *3 ") + BytesOf(format);
  Bytes wav = Hex("'RIFF' 26 *3 'WAVEfmt ' 12 *3 " + kRecord + "'data' *4 01 02 03 04");
  TestFile file(wav);
  WAVEFORMATEX bad = MakeFormat(1, 1, 8000, 20);
  EXPECT_EQ(QnSetFileWfx(file.Path(), &bad), QN_E_MEDIA_TYPE);
  EXPECT_EQ(QnSetFileWfx(file.Path(), &format), S_OK);
  EXPECT_EQ(file.Content(), chunk + Bytes(wav.begin() + 26, wav.end())) << "over the file's start";
  EXPECT_LT(QnSetFileWfx(file.Path(), &format), 0) << "which leaves no WAV file";
  EXPECT_TRUE(DeleteFileW(file.Path())) << "no handle is left open";
  EXPECT_EQ(QnSetFileWfx(W("\\no\\such\\file"), &format), QN_E_FILE_OPEN);
}

double Sample(const uint8_t* bytes, const WAVEFORMATEX& format) {
  const int size = format.wBitsPerSample / 8;
  const bool big = format.wFormatTag == QNWAVETAG_BIGENDIAN;
  uint64_t value = 0;
  for (int i = 0; i < size; ++i) value |= uint64_t{bytes[big ? size - 1 - i : i]} << 8 * i;
  if (QnAudio_GetWaveFormatTag(&format) == 3) {
    if (size == 8) return std::bit_cast<double>(value);
    return std::bit_cast<float>(static_cast<uint32_t>(value));
  }
  if (size == 1 && format.wFormatTag == 1) value ^= 0x80;
  return static_cast<double>(static_cast<int64_t>(value << (64 - 8 * size))) / 0x1p63;
}

// Our reading of other programs' files against that of a third.
TEST(QnWav, ForeignFilesSampleBySample) {
  if (!HasProgram("sox") || !HasProgram("ffmpeg")) GTEST_SKIP() << "needs sox and ffmpeg";
  const std::tuple<const char*, const char*, int, int> cases[] = {
      {"sox", "-b 8 x.wav", 1, 8},
      {"sox", "-b 16 x.wav", 1, 16},
      {"sox", "-b 24 x.wav", 0xFFFE, 24},
      {"sox", "-b 32 x.wav", 0xFFFE, 32},
      {"sox", "-e float -b 32 x.wav", 3, 32},
      {"sox", "-e float -b 64 x.wav", 3, 64},
      {"sox", "-b 8 x.aiff", 0xFE01, 8},
      {"sox", "-b 16 x.aiff", 0xFE02, 16},
      {"sox", "-b 24 x.aifc", 0xFE02, 24},
      {"sox", "-b 32 x.aiff", 0xFE02, 32},
      {"ffmpeg", "-c:a pcm_s16le x.w64", 1, 16},
      {"ffmpeg", "-c:a pcm_s24le x.w64", 0xFFFE, 24},
      {"ffmpeg", "-ac 6 -c:a pcm_f32le x.wav", 0xFFFE, 32},
      {"ffmpeg", "-c:a pcm_s16le x.aifc", 1, 16},
  };
  for (const auto& [program, output, tag, bits] : cases) {
    SCOPED_TRACE(output);
    const ScratchFolder folder;
    const std::string command =
        *program == 's' ? "sox -D -n -r 22050 -c 2 " + std::string(output) + " synth 0.05 sine 440 sine 1000"
                        : "ffmpeg -v error -f lavfi -i sine=440:r=48000:d=0.05 -ac 2 " + std::string(output);
    ASSERT_EQ(RunCommand("cd " + folder.Native("") + " && " + command + " </dev/null 2>&1"), 0);
    const std::string name = folder.Native(std::strchr(output, 'x'));
    SF_INFO info{};
    SNDFILE* peer = sf_open(name.c_str(), SFM_READ, &info);
    ASSERT_TRUE(peer);
    std::vector<double> expected(static_cast<size_t>(info.frames * info.channels));
    sf_readf_double(peer, expected.data(), info.frames);
    sf_close(peer);

    const TestFile file(ReadFileBytes(name));
    const Bytes content = file.Content();
    const Found found = Get(file);
    ASSERT_TRUE(found.record);
    EXPECT_EQ(std::tuple(found.record->wFormatTag, found.record->wBitsPerSample), std::tuple(tag, bits));
    EXPECT_EQ(std::tuple(found.record->nChannels, found.record->nSamplesPerSec),
              std::tuple(info.channels, static_cast<uint32_t>(info.samplerate)));
    ASSERT_EQ(found.frames, static_cast<uint64_t>(info.frames));
    ASSERT_GT(info.frames, 1000);
    size_t wrong = 0;
    for (size_t i = 0; i < expected.size(); ++i) {
      wrong += Sample(&content[found.start + i * bits / 8], *found.record) != expected[i];
    }
    EXPECT_EQ(wrong, 0u);
  }
}

TEST(QnWav, PlacesBeyond2And4GiB) {
  const std::string riff = "'RIFF' FF FF FF FF 'WAVEfmt ' 12 *3 " + kRecord + "'JUNK'";
  struct Case {
    Bytes start;
    int64_t junk;
    Bytes data;
    uint64_t frames;
  } cases[] = {
      {Hex(riff + "00 FF FF 7F"), 0x7FFFFF00, Hex("'data' 10 *3"), 4},
      {Hex(riff + "*3 C0"), 0xC0000000, Hex("'data' 10 *3"), 4},
      {Hex(riff + "00 FF FF FF"), 0xFFFFFF00, Hex("'data' 10 *3"), 4},
      {Hex(kRiff64 + "*7 02 " + kForm64 + kJunk64 + "18 *3 01 *3"), 0x100000000,
       Hex("'data'" + kTail64 + "18 *3 02 *3"), 0x80000000},
  };
  for (const Case& c : cases) {
    TestFile file(c.start);
    const int64_t place = file.Move(c.junk, FILE_END);
    DWORD put;
    ASSERT_TRUE(WriteFile(file.Open(), c.data.data(), static_cast<DWORD>(c.data.size()), &put, nullptr));
    file.Close();
    const Found found = Get(file);
    EXPECT_EQ(std::tuple(found.frames, found.start), std::tuple(c.frames, place + c.data.size())) << c.junk;
  }
}

}  // namespace
