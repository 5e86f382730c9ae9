// A format of the library's formatter cut into pieces, each with one conversion at most, so that arguments
// from the command line can be given to it with the types that it takes.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qntext {

enum class Takes {
  kNothing,
  kInt32,
  kUnsigned32,
  kInt64,
  kUnsigned64,
  kDouble,
  kText,
  kNarrowText,
  kCharacter
};

struct Piece {
  std::u16string format;
  Takes takes = Takes::kNothing;
};

// Nothing, with the reason in `*mistake`, for a conversion that the formatter does not know.
std::optional<std::vector<Piece>> CutFormat(std::u16string_view format, std::string* mistake);

// Prints a piece with its argument (none for kNothing) behind `*text`. False, with the reason in `*mistake`,
// for an argument that is not of the type that it takes, and for a result that is too long.
bool PrintPiece(const Piece& piece, const std::string& argument, std::u16string* text, std::string* mistake);

}  // namespace qntext
