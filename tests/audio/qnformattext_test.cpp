#include "qn/audio/qnformattext.h"

#include <gtest/gtest.h>

#include "qn/platform/text.h"
#include "tests/text/text_test.h"

namespace {

// The module of the codecs stands beside this test, if it is built.
constexpr bool kHasNames = QN_HAS_CODEC_NAMES;

struct FormatText : qntest::EnglishTest {
  FormatText() { _QnLang_UpdateKernelOnlyLCID(0x409); }
  ~FormatText() override { _QnLang_UpdateKernelOnlyLCID(0x409); }
  static void UseGerman() {
    qntest::UseLocale(0x407);
    _QnLang_UpdateKernelOnlyLCID(0x407);
  }
};

// What `print` writes to a buffer, with a failure in front.
template <class Print>
std::string Printed(Print print) {
  WCHAR text[128] = W("not written");
  const HRESULT status = print(text, 128);
  EXPECT_TRUE(status == S_OK || status == E_FAIL) << status;
  return (status == S_OK ? "" : "! ") + qn::ToUtf8(text);
}

std::string Tag(unsigned tag) {
  return Printed([&](WCHAR* text, int size) { return QnAudio_GetTagText(tag, text, size); });
}

// The line of a format that owns the bytes that it has to and no more; `sub` is the tag of its sub-format.
std::string Line(WORD tag, WORD channels, WORD bits, DWORD mask = 0, DWORD sub = 1, int wrongAlign = 0,
                 WORD cbSize = 22) {
  WAVEFORMATEXTENSIBLE format = {};
  const auto align = static_cast<WORD>(channels * bits / 8 + wrongAlign);
  format.Format = {
      tag, channels, 44'100, 16'000, align, bits, tag == WAVE_FORMAT_EXTENSIBLE ? cbSize : WORD{0}};
  format.dwChannelMask = mask;
  format.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
  format.SubFormat.Data1 = sub;
  const size_t size = tag == 1 || tag == 3 ? 16 : tag == WAVE_FORMAT_EXTENSIBLE ? 40 : 18;
  const std::vector<BYTE> bytes(reinterpret_cast<BYTE*>(&format), reinterpret_cast<BYTE*>(&format) + size);
  return Printed([&](WCHAR* text, int room) {
    return QnAudio_GetAttribsText(reinterpret_cast<const WAVEFORMATEX*>(bytes.data()), text, room);
  });
}

std::string Known(const char* text, const char* unknown = "! Unknown") {
  return kHasNames ? text : unknown;
}

TEST_F(FormatText, NamesTags) {
  // A tag that differs from a known one in what would be the case of a letter is another one.
  const std::pair<unsigned, std::string> kEnglish[] = {{1, "PCM"},
                                                       {3, "PCM (float)"},
                                                       {0xFE00, "PCM (unpacked)"},
                                                       {0xFE01, "PCM (signed)"},
                                                       {0xFE02, "PCM (big endian)"},
                                                       {0xFE03, "! Unknown"},
                                                       {0xFFFE, "! Unknown"},
                                                       {0x10001, "! Unknown"},
                                                       {0, "! Unknown"},
                                                       {0x70, "! Unknown"},
                                                       {0x50, Known("MP2 (MPEG audio layer 2)")},
                                                       {0x55, Known("MP3 (MPEG audio layer 3)")},
                                                       {6, Known("PCM A-law / G.711 A-law")}};
  for (const auto& [tag, text] : kEnglish) EXPECT_EQ(Tag(tag), text) << tag;
  UseGerman();
  EXPECT_EQ(Tag(3), "PCM (Gleitkomma)");
  EXPECT_EQ(Tag(0), "! Unbekannt");
}

TEST_F(FormatText, DescribesFormats) {
  EXPECT_EQ(Line(1, 1, 16), "44,100 Hz, 16 Bit, Mono");
  EXPECT_EQ(Line(3, 2, 32), "44,100 Hz, 32 Bit (IEEE Float), Stereo");
  EXPECT_EQ(Line(0xFE02, 3, 24), "44,100 Hz, 24 Bit, 3 Channel");
  EXPECT_EQ(Line(1, 6, 16), "44,100 Hz, 16 Bit, 6 Channel");
  EXPECT_EQ(Line(3, 8, 64), "44,100 Hz, 64 Bit (IEEE Float), 8 Channel");
  for (const WORD channels : {1, 2, 4, 6, 7, 8}) {
    for (const DWORD mask : {0x3Fu, 0x60Fu, 0xFFu, 0x63Fu, 0u, 0x3Du, 0x8000003Fu}) {
      const bool isSet = (channels == 6 && (mask == 0x3F || mask == 0x60F)) ||
                         (channels == 8 && (mask == 0xFF || mask == 0x63F));
      const std::string name = isSet           ? channels == 6 ? "5.1" : "7.1"
                               : channels == 1 ? "Mono"
                               : channels == 2 ? "Stereo"
                                               : std::to_string(channels) + " Channel";
      EXPECT_EQ(Line(0xFFFE, channels, 32, mask), "44,100 Hz, 32 Bit, " + name);
      const char* const bits = channels == 6 || channels == 8 ? "32 Bit (IEEE Float), " : "32 Bit, ";
      EXPECT_EQ(Line(0xFFFE, channels, 32, mask, 3), "44,100 Hz, " + (bits + name));
    }
  }
  UseGerman();
  EXPECT_EQ(Line(0xFFFE, 6, 32, 0x3F, 3), "44.100 Hz; 32 Bit (IEEE-Gleitkomma); 5.1");
  EXPECT_EQ(Line(1, 65'535, 8), "44.100 Hz; 8 Bit; 65535 Kanäle");
}

TEST_F(FormatText, AsksThePlatformForCompressedFormats) {
  EXPECT_EQ(Line(0x55, 2, 0), Known("44,100 Hz, 128 kBit/s, Stereo"));
  EXPECT_EQ(Line(0xFFFE, 6, 0, 0x60F, 0x2000), Known("44,100 Hz, 128 kBit/s, 5.1"));
  for (const DWORD sub : {0x1u, 0x92u}) EXPECT_EQ(Line(0xFFFE, 6, 16, 0x3F, sub, 0, 21), "! Unknown");
  EXPECT_EQ(Line(0xFFFE, 2, 16, 0, 0x12345678), "! Unknown");
  for (const WORD tag : {WORD{1}, WORD{3}, WORD{0xFE00}}) EXPECT_EQ(Line(tag, 2, 32, 0, 1, 1), "! Unknown");
  UseGerman();
  EXPECT_EQ(Line(0x55, 1, 0), Known("44.100 Hz; 128 kBit/s; Mono", "! Unbekannt"));
}

TEST_F(FormatText, DescribesRecords) {
  const auto line = [](const _qnwaveformat* record) {
    return Printed([&](WCHAR* text, int size) { return QnAudio_GetAttribsText(record, text, size); });
  };
  _qnwaveformat record = {};
  record.Init(48'000, QNST_FLOAT32, 6, 0x60F, sizeof(record));
  EXPECT_EQ(line(&record), "48,000 Hz, 32 Bit (IEEE Float), 5.1");
  record.Init(48'000, QNST_FLOAT32, 6, 0, sizeof(record));  // a plain format
  EXPECT_EQ(line(&record), "48,000 Hz, 32 Bit (IEEE Float), 6 Channel");
  record.InitAsWfx(0x55, 48'000, 0, 2, 0, sizeof(record));
  record.cbExtra = 1024;  // more than the 80 bytes hold
  record.cbRecord = 32 + record.cbExtra;
  EXPECT_EQ(line(&record), Known("48,000 Hz, Stereo"));
  EXPECT_EQ(line(nullptr), "! Unknown");
}

TEST_F(FormatText, KeepsToTheRoomGiven) {
  const WAVEFORMATEX format = {1, 2, 44'100, 176'400, 4, 16, 0};
  WCHAR text[3] = {'x', 'x', 'x'};
  EXPECT_EQ(QnAudio_GetTagText(1, text, 0), S_OK);
  EXPECT_EQ(QnAudio_GetTagText(0, text, -1), E_FAIL);
  EXPECT_EQ(QnAudio_GetAttribsText(&format, text, 0), S_OK);
  EXPECT_EQ(text[0], 'x');
  EXPECT_EQ(QnAudio_GetTagText(1, nullptr, 9), S_OK);
  EXPECT_EQ(QnAudio_GetTagText(0, nullptr, 9), E_FAIL);
  EXPECT_EQ(QnAudio_GetAttribsText(&format, nullptr, 9), S_OK);
  EXPECT_EQ(QnAudio_GetTagText(1, text, 3), static_cast<HRESULT>(0x8004E03C));
  EXPECT_EQ(std::u16string(text), W("PC"));
  EXPECT_EQ(QnAudio_GetAttribsText(&format, text, 2), static_cast<HRESULT>(0x8004E03C));
  EXPECT_EQ(QnAudio_GetTagText(0, text, 2), E_FAIL);
  EXPECT_EQ(std::u16string(text), W("U"));
}

}  // namespace
