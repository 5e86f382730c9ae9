// The user's locale, its items and numbers, comparison, detection of code pages and message texts.
#include <gtest/gtest.h>
#include <unicode/ucol.h>
#include <unicode/unum.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <tuple>

#include "qn/platform/locale.h"
#include "qn/platform/text.h"
#include "tests/support/support.h"

namespace {

std::string Item(LCID locale, LCTYPE item) {
  WCHAR text[128];
  const int length = GetLocaleInfoW(locale, item, text, 128);
  EXPECT_EQ(GetLocaleInfoW(locale, item, nullptr, 0), length);
  return length ? qn::ToUtf8({text, static_cast<size_t>(length - 1)}) : "failed";
}

// What a row of numbers is written with.
struct Dress {
  std::u16string point = u".";
  std::u16string thousand = u",";
  NUMBERFMTW format = {2, 1, 3, nullptr, nullptr, 1};
};

std::u16string Number(Dress& dress, const std::u16string& value, LCID locale = LOCALE_USER_DEFAULT) {
  dress.format.lpDecimalSep = dress.point.data();
  dress.format.lpThousandSep = dress.thousand.data();
  WCHAR text[256];
  const int length = GetNumberFormatW(locale, 0, value.c_str(), &dress.format, text, 256);
  return length ? std::u16string(text, static_cast<size_t>(length - 1)) : u"failed";
}

class LocaleTest : public testing::Test {
 protected:
  // The C library's locale plays no part, where the machine has another one.
  void SetUp() override { std::setlocale(LC_ALL, "de_DE.UTF-8"); }

