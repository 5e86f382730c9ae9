// What the sources of the locale services share: the locales in use and the items behind an LCID.
#pragma once

#include <cstddef>

#include "qn/platform/locale.h"

namespace qn {

// A locale that is known: its LCID, which always has a sublanguage and no sort order, and its ICU name.
struct Locale {
  LCID lcid;
  char name[64];
};

// The locale of an LCID, or false with `*locale` undefined. A language alone gives the region that it is
// likely of, and the user's LCID gives the user's locale, which may be of a region without an own LCID.
bool FindLocale(LCID lcid, Locale* locale);

// The locale in whose language names are shown.
const Locale& InterfaceLocale();

// Text of an item; longer ones than any locale has are cut.
struct ItemText {
  WCHAR text[128];
  int length;
};

constexpr int kLocaleItemCount = 16;

// The index of an item in the table of items, or -1 for an unknown one.
int LocaleItemIndex(LCTYPE item);

// The item of that index as the locale has it, without the user's replacements.
void ReadLocaleItem(const Locale& locale, int index, ItemText* text);

// A short text that the user has put in the place of an item.
struct UserText {
  static constexpr int kLongest = 7;  // as the locale record holds

  WCHAR text[kLongest + 1];
  int length;
  bool replaced;
};

// The user's replacement of an item; `replaced` is false if there is none.
const UserText& UserLocaleItem(int index);

// The negative sign of the user's locale, which stays ready for every number.
const UserText& UserNegativeSign();

// True for an LCID that stands for the user's locale.
bool IsUserLocale(LCID lcid);

// The capital form of a letter, the same for all languages; other characters as they are.
WCHAR ToUpper(WCHAR character);

}  // namespace qn
