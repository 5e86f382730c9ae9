// A tool from its start to its end.
#pragma once

#include <span>

namespace qntool {

// Makes the library know the tool as its host, takes the user's language and runs the tool with the words
// behind its name. At the end it warns of settings that were found damaged, and output that did not arrive is
// a failure. The exit code.
int RunTool(int count, char** words, int (*run)(std::span<char* const> words));

}  // namespace qntool
