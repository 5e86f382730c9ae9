#include "tools/qntext/format.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>

#include "qn/platform/text.h"
#include "qn/text/qnprint.h"
#include "tools/common/options.h"
#include "tools/common/report.h"

namespace qntext {
namespace {

using qntool::ParseNumber;
using qntool::Quoted;

// Longer names and conversions are cut by the formatter, and nobody writes them.
constexpr size_t kLongest = 250;
constexpr int kMostCharacters = 0x10000;

bool IsOneOf(char16_t c, std::string_view set) {
  return c < 0x80 && set.find(static_cast<char>(c)) != std::string_view::npos;
}

size_t SkipAll(std::u16string_view text, size_t at, std::string_view set) {
  while (at < text.size() && IsOneOf(text[at], set)) ++at;
  return at;
}

struct SizeRow {
  std::string_view size;
  bool ofInteger, isLong, ofDouble, ofText;
};
constexpr SizeRow kSizes[] = {
    {"", true, false, true, true},   {"h", true, false, false, true},   {"hh", true, false, false, false},
    {"l", true, false, true, true},  {"ll", true, true, false, false},  {"I32", true, false, false, false},
    {"I", true, true, false, false}, {"I64", true, true, false, false}, {"j", true, true, false, false},
    {"t", true, true, false, false}, {"w", false, false, false, true},  {"L", false, false, true, false},
};

// What a conversion takes, from the text between its lead and its letter; kNothing for one that is none.
Takes TypeOf(std::u16string_view flags, char letter) {
  constexpr std::string_view kDigits = "0123456789";
  size_t at = SkipAll(flags, SkipAll(flags, 0, "-+ #0"), kDigits);
  if (at < flags.size() && flags[at] == '.') at = SkipAll(flags, at + 1, kDigits);
  const std::string size = qn::ToUtf8(flags.substr(at));
  const SizeRow* const row =
      std::find_if(std::begin(kSizes), std::end(kSizes), [&](const SizeRow& r) { return r.size == size; });
  if (row == std::end(kSizes)) return Takes::kNothing;
  switch (letter) {
    case 'd':
    case 'i':
      return !row->ofInteger ? Takes::kNothing : row->isLong ? Takes::kInt64 : Takes::kInt32;
    case 'z':
      return size.empty() ? Takes::kInt32 : Takes::kNothing;
    case 's':
      return !row->ofText ? Takes::kNothing : size == "h" ? Takes::kNarrowText : Takes::kText;
    case 'c':
      return row->ofText ? Takes::kCharacter : Takes::kNothing;
    case 'e':
    case 'E':
    case 'f':
    case 'g':
    case 'G':
      return row->ofDouble ? Takes::kDouble : Takes::kNothing;
    default:
      return !row->ofInteger ? Takes::kNothing : row->isLong ? Takes::kUnsigned64 : Takes::kUnsigned32;
  }
}

// The end of a token or literal number that starts at `at` with "$("; what is none ends where the formatter
// goes on.
size_t TokenEnd(std::u16string_view format, size_t at) {
  at += 2;
  if (at < format.size() && IsOneOf(format[at], "-.0123456789")) {
    at = SkipAll(format, at + 1, ".,0123456789");
    return at < format.size() && format[at] == ')' ? at + 1 : at;
  }
  const size_t end = format.find(u')', at);
  return end == std::u16string_view::npos ? format.size() : end + 1;
}

template <class Number>
bool PrintNumber(const Piece& piece, const std::string& argument, std::u16string* buffer, HRESULT* status) {
  using Limits = std::numeric_limits<Number>;
  const auto number = ParseNumber<Number>(argument, Limits::lowest(), Limits::max());
  if (number) *status = QnCchPrintF(buffer->data(), kMostCharacters, nullptr, piece.format.c_str(), *number);
  return number.has_value();
}

// False for an argument of another type.
bool Print(const Piece& piece, const std::string& argument, std::u16string* buffer, HRESULT* status) {
  const auto print = [&](auto... value) {
    *status = QnCchPrintF(buffer->data(), kMostCharacters, nullptr, piece.format.c_str(), value...);
    return true;
  };
  switch (piece.takes) {
    case Takes::kNothing:
      return print();
    case Takes::kInt32:
      return PrintNumber<int32_t>(piece, argument, buffer, status);
    case Takes::kUnsigned32:
      return PrintNumber<uint32_t>(piece, argument, buffer, status);
    case Takes::kInt64:
      return PrintNumber<int64_t>(piece, argument, buffer, status);
    case Takes::kUnsigned64:
      return PrintNumber<uint64_t>(piece, argument, buffer, status);
    case Takes::kDouble:
      return PrintNumber<double>(piece, argument, buffer, status);
    case Takes::kNarrowText:
      return print(argument.c_str());
    default: {
      const std::u16string wide = qn::FromUtf8(argument);
      if (piece.takes == Takes::kText) return print(wide.c_str());
      return wide.size() == 1 && print(static_cast<int>(wide[0]));
    }
  }
}

const char* Words(Takes takes) {
  switch (takes) {
    case Takes::kInt32:
      return "a whole number from -2147483648 to 2147483647";
    case Takes::kUnsigned32:
      return "a whole number from 0 to 4294967295";
    case Takes::kInt64:
      return "a whole number of 64 bits";
    case Takes::kUnsigned64:
      return "a whole number of 64 bits, 0 or above";
    case Takes::kDouble:
      return "a number";
    case Takes::kCharacter:
      return "one character of 16 bits";
    default:
      return "a text";
  }
}

}  // namespace

std::optional<std::vector<Piece>> CutFormat(std::u16string_view format, std::string* mistake) {
  std::vector<Piece> pieces;
  size_t done = 0;  // what lies before is in the pieces
  const auto cut = [&](size_t end, Takes takes) {
    if (end > done) pieces.push_back({std::u16string(format.substr(done, end - done)), takes});
    done = end;
  };
  const auto fail = [&](size_t start, size_t end, const char* reason) {
    *mistake = Quoted(qn::ToUtf8(format.substr(start, end - start))) + reason;
    return std::nullopt;
  };
  for (size_t at = 0; at < format.size();) {
    const size_t start = at++;
    const char16_t lead = format[start];
    if ((lead != '$' && lead != '%') || at == format.size()) continue;
    if (format[at] == '%' || (lead == '$' && format[at] == '$')) {
      ++at;
    } else if (lead == '$' && format[at] == '(') {
      at = TokenEnd(format, start);
      if (at - start > kLongest) return fail(start, at, " is too long for a token");
    } else {
      while (at < format.size() && !IsOneOf(format[at], "!&*,:EGXcdefgiosuxz")) ++at;
      if (at - start > kLongest) return fail(start, at, " is too long for a conversion");
      if (at == format.size()) break;  // copied as it stands
      const auto letter = static_cast<char>(format[at++]);
      if (letter == '!' || letter == '&') {
        // The character behind them chooses, if it is one of these.
        if (at < format.size() && IsOneOf(format[at], letter == '!' ? ":.," : ":.")) ++at;
      } else if (letter != '*' && letter != ',' && letter != ':') {
        const Takes takes = TypeOf(format.substr(start + 1, at - start - 2), letter);
        if (takes == Takes::kNothing) return fail(start, at, " is no conversion");
        cut(start, Takes::kNothing);
        cut(at, takes);
      }
    }
  }
  cut(format.size(), Takes::kNothing);
  return pieces;
}

bool PrintPiece(const Piece& piece, const std::string& argument, std::u16string* text, std::string* mistake) {
  std::u16string buffer(kMostCharacters, 0);
  HRESULT status = S_OK;
  const std::string shown = Quoted(qn::ToUtf8(piece.format));
  if (!Print(piece, argument, &buffer, &status)) {
    *mistake = shown + " takes " + Words(piece.takes) + ", not " + Quoted(argument);
    return false;
  }
  if (status != S_OK) {
    *mistake = "the text of " + shown + " is too long";
    return false;
  }
  text->append(buffer.c_str());
  return true;
}

}  // namespace qntext
