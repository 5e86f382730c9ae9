#include "qn/audio/qnformattext.h"

#include <gtest/gtest.h>

#include "qn/platform/text.h"
#include "tests/text/text_test.h"

namespace {

struct FormatText : qntest::EnglishTest {
  FormatText() { Use(0x409); }
  ~FormatText() override { Use(0x409); }
  static void Use(LCID lcid) {
    _QnLang_UpdateKernelOnlyLCID(lcid);
    qntest::UseLocale(lcid);
  }
};

// What `print` writes to a buffer, with "!" in front for a failure.
template <class Print>
std::string Printed(Print print) {
  WCHAR text[128] = W("not written");
  const HRESULT status = print(text, 128);
  EXPECT_TRUE(status == S_OK || status == E_FAIL) << status;
  return (status == S_OK ? "" : "!") + qn::ToUtf8(text);
}

std::string Tags(std::initializer_list<unsigned> tags) {
  std::string all;
  for (unsigned tag : tags) {
    all += Printed([&](WCHAR* text, int size) { return QnAudio_GetTagText(tag, text, size); }) + "/";
  }
  return all;
}

// The line of a format that owns the bytes that it has to and no more; `sub` is the tag of its sub-format.
std::string Line(WORD tag, WORD channels, WORD bits, DWORD mask = 0, DWORD sub = 1, WORD cbSize = 22) {
  const bool isExtensible = tag == WAVE_FORMAT_EXTENSIBLE;
  const auto align = static_cast<WORD>(channels * bits / 8);
  WAVEFORMATEXTENSIBLE format = {
      {tag, channels, 44'100, 16'000, align, bits, isExtensible ? cbSize : WORD{0}},
      {0},
      mask,
      KSDATAFORMAT_SUBTYPE_PCM};
  format.SubFormat.Data1 = sub;
  const auto* const first = reinterpret_cast<const BYTE*>(&format);
  const std::vector<BYTE> bytes(first, first + (isExtensible ? 40 : tag <= 3 ? 16 : 18));
  const auto* const published = reinterpret_cast<const WAVEFORMATEX*>(bytes.data());
  return Printed([&](WCHAR* text, int room) { return QnAudio_GetAttribsText(published, text, room); });
}

// The module of the codecs stands beside this test, if it is built.
std::string Known(const char* text) {
  return QN_HAS_CODEC_NAMES ? text : "!Unknown";
}

TEST_F(FormatText, NamesTags) {
  const char* const kOwn = "PCM/PCM (float)/PCM (unpacked)/PCM (signed)/PCM (big endian)/";
  EXPECT_EQ(Tags({1, 3, 0xFE00, 0xFE01, 0xFE02}), kOwn);
  EXPECT_EQ(Tags({0, 0xFE03, 0xFFFE, 0x10055}), "!Unknown/!Unknown/!Unknown/!Unknown/");
  // To a registry that takes tags for letters the last would be the first.
  EXPECT_EQ(Tags({0x50, 0x70}), Known("MP2 (MPEG audio layer 2)") + "/!Unknown/");
  Use(0x407);
  EXPECT_EQ(Tags({3, 0}), "PCM (Gleitkomma)/!Unbekannt/");
}

TEST_F(FormatText, DescribesFormats) {
  EXPECT_EQ(Line(3, 2, 32), "44,100 Hz, 32 Bit (IEEE Float), Stereo");
  EXPECT_EQ(Line(1, 6, 16), "44,100 Hz, 16 Bit, 6 Channel");
  const std::pair<WORD, DWORD> kSets[] = {{6, 0x3F}, {6, 0x60F}, {8, 0xFF}, {8, 0x63F}};
  for (const WORD channels : {1, 2, 4, 6, 8}) {
    for (const DWORD mask : {0x3Fu, 0x60Fu, 0xFFu, 0x63Fu, 0u, 0x8000003Fu}) {
      std::string name = channels == 1   ? "Mono"
                         : channels == 2 ? "Stereo"
                                         : std::to_string(channels) + " Channel";
      for (const auto& set : kSets) {
        if (set == std::pair(channels, mask)) name = channels == 6 ? "5.1" : "7.1";
      }
      EXPECT_EQ(Line(0xFFFE, channels, 32, mask), "44,100 Hz, 32 Bit, " + name);
      const std::string bits = channels < 6 ? "32 Bit, " : "32 Bit (IEEE Float), ";
      EXPECT_EQ(Line(0xFFFE, channels, 32, mask, 3), "44,100 Hz, " + bits + name);
    }
  }
  EXPECT_EQ(Line(0x55, 2, 0), Known("44,100 Hz, 128 kBit/s, Stereo"));
  EXPECT_EQ(Line(0xFFFE, 6, 0, 0x60F, 0x2000), Known("44,100 Hz, 128 kBit/s, 5.1"));
  // Too few extra bytes, no tag, bits that are not those of the block align.
  for (const auto& line :
       {Line(0xFFFE, 6, 16, 0x3F, 1, 21), Line(0xFFFE, 2, 16, 0, 0x12345678), Line(1, 2, 12)}) {
    EXPECT_EQ(line, "!Unknown");
  }
  _qnwaveformat record = {};
  record.InitAsWfx(0x55, 48'000, 0, 2, 0, sizeof(record));
  record.cbExtra = 1024;  // more than 80 bytes hold
  record.cbRecord = 32 + record.cbExtra;
  const auto line = [&](WCHAR* text, int size) { return QnAudio_GetAttribsText(&record, text, size); };
  EXPECT_EQ(Printed(line), Known("48,000 Hz, Stereo"));
  record.Init(48'000, QNST_FLOAT32, 6, 0x60F, sizeof(record));
  Use(0x407);
  EXPECT_EQ(Printed(line), "48.000 Hz; 32 Bit (IEEE-Gleitkomma); 5.1");
}

TEST_F(FormatText, KeepsToTheRoomGiven) {
  const WAVEFORMATEX* const none = nullptr;
  WCHAR text[3] = {'x', 'x', 'x'};
  EXPECT_EQ(QnAudio_GetTagText(1, text, 0), S_OK);
  EXPECT_EQ(QnAudio_GetTagText(1, nullptr, 9), S_OK);
  EXPECT_EQ(QnAudio_GetAttribsText(none, text, -1), E_FAIL);
  EXPECT_EQ(text[0], 'x');
  EXPECT_EQ(QnAudio_GetTagText(1, text, 3), static_cast<HRESULT>(0x8004E03C));
  EXPECT_EQ(std::u16string(text), W("PC"));
}

}  // namespace
