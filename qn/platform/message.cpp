// Message texts with inserts.

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

#include "qn/platform/error_internal.h"
#include "qn/platform/locale.h"

namespace {

// The text so far, in the caller's room; the first failure stays.
class Output {
 public:
  Output(WCHAR* text, DWORD size) : text_(text), room_(size - 1) {}

  void Fail(DWORD error) {
    if (!error_) error_ = error;
  }
  DWORD Error() const { return error_; }

  void Repeat(WCHAR c, int64_t count) {
    if (!Fits(count)) return;
    std::fill_n(text_ + length_, count, c);
    length_ += static_cast<DWORD>(count);
  }

  void Add(WCHAR c) { Repeat(c, 1); }

  void Add(std::u16string_view part) {
    if (!Fits(static_cast<int64_t>(part.size()))) return;
    std::copy(part.begin(), part.end(), text_ + length_);
    length_ += static_cast<DWORD>(part.size());
  }

  // Ends the text and returns its length; empty after a failure.
  DWORD Finish() {
    if (error_) length_ = 0;
    text_[length_] = 0;
    return length_;
  }

 private:
  bool Fits(int64_t count) {
    if (count > static_cast<int64_t>(room_ - length_)) Fail(ERROR_INSUFFICIENT_BUFFER);
    return !error_;
  }

  WCHAR* text_;
  DWORD room_;
  DWORD length_ = 0;
  DWORD error_ = 0;
};

// The caller's arguments, each read when it is first asked for: those behind the last one may not exist.
class Inserts {
 public:
  explicit Inserts(va_list* arguments) : arguments_(arguments) {}

  bool Exist() const { return arguments_ != nullptr; }

  uint64_t Get(int number) {
    for (; read_ < number; ++read_) values_[read_] = va_arg(*arguments_, uint64_t);
    return values_[number - 1];
  }

