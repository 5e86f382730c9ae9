// Text files, read and written as a whole.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

namespace qnmetric {

// All of a file, or of a stream, which has a name for messages. Nothing when it failed, which is reported.
std::optional<std::string> ReadWhole(const std::string& file);
std::optional<std::string> ReadStream(std::FILE* stream, const std::string& name);

// Writes a file that is whole and on the disk, or not there; with `overwrite` in the place of one that is.
// False when it failed, which is reported.
bool WriteWhole(const std::string& file, const std::string& text, bool overwrite);

}  // namespace qnmetric
