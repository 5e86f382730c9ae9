#include "qn/media/aiff.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <tuple>
#include <vector>

#include "qn/media/qnwav.h"
#include "qn/settings/qnstatus.h"
#include "tests/media/media_bytes.h"

namespace {

using namespace qntest;

const std::string kRate = "40 0E AC 44 *6 ";
const std::string kForm = "'FORM' 00 00 00 FF 'AIFF' ";
const std::string kFormC = "'FORM' 00 00 00 FF 'AIFC' ";
const std::string kSound = "'SSND' 00 00 00 10 *4 *4 ";

// Stereo and 2 frames.
std::string Common(const std::string& bits, const std::string& rate = kRate) {
  return "'COMM' 00 00 00 12 00 02 00 00 00 02 00 " + bits + " " + rate;
}
std::string CommonC(const std::string& bits, const std::string& type) {
  return "'COMM' 00 00 00 18 00 02 00 00 00 02 00 " + bits + " " + kRate + "'" + type + "' 00 00 ";
}

struct Found {
  HRESULT status;
  WAVEFORMATEX format{};
  uint64_t frames = 77;
  uint64_t start = 77;
};
Found Read(TestFile& file) {
  Found found;
  found.status = iff_GetAIFFWfx(file.Open(), &found.format, &found.frames, &found.start);
  return found;
}

TEST(Aiff, Forms) {
  struct Case {
    const char* what;
    std::string text;
    int tag;
    int bits;
    uint64_t start;
    uint64_t frames;
  } cases[] = {
      {"plain", kForm + Common("10") + kSound + "*8", 0xFE02, 16, 54, 2},
      {"samples first, odd chunks",
       kForm + "'SSND' 00 00 00 11 00 00 00 01 *4 *9 00 'NAME' 00 00 00 01 'a' 00 " + Common("10"), 0xFE02,
       16, 29, 2},
      {"fewer samples than stated", kForm + Common("10") + kSound + "*7", 0xFE02, 16, 54, 1},
      {"nothing", kForm + "'COMM' 00 00 00 12 00 02 *4 00 10 " + kRate, 0xFE02, 16, 38, 0},
      {"12 bits", kForm + Common("0C") + kSound + "*8", 0xFE02, 16, 54, 2},
      {"20 bits", kForm + Common("14") + kSound + "*12", 0xFE02, 24, 54, 2},
      {"8 bits", kForm + Common("08") + kSound + "*4", 0xFE01, 8, 54, 2},
      {"NONE", kFormC + CommonC("20", "NONE") + kSound + "*16", 0xFE02, 32, 60, 2},
      {"twos", kFormC + CommonC("10", "twos") + kSound + "*8", 0xFE02, 16, 60, 2},
      {"sowt", kFormC + CommonC("18", "sowt") + kSound + "*12", 1, 24, 60, 2},
      {"sowt, 8 bits", kFormC + CommonC("08", "sowt") + kSound + "*4", 0xFE01, 8, 60, 2},
      {"in24", kFormC + CommonC("18", "in24") + kSound + "*12", 0xFE02, 24, 60, 2},
      {"raw", kFormC + CommonC("08", "raw ") + kSound + "*4", 1, 8, 60, 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TestFile file(Hex(c.text));
    const Found found = Read(file);
    ASSERT_EQ(found.status, S_OK);
    EXPECT_EQ(BytesOf(found.format), BytesOf(MakeFormat(c.tag, 2, 44100, c.bits)));
    EXPECT_EQ(std::tuple(found.start, found.frames), std::tuple(c.start, c.frames));
    EXPECT_EQ(file.Position(), 12);
    EXPECT_EQ(iff_IsAIFFFileEx(file.Open()), 0) << "from the position";
    file.Move(0, FILE_BEGIN);
    EXPECT_EQ(iff_IsAIFFFileEx(file.Open()), 1);
    EXPECT_EQ(file.Position(), 0);
    file.Close();
    EXPECT_EQ(QnFileIsAiff(file.Path()), 1);
    EXPECT_EQ(QnFileIsWave(file.Path(), 1), 0);
    uint64_t start = 0;
    WAVEFORMATEX* record = QnGetFileWfx(file.Path(), nullptr, &start);
    ASSERT_TRUE(record);
    EXPECT_EQ(BytesOf(*record), BytesOf(found.format));
    EXPECT_EQ(start, c.start);
    std::free(record);
  }
  TestFile oldRate(Hex(kForm + Common("10", "40 0D AD DD 17 45 D1 74 5D 17 ") + kSound + "*8"));
  EXPECT_EQ(Read(oldRate).format.nSamplesPerSec, 22255u) << "of 22,254.54";
}

TEST(Aiff, Refusals) {
  std::vector<std::tuple<std::string, HRESULT>> cases = {
      {"", QN_E_FILE_READ},
      {"'FORM' 00 00 00 FF '8SVX'", QN_E_FILE_FORMAT},
      {kForm + kSound, QN_E_NOT_FOUND},
      {kForm + Common("10"), QN_E_NOT_FOUND},
      {kForm + Common("10") + "'SSND' 00 00 00 10 00", QN_E_FILE_READ},
      {kForm + Common("10") + "'SSND' 00 00 00 10 FF FF FF FF *4 *8", QN_E_FILE_FORMAT},
      {kForm + "'COMM' 00 00 00 10 " + Common("10") + kSound, QN_E_FILE_FORMAT},
      {kForm + "'JUNK' FF FF FF FF " + Common("10") + kSound, QN_E_NOT_FOUND},
      {kForm + "*4096 " + Common("10") + kSound, QN_E_NOT_FOUND},
      {kForm + "'COMM' 00 00 00 12 00 00 00 00 00 02 00 10 " + kRate + kSound, QN_E_FILE_FORMAT},
      {kForm + "'COMM' 00 00 00 12 FF FF 00 00 00 02 00 10 " + kRate + kSound, QN_E_FILE_FORMAT},
      {kForm + Common("21") + kSound, QN_E_FILE_UNSUPPORTED},
      {kFormC + CommonC("20", "fl32") + kSound, QN_E_FILE_UNSUPPORTED},
      {kFormC + CommonC("10", "in24") + kSound, QN_E_FILE_UNSUPPORTED},
  };
  for (const char* rate :
       {"*10 ", "C0 0E AC 44 *6 ", "7F FF 80 *7 ", "40 1F 80 *7 ", "3F 00 80 *7 ", "40 1E FF FF FF FF *4 "}) {
    cases.emplace_back(kForm + Common("10", rate) + kSound, QN_E_FILE_FORMAT);
  }
  for (const auto& [text, status] : cases) {
    TestFile file(Hex(text));
    const Found found = Read(file);
    EXPECT_EQ(found.status, status) << text;
    EXPECT_EQ(std::tuple(found.frames, found.start, file.Position()), std::tuple(77u, 77u, 0)) << text;
  }
}

TEST(Aiff, SetFileWfx) {
  const std::string tail = kSound + "01 02 03 04 05 06 07 08";
  struct Case {
    uint32_t rate;
    std::string stored;
  } cases[] = {{44100, kRate},
               {48000, "40 0E BB 80 *6"},
               {1, "3F FF 80 *7"},
               {0, "3F FF *8"},
               {2, "40 00 80 *7"},
               {3, "40 00 C0 *7"},
               {0xFFFFFFFF, "40 1E FF FF FF FF *4"}};
  for (const Case& c : cases) {
    TestFile file(Hex(kForm + "'NAME' 00 00 00 01 'a' 00 " + Common("10") + tail));
    const WAVEFORMATEX format = MakeFormat(1, 1, c.rate, 24);
    EXPECT_EQ(QnSetFileWfx(file.Path(), &format), S_OK);
    EXPECT_EQ(file.Content(),
              Hex(kForm + "'NAME' 00 00 00 01 'a' 00 'COMM' 00 00 00 12 00 01 00 00 00 02 00 18 " + c.stored +
                  " " + tail))
        << c.rate;
    EXPECT_TRUE(DeleteFileW(file.Path())) << "no handle is left open";
  }
  const WAVEFORMATEX other = MakeFormat(3, 1, 8000, 32);
  TestFile file(Hex(kForm + Common("10") + tail));
  EXPECT_EQ(QnSetFileWfx(file.Path(), &other), QN_E_FILE_UNSUPPORTED);
  TestFile noCommon(Hex(kForm + tail));
  EXPECT_EQ(QnSetFileWfx(noCommon.Path(), &other), QN_E_NOT_FOUND) << "the reader's status comes first";
  EXPECT_TRUE(DeleteFileW(noCommon.Path()));
}

}  // namespace
