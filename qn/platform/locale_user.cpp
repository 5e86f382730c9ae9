// The locales in use: the environment's, the one set for the user, and the threads'.

#include <unicode/uloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>
#include <string_view>

#include "qn/platform/error_internal.h"
#include "qn/platform/locale_internal.h"

namespace qn {
namespace {

constexpr Locale kEnglish = {0x0409, "en_US"};

constexpr LCID Primary(LCID lcid) {
  return lcid & 0x3FF;
}

// Whether an LCID names a language, perhaps with a script, but no region. No region has a sublanguage from
// 0x19 on.
constexpr bool IsNeutral(LCID lcid) {
  return (lcid >> 10 & 0x3F) == 0 || (lcid >> 10 & 0x3F) >= 0x19;
}

template <size_t N>
bool Succeeded(UErrorCode error, int32_t length, const char (&)[N]) {
  return U_SUCCESS(error) && length > 0 && length < static_cast<int32_t>(N);
}

// The LCID with a region for an ICU name completed by its likely script and region, or 0.
LCID LcidOfLikely(const char* name) {
  char likely[ULOC_FULLNAME_CAPACITY];
  UErrorCode error = U_ZERO_ERROR;
  if (!Succeeded(error, uloc_addLikelySubtags(name, likely, std::size(likely), &error), likely)) return 0;
  if (const LCID lcid = uloc_getLCID(likely); !IsNeutral(lcid)) return lcid;
  // Most languages have LCIDs for their regions without a script.
  char plain[ULOC_FULLNAME_CAPACITY];
  int32_t length = uloc_getLanguage(likely, plain, ULOC_LANG_CAPACITY, &error);
  plain[length++] = '_';
  length += uloc_getCountry(likely, plain + length, ULOC_COUNTRY_CAPACITY, &error);
  if (!Succeeded(error, length, plain)) return 0;
  const LCID lcid = uloc_getLCID(plain);
  return IsNeutral(lcid) ? 0 : lcid;
}

// The LCID for a locale's name; that of its language where the region has none of its own.
LCID LcidOfName(const char* name) {
  if (const LCID lcid = LcidOfLikely(name)) return lcid;
  char language[ULOC_LANG_CAPACITY];
  UErrorCode error = U_ZERO_ERROR;
  if (!Succeeded(error, uloc_getLanguage(name, language, std::size(language), &error), language)) return 0;
  return LcidOfLikely(language);
}

// A BCP 47 or POSIX name, "pt-BR" or "sr_RS.UTF-8@latin". False for an unknown one.
bool ParseName(std::string_view text, Locale* locale) {
  const std::string_view base = text.substr(0, text.find_first_of(".@"));
  if (base == "C" || base == "POSIX") {
    *locale = kEnglish;
    return true;
  }
  char plain[sizeof(locale->name)] = {};
  // The one modifier that changes how a locale writes is its script, which stands behind the language.
  const char* const script = text.ends_with("@latin") ? "_Latn" : text.ends_with("@cyrillic") ? "_Cyrl" : "";
  if (base.size() + std::strlen(script) >= sizeof(plain)) return false;
  const std::string_view language = base.substr(0, base.find_first_of("-_"));
  char* end = std::copy(language.begin(), language.end(), plain);
  end = std::copy_n(script, std::strlen(script), end);
  std::copy(base.begin() + static_cast<ptrdiff_t>(language.size()), base.end(), end);

  UErrorCode error = U_ZERO_ERROR;
  const int32_t length = uloc_canonicalize(plain, locale->name, sizeof(locale->name), &error);
  if (!Succeeded(error, length, locale->name)) return false;
  locale->lcid = LcidOfName(locale->name);
  return locale->lcid != 0;
}

// The locale of the first of the variables that is set; English in the United States if none is, or if it is
// unknown.
Locale EnvironmentLocale(const char* category) {
  for (const char* variable : {"LC_ALL", category, "LANG"}) {
    const char* const value = std::getenv(variable);
    if (!value || !*value) continue;
    Locale locale;
    return ParseName(value, &locale) ? locale : kEnglish;
  }
  return kEnglish;
}

// Read by every thread without a lock once `ready` is set; changed afterwards only by the functions that set
// the user's locale, while no other thread formats.
struct State {
  Locale system;
  Locale user;
  Locale interface;
  UserText items[kLocaleItemCount];
  UserText negativeSign;
};

constinit State g_state = {};
constinit std::atomic<bool> g_ready = false;
constinit std::mutex g_lock;
constinit thread_local LCID g_threadLocale = 0;      // 0: the user's
constinit thread_local LANGID g_threadLanguage = 0;  // 0: the user's

void CacheNegativeSign() {
  const int index = LocaleItemIndex(LOCALE_SNEGATIVESIGN);
  UserText& sign = g_state.negativeSign;
  sign = g_state.items[index];
  if (sign.replaced) return;
  ItemText item;
  ReadLocaleItem(g_state.user, index, &item);
  sign.length = std::min(item.length, UserText::kLongest);
  *std::copy_n(item.text, sign.length, sign.text) = 0;
}

void UseLocales(const Locale& user, const Locale& interface) {
  g_state.user = user;
  g_state.interface = interface;
  for (UserText& item : g_state.items) item = {};
  CacheNegativeSign();
}

void UseEnvironment() {
  g_state.system = EnvironmentLocale("LC_NUMERIC");
  UseLocales(g_state.system, EnvironmentLocale("LC_MESSAGES"));
}

void ReadEnvironmentOnce() {
  const std::scoped_lock guard(g_lock);
  if (g_ready.load(std::memory_order_relaxed)) return;
  UseEnvironment();
  g_ready.store(true, std::memory_order_release);
}

inline const State& Ready() {
  if (!g_ready.load(std::memory_order_acquire)) ReadEnvironmentOnce();
  return g_state;
}

}  // namespace

bool FindLocale(LCID lcid, Locale* locale) {
  const State& state = Ready();
  if (IsUserLocale(lcid)) {
    *locale = state.user;
    return true;
  }
  if (lcid == LOCALE_SYSTEM_DEFAULT) {
    *locale = state.system;
    return true;
  }
  lcid = lcid <= 0xFFFFF ? lcid & 0xFFFF : 0;  // without the sort order
  if (Primary(lcid) == 0) return false;
  char full[ULOC_FULLNAME_CAPACITY];
  char name[ULOC_FULLNAME_CAPACITY];
  for (int step = 0; step < 2; ++step) {
    UErrorCode error = U_ZERO_ERROR;
    if (!Succeeded(error, uloc_getLocaleForLCID(lcid, full, std::size(full), &error), full)) return false;
    if (!Succeeded(error, uloc_getBaseName(full, name, std::size(name), &error), name)) return false;
    if (!IsNeutral(lcid)) break;
    lcid = LcidOfName(name);
  }
  // A sublanguage that ICU does not know gives the language alone.
  char region[ULOC_COUNTRY_CAPACITY];
  UErrorCode error = U_ZERO_ERROR;
  if (!Succeeded(error, uloc_getCountry(name, region, std::size(region), &error), region)) return false;
  if (std::strlen(name) >= sizeof(locale->name)) return false;
  if (lcid == state.user.lcid) {
    *locale = state.user;
    return true;
  }
  locale->lcid = lcid;
  std::strcpy(locale->name, name);
  return true;
}

const Locale& InterfaceLocale() {
  return Ready().interface;
}

const UserText& UserLocaleItem(int index) {
  return Ready().items[index];
}

const UserText& UserNegativeSign() {
  return Ready().negativeSign;
}

bool IsUserLocale(LCID lcid) {
  return lcid == LOCALE_USER_DEFAULT || lcid == 0 || lcid == Ready().user.lcid;
}

}  // namespace qn

