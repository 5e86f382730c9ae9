// The text form of settings, and the files that hold it.
//
//   # a comment
//   5 = number 100
//   ["Kernel"]
//   "Show Tips" = number 1
//
// A key in brackets holds what follows it. Settings are those of setting.h.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "tools/qnmetric/store.h"

namespace qnmetric {

std::string PrintTree(const Tree& tree);

// Reads what PrintTree wrote; comments and empty lines may stand between. Nothing, with the number of the
// line, for a text that is something else.
std::optional<Tree> ReadTreeText(std::string_view text, int* lineNumber);

// All of a file, or of a stream, which has a name for messages. Nothing when it failed, which is reported.
std::optional<std::string> ReadWhole(const std::string& file);
std::optional<std::string> ReadStream(std::FILE* stream, const std::string& name);

// Writes a file that is whole or not there; with `overwrite` in the place of one that is. False when it
// failed, which is reported.
bool WriteWhole(const std::string& file, const std::string& text, bool overwrite);

}  // namespace qnmetric
