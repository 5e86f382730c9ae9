#include "qn/platform/locale.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

class CodePageTest : public testing::Test {
 protected:
  void TearDown() override {
    SetAnsiCodePage(0);
    unsetenv("LC_ALL");
  }
};

std::u16string Decode(UINT codePage, const std::string& bytes) {
  WCHAR text[64];
  const int count =
      MultiByteToWideChar(codePage, MB_PRECOMPOSED, bytes.data(), static_cast<int>(bytes.size()), text, 64);
  return std::u16string(text, static_cast<size_t>(count));
}

std::string Encode(UINT codePage, const std::u16string& text, BOOL* lost = nullptr) {
  char bytes[64];
  const int count =
      WideCharToMultiByte(codePage, 0, text.data(), static_cast<int>(text.size()), bytes, 64, nullptr, lost);
  return std::string(bytes, static_cast<size_t>(count));
}

TEST_F(CodePageTest, KnownTexts) {
  EXPECT_EQ(Decode(CP_UTF8, "Gr\xC3\xBC\xC3\x9F\x65"), u"Grüße");
  EXPECT_EQ(Decode(1252, "\x80 Gr\xFC\xDF\x65"), u"\u20AC Grüße");
  EXPECT_EQ(Decode(932, "\x83\x65\x83\x58\x83\x67"), u"テスト");
  BOOL lost = FALSE;
  EXPECT_EQ(Encode(1252, u"aテ\U0001D11Eb", &lost), "a??b");
  EXPECT_TRUE(lost);
  EXPECT_EQ(Encode(CP_UTF8, u"\U0001D11E", &lost), "\xF0\x9D\x84\x9E");
  EXPECT_FALSE(lost);
}

TEST_F(CodePageTest, RoomAndBadInput) {
  WCHAR text[4] = {u'x', u'x', u'x', u'x'};
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abc", -1, nullptr, 0), 4) << "the terminator counts with -1";
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "abcdef", 6, text, 3), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(std::u16string(text, 4), u"abcx") << "what fits is written, and no more";
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "a\xFFz", 3, text, 4), 0);
  EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
  EXPECT_EQ(Decode(CP_UTF8, "a\xFFz"), u"a\uFFFDz");
}

TEST_F(CodePageTest, TheAnsiCodePageFollowsTheEnvironmentUntilItIsSet) {
  setenv("LC_ALL", "de_DE.ISO-8859-15@euro", 1);
  EXPECT_EQ(GetACP(), 28605u);
  EXPECT_EQ(Decode(CP_ACP, "\xA4"), u"\u20AC");
  setenv("LC_ALL", "C", 1);
  EXPECT_EQ(GetACP(), CP_UTF8);
  EXPECT_TRUE(SetAnsiCodePage(1252));
  EXPECT_EQ(Decode(CP_ACP, "\xFC"), u"ü");
  EXPECT_FALSE(SetAnsiCodePage(4711));
  EXPECT_EQ(GetACP(), 1252u);
}

}  // namespace