  void TearDown() override {
    std::setlocale(LC_ALL, "C");
    for (const char* variable : {"LC_ALL", "LC_NUMERIC", "LC_MESSAGES"}) unsetenv(variable);
    SetUserDefaultLCID(0);
    SetAnsiCodePage(0);
  }
};

TEST_F(LocaleTest, Items) {
  SetUserDefaultLCID(0x0407);
  static constexpr LCTYPE kItems[] = {
      LOCALE_ILANGUAGE, LOCALE_SABBREVLANGNAME, LOCALE_ICOUNTRY, LOCALE_SENGLANGUAGE, LOCALE_SENGCOUNTRY,
      LOCALE_SCOUNTRY,  LOCALE_SLANGUAGE,       LOCALE_SDECIMAL, LOCALE_STHOUSAND,    LOCALE_SGROUPING,
      LOCALE_SLIST,     LOCALE_STIME,           LOCALE_IMEASURE, LOCALE_SNEGATIVESIGN};
  static constexpr std::pair<LCID, const char*> kRows[] = {
      {0x1009, "1009|ENC|1|English|Canada|Kanada|Englisch (Kanada)|.|,|3;0|,|:|0|-|"},
      {0x0007, "0407|DEU|49|German|Germany|Deutschland|Deutsch (Deutschland)|,|.|3;0|;|:|0|-|"},
      {0x0807, "0807|DES|41|German|Switzerland|Schweiz|Deutsch (Schweiz)|.|’|3;0|;|:|0|-|"},
      {0x040C, "040c|FRA|33|French|France|Frankreich|Französisch (Frankreich)|,|\u202F|3;0|;|:|0|-|"},
      {0x0439, "0439|HIN|91|Hindi|India|Indien|Hindi (Indien)|.|,|3;2;0|,|:|0|-|"},
      {0x0404, "0404|CHT|886|Chinese|Taiwan|Taiwan|Chinesisch (Traditionell, Taiwan)|.|,|3;0|,|:|0|-|"},
      {0x0C01, "0c01|ARE|20|Arabic|Egypt|Ägypten|Arabisch (Ägypten)|.|,|3;0|;|:|0|\u200E-|"},
      {0x041D, "041d|SVE|46|Swedish|Sweden|Schweden|Schwedisch (Schweden)|,|\u00A0|3;0|;|:|0|\u2212|"},
      {0x040B, "040b|FIN|358|Finnish|Finland|Finnland|Finnisch (Finnland)|,|\u00A0|3;0|;|.|0|\u2212|"},
      {0x0C0C, "0c0c|FRC|1|French|Canada|Kanada|Französisch (Kanada)|,|\u00A0|3;0|;|:|0|-|"}};
  for (const auto& [locale, expected] : kRows) {
    std::string items;
    for (const LCTYPE item : kItems) items += Item(locale, item) + "|";
    EXPECT_EQ(items, expected);
  }
  // The languages of the records, as far as the rows above have none.
  std::string names;
  for (const LCID lcid :
       {0x409, 0x411, 0x40A, 0x804, 0x406, 0x410, 0x412, 0x413, 0x414, 0x416, 0x816, 0x419, 0x415}) {
    names += Item(lcid, LOCALE_SABBREVLANGNAME);
  }
  EXPECT_EQ(names, "ENUJPNESPCHSDANITAKORNLDNORPTBPTGRUSPLK");
  EXPECT_EQ(Item(0x0409, LOCALE_IMEASURE), "1");
  for (const LCID unknown : {0x03FFu, 0x1000u, 0x5C09u, 0x3F07u, 0x00100407u}) {
    EXPECT_EQ(Item(unknown, LOCALE_ILANGUAGE), "failed") << unknown;
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  }
  WCHAR text[5] = u"####";
  EXPECT_EQ(GetLocaleInfoW(0x407, LOCALE_ILANGUAGE, text, 4), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(std::u16string(text), u"####");
}

TEST_F(LocaleTest, TheUsersLocale) {
  using Row = std::tuple<const char*, const char*, const char*, LCID, LANGID>;
  for (const auto& [all, numeric, messages, locale, language] :
       {Row("de_AT.UTF-8@euro", "fr_FR", "fr_FR", 0x0C07, 0x0C07),
        Row("", "sr_RS@latin", "pl", 0x241A, 0x0415), Row("C.UTF-8", "fr_FR", "fr_FR", 0x0409, 0x0409),
        Row("", "xx_YY", "no_NO", 0x0409, 0x0414)}) {
    setenv("LC_ALL", all, 1);
    setenv("LC_NUMERIC", numeric, 1);
    setenv("LC_MESSAGES", messages, 1);
    EXPECT_TRUE(SetUserDefaultLCID(0));
    EXPECT_EQ(std::tuple(GetUserDefaultLCID(), GetSystemDefaultLCID(), GetUserDefaultUILanguage()),
              std::tuple(locale, locale, language));
  }
  // A region without an LCID of its own keeps its separators behind its language's LCID.
  setenv("LC_ALL", "en_DK", 1);
  EXPECT_TRUE(SetUserDefaultLCID(0));
  EXPECT_EQ(Item(0x0409, LOCALE_SDECIMAL), ",");

  EXPECT_TRUE(SetUserDefaultLCID(0x041D) && SetUserLocaleItem(LOCALE_SNEGATIVESIGN, u"~"));
  EXPECT_FALSE(SetUserLocaleItem(LOCALE_SNEGATIVESIGN, u"0123456789ABCDEF"));
  EXPECT_FALSE(SetUserLocaleItem(0x0042, u""));
  Dress dress;
  EXPECT_EQ(Number(dress, u"-1"), u"~1.00");
  EXPECT_EQ(Number(dress, u"-1", 0x0407), u"-1.00") << "the replacement is the user's alone";
  EXPECT_EQ(Item(0x041D, LOCALE_SNEGATIVESIGN), "~");
  EXPECT_TRUE(SetUserLocaleItem(LOCALE_SNEGATIVESIGN, nullptr));
  EXPECT_EQ(Number(dress, u"-1"), u"\u22121.00");
  EXPECT_TRUE(SetUserLocaleItem(LOCALE_SDECIMAL, u"~") && SetUserDefaultLCID(0x041D));
  EXPECT_EQ(Item(0x041D, LOCALE_SDECIMAL), ",");

  EXPECT_EQ(InitMUILanguage(0x0411), 0x041D);
  EXPECT_TRUE(SetThreadLocale(0x0011));
  EXPECT_FALSE(SetThreadLocale(0x03FF));
  EXPECT_EQ(GetThreadLocale(), 0x0411u);
  std::thread([] { EXPECT_EQ(GetThreadLocale(), 0x041Du); }).join();
  EXPECT_EQ(InitMUILanguage(0), 0x0411);
  EXPECT_TRUE(SetThreadLocale(0));
  EXPECT_EQ(GetThreadLocale(), 0x041Du);

  EXPECT_EQ(LocaleNameToLCID(u"pt-BR", 0), 0x0416u);
  for (const WCHAR* unknown : {u"", u"german", u"d\u00E9"}) EXPECT_EQ(LocaleNameToLCID(unknown, 0), 0u);
}

TEST_F(LocaleTest, NumbersAsIcuWritesThem) {
  for (const char* name :
       {"en_US", "de_DE", "de_CH", "fr_FR", "hi_IN", "sv_SE", "ar_EG", "pl_PL", "pt_PT", "he"}) {
    UErrorCode error = U_ZERO_ERROR;
    const std::string latin = std::string(name) + "@numbers=latn";
    const std::unique_ptr<UNumberFormat, decltype(&unum_close)> icu(
        unum_open(UNUM_DECIMAL, nullptr, 0, latin.c_str(), nullptr, &error), unum_close);
    ASSERT_TRUE(U_SUCCESS(error));
    unum_setAttribute(icu.get(), UNUM_ROUNDING_MODE, UNUM_ROUND_HALFUP);
    unum_setAttribute(icu.get(), UNUM_MINIMUM_GROUPING_DIGITS, 1);
    SetUserDefaultLCID(LocaleNameToLCID(qn::FromUtf8(name).c_str(), 0));
    Dress dress;
    dress.point = qn::FromUtf8(Item(LOCALE_USER_DEFAULT, LOCALE_SDECIMAL));
    dress.thousand = qn::FromUtf8(Item(LOCALE_USER_DEFAULT, LOCALE_STHOUSAND));
    dress.format.Grouping = Item(LOCALE_USER_DEFAULT, LOCALE_SGROUPING) == "3;2;0" ? 32 : 3;
    for (int i = 0; i < 2000; ++i) {
      auto& random = qntest::Random();
      std::string value(random() % 2, '-');
      for (size_t k = 1 + random() % 16; k > 0; --k) value += "0001234569999"[random() % 13];
      if (random() % 4) value += random() % 2 ? ".5" : ".9";
      for (size_t k = random() % 5; k > 0; --k) value += "0459999"[random() % 7];
      dress.format.NumDigits = static_cast<UINT>(random() % 10);
      unum_setAttribute(icu.get(), UNUM_FRACTION_DIGITS, static_cast<int>(dress.format.NumDigits));
      WCHAR expected[128];
      unum_formatDecimal(icu.get(), value.c_str(), -1, expected, 128, nullptr, &error);
      ASSERT_EQ(Number(dress, qn::FromUtf8(value)), expected) << name << " " << value;
    }
  }
}

TEST_F(LocaleTest, NumbersAtTheEdges) {
  SetUserDefaultLCID(0x0409);
  using Row = std::tuple<const WCHAR*, UINT, UINT, UINT, UINT, const WCHAR*>;
  for (const auto& [value, digits, leading, grouping, order, text] :
       {Row(u"9.995", 2, 1, 3, 1, u"10.00"), Row(u"-999.5", 0, 1, 3, 0, u"(1,000)"),
        Row(u"-1234567.25", 1, 1, 2, 3, u"1,23,45,67.3-"), Row(u"12345678", 0, 1, 32, 2, u"1,23,45,678"),
        Row(u"99999.9", 0, 1, 32, 1, u"1,00,000"), Row(u"-000.44", 1, 0, 3, 2, u"- .4"),
        Row(u".96", 1, 0, 3, 1, u"1.0"), Row(u"-0", 0, 0, 3, 4, u"0 -"),
        Row(u"1234.", 9, 1, 0, 1, u"1234.000000000"), Row(u"1", 10, 1, 3, 1, u"failed"),
        Row(u"1", 2, 1, 10, 1, u"failed"), Row(u"1", 2, 1, 3, 5, u"failed")}) {
    Dress dress;
    dress.format = {digits, leading, grouping, nullptr, nullptr, order};
    EXPECT_EQ(Number(dress, value), text) << qn::ToUtf8(value);
  }
  for (const WCHAR* value : {u"", u"-", u".", u" 1", u"1,000", u"1.2.3", u"+1", u"1-"}) {
    Dress dress;
    EXPECT_EQ(Number(dress, value), u"failed") << qn::ToUtf8(value);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  }
  Dress dress{u"<.>", u"--", {1, 1, 3, nullptr, nullptr, 1}};
  EXPECT_EQ(Number(dress, u"1234567"), u"1--234--567<.>0");
  dress.format.lpThousandSep = dress.format.lpDecimalSep = nullptr;
  WCHAR text[] = u"########";
  EXPECT_EQ(GetNumberFormatW(0, 0, u"1234", &dress.format, nullptr, 0), 6);
  EXPECT_EQ(GetNumberFormatW(0, 0, u"1234", &dress.format, text, 5), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(GetNumberFormatW(0, 0, u"1234", &dress.format, text, 6), 6);
  EXPECT_EQ(std::u16string(text, 8), std::u16string(u"12340\0##", 8));
}

TEST_F(LocaleTest, Comparison) {
  const auto sign = [](int order) { return (order > 0) - (order < 0); };
  const WCHAR* const sorted[] = {nullptr, u"",  u"_",  u"-a", u"1", u"a",
                                 u"A",    u"ä", u"ab", u"Ab", u"b", u"が"};
  for (size_t i = 1; i < std::size(sorted); ++i) {
    EXPECT_LT(lstrcmpW(sorted[i - 1], sorted[i]), 0) << i;
    EXPECT_GT(lstrcmpW(sorted[i], sorted[i - 1]), 0) << i;
  }
  EXPECT_EQ(lstrcmpW(u"\u00E9", u"e\u0301"), 0);
  EXPECT_EQ(lstrcmpiW(u"SMPTE.Whole \u00C4", u"smpte.wHOLE \u00E4"), 0);
  EXPECT_NE(lstrcmpiW(u"か", u"カ"), 0) << "only case is ignored";
  EXPECT_NE(lstrcmpiW(u"a", u"a\u0001"), 0);
  EXPECT_EQ(lstrcmpiW(nullptr, nullptr), 0);
  // The short way of ASCII texts against the collator.
  UErrorCode error = U_ZERO_ERROR;
  const std::unique_ptr<UCollator, decltype(&ucol_close)> root(ucol_open("", &error), ucol_close);
  ucol_setStrength(root.get(), UCOL_IDENTICAL);
  for (int i = 0; i < 100000; ++i) {
    std::u16string a[2], b[2];  // as it is, in lower case
    for (auto* text : {a, b}) {
      for (auto k = qntest::Random()() % 6; k > 0; --k) {
        const WCHAR c = u"aAbBzZ09._ -$\t\u0301l·"[qntest::Random()() % 17];
        text[0] += c;
        text[1] += static_cast<WCHAR>(u_tolower(c));
      }
    }
    const int orders[] = {lstrcmpW(a[0].c_str(), b[0].c_str()), lstrcmpiW(a[0].c_str(), b[0].c_str())};
    for (const int form : {0, 1}) {
      ASSERT_EQ(sign(orders[form]), ucol_strcoll(root.get(), a[form].c_str(), -1, b[form].c_str(), -1))
          << form << qn::ToUtf8(a[0] + u"|" + b[0]);
    }
  }
}

TEST_F(LocaleTest, BytesOfTwoByteCodePages) {
  EXPECT_EQ(_getmbcp(), 0);
  EXPECT_EQ(_mbbtype(0xC3, 0), _MBC_SINGLE);
  for (const UINT codePage : {932u, 936u, 949u, 950u}) {
    ASSERT_TRUE(SetAnsiCodePage(codePage));
    EXPECT_EQ(_getmbcp(), static_cast<int>(codePage));
    for (int first = 0x20; first < 0x100; ++first) {
      for (int second = 0x20; second < 0x100; ++second) {
        const char bytes[] = {static_cast<char>(first), static_cast<char>(second)};
        WCHAR text[2];
        if (MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, bytes, 2, text, 2) != 1) continue;
        ASSERT_EQ(_mbbtype(static_cast<BYTE>(first), 0), _MBC_LEAD) << codePage << " " << first;
        ASSERT_EQ(_mbbtype(static_cast<BYTE>(second), _MBC_LEAD), _MBC_TRAIL) << codePage << " " << second;
      }
    }
    EXPECT_EQ(_mbbtype('a', 0), _MBC_SINGLE);
    EXPECT_EQ(_mbbtype(0xB1, 0), codePage == 932 ? _MBC_SINGLE : _MBC_LEAD);
    EXPECT_EQ(_mbbtype(0xFF, 0), _MBC_ILLEGAL);
    EXPECT_EQ(_mbbtype(0x20, _MBC_LEAD), _MBC_ILLEGAL);
  }
}

TEST_F(LocaleTest, DetectionOfCodePages) {
  static const struct {
    std::string bytes;
    DWORD codePage, language;
    int percent, leastConfidence;
  } kRows[] = {
      {"Plain, 7 bits\r\n", 20127, 0, 100, 100},
      {"\xC3\xA4\xC3\xB6 Gr\xC3\xBC\xC3\x9F", CP_UTF8, 0, 100, 100},
      {std::string("\xFF\xFEh\0e\0l\0l\0o\0", 12), 1200, 0, 100, 100},
      {"\xC3\xA4\xC3\xB6 Gr\xC3\xBC\xC3", CP_UTF8, 0, 90, 10},
      {"Der Fuchs springt und hat die ganze Nacht nicht geschlafen: \x93Z\xFCrich\x94", 1252, 7, 100, 50},
      {"\x82\xB1\x82\xEA\x82\xCD\x93\xFA\x96\x7B\x8C\xEA\x82\xCC\x82\xC5\x82\xB7\x81\x42\x82\xBB\x82\xB5\x82"
       "\xC4",
       932, 17, 100, 90}};
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.codePage);
    DetectEncodingInfo results[10];
    int count = 10, length = static_cast<int>(row.bytes.size());
    EXPECT_EQ(DetectInputCodepage(2, 0, row.bytes.data(), &length, results, &count), S_OK);
    const auto* found =
        std::find_if(results, results + count, [&](const auto& r) { return r.nCodePage == row.codePage; });
    ASSERT_LT(found, results + count);
    EXPECT_EQ(std::tuple(found->nLangID, found->nDocPercent), std::tuple(row.language, row.percent));
    EXPECT_GE(found->nConfidence, row.leastConfidence);
  }
  DetectEncodingInfo result;
  int count = 1, length = 0;
  EXPECT_EQ(DetectInputCodepage(2, 0, "", &length, &result, &count), S_FALSE);
  EXPECT_EQ(count, 0);
}

