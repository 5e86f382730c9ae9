// Numbers in the user's dress. Every number on the screen comes through here, so a call neither allocates nor
// locks nor asks ICU: the format names the separators, and the user's negative sign stays ready.

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <string_view>

#include "qn/platform/error_internal.h"
#include "qn/platform/locale_internal.h"

namespace {

constexpr UINT kIndian = 32;  // groups of two in front of one of three

// Digits of a source text. What rounding up does to them is told by the place that it reaches: the digits in
// front of it stay, it counts one up, and the nines behind it become 0.
struct Digits {
  const WCHAR* source;
  ptrdiff_t count;
  ptrdiff_t roundedAt;  // `count`: nowhere; -1: the nines go all the way

  WCHAR* Write(WCHAR* text, ptrdiff_t from, ptrdiff_t to) const {
    for (ptrdiff_t i = from; i < to; ++i) {
      *text++ = i < roundedAt ? source[i] : i == roundedAt ? static_cast<WCHAR>(source[i] + 1) : u'0';
    }
    return text;
  }

  // Whether rounding up goes on in front of these digits.
  bool RoundUp() {
    roundedAt = count - 1;
    while (roundedAt >= 0 && source[roundedAt] == u'9') --roundedAt;
    return roundedAt < 0;
  }
};

// The parts of a value, rounded to the decimals wanted.
struct Value {
  bool negative;
  bool carried;  // a 1 stands in front of `whole`
  Digits whole;  // without leading zeros
  Digits fraction;
};

ptrdiff_t CountDigits(const WCHAR* text) {
  ptrdiff_t count = 0;
  while (text[count] >= u'0' && text[count] <= u'9') ++count;
  return count;
}

bool ParseValue(const WCHAR* text, ptrdiff_t decimals, Value* value) {
  value->negative = *text == u'-';
  if (value->negative) ++text;
  ptrdiff_t wholeCount = CountDigits(text);
  const WCHAR* rest = text + wholeCount;
  ptrdiff_t fractionCount = 0;
  const WCHAR* fraction = rest;
  if (*rest == u'.') {
    fraction = rest + 1;
    fractionCount = CountDigits(fraction);
    rest = fraction + fractionCount;
  }
  if (*rest || wholeCount + fractionCount == 0) return false;
  for (; wholeCount > 0 && *text == u'0'; ++text) --wholeCount;

  const ptrdiff_t kept = std::min(fractionCount, decimals);
  value->whole = {text, wholeCount, wholeCount};
  value->fraction = {fraction, kept, kept};
  value->carried = fractionCount > decimals && fraction[decimals] >= u'5' && value->fraction.RoundUp() &&
                   value->whole.RoundUp();
  return true;
}

// How `count` digits fall into groups: the size of the first one and the separators behind it.
struct Groups {
  ptrdiff_t first;
  ptrdiff_t separators;
};

Groups GroupDigits(ptrdiff_t count, UINT grouping) {
  const ptrdiff_t last = grouping == kIndian ? 3 : grouping;
  if (last == 0 || count <= last) return {count, 0};
  const ptrdiff_t others = grouping == kIndian ? 2 : last;
  const ptrdiff_t separators = (count - last - 1) / others + 1;
  return {count - last - (separators - 1) * others, separators};
}

WCHAR* Append(WCHAR* text, std::u16string_view part) {
  for (const WCHAR c : part) *text++ = c;
  return text;
}

WCHAR* AppendWhole(WCHAR* text, const Value& value, const Groups& groups, UINT grouping,
                   std::u16string_view separator) {
  if (value.carried) *text++ = u'1';
  ptrdiff_t from = 0;
  ptrdiff_t to = groups.first - value.carried;
  text = value.whole.Write(text, from, to);
  for (ptrdiff_t left = groups.separators; left > 0; --left) {
    text = Append(text, separator);
    from = to;
    to += grouping != kIndian ? grouping : left == 1 ? 3 : 2;
    text = value.whole.Write(text, from, to);
  }
  return text;
}

// How a number looks, by order: "-" is the place of the negative sign and "1" that of the number.
constexpr std::u16string_view kPositiveForm = u"1";
constexpr std::u16string_view kNegativeForms[] = {u"(1)", u"-1", u"- 1", u"1-", u"1 -"};

std::u16string_view Text(const WCHAR* text) {
  return text ? std::u16string_view(text) : std::u16string_view();
}

int Fail(DWORD error) {
  SetLastError(error);
  return 0;
}

}  // namespace

inline namespace qnplatform {

int GetNumberFormatW(LCID locale, DWORD flags, const WCHAR* text, const NUMBERFMTW* format, WCHAR* out,
                     int size) {
  if (flags != 0 || !text || !format || size < 0 || (size > 0 && !out) || format->NumDigits > 9 ||
      (format->Grouping > 9 && format->Grouping != kIndian) ||
      format->NegativeOrder >= std::size(kNegativeForms)) {
    return Fail(ERROR_INVALID_PARAMETER);
  }
  WCHAR foreignSign[qn::UserText::kLongest + 1];
  std::u16string_view sign;
  if (qn::IsUserLocale(locale)) {
    const qn::UserText& user = qn::UserNegativeSign();
    sign = {user.text, static_cast<size_t>(user.length)};
  } else {
    const int length =
        GetLocaleInfoW(locale, LOCALE_SNEGATIVESIGN, foreignSign, static_cast<int>(std::size(foreignSign)));
    if (length == 0) return 0;
    sign = {foreignSign, static_cast<size_t>(length - 1)};
  }

  const auto decimals = static_cast<ptrdiff_t>(format->NumDigits);
  Value value;
  if (!ParseValue(text, decimals, &value)) return Fail(ERROR_INVALID_PARAMETER);
  ptrdiff_t wholeCount = value.whole.count + value.carried;
  if (wholeCount == 0 && (format->LeadingZero || decimals == 0)) {
    value.whole = {u"0", 1, 1};
    wholeCount = 1;
  }
  const Groups groups = GroupDigits(wholeCount, format->Grouping);
  const std::u16string_view thousand = Text(format->lpThousandSep);
  const std::u16string_view point = decimals ? Text(format->lpDecimalSep) : std::u16string_view();
  const std::u16string_view form = value.negative ? kNegativeForms[format->NegativeOrder] : kPositiveForm;
  const bool signs = form.find(u'-') != form.npos;

  const size_t length = form.size() - 1 + (signs ? sign.size() - 1 : 0) + static_cast<size_t>(wholeCount) +
                        static_cast<size_t>(groups.separators) * thousand.size() + point.size() +
                        static_cast<size_t>(decimals);
  if (length >= static_cast<size_t>(std::numeric_limits<int>::max())) return Fail(ERROR_INVALID_PARAMETER);
  const int needed = static_cast<int>(length) + 1;
  if (size == 0) return needed;
  if (size < needed) return Fail(ERROR_INSUFFICIENT_BUFFER);

  for (const WCHAR place : form) {
    if (place == u'-') {
      out = Append(out, sign);
    } else if (place == u'1') {
      out = AppendWhole(out, value, groups, format->Grouping, thousand);
      out = Append(out, point);
      out = value.fraction.Write(out, 0, value.fraction.count);
      out = std::fill_n(out, decimals - value.fraction.count, u'0');
    } else {
      *out++ = place;
    }
  }
  *out = 0;
  return needed;
}

}  // namespace qnplatform
