#include "tests/media/media_file.h"

namespace {

using namespace qntest;

const std::string kRecord = "01 00 02 00 44 AC 00 00 10 B1 02 00 04 00 10 00 00 00 ";  // 16 bits, stereo
const std::string kForm = "'WAVEfmt ' 12 *3 " + kRecord;
const std::string kRiff64 = "'riff' 2E 91 CF 11 A5 D6 28 DB 04 C1 00 00 ";
const std::string kTail64 = " F3 AC D3 11 8C D1 00 C0 4F 8E DB 8A ";
const std::string kJunk64 = "'junk' F3 AC 3D 11 8C D1 00 C0 4F 8E DB 8A ";
const std::string kData64 = "'data'" + kTail64;
const std::string kFmt64 = "'fmt '" + kTail64 + "2A *7 " + kRecord + "*6 ";
const std::string kForm64 = "'wave'" + kTail64 + kFmt64;
const WAVEFORMATEX kFormat = MakeFormat(1, 2, 44100, 16);

enum Way { kNew, kReserve, kInsert };
HRESULT Write(Way way, bool wave64, TestFile& file, const WAVEFORMATEX* format, int64_t size) {
  const auto size32 = static_cast<uint32_t>(size);
  const WCHAR* const name = file.Path();
  if (way == kNew && wave64) return QnInitializeWav64(name, format, CREATE_ALWAYS);
  if (way == kNew) return QnInitializeWav(name, format, CREATE_ALWAYS);
  if (way == kReserve && wave64) return QnInitializeWav64WithJunk(name, format, OPEN_EXISTING, size);
  if (way == kReserve) return QnInitializeWavWithJunk(name, format, OPEN_EXISTING, size32);
  if (wave64) return QnInsertW64Header(file, format, 256, size);
  return QnInsertWavHeader(file, format, 256, size32);
}

TEST(QnWav, Headers) {
  const std::tuple<Way, int64_t, std::string> kRows[] = {
      {kNew, 0, "'RIFF' 26 *3 " + kForm + "'data' *4"},
      {kReserve, 4095, "'RIFF' F8 0F *2 " + kForm + "'JUNK' CA 0F *2 *4042 'data' *4"},
      {kReserve, 53, "'RIFF' 2E *3 " + kForm + "'JUNK' *4 'data' *4"},
      {kInsert, 46, "'RIFF' 26 01 *2 " + kForm + "'data' 00 01 *2"},
      {kInsert, 56, "'RIFF' 30 01 *2 " + kForm + "'JUNK' 02 *3 *2 'data' 00 01 *2"},
      {kNew, 0, kRiff64 + "82 *7 " + kForm64 + kData64 + "18 *7"},
      {kReserve, 129, kRiff64 + "A0 *7 " + kForm64 + kJunk64 + "18 *7 " + kData64 + "18 *7"},
      {kReserve, 4096, kRiff64 + "18 10 *6 " + kForm64 + kJunk64 + "90 0F *6 *3960 " + kData64 + "18 *7"},
      {kInsert, 112, kRiff64 + "70 01 *6 " + kForm64 + kData64 + "18 01 *6"},
      {kInsert, 152, kRiff64 + "98 01 *6 " + kForm64 + kJunk64 + "28 *7 *16 " + kData64 + "18 01 *6"}};
  const Bytes old(300, 0xEE);
  for (const auto& [way, size, text] : kRows) {
    TestFile file(old);
    if (way == kInsert) file.Go(7);
    ASSERT_EQ(Write(way, text.starts_with(kRiff64), file, &kFormat, size), S_OK) << text;
    EXPECT_EQ(way == kInsert ? file.At() : 7, 7u);
    file.Close();
    const Bytes header = Hex(text);
    const auto end = static_cast<ptrdiff_t>(header.size());
    EXPECT_EQ(file.Content(), way == kInsert ? header + Bytes(old.begin() + end, old.end()) : header) << text;
    const AudioFile found(file.Path());
    EXPECT_EQ(std::tuple(found.start, found.frames), std::tuple(header.size(), way == kInsert ? 64 : 0));
    EXPECT_EQ(found.Format(), BytesOf(kFormat));
  }
}

TEST(QnWav, RefusalsOfHeaders) {
  TestFile file(Bytes(300, 1));
  WAVEFORMATEX twenty = MakeFormat(1, 2, 44100, 20), unaligned = kFormat, longer = kFormat;
  unaligned.nBlockAlign = 3;
  longer.cbSize = 2;
  for (const WAVEFORMATEX* bad : {&twenty, &unaligned, &longer}) {
    EXPECT_EQ(Write(kInsert, true, file, bad, 0), QN_E_MEDIA_TYPE);
    file.Close();
    EXPECT_EQ(Write(kNew, false, file, bad, 0), QN_E_MEDIA_TYPE);
  }
  for (int64_t place : {0, 44, 45, 47, 48, 52, 57, -8, 104, 113, 120, 128, 140}) {
    EXPECT_EQ(Write(kInsert, place < 0 || place > 57, file, &kFormat, place), QN_E_CHUNK_SIZE) << place;
  }
  file.Close();
  EXPECT_EQ(QnInitializeWav64(file.Path(), &kFormat, CREATE_NEW), QN_E_FILE_OPEN);
  EXPECT_EQ(file.Content(), Bytes(300, 1));
  // Too small a reserve is seen only when the file has been emptied.
  for (int64_t size : {int64_t{52}, int64_t{0xFFFFFFFF}, int64_t{128}, int64_t{-1}, INT64_MAX}) {
    EXPECT_EQ(Write(kReserve, size != 52 && size != 0xFFFFFFFF, file, &kFormat, size), E_INVALIDARG) << size;
    EXPECT_TRUE(file.Content().empty());
  }
  twenty.wFormatTag = 0x55;  // other tags are not looked into
  EXPECT_EQ(QnInitializeWav(file.Path(), &twenty, OPEN_ALWAYS), S_OK);
  _qnwaveformat record;
  for (const uint32_t mask : {0, 4}) {  // a mask takes an extensible header
    record.Init(44100, QNST_PCM16, 2, mask, sizeof record);
    EXPECT_EQ(QnInitializeWav(file.Path(), &record, OPEN_EXISTING), mask ? QN_E_MEDIA_TYPE : S_OK);
  }
  EXPECT_EQ(AudioFile(file.Path()).Format(), BytesOf(kFormat));
  TestFile small(Bytes(45)), wide(Bytes(46));
  EXPECT_EQ(QnInsertWavHeader(small, &kFormat, 0, 46), QN_E_CHUNK_SIZE);
  EXPECT_EQ(QnInsertWavHeader(wide, &kFormat, 0xFFFFFFF0, 46), S_OK);
  EXPECT_EQ(wide.Content()[7], 0xFF) << "no wrapped RIFF size";
}

// Files as others write them: what is read, and whether the file is recognised without and with its format
// being looked into.
TEST(QnWav, ReadsWhatOthersWrite) {
  const std::string wave = "'RIFF' FF *3 'WAVE' ", most = "'RIFF' FF FF FF FF 'WAVE' ";
  const std::string pcm = "01 00 02 00 44 AC 00 00 10 B1 02 00 04 00 10 00 ", fmt = "'fmt ' 10 *3 " + pcm;
  const std::string extensible = "'fmt ' 28 *3 FE FF" + pcm.substr(5) + "16 00 10 00 03 00 00 00 ";
  const std::string data = "'data' 08 *3", wave64 = kRiff64 + "00 20 *6 'wave'" + kTail64;
  const std::string data64 = kData64 + "24 *7", ones = "FF FF FF FF FF FF FF ";
  // The start (0: nothing is read), the frames, and 0 for no, 1 with compressed formats allowed, 2 for yes.
  const std::tuple<std::string, uint64_t, uint64_t, int> kRows[] = {
      {wave + fmt + data, 44, 2, 2},
      {wave + "'LIST' 03 *3 'abc' 00 " + fmt + "'x y ' 01 *3 01 02 " + data, 66, 2, 2},
      {wave + extensible + "01 *5 10 00 80 00 00 AA 00 38 9B 71 " + data, 68, 2, 2},
      {wave + extensible + "*16 " + data, 0, 0, 1},                               // an unknown sub-format
      {wave + "'fmt ' 12 *3 " + pcm + "FF FF " + data, 46, 2, 2},                 // cbSize beyond the chunk
      {wave + "'fmt ' 10 *3 01 00 02 00 44 AC *6 *2 04 00 " + data, 0, 0, 2},     // frames of 0 bytes
      {wave + "'fmt ' 10 *3 02 00 02 00 44 AC *6 04 00 04 00 " + data, 0, 0, 1},  // compressed
      {wave + "'fmt ' 10 *3 " + pcm.substr(0, 42) + "14 00 'data' 0C *3", 44, 2, 2},  // 20 bits become 24
      {wave + "'fmt ' 12 *3 02 00 02 00", 0, 0, 1},                                   // cut in the format
      // The format chunk itself is not taken off the budget of the walk to the data.
      {"'RIFF' 14 *3 'WAVE' " + fmt + data, 44, 2, 2},
      {"'RIFF' 0B *3 'WAVE' " + fmt + data, 0, 0, 0},
      {most + fmt + "'data' FF FF FF FF", 44, 0x3FFFFFFF, 2},
      {"'RIFF' 24 *3 'AVI ' " + fmt + data, 0, 0, 0},
      {most + "'fmt ' FF FF FF FF " + pcm + "*40", 0, 0, 2},
      {wave64 + kFmt64 + data64, 112, 3, 2},
      {wave64 + kFmt64 + kData64 + ones + "FF", 112, uint64_t(-6), 2},
      {kRiff64 + "FF *7 " + kJunk64 + kFmt64 + data64, 0, 0, 0},                           // another form
      {wave64 + "'fmt '" + kTail64 + "19 10 *6 " + kRecord + "*4086 " + data64, 0, 0, 2},  // over 4,096 bytes
      {wave64 + kJunk64 + ones + "7F " + kJunk64 + "E8 " + ones, 0, 0, 0},  // sizes that lead nowhere
  };
  for (const auto& [text, start, frames, is] : kRows) {
    SCOPED_TRACE(text);
    const TestFile file(Hex(text));
    const AudioFile found(file.Path());
    EXPECT_EQ(std::tuple(found.start, found.frames), std::tuple(start ? start : 77, start ? frames : 77));
    if (found.record) {  // all that the record says it has can be read
      const auto bytes = reinterpret_cast<const uint8_t*>(found.record.get());
      EXPECT_GE(Bytes(bytes, bytes + 18 + found.record->cbSize).size(), 18u);
      EXPECT_EQ(found.record->nBlockAlign, found.record->wBitsPerSample / 4);
    }
    const bool is64 = text.starts_with(kRiff64);
    EXPECT_EQ(QnFileIsWave(file.Path(), 0) + QnFileIsWave(file.Path(), 1), is64 ? 0 : is);
    EXPECT_EQ(QnFileIsWave64(file.Path(), 0) + QnFileIsWave64(file.Path(), 1), is64 ? is : 0);
  }
}

TEST(QnWav, SetFileWfx) {
  const WAVEFORMATEX format = MakeFormat(1, 1, 8000, 8), bad = MakeFormat(1, 1, 8000, 20);
  const Bytes wav = Hex("'RIFF' 26 *3 " + kForm + "'data' *4 01 02 03 04");
  TestFile file(wav);
  EXPECT_EQ(QnSetFileWfx(file.Path(), &bad), QN_E_MEDIA_TYPE);
  EXPECT_EQ(QnSetFileWfx(file.Path(), &format), S_OK);
  EXPECT_EQ(file.Content(), Hex("'fmt ' 12 *3 ") + BytesOf(format) + Bytes(wav.begin() + 26, wav.end()))
      << "over the file's start";
  EXPECT_TRUE(DeleteFileW(file.Path())) << "no handle is left open";
  EXPECT_EQ(QnSetFileWfx(file.Path(), &format), QN_E_FILE_OPEN);
}

}  // namespace
