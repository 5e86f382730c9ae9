#include "qn/text/qnprint.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <limits>
#include <memory>
#include <set>
#include <thread>
#include <tuple>

#include "qn/platform/text.h"
#include "qn/platform/winuser_internal.h"
#include "tests/support/support.h"
#include "tests/text/text_test.h"

namespace {

constexpr HRESULT kTooSmall = static_cast<HRESULT>(0x8004E03C);
constexpr HRESULT kTextTooLong = static_cast<HRESULT>(0x8007007A);

using qntest::UseLocale;
using QnPrint = qntest::EnglishTest;

// Prints by the unbounded form, and holds the bounded form to it at every size: an exact-size block shows a
// write past its end.
template <typename... Args>
std::string Print(const WCHAR* format, Args... arguments) {
  static WCHAR whole[1 << 16];
  const int length = QnPrintF(whole, format, arguments...);
  const std::u16string text(whole);
  EXPECT_EQ(length, static_cast<int>(text.size()));
  for (int size = 1; size <= std::min(length, 80) + 2; ++size) {
    const std::unique_ptr<WCHAR[]> buffer(new WCHAR[static_cast<size_t>(size)]);
    int written = -1;
    const HRESULT status = QnCchPrintF(buffer.get(), size, &written, format, arguments...);
    const std::u16string bounded(buffer.get());
    EXPECT_EQ(written, static_cast<int>(bounded.size()));
    EXPECT_EQ(status == 0, size > length) << qn::ToUtf8(format) << " in " << size;
    EXPECT_TRUE(status == 0 ? bounded == text : status == kTooSmall || status == kTextTooLong) << status;
  }
  return qn::ToUtf8(text);
}

TEST_F(QnPrint, ReadsTheFormatAsTold) {
  const std::u16string ones(258, u'1'), lengthy = u"$" + ones + u"5d", lengthiest = u"%" + ones + u"d";
  const std::u16string name = u"$(" + std::u16string(260, u'n') + u"n)";
  using Row = std::pair<std::u16string, std::string>;
  for (const auto& [format, expected] :
       {Row(u"%d Hz$, $(Unknown) $d Bit", "255 Hz, $(Unknown) 2 Bit"), Row(u"", ""), Row(u"a%", "a%"),
        Row(u"$", "%"), Row(u"$5", "%5"), Row(u"$$ %% $% $5*$x:%,$:", "$ % % .ff:,:"), Row(u"$(", "$("),
        Row(u"$!:$!.$!,$!x$&:$&.$&,$!", ":.,x..,"),
        Row(u"$()$(Unknown) $(Unknown", "$()$(Unknown) $(Unknown"),
        Row(u"$(1234567) $(-1234.50) $(.5) $(12x)", "1,234,567 -1,234.50 0.5 $(12x)"),
        Row(name, "$(" + std::string(261, 'n') + ")"), Row(lengthy, "%" + std::string(258, '1') + "5d"),
        // No width that an int holds, what the dressing refuses; `$` ends no spec, and these are none of C's.
        Row(lengthiest, ""), Row(u"[$(1,234)$(1.0123456789)]", "[]"), Row(u"%$d!", "!"), Row(u"%5%d%d", "2"),
        Row(u"$Sabc%d", "2")}) {
    EXPECT_EQ(Print(format.c_str(), 255, 2), expected);
  }
}

TEST_F(QnPrint, DressesNumbers) {
  const LONGLONG large = 1234567890123;
  EXPECT_EQ(Print(W("$d %i $u %u"), -1234567, -1234567, -1, -1),
            "-1,234,567 -1234567 4,294,967,295 4294967295");
  EXPECT_EQ(Print(W("$d$I32d$d"), 0, 0, std::numeric_limits<LONG>::min()), "00-2,147,483,648");
  EXPECT_EQ(Print(W("$I64d $Iu $lld %ld"), large, large, large, 5),
            "1,234,567,890,123 1,234,567,890,123 1,234,567,890,123 5");
  EXPECT_EQ(Print(W("$08I64d|$8d|$+d|$.6d|$08d"), LONGLONG{1234567}, -1234, 1234, 1234, -1234),
            "01,234,567|   -1,234|+1,234|001,234|-1,234");
  // Refused are blanks behind a number, and more than 9 decimals.
  EXPECT_EQ(Print(W("[$-8d][$-3d][$-8.1f][$.10f][%.10f]"), 1234, 0, 1.5, 1.5, 1.5),
            "[][0  ][][][1.5000000000]");
  EXPECT_EQ(Print(W("$x $X $o"), 1234567, 255, 8), "12d687 FF 10");
  EXPECT_EQ(Print(W("$.2f $f %f $5.1f $.0f"), 1234.5, -1e6, 1234.5, 1.25, 1234.0),
            "1,234.50 -1,000,000.000000 1234.500000   1.2 1,234");
  EXPECT_EQ(Print(W("$g $g $e %G"), 1234.5, 1e20, 1234.5, 1e20), "1234.5 1e+20 1.234500e+03 1E+20");
  EXPECT_EQ(Print(W("%.2z $.2z %.1z $.1z $.9z"), 1234, 123456, 12345, 1234, -5),
            "12.34 1,234.56 1234.5 123.4 -0.000000005");
  EXPECT_EQ(Print(W("$z %5z %.0z $5.2z [%.12z%.0z]"), 1234, 7, 7, 7, 7, 0), "1,234     7 7    07 []");
  EXPECT_EQ(Print(W("$f %f %E $g"), INFINITY, -INFINITY, INFINITY, NAN), "inf -inf INF nan");
  UseLocale(0x0407);
  EXPECT_EQ(Print(W("$.2f %.2f $d %.1z $.1z $g$*"), 1234.5, 1234.5, -1234567, 12345, 12345, 0.5),
            "1.234,50 1234.50 -1.234.567 1234,5 1.234,5 0,5,");
  EXPECT_EQ(Print(W("$(1234.5) $:$,")), "1.234,5 :;");
}

TEST_F(QnPrint, PrintsTexts) {
  ASSERT_TRUE(SetAnsiCodePage(CP_UTF8));
  const char open[] = {'a', 'b'};  // no terminator: nothing behind the precision is read
  const WCHAR openWide[] = {'a', 'b'};
  EXPECT_EQ(Print(W("[%5s|%-5s|$.2s|%5.1ls|%ws]"), W("abc"), W("abc"), W("abc"), W("abc"), W("x")),
            "[  abc|abc  |ab|    a|x]");
  EXPECT_EQ(Print(W("%hs|%4hs|%.2hs|%.2s"), "h\xC3\xA9", "\xC3\xA9", open, openWide),
            "h\xC3\xA9|   \xC3\xA9|ab|ab");
  EXPECT_EQ(Print(W("%s|%.3s|%8hs"), nullptr, nullptr, nullptr), "(null)|(nu|  (null)");
  EXPECT_EQ(Print(W("%04s|%-04s|"), W("x"), W("x")), "000x|x   |");
  EXPECT_EQ(Print(W("%c%3c%-3c|%hc[%c]"), 'a', 'b', 'c', 'd', 0), "a  bc  |d[]");
  EXPECT_EQ(Print(W("%Ss%lls%d"), W("no"), W("no"), 3), "3");  // no pointer is followed but by a valid spec
  SetAnsiCodePage(0);

  const std::u16string text(1500, u'x');
  WCHAR buffer[4096];
  EXPECT_EQ(QnPrintF(buffer, W("%s!%1100s!%-1100s!"), text.c_str(), W("y"), W("y")), 3 * 1024 + 3);
  int length = 0;
  EXPECT_TRUE(QnCchPrintF(buffer, 4096, &length, W("%s"), text.c_str()) == 0 && length == 1500);
  EXPECT_EQ(QnCchPrintF(buffer, 4, &length, W("%d%s"), 1, W("abc")), kTextTooLong);
  EXPECT_EQ(std::u16string(buffer), u"1ab");
  EXPECT_EQ(QnCchPrintF(buffer, 5, &length, W("a%db%s"), 12345, W("cdef")), kTextTooLong);
  EXPECT_EQ(std::u16string(buffer), u"abcd");  // a number that does not fit is left out
}

TEST_F(QnPrint, HoldsBoundsAndHugeCounts) {
  WCHAR buffer[8] = {};
  int length = 7;
  for (const int size : {0, -1}) EXPECT_EQ(QnCchPrintF(buffer, size, &length, W("a")), E_INVALIDARG);
  EXPECT_EQ(QnCchPrintF(nullptr, 8, &length, W("a")), E_INVALIDARG);
  EXPECT_EQ(length, 7);
  for (const WCHAR* format : {W("%2000000000d"), W("%-2000000000d"), W("%.2000000000d"), W("$2000000000d"),
                              W("%02000000000d"), W("$(SMPTE.Label.Drop.Full)")}) {
    EXPECT_EQ(QnCchPrintF(buffer, 8, &length, format, 1), kTooSmall);
    EXPECT_EQ(length, 7);
  }
  EXPECT_EQ(QnCchPrintF(buffer, 8, &length, W("%.99999999f"), 1.0), kTooSmall);
  EXPECT_EQ(std::u16string(buffer), u"1.00000");
  EXPECT_EQ(QnCchPrintF(buffer, 8, nullptr, W("%3000000000d%d"), 1, 2), 0);
  EXPECT_EQ(std::u16string(buffer), u"2");
  ASSERT_EQ(QnComposeStr(buffer, 8, W("%2 %1"), W("a"), W("b")), 3);
  EXPECT_EQ(std::u16string(buffer), u"b a");
}

TEST_F(QnPrint, AgreesWithTheCLibrary) {
  auto& random = qntest::Random();
  const auto pick = [&](int count) { return static_cast<int>(random() % static_cast<unsigned>(count)); };
  const std::pair<const char*, const char*> sizes[] = {{"", ""},    {"hh", "hh"}, {"h", "h"},    {"l", ""},
                                                       {"I32", ""}, {"ll", "ll"}, {"I64", "ll"}, {"I", "ll"},
                                                       {"j", "j"},  {"t", "ll"}};
  const auto check = [](const std::string& ours, const std::string& theirs, auto value, bool cuts) {
    char expected[4096] = {};
    WCHAR printed[4096], cut[16];
    const std::u16string format = qn::FromUtf8(ours);
    std::snprintf(expected, sizeof expected, theirs.c_str(), value);
    std::replace(expected, std::end(expected), ',', '.');
    QnPrintF(printed, format.c_str(), value);
    ASSERT_EQ(qn::ToUtf8(printed), expected) << ours;
    if (!cuts) return;  // a bare integer is not cut but left out
    QnCchPrintF(cut, 16, nullptr, format.c_str(), value);
    ASSERT_EQ(qn::ToUtf8(cut), std::string(expected).substr(0, 15)) << ours;
  };
  for (int round = 0; round < 40000 && !HasFatalFailure(); ++round) {
    std::string flags = "%";
    for (int i = pick(4); i > 0; --i) flags += "-+ #0"[pick(5)];
    if (pick(2)) flags += std::to_string(pick(40));
    if (flags.back() == '0') flags += '1';
    if (pick(2))
      flags += "." + (pick(8) ? std::to_string(pick(30)) : pick(2) ? "" : std::to_string(pick(1500)));
    if (pick(2)) {
      const auto& [ours, theirs] = sizes[pick(10)];
      const char letter = "diuxXo"[pick(6)];
      const auto value = static_cast<LONGLONG>(random() >> pick(64)) * (pick(2) ? 1 : -1);
      check(flags + ours + letter, flags + theirs + letter, value, flags.size() > 1);
    } else {
      auto value = std::bit_cast<double>(random());
      if (pick(2)) value = std::ldexp(pick(4000) - 2000, pick(8) ? pick(24) - 12 : -1070);
      const std::string format = flags + "feEgG"[pick(5)];
      check(format, format, value, true);
    }
  }
}

TEST_F(QnPrint, KeepsTokens) {
  for (const LCID lcid : {0x0407, 0x0409}) {
    _QnLang_UpdateKernelOnlyLCID(lcid);
    QnLang_GetInternationals(nullptr, 0);
    EXPECT_EQ(Print(W("$(SMPTE.Label.Drop)")), lcid == 0x0407 ? "hh:mm:ss,ff" : "hr:mn:sc,fr");
  }
  ASSERT_TRUE(QnPrintF_AddToken(W("AppName"), W("first")));
  ASSERT_TRUE(QnPrintF_AddToken(W("appname"), W("%d$$")));  // replaces it; a value is no format
  ASSERT_TRUE(QnPrintF_AddToken(W("x y$%("), W("odd")));
  EXPECT_FALSE(QnPrintF_AddToken(nullptr, W("v")));
  EXPECT_EQ(Print(W("$(APPNAME)$(x y$%()")), "%d$$odd");
  EXPECT_EQ(Print(W("$(SMPTE.Whole)$(SMPTE.NonDrop)$(SMPTE.Drop)$(m.b)$(b.t)")), ":.,..");
  EXPECT_EQ(Print(W("$(SMPTE.Label.NonDrop) $(SMPTE.Label.NonDrop.Full) $(SMPTE.Label.Drop.Full)")),
            "hr:mn:sc.fr hours:minutes:seconds.frames hours:minutes:seconds,frames");
  EXPECT_EQ(Print(W("$(MusicTime.Label) $(MusicTime.Label.Full)")), "ms.bt.tk measures.beats.ticks");
  // One thread replaces what another prints.
  std::thread writer([] {
    for (int i = 0; i < 2000; ++i) QnPrintF_AddToken(W("AppName"), i % 2 ? W("aaaaaaaaaa") : W("b"));
  });
  for (int i = 0; i < 2000; ++i) {
    WCHAR text[32];
    EXPECT_TRUE((std::set{1, 4, 10}.contains(QnPrintF(text, W("$(AppName)")))));
  }
  writer.join();
  EXPECT_TRUE(QnPrintF_DeleteToken(W("APPNAME")) && QnPrintF_DeleteToken(W("x y$%(")));
  EXPECT_FALSE(QnPrintF_DeleteToken(W("AppName")));
  EXPECT_EQ(Print(W("$(AppName)")), "$(AppName)");
}

TEST_F(QnPrint, ReadsTheLocaleRecord) {
  using Text = std::u16string;
  using Locale = std::tuple<LCID, int, int, Text, Text, Text>;
  for (const auto& [locale, languageId, country, thousands, decimal, list] :
       {Locale(0x0409, 409, 1, u",", u".", u","), Locale(0x0407, 407, 49, u".", u",", u";"),
        Locale(0x040C, 40, 33, u"\x202F", u",", u";"), Locale(0x0439, 439, 91, u",", u".", u",")}) {
    SCOPED_TRACE(locale);
    UseLocale(locale);
    QNINTERNATIONALS r;
    ASSERT_EQ(QnLang_GetInternationals(&r, 10000), 0);
    EXPECT_EQ(std::tuple(r.size, r.systemLcid, r.grouping), std::tuple(796, GetSystemDefaultLCID(), 3));
    EXPECT_EQ(std::tuple(r.languageId, r.countryCode), std::tuple(languageId, country));
    EXPECT_EQ(std::tuple(QnGetInat(1, nullptr), QnGetInat(4, nullptr)), std::tuple(languageId, country));
    EXPECT_EQ(std::tuple(Text(r.thousandsSeparator), Text(r.decimalSeparator), Text(r.listSeparator)),
              std::tuple(thousands, decimal, list));
    EXPECT_EQ(Text(r.languageName).size(), r.languageNameLength);
    WCHAR text[64] = W("x");
    EXPECT_TRUE(QnGetInat(24, text) == 1 && text == decimal);
    EXPECT_TRUE(QnGetInatN(3, text, 4) == 3 && text == Text(r.englishLanguageName, 3));
    EXPECT_EQ(QnGetInatN(3, text, 0) + QnGetInat(24, nullptr) + QnGetInat(5, text), 0);
    EXPECT_EQ(text[0], 0);
  }
  for (const WCHAR* same : {W("."), W(",")}) {
    UseLocale(0x0409, {{LOCALE_STHOUSAND, same}, {LOCALE_SDECIMAL, same}});
    EXPECT_EQ(Print(W("%*")), *same == '.' ? "," : ".");
  }
  QNINTERNATIONALS r = {};
  EXPECT_TRUE(QnSetLangID(W("DEUX")) == kTextTooLong && QnSetLangID(W("")) == 0);
  ASSERT_EQ(QnLang_GetInternationals(&r, 755), 0);
  EXPECT_EQ(Text(r.languageIdText), u"ENU");
  EXPECT_EQ(r.languageIdTextLength + r.size, 3 + 755u);
}

// A dialog with one control, 7, that is a window as well.
struct FakeWindow {
  std::u16string text;
  int sets = 0;
  bool fails = false;
  std::vector<std::u16string> messages;
} fake;
const HWND kFake = reinterpret_cast<HWND>(&fake);

TEST_F(QnPrint, SetsWindowTexts) {
  qn::WindowBackend backend{};
  backend.setWindowText = [](HWND window, const WCHAR* text) -> BOOL {
    if (window != kFake || fake.fails) return FALSE;
    fake.text = text;
    return ++fake.sets;
  };
  backend.getWindowText = [](HWND, WCHAR* text, int size) {
    const size_t count = fake.text.copy(text, static_cast<size_t>(size - 1));
    text[count] = 0;
    return static_cast<int>(count);
  };
  backend.getWindowTextLength = [](HWND) { return static_cast<int>(fake.text.size()); };
  backend.getDlgItem = [](HWND, int item) { return item == 7 ? kFake : nullptr; };
  backend.sendMessage = [](HWND, UINT message, WPARAM wParam, LPARAM lParam) -> LRESULT {
    if (message == EM_SETSEL && wParam == WPARAM(-1) && lParam == -1) fake.messages.push_back(u"end");
    if (message == EM_REPLACESEL) fake.messages.push_back(reinterpret_cast<const WCHAR*>(lParam));
    return 0;
  };
  const auto* const before = qn::SetWindowBackend(&backend);
  EXPECT_EQ(QnSetWindowTextF(kFake, W("$d"), 1234), 5);
  EXPECT_EQ(fake.text, u"1,234");
  EXPECT_EQ(QnSetWindowTextNoF(kFake, W("100%d")), 5);
  EXPECT_EQ(fake.text, u"100%d");
  EXPECT_EQ(QnSetDlgItemTextF(kFake, 7, W("%s"), W("a")), 1);
  EXPECT_EQ(QnSetDlgItemTextF(kFake, 8, W("%s"), W("a")) + QnSetDlgItemTextF(kFake, 7, nullptr), 0);
  EXPECT_EQ(QnSetDlgItemTextNoF(kFake, 7, W("$$")), 2);
  EXPECT_EQ(QnSetWindowTextId(nullptr, kFake, 1) + QnSetDlgItemTextId(nullptr, kFake, 7, 1), 0);
  const std::u16string plain(5000, u'p'), formatted = u"%d" + plain;
  EXPECT_EQ(QnSetWindowTextF(kFake, plain.c_str()), 5000);  // no format, no limit
  EXPECT_EQ(QnSetWindowTextF(kFake, formatted.c_str(), 1), 2047);

  const int sets = fake.sets;
  for (int i = 0; i < 2; ++i) EXPECT_EQ(QnSetDlgItemTextNoFlashF(kFake, 7, W("%d"), 12), 2);
  EXPECT_EQ(QnSetDlgItemTextNoFlashNoF(kFake, 7, W("12")), 2);
  EXPECT_EQ(fake.sets, sets + 1);
  for (const size_t length : {8191u, 8192u}) {
    const std::u16string text(length, u't');
    for (int i = 0; i < 2; ++i) QnSetDlgItemTextNoFlashF(kFake, 7, text.c_str());
  }
  EXPECT_EQ(fake.sets, sets + 1 + 1 + 2);
  fake.fails = true;
  EXPECT_EQ(QnSetWindowTextNoF(kFake, W("a")) + QnSetDlgItemTextNoFlashNoF(kFake, 7, W("a")), 0);
  fake.fails = false;

  EXPECT_EQ(QnMEditPrintF(kFake, W("$d"), 1000) + QnMEditPrintF(kFake, W("~~%s~"), W("a")), 5 + 2);
  const std::vector<std::u16string> log = {u"end", u"1,000", u"end", u"\r\n", u"end", u"a~"};
  EXPECT_EQ(fake.messages, log);
  EXPECT_EQ(QnMEditPrintF(kFake, nullptr), 0);
  EXPECT_EQ(fake.text, u"");
  qn::SetWindowBackend(before);
}

}  // namespace
