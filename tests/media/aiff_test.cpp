#include "qn/media/aiff.h"

#include "tests/media/media_file.h"

namespace {

using namespace qntest;

const std::string kRate = "40 0E AC 44 *6 ", kOddRate = "40 0D AD DD 17 45 D1 74 5D 17 ";  // 22,254.54
const std::string kForm = "'FORM' 00 00 00 FF 'AIFF' ";
const std::string kSound = "'SSND' 00 00 00 10 *4 *4 ";

// Stereo and 2 frames.
std::string Common(const std::string& bits, const std::string& rate = kRate) {
  return "'COMM' 00 00 00 12 00 02 00 00 00 02 00 " + bits + " " + rate;
}
std::string FormC(const std::string& bits, const std::string& type) {
  return "'FORM' 00 00 00 FF 'AIFC' 'COMM' 00 00 00 18 00 02 00 00 00 02 00 " + bits + " " + kRate + "'" +
         type + "' 00 00 " + kSound;
}

TEST(Aiff, Forms) {
  constexpr HRESULT kBad = QN_E_FILE_FORMAT, kOther = QN_E_FILE_UNSUPPORTED;
  const std::string comm = kForm + "'COMM' 00 00 00 12 ";
  struct Case {
    std::string text;
    HRESULT status;
    int tag = 0, bits = 0;
    uint64_t start = 77, frames = 77;
    uint32_t rate = 44100;
  };
  std::vector<Case> cases = {
      {kForm + "'SSND' 00 00 00 11 00 00 00 01 *4 *9 00 " + Common("10"), S_OK, 0xFE02, 16, 29, 2},
      {kForm + "'NAME' 00 00 00 01 'a' 00 " + Common("10") + kSound + "*7", S_OK, 0xFE02, 16, 64, 1},
      {comm + "00 02 *4 00 10 " + kRate, S_OK, 0xFE02, 16, 38, 0},
      {kForm + Common("14") + kSound + "*12", S_OK, 0xFE02, 24, 54, 2},
      {kForm + Common("08") + kSound + "*4", S_OK, 0xFE01, 8, 54, 2},
      {kForm + Common("08", kOddRate) + kSound + "*4", S_OK, 0xFE01, 8, 54, 2, 22255},
      {FormC("20", "NONE") + "*16", S_OK, 0xFE02, 32, 60, 2},
      {FormC("10", "twos") + "*8", S_OK, 0xFE02, 16, 60, 2},
      {FormC("18", "sowt") + "*12", S_OK, 1, 24, 60, 2},
      {FormC("08", "sowt") + "*4", S_OK, 0xFE01, 8, 60, 2},
      {FormC("18", "in24") + "*12", S_OK, 0xFE02, 24, 60, 2},
      {FormC("08", "raw ") + "*4", S_OK, 1, 8, 60, 2},
      {"", kShort},
      {"'FORM' 00 00 00 FF '8SVX'", kBad},
      {kForm + kSound, kMissing},
      {kForm + Common("10"), kMissing},
      {kForm + Common("10") + "'SSND' 00 00 00 10 00", kShort},
      {kForm + Common("10") + "'SSND' 00 00 00 10 FF FF FF FF *4 *8", kBad},
      {kForm + "'COMM' 00 00 00 10 " + Common("10") + kSound, kBad},
      {kForm + "'JUNK' FF FF FF FF " + Common("10") + kSound, kMissing},
      {kForm + "*4096 " + Common("10") + kSound, kMissing},
      {comm + "00 00 00 00 00 02 00 10 " + kRate + kSound, kBad},
      {comm + "FF FF 00 00 00 02 00 10 " + kRate + kSound, kBad},
      {kForm + Common("21") + kSound, kOther},
      {FormC("20", "fl32"), kOther},
      {FormC("10", "in24"), kOther}};
  for (const char* rate :
       {"*10 ", "C0 0E AC 44 *6 ", "40 1F 80 *7 ", "3F 00 80 *7 ", "40 1E FF FF FF FF *4 "}) {
    cases.push_back({kForm + Common("10", rate) + kSound, kBad});
  }
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    TestFile file(Hex(c.text));
    WAVEFORMATEX format{};
    uint64_t frames = 77, start = 77;
    EXPECT_EQ(iff_GetAIFFWfx(file, &format, &frames, &start), c.status);
    EXPECT_EQ(std::tuple(start, frames, file.At()), std::tuple(c.start, c.frames, c.status == S_OK ? 12 : 0));
    if (c.status != S_OK) continue;
    EXPECT_EQ(BytesOf(format), BytesOf(MakeFormat(c.tag, 2, c.rate, c.bits)));
    EXPECT_EQ(iff_IsAIFFFileEx(file), 0) << "from the position";
    file.Go(0);
    EXPECT_EQ(iff_IsAIFFFileEx(file), 1);
    EXPECT_EQ(file.At(), 0u);
    file.Close();
    EXPECT_EQ(QnFileIsAiff(file.Path()) - QnFileIsWave(file.Path(), 1), 1);
    const AudioFile found(file.Path());
    ASSERT_TRUE(found.record);
    EXPECT_EQ(std::tuple(BytesOf(*found.record), found.start), std::tuple(BytesOf(format), c.start));
  }
}

TEST(Aiff, SetFileWfx) {
  const std::string name = kForm + "'NAME' 00 00 00 01 'a' 00 ", tail = kSound + "01 02 03 04 05 06 07 08";
  const std::pair<uint32_t, std::string> kRates[] = {
      {44100, kRate}, {1, "3F FF 80 *7"}, {0, "3F FF *8"}, {3, "40 00 C0 *7"}, {~0u, "40 1E FF FF FF FF *4"}};
  for (const auto& [rate, stored] : kRates) {
    TestFile file(Hex(name + Common("10") + tail));
    const WAVEFORMATEX format = MakeFormat(1, 1, rate, 24);
    EXPECT_EQ(QnSetFileWfx(file.Path(), &format), S_OK);
    EXPECT_EQ(file.Content(),
              Hex(name + "'COMM' 00 00 00 12 00 01 00 00 00 02 00 18 " + stored + " " + tail));
    EXPECT_TRUE(DeleteFileW(file.Path())) << "no handle is left open";
  }
  const WAVEFORMATEX other = MakeFormat(3, 1, 8000, 32);
  const TestFile file(Hex(kForm + Common("10") + tail)), noCommon(Hex(kForm + tail));
  EXPECT_EQ(QnSetFileWfx(file.Path(), &other), QN_E_FILE_UNSUPPORTED);
  EXPECT_EQ(QnSetFileWfx(noCommon.Path(), &other), QN_E_NOT_FOUND) << "the reader's status comes first";
}

}  // namespace
