// The operands and options that tell whose settings a command is about.
#pragma once

#include <optional>
#include <string>

#include "tools/common/options.h"
#include "tools/qnmetric/store.h"

namespace qnmetric {

constexpr const char* kCompanyName = "Marlow Creative Works";
constexpr qntool::Option kCompany = {"company", "NAME",
                                     "whose application it is (default: Marlow Creative Works)"};
constexpr qntool::Option kKey = {"key", "SUBKEY", "a key below the application's settings, such as Kernel"};

// Reports a mistake on the command line; the exit code.
int Usage(const char* command, const std::string& mistake);

// The company, or nothing for one that cannot be, which is reported.
std::optional<std::u16string> ReadCompany(const char* command, const qntool::Arguments& arguments);

// APPLICATION and VERSION, the first of at least `least` and at most `most` operands, with the company and
// the key. Nothing for a mistake, which is reported; `file` is the position of an operand that names a file
// and may be of any bytes.
std::optional<Place> ReadPlace(const char* command, const qntool::Arguments& arguments, size_t least,
                               size_t most, size_t file = SIZE_MAX);

}  // namespace qnmetric
