#include "qn/text/qntimetext.h"

#include <array>
#include <iomanip>
#include <random>
#include <sstream>
#include <string>

#include "qn/platform/text.h"
#include "tests/support/support.h"
#include "tests/text/text_test.h"

namespace {

constexpr LONGLONG kHighest = INT64_MAX, kSecond = 10000000;

_qnposfmt Format(LONG format, LONGLONG offset = 0) {
  return {format, 48000, 25.0, 120.0, offset, 4, 4, 960};
}

// Hours, minutes, seconds, frames.
using Label = std::array<LONG, 4>;

Label LabelOf(const _smpteval& value) {
  return {value.hours, value.minutes, value.seconds, value.frames};
}

_smpteval Value(LONG type, const Label& label) {
  return {type, label[0], label[1], label[2], label[3], 0};
}

std::istream& operator>>(std::istream& in, Label& label) {
  return in >> label[0] >> label[1] >> label[2] >> label[3];
}

using TimeText = qntest::EnglishTest;

// Each frame of the day in each type against labels that are counted up one by one.
TEST(Timecode, EveryFrameOfTheDay) {
  const LONG kinds[][4] = {{1, 30, 30, 1}, {2, 30, 30000, 1001}, {3, 25, 25, 1},
                           {4, 24, 24, 1}, {5, 30, 30000, 1001}, {6, 24, 24000, 1001}};
  for (const auto& [type, labels, frames, seconds] : kinds) {
    Label label = {0, 0, 0, 0}, before = {23, 59, 59, labels - 1};
    LONGLONG count = 0;
    for (; label[0] < 24; ++count) {
      const LONGLONG nanotime = (count * kSecond * seconds + frames - 1) / frames;
      _smpteval value = Value(type, {99, 99, 99, 99}), timed = value, up = Value(type, before);
      QNSMPTE_FrameCountToSMPTE(&value, count);
      QNSMPTE_NanoToSMPTE(nanotime, &timed);
      QNSMPTE_IncrementByFrame(&up);
      _smpteval down = value;
      QNSMPTE_DeccrementByFrame(&down, 0);
      Label back = before;
      if ((type == 2 || type == 5) && label[2] == 0 && back[1] % 10 != 0) back[3] = 31;
      if (label[3] > 0) back = {label[0], label[1], label[2], label[3] - 1};
      if (LabelOf(value) != label || LabelOf(timed) != label || LabelOf(up) != label ||
          LabelOf(down) != back || QNSMPTE_SMPTEToFrameCount(&value) != count ||
          QNSMPTE_SMPTEToNanos(&value) != nanotime) {
        FAIL() << "type " << type << " frame " << count << " is " << testing::PrintToString(label);
      }
      before = label;
      if (++label[3] < labels) continue;
      label[3] = 0;
      if (++label[2] < 60) continue;
      label[2] = 0;
      if (++label[1] == 60) label = {label[0] + 1, 0, 0, 0};
      if (type == 2 && label[1] % 10 != 0) label[3] = 2;
    }
    for (const LONGLONG days : {1, 3, -2}) {
      _smpteval value = Value(type, {});
      QNSMPTE_FrameCountToSMPTE(&value, days * count - 1);
      EXPECT_EQ(LabelOf(value), before) << type;
    }
  }
}

TEST(Timecode, Arithmetic) {
  std::istringstream rows(R"(
    3 0 0 0 0   3 0 0 0 1   0 0 0 1  23 59 59 24      3 20 0 0 0  3 20 0 0 0  16 0 0 0  0 0 0 0
    1 0 0 0 0   1 24 0 0 0  0 0 0 0  0 0 0 0          2 0 0 59 29 2 0 0 0 1   0 1 0 2   0 0 59 28
    2 0 1 0 0   2 0 0 0 0   0 1 0 2  0 1 0 2          3 0 0 1 0   1 0 0 1 0   0 0 2 5   23 59 59 20
    0 1 0 0 0   1 0 1 0 0   0 1 0 2  23 58 59 28)");
  LONG type, otherType;
  Label first, second, sum, difference;
  while (rows >> type >> first >> otherType >> second >> sum >> difference) {
    _smpteval added = Value(type, first), taken = added;
    const _smpteval other = Value(otherType, second);
    QNSMPTE_AddSMPTE(&added, &other);
    QNSMPTE_SubtractSMPTE(&taken, &other);
    EXPECT_TRUE(LabelOf(added) == sum && LabelOf(taken) == difference) << testing::PrintToString(first);
  }
  const _smpteval late = Value(2, {1, 0, 0, 0}), early = Value(3, {0, 59, 59, 29});
  EXPECT_EQ(QNSMPTE_SMPTECompare(&late, &early) - QNSMPTE_SMPTECompare(&early, &late), 2);
  EXPECT_EQ(QNSMPTE_SMPTECompare(&early, &early), 0);
  EXPECT_EQ(QNSMPTE_SmpteLikeToNanos(10.0, &early), 3599 * kSecond + 29 * kSecond / 10);
  EXPECT_EQ(QNSMPTE_SmpteLikeToNanos(0, &early), kHighest);
}

TEST(Timecode, FromText) {
  std::istringstream rows(R"(
    3 "1:" 0 0 1 0  3 "1 : " 0 0 1 0  3 "12" 0 0 0 12  3 "12 " 0 0 0 12  3 "1234" 0 0 13 9
    0 "1234" 0 0 12 34  3 "01020304" 1 2 3 4  3 "1020304" 1 2 3 4  3 "1:234" 0 1 3 9  3 "1:2:3:4:5" 1 2 3 4
    3 "0102030405" 1 2 3 4  2 "a1;2,3.4x" 1 2 3 4  3 ":" 0 0 0 0  3 "" 0 0 0 0  3 "99:99:99:99" 4 40 42 24
    3 "0:61:61:0" 1 2 1 0)");
  LONG type;
  std::string text;
  for (Label label; rows >> type >> std::quoted(text) >> label;) {
    _smpteval value = {type, 9, 9, 9, 9, 9};
    QNSMPTE_TextToSMPTE(qn::FromUtf8(text).c_str(), &value);
    EXPECT_TRUE(LabelOf(value) == label && value.reserved == 0) << text;
  }
}

std::string Print(const _qnposfmt& format, LONGLONG nanotime, DWORD flags) {
  WCHAR text[64];
  const int length = QnNanoTimeToTextEx(text, &format, nanotime, flags);
  EXPECT_EQ(text[length], 0);
  return qn::ToUtf8({text, static_cast<size_t>(length)});
}

TEST_F(TimeText, LiteralTexts) {
  std::istringstream rows(R"(
    0 0 10000000 48,000  0 0 105 1  1 0 -10000000 -00:00:01.000  1 0 9995000 00:00:01.000
    1 0 9994999 00:00:00.999  1 0 59995000 00:00:06.000
    1 0 863999000000 23:59:59.900 1 1 863999000000 23:59:59  1 0 863999000001 00:23:59:59
    1 1 864000000000 01:00:00:00  2 0 12345678901 1,234.568  2 1 12349999999 1,234  3 0 200000 00:00:00.01
    3 0 199999 00:00:00.00  3 1 900000000000 01:00:00  4 0 400000000 1,000.000  4 1 399999 1
    5 0 10000000 1.3.000  5 1 10000000 1.3  5 2 10000000 0.2.000  13 0 22500000 1.0.480
    6 0 600600000 00:01:00:00  8 0 600600000 00:01:00;02  8 1 -600600000 -00:01:00;02
    7 0 9999998 00:00:00:29  7 0 9999999 00:00:01:00  9 0 10000000 00:00:01:00  10 0 5000000 00:00:00:12
    18 0 10010000 00:00:01:00  11 0 -5 -5  12 0 14 1  12 1 15 2  14 0 10000000 2.000  14 1 14999999 2
    15 0 40000000 2+20  16 1 40000000 6+4  17 0 66666 00:00:00:00  17 0 66667 00:00:00:01
    17 1 10000000 00:00:01  19 0 59994999 0:05  19 0 6000000000 10:00  19 0 900000000000 1:00:00
    19 0 882000000000 30:00  20 0 1234 1,234  -1 1 -1234 -1,234
    11 2 -9223372036854775808 -9,223,372,036,854,775,807)");
  LONG format;
  DWORD flags;
  LONGLONG nanotime;
  for (std::string text; rows >> format >> flags >> nanotime >> text;) {
    EXPECT_EQ(Print(Format(format), nanotime, flags), text) << format << ' ' << nanotime;
    const LONGLONG moved = flags & QNTIMETEXT_ABSOLUTE ? 0 : kSecond;
    EXPECT_EQ(Print(Format(format, -kSecond), nanotime - moved, flags), text) << format << ' ' << nanotime;
  }
  EXPECT_TRUE(rows.eof());
}

// 1234.5678901 seconds by texts that ask for what there is, and for what there is not.
TEST_F(TimeText, CallersFormatTextsAndRoom) {
  std::istringstream rows(R"-(
    2 "$.0f" "1,234"  2 "$.0fs" "1,235s"  2 "%.1f" "1234.6"  2 "%d" ""  2 "%f %f" ""  0 "%d %d" ""
    0 "%I64d%%" "59259259%"  1 "%u$(m.b)%u" "0.20"  0 "%s" ""  0 "%.1f" ""  0 "$(1%s" ""  1 "$(e%s)" "$(e%s)"
    11 "$(1$(:a)%%%I64d" "$(1$(:a)%12345678901" 11 "$(1%)s" ""  11 "$$%%$%%*$!x" "$%%.x"  19 "%u" "20:34" 20 "%" "%")-");
  LONG number;
  std::string formatText, expected;
  constexpr LONGLONG kTime = 12345678901;
  while (rows >> number >> std::quoted(formatText) >> std::quoted(expected)) {
    const _qnposfmt format = Format(number);
    WCHAR text[64] = W("?");
    const int length = QnNanoTimeToTextFormat(text, &format, kTime, qn::FromUtf8(formatText).c_str(), 0);
    EXPECT_EQ(qn::ToUtf8({text, static_cast<size_t>(length)}), expected) << formatText;
  }
  for (LONG i = 0; i < 21 * 30; ++i) {
    const _qnposfmt format = Format(i / 30);
    const size_t size = i % 30;
    const std::string whole = Print(format, -kTime, 0);
    std::u16string text(32, W('#'));
    const size_t length = QnNanoTimeToTextN(text.data(), i % 30, &format, -kTime, FALSE);
    ASSERT_TRUE(text.find_first_not_of(W('#'), size) == text.npos &&
                std::min(text.find(W('\0')), size) == length);
    ASSERT_TRUE(size <= whole.size() || qn::ToUtf8({text.data(), length}) == whole);
  }
}

TEST_F(TimeText, ReadsWhatItPrints) {
  std::istringstream rows(R"(
    0 105 4503599627370496  1 5001 863990000000  2 5001 4503599627370496  3 200001 863990000000
    4 206 70368744177664  5 6251 17000000000  6 333668 863990000000  7 333334 863990000000
    8 333668 863990000000  9 400001 863990000000  10 416668 863990000000  11 0 2305843009213693951
    12 5 2305843009213693951 13 6251 17000000000  15 400001 9900000000  16 400001 6000000000
    17 66668 863990000000  18 417084 863990000000)");
  LONG number;
  for (LONGLONG resolution, most; rows >> number >> resolution >> most;) {
    std::uniform_int_distribution<LONGLONG> times(-most, most);
    for (int i = 0; i < 20000; ++i) {
      const LONGLONG shown = times(qntest::Random());
      const _qnposfmt format = Format(number, times(qntest::Random()));
      const DWORD flags = i % 2 ? QNTIMETEXT_ABSOLUTE : 0;
      const LONGLONG nanotime = flags ? shown : shown + format.offset;
      const std::string text = Print(format, nanotime, flags);
      const LONGLONG read =
          QnTextToNanoTimeToken2(qn::FromUtf8(text).c_str(), &format, 0, 0, 0, flags, nullptr);
      ASSERT_LE(std::abs(read - nanotime), resolution) << number << ' ' << text << ' ' << shown;
    }
  }
}

TEST_F(TimeText, ReadsWhatUsersType) {
  std::istringstream rows(R"(
    1 0 "5" 50000000 1  1 0 " -1.5" -15000000 5  1 0 "0:0:1.25" 12500000 8  1 0 ".5" 5000000 2
    1 0 "12:30" 123000000 5  1 0 "1:2:3.4567x" 37234560000 10  1 0 "5:" 50000000 2  1 0 "7  " 70000000 1
    1 0 "1:2:3:4:5" 37234000000 7  1 1 "1:30" 900000000 4  3 0 "1:05" 12000000 4  3 1 "1:05" 650000000 4
    5 0 "2.1.480" 22500000 7  5 0 "1.1" 5208 3  5 1 "2.1" 20000000 3  5 2 "1.2.0" 30000000 5
    13 0 "1.2.0.7" 30000000 5  0 0 "48,000 Hz" 10000000 6  2 0 "1,234.5s" 12345000000 7  2 0 "9e9" 90000000 1
    2 0 "999999999999" 2305843009209999872 12  4 0 "-25" -10000000 3  8 0 "1:00:02" 600600000 7
    12 0 "-9000000000000000000" -9223372036854775807 20  11 0 "-7" -7 2  12 0 "7" 70 1
    17 0 "1:0:0:37" 36004933333 8  15 0 "2+20" 40000000 4  16 0 "6+4" 40000000 3  17 0 "76" 10133333 2
    0 0 "99999999999999999" 2305843009213693952 17  14 0 "5" 0 1  19 0 "5" 0 1  9 0 "x" 0 1  11 0 "x" 0 0  3 0 "x" 0 0
    1 0 "99999999999999999999" 9223372036854775807 20)");
  LONG number;
  DWORD flags;
  std::string text;
  LONGLONG expected, behind;
  while (rows >> number >> flags >> std::quoted(text) >> expected >> behind) {
    const _qnposfmt format = Format(number);
    const std::u16string wide = qn::FromUtf8(text);
    const WCHAR* end = nullptr;
    EXPECT_EQ(QnTextToNanoTimeToken2(wide.c_str(), &format, 99, 0, 0, flags, &end), expected) << text;
    EXPECT_EQ(end - wide.c_str(), behind) << number << ' ' << text;
  }
  EXPECT_TRUE(rows.eof());
  std::istringstream limited(R"(
    0 "" 700  0 "  " 700  0 "-" 700  0 "abc" 100  0 "0" 0  0 "0 x" 0  0 "0x" 100  0 "500" 100  3 "abc" 3
    -5 "5x" 100  0 "-500" -100)");
  for (LONGLONG offset; limited >> offset >> std::quoted(text) >> expected;) {
    const _qnposfmt format = Format(QNPOSFMT_NANOTIME, offset);
    const std::u16string wide = qn::FromUtf8(text);
    EXPECT_EQ(QnTextToNanoTimeTokenEx(wide.c_str(), &format, FALSE, 700, -100, 100, nullptr), expected)
        << text;
  }
}

TEST_F(TimeText, Fields) {
  _smpteval value = {};
  QnNanoTimeToHMSF(90001 * kSecond + 200000, &value, 25.0, FALSE);
  EXPECT_EQ(LabelOf(value), (Label{1, 0, 1, 1}));
  QnNanoTimeToHMSF(90001 * kSecond + 199999, &value, 25.0, TRUE);
  EXPECT_EQ(LabelOf(value), (Label{25, 0, 1, 0}));
  EXPECT_EQ(QnHMSFToNanoTime(&value, 25.0), 90001 * kSecond);
  value.type = QNSMPTE_2997_DROP;
  QnNanoTimeToHMSF(600600000, &value, 1.0, TRUE);
  EXPECT_EQ(LabelOf(value), (Label{0, 1, 0, 2}));
  EXPECT_EQ(QnHMSFToNanoTime(&value, 1.0), 600600000);
}

TEST_F(TimeText, Music) {
  _qnposfmt format = Format(QNPOSFMT_MEASURES, 5 * kSecond);
  LONG measure = 0, beat = 0, tick = 0, ticks, base, shortForm, divisor;
  QnNanoTimeToMeasures(22500000, &format, &measure, &beat, &tick);
  EXPECT_EQ((std::array{measure, beat, tick}), (std::array{1, 0, 480}));
  std::istringstream rows(R"(
    4 0 0 1 0 1 1.1.000  4 -1 0 1 0 1 -1.1.000  4 0 -960 1 0 1 -1.4.000  4 0 -960 0 1 1 -1.3
    4 2 1445 0 0 10 2.1.048  8 1 1445 1 0 1 2.4.005  4 1 9600 1 1 1 2.3  0 1 100 1 0 0 2.1.000)");
  WCHAR text[64];
  for (std::string wanted;
       rows >> format.beatValue >> measure >> ticks >> base >> shortForm >> divisor >> wanted;) {
    QnMeasuresAndTicksToText(text, &format, measure, ticks, base, shortForm, divisor);
    EXPECT_EQ(qn::ToUtf8(text), wanted);
  }
  format.beatValue = 4;
  for (ticks = -50000; ticks < 50000; ticks += 7) {  // the readers know no sign
    QnTicksToText(text, &format, ticks, 0, FALSE, 1);
    const LONG read = QnTextToMeasuresBeatsTicks(text, &format, 0, FALSE, &measure, nullptr, nullptr);
    ASSERT_EQ(ticks < 0 ? read - 2 * measure * 3840 : read, ticks) << qn::ToUtf8(text);
  }
  EXPECT_EQ(QnTextToTicks(W("2.3.5"), &format, 1, FALSE), (4 + 2) * 960 + 5);
  EXPECT_EQ(QnTextToTicks(W("2.3"), &format, 0, TRUE), 11 * 960);
  EXPECT_EQ(QnTextToBeatsTicks(W("2.3"), &format, FALSE, &beat, &tick), 1923);
  EXPECT_EQ((std::array{beat, tick}), (std::array{2, 3}));
}

}  // namespace