inline namespace qnplatform {

LCID GetUserDefaultLCID() {
  return qn::Ready().user.lcid;
}

LCID GetSystemDefaultLCID() {
  return qn::Ready().system.lcid;
}

LANGID GetUserDefaultUILanguage() {
  return static_cast<LANGID>(qn::Ready().interface.lcid);
}

BOOL SetUserDefaultLCID(LCID lcid) {
  qn::Locale locale;
  if (!qn::FindLocale(lcid, &locale)) return qn::FailWith(ERROR_INVALID_PARAMETER);
  const std::scoped_lock guard(qn::g_lock);
  if (lcid == 0) {
    qn::UseEnvironment();
  } else {
    qn::UseLocales(locale, locale);
  }
  return TRUE;
}

BOOL SetUserLocaleItem(LCTYPE item, const WCHAR* text) {
  const int index = qn::LocaleItemIndex(item);
  const std::u16string_view view = text ? text : u"";
  if (index < 0 || view.size() > qn::UserText::kLongest) return qn::FailWith(ERROR_INVALID_PARAMETER);
  qn::Ready();
  const std::scoped_lock guard(qn::g_lock);
  qn::UserText& place = qn::g_state.items[index];
  *std::copy(view.begin(), view.end(), place.text) = 0;
  place.length = static_cast<int>(view.size());
  place.replaced = text != nullptr;
  qn::CacheNegativeSign();
  return TRUE;
}

LCID LocaleNameToLCID(const WCHAR* name, DWORD) {
  if (!name) return GetUserDefaultLCID();
  char plain[ULOC_FULLNAME_CAPACITY];
  size_t length = 0;
  for (; name[length]; ++length) {
    if (name[length] > 0x7F || length + 1 == std::size(plain)) return 0;
    plain[length] = static_cast<char>(name[length]);
  }
  qn::Locale locale;
  return qn::ParseName({plain, length}, &locale) ? locale.lcid : 0;
}

LCID GetThreadLocale() {
  return qn::g_threadLocale ? qn::g_threadLocale : GetUserDefaultLCID();
}

BOOL SetThreadLocale(LCID lcid) {
  qn::Locale locale;
  if (!qn::FindLocale(lcid, &locale)) return qn::FailWith(ERROR_INVALID_PARAMETER);
  qn::g_threadLocale = lcid == 0 || lcid == LOCALE_USER_DEFAULT ? 0 : locale.lcid;
  return TRUE;
}

LANGID InitMUILanguage(LANGID language) {
  const LANGID before = qn::g_threadLanguage ? qn::g_threadLanguage : GetUserDefaultUILanguage();
  qn::g_threadLanguage = language;
  return before;
}

}  // namespace qnplatform
