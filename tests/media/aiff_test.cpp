#include "qn/media/aiff.h"

#include "tests/media/media_file.h"

namespace {

using namespace qntest;

const std::string kRate = "40 0E AC 44 *6 ", kForm = "'FORM' 00 00 00 FF 'AIFF' ";
const std::string kSound = "'SSND' 00 00 00 10 *4 *4 ";

// Stereo and 2 frames.
std::string Common(const std::string& bits, const std::string& rate = kRate) {
  return "'COMM' 00 00 00 12 00 02 00 00 00 02 00 " + bits + " " + rate;
}
std::string FormC(const std::string& bits, const std::string& type, const std::string& data = "") {
  return "'FORM' 00 00 00 FF 'AIFC' 'COMM' 00 00 00 18 00 02 00 00 00 02 00 " + bits + " " + kRate + "'" +
         type + "' 00 00 " + kSound + data;
}

TEST(Aiff, Forms) {
  const std::string late = "'SSND' 00 00 00 11 00 00 00 01 *4 *9 00 ", name = "'NAME' 00 00 00 01 'a' 00 ";
  using Row = std::tuple<std::string, int, int, uint64_t, uint64_t>;
  for (const auto& [text, tag, bits, start, frames] :
       {Row(kForm + late + Common("10"), 0xFE02, 16, 29, 2),
        Row(kForm + name + Common("10") + kSound + "*7", 0xFE02, 16, 64, 1),
        Row(kForm + "'COMM' 00 00 00 12 00 02 *4 00 10 " + kRate, 0xFE02, 16, 38, 0),
        Row(kForm + Common("14") + kSound + "*12", 0xFE02, 24, 54, 2),
        Row(FormC("20", "NONE", "*16"), 0xFE02, 32, 60, 2), Row(FormC("10", "twos", "*8"), 0xFE02, 16, 60, 2),
        Row(FormC("18", "sowt", "*12"), 1, 24, 60, 2), Row(FormC("08", "sowt", "*4"), 0xFE01, 8, 60, 2),
        Row(FormC("18", "in24", "*12"), 0xFE02, 24, 60, 2), Row(FormC("08", "raw ", "*4"), 1, 8, 60, 2)}) {
    SCOPED_TRACE(text);
    TestFile file(Hex(text));
    WAVEFORMATEX format{};
    uint64_t count, place;
    ASSERT_EQ(iff_GetAIFFWfx(file, &format, &count, &place), S_OK);
    EXPECT_EQ(std::tuple(place, count, file.At()), std::tuple(start, frames, 12));
    EXPECT_EQ(BytesOf(format), BytesOf(MakeFormat(tag, 2, 44100, bits)));
    EXPECT_EQ(iff_IsAIFFFileEx(file), 0) << "from the position";
    file.Go(0);
    EXPECT_EQ(iff_IsAIFFFileEx(file), 1);
    EXPECT_EQ(file.At(), 0u);
    file.Close();
    EXPECT_EQ(QnFileIsAiff(file.Path()) - QnFileIsWave(file.Path(), 1), 1);
    const AudioFile found(file.Path());
    EXPECT_EQ(std::tuple(found.Format(), found.start), std::tuple(BytesOf(format), start));
  }
}

TEST(Aiff, Refusals) {
  const std::string comm = kForm + "'COMM' 00 00 00 12 ", common = Common("10"), good = kForm + common;
  using Row = std::pair<std::string, HRESULT>;
  for (const auto& [text, status] :
       {Row("", kShort), Row("'FORM' 00 00 00 FF '8SVX'", QN_E_FILE_FORMAT), Row(kForm + kSound, kMissing),
        Row(good, kMissing), Row(good + "'SSND' 00 00 00 10 00", kShort),
        Row(good + "'SSND' 00 00 00 10 FF FF FF FF *4 *8", QN_E_FILE_FORMAT),
        Row(kForm + "'COMM' 00 00 00 10 " + common + kSound, QN_E_FILE_FORMAT),
        Row(kForm + "'JUNK' FF FF FF FF " + common + kSound, kMissing),
        Row(kForm + "*4096 " + common + kSound, kMissing),
        Row(comm + "00 00 00 00 00 02 00 10 " + kRate + kSound, QN_E_FILE_FORMAT),
        Row(comm + "FF FF 00 00 00 02 00 10 " + kRate + kSound, QN_E_FILE_FORMAT),
        Row(kForm + Common("21") + kSound, QN_E_FILE_UNSUPPORTED),
        Row(FormC("20", "fl32"), QN_E_FILE_UNSUPPORTED), Row(FormC("10", "in24"), QN_E_FILE_UNSUPPORTED)}) {
    TestFile file(Hex(text));
    WAVEFORMATEX format;
    uint64_t frames = 77;
    EXPECT_EQ(iff_GetAIFFWfx(file, &format, &frames, &frames), status) << text;
    EXPECT_EQ(std::tuple(frames, file.At()), std::tuple(77, 0)) << text;
  }
}

TEST(Aiff, Rates) {
  // As stored, as read (0: refused), and as written.
  using Row = std::pair<std::string, uint32_t>;
  for (const auto& [text, rate] :
       {Row("40 0D AD DD 17 45 D1 74 5D 17 ", 22255), Row("*10 ", 0), Row("C0 0E AC 44 *6 ", 0),
        Row("40 1B FF FF FF FF *4 ", 0x20000000), Row("40 1F 80 *7 ", 0), Row("3F 00 80 *7 ", 0),
        Row("40 1E FF FF FF FF *4 ", 0)}) {
    const TestFile file(Hex(kForm + Common("10", text) + kSound));
    const AudioFile found(file.Path());
    EXPECT_EQ(found.record ? found.record->nSamplesPerSec : 0, rate) << text;
  }
  const std::string tail = kSound + "01 02 03 04 05 06 07 08", name = kForm + "'NAME' 00 00 00 01 'a' 00 ";
  for (const auto& [stored, rate] : {Row(kRate, 44100), Row("3F FF 80 *7 ", 1), Row("3F FF *8 ", 0),
                                     Row("40 00 C0 *7 ", 3), Row("40 1E FF FF FF FF *4 ", ~0u)}) {
    TestFile file(Hex(name + Common("10") + tail));
    const WAVEFORMATEX format = MakeFormat(1, 1, rate, 24), other = MakeFormat(3, 1, rate, 32);
    EXPECT_EQ(QnSetFileWfx(file.Path(), &other), QN_E_FILE_UNSUPPORTED);
    EXPECT_EQ(QnSetFileWfx(file.Path(), &format), S_OK);
    EXPECT_EQ(file.Content(), Hex(name + "'COMM' 00 00 00 12 00 01 00 00 00 02 00 18 " + stored + tail));
    EXPECT_TRUE(DeleteFileW(file.Path())) << "no handle is left open";
  }
}

}  // namespace
