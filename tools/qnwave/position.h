// Positions in a file on the command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "tools/common/options.h"

namespace qnwave {

constexpr qntool::Option kFormatOption = {"format", "FORMAT",
                                          "read POS in one of the time formats that the manual lists"};

// The frame that an option of a command stands for, at a rate; nothing when it is not given. A length counts
// from 0 in formats whose positions count from 1. False with the mistake reported.
//
// Without --format a whole number is a frame, and what has a colon or a point is a time,
// "[[H:]M:]S[.DIGITS]", in every language; with it the text is read as the library reads what a user types,
// and refused where it holds what the format has not.
bool ReadPosition(const char* command, const qntool::Arguments& arguments, const char* option, bool isLength,
                  uint32_t rate, std::optional<uint64_t>* frame);

// The same for one of the values of an option.
bool ParsePosition(const char* command, const qntool::Arguments& arguments, const char* option,
                   std::string_view text, bool isLength, uint32_t rate, std::optional<uint64_t>* frame);

// False, and that is reported, when options of a time format are given without one.
bool HasFormatForItsOptions(const char* command, const qntool::Arguments& arguments);

}  // namespace qnwave