 private:
  va_list* arguments_;
  int read_ = 0;
  uint64_t values_[99 + 2];  // with width and precision in front of the last one
};

enum class Size { kPlain, kChar, kShort, kLong, kWide };

struct Conversion {
  bool left = false;
  bool plus = false;
  bool blank = false;
  bool alternate = false;
  bool zero = false;
  int64_t width = 0;
  int64_t precision = -1;  // none
  Size size = Size::kPlain;
  WCHAR type = 0;
};

constexpr int64_t kLongest = std::numeric_limits<int32_t>::max();

// A decimal number, or "*" for the next insert.
int64_t ReadCount(const WCHAR*& source, Inserts& inserts, int& number) {
  if (*source == u'*') {
    ++source;
    return static_cast<int32_t>(inserts.Get(number++));
  }
  int64_t count = 0;
  for (; *source >= u'0' && *source <= u'9'; ++source)
    count = std::min(count * 10 + (*source - u'0'), kLongest);
  return count;
}

// The printf format between two "!" from `source` on, which ends behind the second. False if it is none.
bool ReadConversion(const WCHAR*& source, Inserts& inserts, int& number, Conversion& result) {
  for (bool more = true; more;) {
    switch (*source) {
      case u'-':
        result.left = true;
        break;
      case u'+':
        result.plus = true;
        break;
      case u' ':
        result.blank = true;
        break;
      case u'#':
        result.alternate = true;
        break;
      case u'0':
        result.zero = true;
        break;
      default:
        more = false;
    }
    if (more) ++source;
  }
  result.width = ReadCount(source, inserts, number);
  if (result.width < 0) {
    result.left = true;
    result.width = -result.width;
  }
  if (*source == u'.') result.precision = ReadCount(++source, inserts, number);

  static constexpr struct {
    std::u16string_view name;
    Size size;
  } kSizes[] = {{u"I64", Size::kWide}, {u"I32", Size::kPlain}, {u"I", Size::kWide},  {u"ll", Size::kWide},
                {u"l", Size::kLong},   {u"w", Size::kLong},    {u"hh", Size::kChar}, {u"h", Size::kShort}};
  for (const auto& row : kSizes) {
    size_t match = 0;
    while (match < row.name.size() && source[match] == row.name[match]) ++match;
    if (match < row.name.size()) continue;
    result.size = row.size;
    source += match;
    break;
  }
  result.type = *source;
  if (!result.type || source[1] != u'!') return false;
  source += 2;
  return true;
}

void Pad(Output& output, const Conversion& how, std::u16string_view text) {
  const int64_t padding = std::max<int64_t>(how.width - static_cast<int64_t>(text.size()), 0);
  if (!how.left) output.Repeat(u' ', padding);
  output.Add(text);
  if (how.left) output.Repeat(u' ', padding);
}

int64_t SignExtend(uint64_t value, Size size) {
  switch (size) {
    case Size::kChar:
      return static_cast<int8_t>(value);
    case Size::kShort:
      return static_cast<int16_t>(value);
    case Size::kWide:
      return static_cast<int64_t>(value);
    default:
      return static_cast<int32_t>(value);
  }
}

uint64_t ZeroExtend(uint64_t value, Size size) {
  switch (size) {
    case Size::kChar:
      return static_cast<uint8_t>(value);
    case Size::kShort:
      return static_cast<uint16_t>(value);
    case Size::kWide:
      return value;
    default:
      return static_cast<uint32_t>(value);
  }
}

void AddInteger(Output& output, const Conversion& how, uint64_t value) {
  std::u16string_view prefix;
  if (how.type == u'd' || how.type == u'i') {
    const int64_t number = SignExtend(value, how.size);
    value = number < 0 ? 0 - static_cast<uint64_t>(number) : static_cast<uint64_t>(number);
    prefix = number < 0 ? u"-" : how.plus ? u"+" : how.blank ? u" " : u"";
  } else {
    value = ZeroExtend(value, how.size);
  }
  const int base = how.type == u'o' ? 8 : how.type == u'x' || how.type == u'X' ? 16 : 10;
  if (how.alternate && base == 16 && value != 0) prefix = how.type == u'x' ? u"0x" : u"0X";

  char digits[24];
  const char* const end = std::to_chars(digits, std::end(digits), value, base).ptr;
  int64_t count = value == 0 && how.precision == 0 ? 0 : end - digits;
  int64_t zeros = std::max<int64_t>(how.precision - count, 0);
  if (how.alternate && base == 8 && zeros == 0 && (count == 0 || digits[0] != '0')) zeros = 1;
  int64_t blanks = std::max<int64_t>(how.width - static_cast<int64_t>(prefix.size()) - zeros - count, 0);
  if (how.zero && !how.left && how.precision < 0) zeros += std::exchange(blanks, 0);

  if (!how.left) output.Repeat(u' ', blanks);
  output.Add(prefix);
  output.Repeat(u'0', zeros);
  for (int64_t i = 0; i < count; ++i) {
    const char c = digits[i];
    output.Add(static_cast<WCHAR>(how.type == u'X' && c >= 'a' ? c - 'a' + 'A' : c));
  }
  if (how.left) output.Repeat(u' ', blanks);
}

void AddNarrow(Output& output, const Conversion& how, const char* bytes, size_t count) {
  const int length = static_cast<int>(count);
  const int needed = count == 0 ? 0 : MultiByteToWideChar(CP_ACP, 0, bytes, length, nullptr, 0);
  const std::unique_ptr<WCHAR[]> text(new (std::nothrow) WCHAR[static_cast<size_t>(needed) + 1]);
  if (!text) return output.Fail(ERROR_NOT_ENOUGH_MEMORY);
  if (needed > 0) MultiByteToWideChar(CP_ACP, 0, bytes, length, text.get(), needed);
  Pad(output, how, {text.get(), static_cast<size_t>(needed)});
}

// The characters in front of the terminator, `limit` at most: a text with a precision may have none.
template <typename Char>
size_t BoundedLength(const Char* text, int64_t limit) {
  int64_t length = 0;
  while (length < limit && text[length]) ++length;
  return static_cast<size_t>(length);
}

void AddText(Output& output, const Conversion& how, uint64_t value, bool narrow) {
  const int64_t limit = how.precision < 0 ? kLongest : how.precision;
  const void* const text = reinterpret_cast<const void*>(value);
  if (!text) {
    Pad(output, how, std::u16string_view(u"(null)").substr(0, static_cast<size_t>(limit)));
  } else if (narrow) {
    const char* const bytes = static_cast<const char*>(text);
    AddNarrow(output, how, bytes, BoundedLength(bytes, limit));
  } else {
    const WCHAR* const wide = static_cast<const WCHAR*>(text);
    Pad(output, how, {wide, BoundedLength(wide, limit)});
  }
}

// Writes an insert; false for a type that is not known.
bool AddInsert(Output& output, const Conversion& how, uint64_t value) {
  const bool marked = how.size == Size::kShort || how.size == Size::kLong;
  const bool narrow = marked ? how.size == Size::kShort : how.type == u'S' || how.type == u'C';
  switch (how.type) {
    case u'd':
    case u'i':
    case u'u':
    case u'o':
    case u'x':
    case u'X':
      AddInteger(output, how, value);
      return true;
    case u's':
    case u'S':
      AddText(output, how, value, narrow);
      return true;
    case u'c':
    case u'C': {
      const auto byte = static_cast<char>(value);
      const auto wide = static_cast<WCHAR>(value);
      narrow ? AddNarrow(output, how, &byte, 1) : Pad(output, how, {&wide, 1});
      return true;
    }
    default:
      return false;
  }
}

// The insert whose number stands at `source`, which ends behind it.
bool ReadInsert(Output& output, Inserts& inserts, const WCHAR*& source) {
  int number = *source++ - u'0';
  if (*source >= u'0' && *source <= u'9') number = number * 10 + (*source++ - u'0');
  if (!inserts.Exist()) return false;
  Conversion how;
  how.type = u's';
  if (*source == u'!' && !ReadConversion(++source, inserts, number, how)) return false;
  return AddInsert(output, how, inserts.Get(number));
}

// The character that an escape stands for; others stand for themselves.
std::u16string_view Escaped(const WCHAR* source) {
  switch (*source) {
    case u'n':
      return u"\r\n";
    case u'r':
      return u"\r";
    case u't':
      return u"\t";
    case u'b':
      return u" ";
    default:
      return {source, 1};
  }
}

bool Compose(Output& output, Inserts& inserts, const WCHAR* source) {
  while (*source && !output.Error()) {
    if (*source == u'\n' || (*source == u'\r' && source[1] == u'\n')) {
      source += *source == u'\r' ? 2 : 1;
      output.Add(u"\r\n");
    } else if (*source != u'%' || !source[1]) {
      output.Add(*source++);
    } else if (source[1] == u'0') {
      break;
    } else if (source[1] >= u'1' && source[1] <= u'9') {
      if (!ReadInsert(output, inserts, ++source)) return false;
    } else {
      output.Add(Escaped(source + 1));
      source += 2;
    }
  }
  return true;
}

}  // namespace

inline namespace qnplatform {

DWORD FormatMessageW(DWORD flags, const WCHAR* source, DWORD, DWORD, WCHAR* text, DWORD size,
                     va_list* arguments) {
  if (!text || size == 0) {
    qn::FailWith(text ? ERROR_INSUFFICIENT_BUFFER : ERROR_INVALID_PARAMETER);
    return 0;
  }
  Output output(text, size);
  Inserts inserts(arguments);
  if (flags != FORMAT_MESSAGE_FROM_STRING || !source || !Compose(output, inserts, source)) {
    output.Fail(ERROR_INVALID_PARAMETER);
  }
  if (output.Error()) SetLastError(output.Error());
  return output.Finish();
}

}  // namespace qnplatform
