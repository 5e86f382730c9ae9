#include "qn/platform/directory_pattern_internal.h"

#include <unicode/uchar.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <vector>

#include "qn/platform/text.h"

namespace qn {
namespace {

// No characters of a name.
constexpr char32_t kEnd = 0;
constexpr char32_t kDotOrEnd = U'/';

bool IsWild(char32_t c) {
  return c == U'*' || c == U'?';
}

std::u32string Folded(std::u16string_view text) {
  std::u32string result;
  for (size_t i = 0; i < text.size();) {
    UChar32 c;
    U16_NEXT(text.data(), i, text.size(), c);
    result.push_back(static_cast<char32_t>(u_foldCase(c, U_FOLD_CASE_DEFAULT)));
  }
  return result;
}

bool MatchesNothing(char32_t part, char32_t next) {
  return part == U'*' || (part == U'?' && (next == kEnd || next == U'.')) ||
         (part == kDotOrEnd && next == kEnd);
}

bool Takes(char32_t part, char32_t c) {
  return IsWild(part) || part == c || (part == kDotOrEnd && c == U'.');
}

}  // namespace

std::u16string ShownName(std::string_view name) {
  std::u16string shown = FromUtf8(name);
  std::replace(shown.begin(), shown.end(), u'\\', u'\xFFFD');
  return shown;
}

bool NamePattern::HasWildCards(std::u16string_view pattern) {
  return std::any_of(pattern.begin(), pattern.end(), IsWild);
}

NamePattern::NamePattern(std::u16string_view pattern) {
  if (!HasWildCards(pattern)) exact_ = ToUtf8(pattern);
  noDots_ = pattern.ends_with(u'.');
  if (noDots_) pattern.remove_suffix(1);
  const std::u32string characters = Folded(pattern);
  for (size_t i = 0; i < characters.size(); ++i) {
    const bool wildNext = i + 1 < characters.size() && IsWild(characters[i + 1]);
    parts_.push_back(characters[i] == U'.' && wildNext ? kDotOrEnd : characters[i]);
  }
}

bool NamePattern::Matches(std::string_view native, std::u16string_view shown) const {
  return exact_.empty() ? MatchesShown(shown) : native == exact_;
}

// Follows all ways to match at once, character by character: the time is bounded by the product of the
// lengths, whatever the pattern.
bool NamePattern::MatchesShown(std::u16string_view name) const {
  const std::u32string characters = Folded(name);
  const bool dots = characters == U"." || characters == U"..";
  if (noDots_ && !dots && characters.find(U'.') != std::u32string::npos) return false;
  std::vector<bool> reached(parts_.size() + 1);
  reached[0] = true;
  for (size_t i = 0;; ++i) {
    const char32_t c = i < characters.size() ? characters[i] : kEnd;
    for (size_t k = 0; k < parts_.size(); ++k) {
      if (reached[k] && MatchesNothing(parts_[k], c)) reached[k + 1] = true;
    }
    if (c == kEnd) return reached.back();
    std::vector<bool> next(reached.size());
    for (size_t k = 0; k < parts_.size(); ++k) {
      if (reached[k] && Takes(parts_[k], c)) next[parts_[k] == U'*' ? k : k + 1] = true;
    }
    reached.swap(next);
  }
}

}  // namespace qn