DWORD Message(const WCHAR* source, WCHAR* text, DWORD size, ...) {
  va_list arguments;
  va_start(arguments, size);
  const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_STRING, source, 0, 0, text, size, &arguments);
  va_end(arguments);
  return length;
}

TEST_F(LocaleTest, Messages) {
  static constexpr std::pair<const WCHAR*, const WCHAR*> kRows[] = {
      {u"%2 of %1", u"two of one"},
      {u"a\nb\r\nc\rd%ne%rf%tg%bh% i%.%!%%%x%", u"a\r\nb\r\nc\rd\r\ne\rf\tg h i.!%x%"},
      {u"%1%0%2", u"one"},
      {u"[%3!d!|%3!+06d!|%3!-6i!|%3!x!|%3!#X!|%3!o!|%3!u!|%3!08.4d!]",
       u"[-42|-00042|-42   |ffffffd6|0XFFFFFFD6|37777777726|4294967254|   -0042]"},
      {u"[%4!I64d!|%4!ld!|%4!hhu!|%4!llX!|%4!hd!]", u"[4295098217|130921|105|10001FF69|-151]"},
      {u"[%1!5s!|%1!-5s!|%1!.2s!|%5!*.*s!|%8!S!|%4!c!|%4!C!|%9!4s!]",
       u"[  one|one  |on|    wo|n\u00E4rrow|\uFF69|i|(null)]"},
      {u"%3!*d!|", u"130921                                    |"},
      {u"[%10!.0d!|%10!#o!|%10!#x!|%10!+d!|%10! d!]", u"[|0|0|+0| 0]"}};
  WCHAR text[128];
  for (const auto& [source, expected] : kRows) {
    const DWORD length = Message(source, text, 128, u"one", u"two", -42, 0x10001FF69LL, 6, 2, u"wooden",
                                 "n\xC3\xA4rrow", nullptr, 0);
    EXPECT_EQ(std::u16string(text, length), expected);
  }
  using Failure = std::tuple<const WCHAR*, DWORD, DWORD>;
  for (const auto& [source, size, error] :
       {Failure(u"%1!s", 99, ERROR_INVALID_PARAMETER), Failure(u"%1!f!", 99, ERROR_INVALID_PARAMETER),
        Failure(u"12%1", 5, ERROR_INSUFFICIENT_BUFFER), Failure(u"1234\n", 5, ERROR_INSUFFICIENT_BUFFER),
        Failure(u"%1!2147483647s!", 99, ERROR_INSUFFICIENT_BUFFER)}) {
    text[size] = u'#';
    EXPECT_EQ(Message(source, text, size, u"one"), 0u);
    EXPECT_EQ(GetLastError(), error) << qn::ToUtf8(source);
    EXPECT_EQ(std::tuple(text[0], text[size]), std::tuple(u'\0', u'#'));
  }
  EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_FROM_STRING, u"%1", 0, 0, text, 8, nullptr), 0u);
}

}  // namespace
