#include "qn/text/qnnumber.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <tuple>

#include "qn/platform/text.h"
#include "qn/platform/winuser_internal.h"
#include "qn/text/text_internal.h"
#include "tests/support/support.h"
#include "tests/text/text_test.h"

namespace {

using qntest::UseLocale;
using std::string;
using std::u16string;
using NumberTest = qntest::EnglishTest;

constexpr LCID kEnglish = 0x0409;
constexpr LCID kGerman = 0x0407;

// Calls a bounded printer in each room, and with `length` in the largest: what it must print there is given,
// in smaller rooms the start of it (or nothing, `whole`) with a result of 0. It stays within the room.
template <typename Print>
void ExpectInEveryRoom(const string& text, bool whole, int needed, Print print) {
  const u16string expected = qn::FromUtf8(text);
  for (int size = 0; size <= needed + 2; ++size) {
    u16string place(static_cast<size_t>(needed) + 8, '#');
    const int length = print(place.data(), size);
    const bool fits = size > needed;
    ASSERT_EQ(length, fits ? static_cast<int>(expected.size()) : 0) << text << " in " << size;
    ASSERT_EQ(place.find_first_not_of('#', static_cast<size_t>(size)), place.npos) << text << " in " << size;
    if (size == 0) continue;
    const u16string shown = fits ? expected : whole ? u"" : expected.substr(0, static_cast<size_t>(size) - 1);
    ASSERT_EQ(place.c_str(), shown) << text << " in " << size;
  }
}

// What a printer writes without a size.
string Printed(auto print) {
  WCHAR text[80];
  print(text);
  return qn::ToUtf8(text);
}

TEST_F(NumberTest, IntegersAreTheirDigitsInEveryRoom) {
  const auto check = [](auto value, auto printN, auto print) {
    const string expected = std::to_string(value);
    ExpectInEveryRoom(expected, false, static_cast<int>(expected.size()),
                      [&](WCHAR* text, int size) { return printN(value, text, size, FALSE); });
    EXPECT_EQ(Printed([&](WCHAR* text) { return print(value, text, FALSE); }), expected);
  };
  for (int i = 0; i < 64 * 8; ++i) {  // random in every length, and the neighbours of powers of 2
    const ULONGLONG power = 1ULL << i % 64;
    const ULONGLONG bits =
        i < 256 ? qntest::Random()() >> i % 64 : power + static_cast<ULONGLONG>(i / 64 % 3) - 1;
    check(static_cast<LONG>(bits), QnLongToTextN, QnLongToText);
    check(static_cast<DWORD>(bits), QnDWordToTextN, QnDWordToText);
    check(static_cast<LONGLONG>(bits), QnLongLongToTextN, QnLongLongToText);
    check(bits, QnDWordLongToTextN, QnDWordLongToText);
  }
  for (ULONGLONG power = 1, i = 0; i < 20; ++i, power *= 10) {
    for (ULONGLONG value : {power - 1, power}) check(value, QnDWordLongToTextN, QnDWordLongToText);
  }
}

// The groups of a number, cut from the right.
string Grouped(string digits, const QNINTERNATIONALS& locale) {
  string result;
  size_t group = locale.grouping == 32 ? 3 : locale.grouping;
  while (group && digits.size() > group) {
    result = qn::ToUtf8(locale.thousandsSeparator) + digits.substr(digits.size() - group) + result;
    digits.resize(digits.size() - group);
    if (locale.grouping == 32) group = 2;
  }
  return digits + result;
}

// The dressing and the integers' short cut to it give the same groups, and fail in the same rooms.
TEST_F(NumberTest, GroupsFollowTheLocaleRecord) {
  using Row = std::tuple<LCID, const WCHAR*, const WCHAR*, const WCHAR*>;
  // Swedish has another minus sign, English of India a list of groups.
  const Row rows[] = {{0x041D, nullptr, nullptr, nullptr},   {0x4009, nullptr, nullptr, nullptr},
                      {kEnglish, W("0"), W(";"), W("neg ")}, {kEnglish, W("1"), W(""), W("--")},
                      {kEnglish, W("4;0"), W("<>"), W("~")}, {kEnglish, W("32"), nullptr, W("--")},
                      {kEnglish, W("9"), W("''"), W("")}};
  for (const auto& [locale, grouping, separator, sign] : rows) {
    UseLocale(locale,
              {{LOCALE_SGROUPING, grouping}, {LOCALE_STHOUSAND, separator}, {LOCALE_SNEGATIVESIGN, sign}});
    const QNINTERNATIONALS& record = qn::Internationals();
    for (const LONGLONG value : {7L, -7L, 999L, -1000L, 123456L, -1234567890L, INT64_MIN}) {
      const string digits = std::to_string(value);
      const u16string wide = qn::FromUtf8(digits);
      const string groups = Grouped(digits.substr(value < 0), record);
      const int signRoom = value < 0 ? std::max(1, static_cast<int>(record.negativeSignLength)) : 0;
      const int needed = signRoom + static_cast<int>(qn::FromUtf8(groups).size());
      const string expected = value < 0 ? "-" + groups : groups;
      ExpectInEveryRoom(expected, true, needed,
                        [&](auto* text, int size) { return QnLongLongToTextN(value, text, size, TRUE); });
      ExpectInEveryRoom(expected, true, needed,
                        [&](auto* text, int size) { return QnFormatNumber(wide.c_str(), text, size); });
    }
  }
}

// Each row: the groups, the decimals, both, and both with two decimals.
TEST_F(NumberTest, DressingKeepsWhatStandsInFront) {
  using Row = std::pair<const WCHAR*, const char*>;
  UseLocale(kGerman);
  for (const auto& [digits, expected] :
       {Row{W("0001234"), "0001.234|0001234|0001.234|0001.234,00"}, Row{W("000"), "000|000|000|000"},
        Row{nullptr, "|||"}, Row{W("   1234.5"), "   1.235|   1234,5|   1.234,5|   1.234,50"},
        Row{W("x-"), "x|x|x|x"}, Row{W("-1234.567"), "-1.235|-1234,567|-1.234,567|-1.234,57"},
        Row{W(" 1,234"), " | | | "}, Row{W("00.5"), "01|00,5|00,5|00,50"},
        Row{W("1.0123456789"), "1|||1,01"}}) {
    WCHAR groups[64], decimals[64], both[64], two[64];
    QnFormatNumber(digits, groups, 64);
    QnFormatDecimalNumber(digits, decimals, 64);
    QnFormatGroupDecimalNumber(digits, both, 64, -1);
    QnFormatGroupDecimalNumber(digits, two, 64, 2);
    EXPECT_EQ(qn::ToUtf8(groups + u16string(W("|")) + decimals + W("|") + both + W("|") + two), expected);
  }
  WCHAR text[8] = W("#######");
  EXPECT_EQ(QnFormatNumber(W("     1234"), text, 4), 3);
  EXPECT_EQ(u16string(text), W("   "));
  EXPECT_EQ(QnFormatGroupDecimalNumber(W("1.5"), text, 8, 10), 0);
}

TEST_F(NumberTest, DoublesRoundTheirLastPlace) {
  struct Row {
    double value;
    int decimals;
    string plain, german;
  };
  UseLocale(kGerman);
  for (const Row& row :
       {Row{-0.001, 2, "0.00", "0,00"}, Row{-0.005, 2, "-0.01", "-0,01"}, Row{-0.5, -1, "-1", "-1"},
        Row{1234567.0625, 3, "1234567.063", "1.234.567,063"}, Row{0.1, 12, "0.100000000", "0,100000000"},
        Row{0.99999, 4, "1.0000", "1,0000"}, Row{std::nan(""), 1, "0.0", "0,0"},
        Row{0x1p63, 0, "9223372036854775808", "9.223.372.036.854.775.808"},
        Row{-HUGE_VAL, 1, "-18446744073709551615.0", "-18.446.744.073.709.551.615,0"}}) {
    ExpectInEveryRoom(row.plain, false, static_cast<int>(row.plain.size()), [&](auto* text, int size) {
      return QnDoubleToTextN(text, size, row.value, row.decimals, FALSE);
    });
    EXPECT_EQ(Printed([&](WCHAR* text) { QnDoubleToText(text, row.value, row.decimals, TRUE); }), row.german);
  }
  // Multiples of 1/512 have 9 decimals at most, so that they print exactly.
  for (int i = 0; i < 20000; ++i) {
    const auto bits = static_cast<LONGLONG>(qntest::Random()());
    const double value = std::ldexp(static_cast<double>(bits >> (20 + i % 40)), -9);
    char expected[64] = {};
    std::snprintf(expected, sizeof(expected), "%.9f", value);
    std::replace(expected, std::end(expected), ',', '.');
    ASSERT_EQ(Printed([&](WCHAR* text) { QnDoubleToText(text, value, 9, FALSE); }), expected);
    WCHAR text[64];
    QnDoubleToText(text, value, 9, TRUE);
    ASSERT_EQ(QnTextToDoubleToken(text, nullptr, 1), value);
  }
}

TEST_F(NumberTest, ReadersStopWhereTheNumberEnds) {
  const string zeros(63, '0');
  using Row = std::tuple<string, double, LONG, DWORD, int>;
  UseLocale(kGerman);
  for (const auto& [typed, number, integer, natural, stop] :
       {Row("", 0, 0, 0, 0), Row("- 5", 0, 0, 0, 1), Row("5-3", 5, 5, 5, 1), Row("+5", 0, 0, 0, 0),
        Row("  abc", 0, 0, 0, 2), Row("..1..2..", 12, 12, 12, 8), Row(",25", .25, 0, 0, 3),
        Row("1,2,3", 1.2, 1, 1, 5), Row("-1,5e3", -1.5, -1, 0, 4), Row("." + zeros + ".7", 0, 0, 0, 65),
        Row(" \t12.345.678,5 ", 12345678.5, 12345678, 12345678, 14), Row("-" + zeros, 0, 0, 0, 63),
        Row("4294967297", 4294967297, INT32_MAX, 1, 10), Row(zeros + "7", 0, 0, 0, 63),
        Row("-99999999999999999999", -1e20, INT32_MIN, 0, 21)}) {
    SCOPED_TRACE(typed);
    const u16string text = qn::FromUtf8(typed);
    const WCHAR* end;
    EXPECT_EQ(QnTextToDoubleToken(text.c_str(), &end, 1), number);
    EXPECT_EQ(end - text.c_str(), stop);
    EXPECT_EQ(QnTextToLongToken(text.c_str(), nullptr, 0), integer);
    EXPECT_EQ(QnTextToDWordToken(text.c_str(), nullptr, 0), natural);
  }
  EXPECT_EQ(QnTextToLongLongToken(W("-9.223.372.036.854.775.809"), nullptr, 0), INT64_MIN);
  EXPECT_EQ(QnTextToDWordLongToken(W("18446744073709551617"), nullptr, 0), 1u);
  EXPECT_EQ(QnTextToDoubleToken(W("-1,234.5"), nullptr, 0), -1234.5);
  UseLocale(kEnglish, {{LOCALE_STHOUSAND, W("")}, {LOCALE_SDECIMAL, W("::")}});
  EXPECT_EQ(QnTextToDoubleToken(W("12::5:"), nullptr, 1), 12.5);
}

TEST_F(NumberTest, DefaultsReplaceTextAndLimitsHold) {
  const struct {
    const WCHAR* text;
    int defaultValue, minimum, maximum, decimal, hexadecimal;
  } rows[] = {{W("abg"), 7, 0, 50, 7, 50}, {W("0ghi"), 7, 0, 50, 7, 7},     {W("0"), 7, 0, 50, 0, 0},
              {W("0 x"), 7, 0, 50, 0, 0},  {W("5"), 7, 10, 20, 10, 10},     {W("x"), 99, 10, 20, 20, 20},
              {W("5"), 7, 20, 10, 10, 10}, {W("12g"), 7, 0, 50, 12, 18},    {nullptr, 7, 3, 50, 3, 3},
              {W("0x"), 7, 0, 50, 7, 0},   {W(" 0xfF"), 7, 0, 500, 7, 255}, {W("0X1"), 7, 0, 50, 7, 7}};
  for (const auto& row : rows) {
    const auto check = [&row](auto read, auto expected) {
      const auto cast = [](int value) { return static_cast<decltype(expected)>(value); };
      EXPECT_EQ(read(row.text, cast(row.defaultValue), cast(row.minimum), cast(row.maximum), nullptr),
                expected);
    };
    check(QnTextToLongTokenEx, LONG(row.decimal));
    check(QnTextToLongLongTokenEx, LONGLONG(row.decimal));
    check(QnTextToDWordTokenEx, DWORD(row.decimal));
    check(QnTextToDWordLongTokenEx, ULONGLONG(row.decimal));
    check(QnTextToDoubleTokenEx, double(row.decimal));
    check(QnHexToDWordTokenEx, DWORD(row.hexadecimal));
    check(QnHexToDWordLongTokenEx, ULONGLONG(row.hexadecimal));
  }
  EXPECT_EQ(QnHexToDWordToken(W("123456789abcdef01"), nullptr), 0xABCDEF01u);
}

TEST_F(NumberTest, LabelsAndSizesAreShort) {
  const std::pair<const WCHAR*, const char*> labels[] = {
      {QnGetdBStringFixed(-900, 1, -900, TRUE), "-Inf."},
      {QnGetdBStringFixed(-125, 1, -900, TRUE), "-12.5 dB"},
      {QnGetdBStringFloat(-12.25f, 2, 0, FALSE), "-12.25"},
      {QnGetLabeledStringFixed(1, 12, 0, nullptr), "0.000000001"},
      {QnGetLabeledStringFixed(1, 0, 0, W(" and a label without end")), "1 and a label without e"},
      {QnGetLabeledStringFloat(-3e20f, 0, 0, nullptr), "-2,147,483,648"}};
  for (const auto& [label, expected] : labels) EXPECT_EQ(qn::ToUtf8(label), expected);
  using Size = std::pair<LONGLONG, const char*>;
  const auto fileSize = [](LONGLONG size) {
    return Printed([size](WCHAR* text) { QnFormatFileSize(size, text, 64, TRUE); });
  };
  for (const auto& [size, expected] :
       {Size{998, "998|998 bytes|998|998 bytes"}, Size{999, "999|999 bytes|999|0.97 KB"},
        Size{1536, "1.50KB|1.50 KB|1.50 KB|1.50 KB"},
        Size{1023999, "1,000.00KB|1,000.00 KB|1,000.00 KB|0.97 MB"},
        Size{10485760, "10.24MB|10.24 MB|10.24 MB|10.0 MB"},
        Size{1024000000, "1.00GB|1.00 GB|1.00 GB|976 MB"}, Size{-5, "-5|-5 bytes|-5|0 bytes"}}) {
    string all;
    for (auto* const print : {QnGetByteSizeText, QnGetByteSizeText2, QnGetByteSizeTextWithSpace}) {
      all += Printed([&, size = size](WCHAR* text) { print(size, text); }) + "|";
    }
    EXPECT_EQ(all + fileSize(size), expected);
  }
  for (int bits = 10; bits <= 50; bits += 10) EXPECT_EQ(fileSize(999LL << bits).substr(0, 5), "0.97 ");
  EXPECT_EQ(fileSize(0x6FFFFFFFFFFFFFFF) + fileSize(0x7000000000000000), "6.99 EB> 9 YB");
  UseLocale(kGerman, {{LOCALE_ILZERO, W("0")}});
  EXPECT_EQ(fileSize(999), ",97 KB");
  EXPECT_EQ(Printed([](WCHAR* text) { QnFourCCToString(0x7F20414D, text); }), "MA .");
  EXPECT_EQ(Printed([](WCHAR* text) { QnFourCCToStringCPU(0x417F414D, text); }), "MA");
}

TEST_F(NumberTest, TextsAreFittedByDots) {
  // A character is 10 pixels wide, a "." 4; without a device context, and with a "!", nothing can be
  // measured.
  qn::WindowBackend ruler{};
  ruler.sendMessage = [](HWND, UINT, WPARAM, LPARAM) { return LRESULT{0}; };
  ruler.getDC = [](HWND window) { return reinterpret_cast<HDC>(window); };
  ruler.releaseDC = [](HWND, HDC) { return 1; };
  ruler.getTextExtent = [](HDC dc, const WCHAR* text, int length, SIZE* extent) -> BOOL {
    const u16string view(text, static_cast<size_t>(length));
    for (const WCHAR c : view) extent->cx += c == '.' ? 4 : 10;
    return dc && view.find('!') == view.npos;
  };
  const qn::WindowBackend* const before = qn::SetWindowBackend(&ruler);
  int window = 0;
  const HDC dc = reinterpret_cast<HDC>(&window);
  const auto fit = [&](auto function, u16string text, int size, int width, const u16string& expected) {
    const bool shortened = expected != text;
    text.resize(text.size() + 16);
    EXPECT_EQ(function(dc, text.data(), size, width), shortened);
    EXPECT_EQ(text.c_str(), expected) << width;
  };
  using Row = std::tuple<u16string, int, int, u16string, u16string>;
  const u16string abc = W("abcdef"), path = W("\\dir\\sub/name");
  for (const auto& [whole, size, width, end, start] :
       {Row(abc, 32, 62, abc, abc), Row(abc, 32, 61, W("abcd..."), W("...cdef")),
        Row(abc, 7, 61, W("abc..."), W("...def")), Row(abc, 32, 24, W("a..."), W("...f")),
        Row(abc, 32, 23, abc, abc), Row(abc, INT32_MIN, 61, abc, abc),
        Row(W("a!cdef"), 32, 61, W("a!cdef"), W("a!cdef")),
        Row(W("ab\xD83D\xDE00z"), 32, 47, W("ab..."), W("...\xD83D\xDE00z")),
        Row(W("a\xD83D\xDE00yz"), 32, 47, W("a\xD83D\xDE00..."), W("...yz"))}) {
    fit(QnCalcStringEllipsis, whole, size, width, end);
    fit(QnCalcStringEllipsisFromEnd, whole, size, width, start);
  }
  for (const auto& [whole, size, width, end, cut] :
       {Row(path, 32, 131, path, path), Row(path, 32, 130, W("\\dir\\s.../name"), path),
        Row(path, 32, 62, W(".../name"), path), Row(path, 32, 61, path, path),
        Row(path, 9, 130, W(".../name"), W("\\dir\\sub")), Row(W("/a!/b"), 32, 45, W("/a!/b"), W("/a!/b"))}) {
    fit(QnCalcPathEllipsis, whole, size, width, end);
    WCHAR text[32];
    for (const HWND control : {reinterpret_cast<HWND>(dc), HWND{nullptr}}) {
      QnCalcPathEllipsisExCtl(control, whole.c_str(), text, size, width);
      EXPECT_EQ(text, control ? end : cut);
    }
  }
  qn::SetWindowBackend(before);
}

TEST_F(NumberTest, NamesAreCleaned) {
  WCHAR text[16] = W("\x3000 a b\t");
  EXPECT_EQ(QnStripWhiteSpace(text), 3);
  EXPECT_EQ(QnPrepareName(W(" \t"), text, 16), nullptr);
  EXPECT_EQ(u16string(QnPrepareName(W("\n ab cd "), text, 4)), W("ab"));
  EXPECT_EQ(QnFixNameForMenu(text, W("A&B"), 16), 4);
  EXPECT_EQ(u16string(text), W("A&&B"));
  EXPECT_EQ(QnFixNameForMenu(text, W("A&B"), 3), 1);
  char narrow[] = "a/b/c";
  EXPECT_EQ(QnStringReplaceChars(narrow, '/', '-'), 5);
  EXPECT_STREQ(narrow, "a-b-c");
}

}  // namespace
