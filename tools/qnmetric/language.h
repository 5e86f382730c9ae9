// The language that a user has saved for an application.
#pragma once

#include <string>

#include "qn/platform/locale.h"
#include "tools/qnmetric/store.h"

namespace qnmetric {

// The language as the application finds it: the user's, or the machine's where the user has no key for it.
// An error number.
LSTATUS ReadLanguage(const Place& place, LCID* lcid);

// Stores the user's, or removes it if there is one: an error number.
LSTATUS StoreLanguage(const Place& place, LCID lcid);
LSTATUS RemoveLanguage(const Place& place);

// The name that stands for a language on the command line: "de", "pt-BR", "de-AT"; "0x0405" for one that is
// none of the library's.
std::string LanguageName(LCID lcid);

}  // namespace qnmetric
