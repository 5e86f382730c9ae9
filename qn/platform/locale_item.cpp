// The items of a locale, out of ICU's symbols and patterns, and the two tables that ICU lacks.

#include <unicode/udatpg.h>
#include <unicode/uloc.h>
#include <unicode/ulocdata.h>
#include <unicode/unum.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>

#include "qn/platform/error_internal.h"
#include "qn/platform/locale_internal.h"

namespace qn {
namespace {

// A text of either width; the narrow ones are ASCII.
template <typename Text>
void Set(ItemText* item, const Text& source) {
  const std::basic_string_view text(source);
  item->length = static_cast<int>(std::min(text.size(), std::size(item->text) - 1));
  *std::copy_n(text.begin(), item->length, item->text) = 0;
}

// Three-letter names of languages that are not the ISO 639-2 code in capitals: the name tells the region.
struct Abbreviation {
  WORD language;
  char name[4];
};

constexpr Abbreviation kAbbreviations[] = {
    {0x0801, "ARI"}, {0x0C01, "ARE"}, {0x1001, "ARL"}, {0x1401, "ARG"}, {0x1801, "ARM"}, {0x1C01, "ART"},
    {0x2001, "ARO"}, {0x2401, "ARY"}, {0x2801, "ARS"}, {0x2C01, "ARJ"}, {0x3001, "ARB"}, {0x3401, "ARK"},
    {0x3801, "ARU"}, {0x3C01, "ARH"}, {0x4001, "ARQ"}, {0x0402, "BGR"}, {0x0404, "CHT"}, {0x0804, "CHS"},
    {0x0C04, "ZHH"}, {0x1004, "ZHI"}, {0x1404, "ZHM"}, {0x0405, "CSY"}, {0x0807, "DES"}, {0x0C07, "DEA"},
    {0x1007, "DEL"}, {0x1407, "DEC"}, {0x0409, "ENU"}, {0x0809, "ENG"}, {0x0C09, "ENA"}, {0x1009, "ENC"},
    {0x1409, "ENZ"}, {0x1809, "ENI"}, {0x1C09, "ENS"}, {0x2009, "ENJ"}, {0x2409, "ENB"}, {0x2809, "ENL"},
    {0x2C09, "ENT"}, {0x3009, "ENW"}, {0x3409, "ENP"}, {0x4009, "ENN"}, {0x4409, "ENM"}, {0x4809, "ENE"},
    {0x040A, "ESP"}, {0x080A, "ESM"}, {0x0C0A, "ESN"}, {0x100A, "ESG"}, {0x140A, "ESC"}, {0x180A, "ESA"},
    {0x1C0A, "ESD"}, {0x200A, "ESV"}, {0x240A, "ESO"}, {0x280A, "ESR"}, {0x2C0A, "ESS"}, {0x300A, "ESF"},
    {0x340A, "ESL"}, {0x380A, "ESY"}, {0x3C0A, "ESZ"}, {0x400A, "ESB"}, {0x440A, "ESE"}, {0x480A, "ESH"},
    {0x4C0A, "ESI"}, {0x500A, "ESU"}, {0x540A, "EST"}, {0x080C, "FRB"}, {0x0C0C, "FRC"}, {0x100C, "FRS"},
    {0x140C, "FRL"}, {0x180C, "FRM"}, {0x0810, "ITS"}, {0x0813, "NLB"}, {0x0414, "NOR"}, {0x0814, "NON"},
    {0x0415, "PLK"}, {0x0416, "PTB"}, {0x0816, "PTG"}, {0x0417, "RMC"}, {0x0418, "ROM"}, {0x081A, "SRL"},
    {0x0C1A, "SRB"}, {0x101A, "HRB"}, {0x141A, "BSB"}, {0x041B, "SKY"}, {0x041D, "SVE"}, {0x081D, "SVF"},
    {0x041F, "TRK"}, {0x0424, "SLV"}, {0x0425, "ETI"}, {0x0426, "LVI"}, {0x0427, "LTH"}, {0x0429, "FAR"},
    {0x042A, "VIT"}, {0x042D, "EUQ"}, {0x042F, "MKI"}, {0x0436, "AFK"}, {0x241A, "SRM"}, {0x0438, "FOS"},
    {0x043E, "MSL"}, {0x083E, "MSB"}, {0x043F, "KKZ"}, {0x0440, "KYR"}, {0x0441, "SWK"}, {0x0443, "UZB"},
    {0x0444, "TTT"}, {0x0445, "BNG"}, {0x044B, "KDI"}, {0x0450, "MNN"}, {0x0456, "GLC"}, {0x0457, "KNK"},
    {0x083C, "IRE"}, {0x281A, "SRO"},
};

// Telephone country codes, each followed by its regions of two letters and a blank. The regions of the North
// American plan share 1.
constexpr std::string_view kTelephoneCodes =
    "1USCAAGAIASBBBMBSDMDOGDGUJMKNKYLCMPMSPRSXTCTTUMVCVGVI 7RUKZ 20EG 27ZA 30GR 31NL 32BE 33FR 34ESEAIC "
    "36HU 39ITVA 40RO 41CH 43AT 44GBGGIMJE 45DK 46SE 47NOSJ 48PL 49DE 51PE 52MX 53CU 54AR 55BR 56CL 57CO "
    "58VE 60MY 61AUCCCX 62ID 63PH 64NZPN 65SG 66TH 81JP 82KR 84VN 86CN 90TR 91IN 92PK 93AF 94LK 95MM "
    "98IR 211SS 212MAEH 213DZ 216TN 218LY 220GM 221SN 222MR 223ML 224GN 225CI 226BF 227NE 228TG 229BJ "
    "230MU 231LR 232SL 233GH 234NG 235TD 236CF 237CM 238CV 239ST 240GQ 241GA 242CG 243CD 244AO 245GW "
    "246IODG 248SC 249SD 250RW 251ET 252SO 253DJ 254KE 255TZ 256UG 257BI 258MZ 260ZM 261MG 262REYT 263ZW "
    "264NA 265MW 266LS 267BW 268SZ 269KM 290SH 291ER 297AW 298FO 299GL 350GI 351PT 352LU 353IE 354IS "
    "355AL 356MT 357CY 358FIAX 359BG 370LT 371LV 372EE 373MD 374AM 375BY 376AD 377MC 378SM 380UA 381RSCS "
    "382ME 383XK 385HR 386SI 387BA 389MK 420CZ 421SK 423LI 500FK 501BZ 502GT 503SV 504HN 505NI 506CR "
    "507PA 508PM 509HT 590GPBLMF 591BO 592GY 593EC 594GF 595PY 596MQ 597SR 598UY 599BQCW 670TL 672NF "
    "673BN 674NR 675PG 676TO 677SB 678VU 679FJ 680PW 681WF 682CK 683NU 685WS 686KI 687NC 688TV 689PF "
    "690TK 691FM 692MH 850KP 852HK 853MO 855KH 856LA 880BD 886TW 960MV 961LB 962JO 963SY 964IQ 965KW "
    "966SA 967YE 968OM 970PS 971AE 972IL 973BH 974QA 975BT 976MN 977NP 992TJ 993TM 994AZ 995GE 996KG "
    "998UZ ";

void LanguageId(const Locale& locale, ItemText* item) {
  WCHAR text[4];
  for (int i = 0; i < 4; ++i) text[i] = u"0123456789abcdef"[locale.lcid >> (12 - 4 * i) & 0xF];
  Set(item, std::u16string_view(text, 4));
}

void AbbreviatedName(const Locale& locale, ItemText* item) {
  for (const Abbreviation& row : kAbbreviations) {
    if (row.language == locale.lcid) return Set(item, row.name);
  }
  Set(item, uloc_getISO3Language(locale.name));
  for (WCHAR* c = item->text; *c; ++c) *c = static_cast<WCHAR>(*c - (u'a' - u'A'));
}

// "0" for a region without a code of its own, as a group of countries.
void TelephoneCountry(const Locale& locale, ItemText* item) {
  char region[ULOC_COUNTRY_CAPACITY];
  UErrorCode error = U_ZERO_ERROR;
  const int32_t length = uloc_getCountry(locale.name, region, std::size(region), &error);
  Set(item, "0");
  if (U_FAILURE(error) || length != 2) return;
  for (std::string_view rest = kTelephoneCodes; !rest.empty(); rest.remove_prefix(rest.find(' ') + 1)) {
    const std::string_view row = rest.substr(0, rest.find(' '));
    const size_t digits = row.find_first_not_of("0123456789");
    for (size_t i = digits; i < row.size(); i += 2) {
      if (row.substr(i, 2) == region) return Set(item, row.substr(0, digits));
    }
  }
}

// A display name of ICU in the interface's language, or in English.
using DisplayName = int32_t(const char*, const char*, UChar*, int32_t, UErrorCode*);

template <DisplayName* kName, bool kInEnglish>
void Name(const Locale& locale, ItemText* item) {
  const char* const language = kInEnglish ? "en" : InterfaceLocale().name;
  UErrorCode error = U_ZERO_ERROR;
  item->length =
      kName(locale.name, language, item->text, static_cast<int32_t>(std::size(item->text)), &error);
  if (U_FAILURE(error) || error == U_STRING_NOT_TERMINATED_WARNING) Set(item, locale.name);
}

struct CloseFormat {
  void operator()(UNumberFormat* format) const { unum_close(format); }
};

// How the locale writes numbers with the digits 0 to 9, whatever its own digits are; null without data.
std::unique_ptr<UNumberFormat, CloseFormat> OpenNumbers(const Locale& locale) {
  constexpr char kDigits[] = "@numbers=latn";
  char name[sizeof(locale.name) + sizeof(kDigits)];
  std::strcpy(name, locale.name);
  std::strcat(name, kDigits);
  UErrorCode error = U_ZERO_ERROR;
  std::unique_ptr<UNumberFormat, CloseFormat> format(
      unum_open(UNUM_DECIMAL, nullptr, 0, name, nullptr, &error));
  if (U_FAILURE(error)) format.reset();
  return format;
}

template <UNumberFormatSymbol kSymbol, WCHAR kDefault>
void Symbol(const Locale& locale, ItemText* item) {
  const auto format = OpenNumbers(locale);
  UErrorCode error = U_ZERO_ERROR;
  if (format) item->length = unum_getSymbol(format.get(), kSymbol, item->text, std::size(item->text), &error);
  constexpr WCHAR kFallback = kDefault;
  if (!format || U_FAILURE(error)) Set(item, std::u16string_view(&kFallback, 1));
}

constexpr auto DecimalSeparator = Symbol<UNUM_DECIMAL_SEPARATOR_SYMBOL, u'.'>;

void Grouping(const Locale& locale, ItemText* item) {
  const auto format = OpenNumbers(locale);
  if (!format) return Set(item, "3;0");
  if (!unum_getAttribute(format.get(), UNUM_GROUPING_USED)) return Set(item, "0");
  const int last = unum_getAttribute(format.get(), UNUM_GROUPING_SIZE);
  const int others = unum_getAttribute(format.get(), UNUM_SECONDARY_GROUPING_SIZE);
  std::string text = std::to_string(last);
  if (others > 0 && others != last) text += ";" + std::to_string(others);
  Set(item, std::string_view(text + ";0"));
}

// Where "," is the decimal separator it cannot part a list; Switzerland, Arabic and Persian keep ";" as well.
void ListSeparator(const Locale& locale, ItemText* item) {
  ItemText decimal;
  DecimalSeparator(locale, &decimal);
  const std::string_view name = locale.name;
  const bool keeps = name.ends_with("_CH") || name.starts_with("ar") || name.starts_with("fa");
  Set(item, decimal.text[0] == u',' || keeps ? u";" : u",");
}

struct ClosePatterns {
  void operator()(UDateTimePatternGenerator* patterns) const { udatpg_close(patterns); }
};

// What stands between hours and minutes, if the same stands between minutes and seconds: "9 h 30 min 5 s" has
// no separator.
void TimeSeparator(const Locale& locale, ItemText* item) {
  Set(item, u":");
  UErrorCode error = U_ZERO_ERROR;
  const std::unique_ptr<UDateTimePatternGenerator, ClosePatterns> patterns(udatpg_open(locale.name, &error));
  if (U_FAILURE(error)) return;
  WCHAR pattern[64];
  const int32_t length =
      udatpg_getBestPattern(patterns.get(), u"Hms", 3, pattern, std::size(pattern), &error);
  if (U_FAILURE(error) || length >= static_cast<int32_t>(std::size(pattern))) return;
  const std::u16string_view view(pattern, static_cast<size_t>(length));
  const auto between = [view](WCHAR first, WCHAR second) {
    const size_t from = view.find_last_of(first) + 1;
    const size_t to = view.find(second, from);
    return from == 0 || to == view.npos ? std::u16string_view() : view.substr(from, to - from);
  };
  const std::u16string_view separator = between(u'H', u'm');
  if (!separator.empty() && separator == between(u'm', u's')) Set(item, separator);
}

void Measurement(const Locale& locale, ItemText* item) {
  UErrorCode error = U_ZERO_ERROR;
  const UMeasurementSystem system = ulocdata_getMeasurementSystem(locale.name, &error);
  Set(item, U_SUCCESS(error) && system == UMS_US ? u"1" : u"0");
}

// What all locales of the library share.
template <WCHAR kDigit>
void Constant(const Locale&, ItemText* item) {
  constexpr WCHAR kText = kDigit;
  Set(item, std::u16string_view(&kText, 1));
}

struct Item {
  LCTYPE type;
  void (*read)(const Locale&, ItemText*);
};

constexpr Item kItems[] = {
    {LOCALE_ILANGUAGE, LanguageId},
    {LOCALE_SLANGUAGE, Name<uloc_getDisplayName, false>},
    {LOCALE_SABBREVLANGNAME, AbbreviatedName},
    {LOCALE_ICOUNTRY, TelephoneCountry},
    {LOCALE_SCOUNTRY, Name<uloc_getDisplayCountry, false>},
    {LOCALE_SLIST, ListSeparator},
    {LOCALE_IMEASURE, Measurement},
    {LOCALE_SDECIMAL, DecimalSeparator},
    {LOCALE_STHOUSAND, Symbol<UNUM_GROUPING_SEPARATOR_SYMBOL, u','>},
    {LOCALE_SGROUPING, Grouping},
    {LOCALE_IDIGITS, Constant<u'2'>},
    {LOCALE_ILZERO, Constant<u'1'>},
    {LOCALE_STIME, TimeSeparator},
    {LOCALE_SNEGATIVESIGN, Symbol<UNUM_MINUS_SIGN_SYMBOL, u'-'>},
    {LOCALE_SENGLANGUAGE, Name<uloc_getDisplayLanguage, true>},
    {LOCALE_SENGCOUNTRY, Name<uloc_getDisplayCountry, true>},
};
static_assert(std::size(kItems) == kLocaleItemCount);

}  // namespace

int LocaleItemIndex(LCTYPE type) {
  const auto* const found = std::find_if(std::begin(kItems), std::end(kItems),
                                         [type](const Item& item) { return item.type == type; });
  return found == std::end(kItems) ? -1 : static_cast<int>(found - kItems);
}

void ReadLocaleItem(const Locale& locale, int index, ItemText* text) {
  kItems[index].read(locale, text);
}

}  // namespace qn

inline namespace qnplatform {

int GetLocaleInfoW(LCID lcid, LCTYPE type, WCHAR* text, int size) {
  qn::Locale locale;
  const int index = qn::LocaleItemIndex(type);
  if (index < 0 || size < 0 || (size > 0 && !text) || !qn::FindLocale(lcid, &locale)) {
    return qn::FailWith(ERROR_INVALID_PARAMETER);
  }
  qn::ItemText item;
  if (const qn::UserText& user = qn::UserLocaleItem(index); user.replaced && qn::IsUserLocale(locale.lcid)) {
    qn::Set(&item, user.text);
  } else {
    qn::ReadLocaleItem(locale, index, &item);
  }
  if (size == 0) return item.length + 1;
  if (size <= item.length) return qn::FailWith(ERROR_INSUFFICIENT_BUFFER);
  std::copy_n(item.text, item.length + 1, text);
  return item.length + 1;
}

}  // namespace qnplatform
