// Which names a pattern stands for, and how names of the file system are shown.
#pragma once

#include <string>
#include <string_view>

namespace qn {

// A native name as it is shown. One that holds a backslash would read as a path that leads elsewhere, so that
// character is shown as U+FFFD, like bytes that are no well-formed UTF-8: as what cannot be reached.
std::u16string ShownName(std::string_view name);

// A pattern of names, in the published sense: `*` takes any characters, `?` one or, in front of a dot or at
// the end, none; a dot with wild cards behind it also matches the end, so that "*.*" matches everything; a
// dot at the end means a name without any. Without wild cards it stands for the one native name.
class NamePattern {
 public:
  explicit NamePattern(std::u16string_view pattern);

  static bool HasWildCards(std::u16string_view pattern);

  bool Matches(std::string_view native, std::u16string_view shown) const;

 private:
  bool MatchesShown(std::u16string_view name) const;

  std::string exact_;  // empty with wild cards
  std::u32string parts_;
  bool noDots_ = false;
};

}  // namespace qn
