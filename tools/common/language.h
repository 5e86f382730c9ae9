// The language of the library's texts and of the tools' own, and the dress of its numbers, as a user of a
// tool asks for them.
#pragma once

#include <string_view>

namespace qntool {

// Takes a language by its name, "de", "pt-BR" or "zh_TW". False, with nothing changed, for an unknown one.
bool UseLanguage(std::string_view name);

// Takes the language that the user has saved for the tool (`qnmetric language TOOL none LANG`), or else that
// of the environment (LC_ALL, then LC_MESSAGES for texts and LC_NUMERIC for numbers, then LANG).
void UseLanguageOfUser();

}  // namespace qntool
