// The locale record, and the default tokens that are made of it.

#include <algorithm>
#include <string_view>

#include "qn/text/messages_internal.h"
#include "qn/text/qnprint_internal.h"

namespace qn {

QNINTERNATIONALS g_internationals;

namespace {

// Stores a text, cut to its place, and its length.
template <size_t kRoom>
void Store(std::u16string_view text, WCHAR (&place)[kRoom], DWORD* length) {
  const size_t count = std::min(text.size(), kRoom - 1);
  std::copy_n(text.begin(), count, place);
  place[count] = 0;
  *length = static_cast<DWORD>(count);
}

// An item of the user's locale.
class Item {
 public:
  explicit Item(LCTYPE item) : length_(GetLocaleInfoW(LOCALE_USER_DEFAULT, item, text_, 256)) {}

  std::u16string_view Text() const { return {text_, static_cast<size_t>(std::max(length_, 1)) - 1}; }

  // The decimal digits that the text starts with. They are few: an int holds them.
  DWORD Number() const {
    DWORD value = 0;
    for (const WCHAR c : Text()) {
      if (c < '0' || c > '9') break;
      value = value * 10 + (c - '0');
    }
    return value;
  }

 private:
  WCHAR text_[256];
  int length_;  // with terminator; 0: there is no such item
};

template <size_t kRoom>
void Store(LCTYPE item, WCHAR (&place)[kRoom], DWORD* length) {
  Store(Item(item).Text(), place, length);
}

void ReadLocale(QNINTERNATIONALS* record) {
  QNINTERNATIONALS& r = *record;
  r = {};
  r.size = sizeof(QNINTERNATIONALS);
  r.systemLcid = GetSystemDefaultLCID();
  r.languageId = Item(LOCALE_ILANGUAGE).Number();
  Store(LOCALE_SLANGUAGE, r.languageName, &r.languageNameLength);
  Store(LOCALE_SENGLANGUAGE, r.englishLanguageName, &r.englishLanguageNameLength);
  r.countryCode = Item(LOCALE_ICOUNTRY).Number();
  Store(LOCALE_SCOUNTRY, r.countryName, &r.countryNameLength);
  Store(LOCALE_SENGCOUNTRY, r.englishCountryName, &r.englishCountryNameLength);
  Store(LOCALE_SNEGATIVESIGN, r.negativeSign, &r.negativeSignLength);
  Store(W("-"), r.inputNegativeSign, &r.inputNegativeSignLength);
  Store(LOCALE_STHOUSAND, r.thousandsSeparator, &r.thousandsSeparatorLength);
  Store(LOCALE_SDECIMAL, r.decimalSeparator, &r.decimalSeparatorLength);
  r.grouping = Item(LOCALE_SGROUPING).Number();
  r.digits = Item(LOCALE_IDIGITS).Number();
  r.leadingZero = Item(LOCALE_ILZERO).Number();
  Store(LOCALE_STIME, r.timeSeparator, &r.timeSeparatorLength);
  Store(LOCALE_SLIST, r.listSeparator, &r.listSeparatorLength);
  r.measurement = Item(LOCALE_IMEASURE).Number();
  Store(W(":"), r.smpteWholeSeparator, &r.smpteWholeSeparatorLength);
  Store(W("."), r.smpteNonDropSeparator, &r.smpteNonDropSeparatorLength);
  Store(W(","), r.smpteDropSeparator, &r.smpteDropSeparatorLength);
  Store(W("."), r.measureBeatSeparator, &r.measureBeatSeparatorLength);
  Store(W("."), r.beatTickSeparator, &r.beatTickSeparatorLength);

  // One sign for both would make numbers unreadable.
  const std::u16string_view thousands(r.thousandsSeparator);
  if (thousands == std::u16string_view(r.decimalSeparator)) {
    Store(thousands == W(".") ? W(",") : W("."), r.decimalSeparator, &r.decimalSeparatorLength);
  }
}

// Music labels have two separators and do not look at the third.
void AddLabel(const WCHAR* name, const WCHAR* const* message, const WCHAR* first, const WCHAR* second,
              const WCHAR* third) {
  WCHAR label[64];
  QnCchPrintF(label, 64, nullptr, QnGetString(KernelLanguage(), message), first, second, third);
  QnPrintF_AddToken(name, label);
}

void AddDefaultTokens(const QNINTERNATIONALS& r) {
  const WCHAR* const whole = r.smpteWholeSeparator;
  const WCHAR* const nonDrop = r.smpteNonDropSeparator;
  const WCHAR* const drop = r.smpteDropSeparator;
  const WCHAR* const beat = r.measureBeatSeparator;
  const WCHAR* const tick = r.beatTickSeparator;
  QnPrintF_AddToken(W("SMPTE.Whole"), whole);
  QnPrintF_AddToken(W("SMPTE.NonDrop"), nonDrop);
  QnPrintF_AddToken(W("SMPTE.Drop"), drop);
  AddLabel(W("SMPTE.Label.NonDrop"), messages::TimecodeLabel, whole, whole, nonDrop);
  AddLabel(W("SMPTE.Label.Drop"), messages::TimecodeLabel, whole, whole, drop);
  AddLabel(W("SMPTE.Label.NonDrop.Full"), messages::TimecodeLabelFull, whole, whole, nonDrop);
  AddLabel(W("SMPTE.Label.Drop.Full"), messages::TimecodeLabelFull, whole, whole, drop);
  QnPrintF_AddToken(W("m.b"), beat);
  QnPrintF_AddToken(W("b.t"), tick);
  AddLabel(W("MusicTime.Label"), messages::MusicTimeLabel, beat, tick, nullptr);
  AddLabel(W("MusicTime.Label.Full"), messages::MusicTimeLabelFull, beat, tick, nullptr);
}

}  // namespace

const WCHAR* InternationalText(int index, int* length) {
  const auto field = [length](const WCHAR* text, DWORD count) {
    *length = static_cast<int>(count);
    return text;
  };
  const QNINTERNATIONALS& r = g_internationals;
  switch (index) {
    case 2:
      return field(r.languageName, r.languageNameLength);
    case 3:
      return field(r.englishLanguageName, r.englishLanguageNameLength);
    case 24:
      return field(r.decimalSeparator, r.decimalSeparatorLength);
    case 40:
      return field(r.listSeparator, r.listSeparatorLength);
    case 60:
      return field(r.timeSeparator, r.timeSeparatorLength);
    case 100:
      return field(r.smpteWholeSeparator, r.smpteWholeSeparatorLength);
    case 101:
      return field(r.smpteNonDropSeparator, r.smpteNonDropSeparatorLength);
    case 102:
      return field(r.smpteDropSeparator, r.smpteDropSeparatorLength);
    case 120:
      return field(r.measureBeatSeparator, r.measureBeatSeparatorLength);
    case 121:
      return field(r.beatTickSeparator, r.beatTickSeparatorLength);
    default:
      *length = 0;
      return nullptr;
  }
}

}  // namespace qn

using namespace qn;

HRESULT QnLang_GetInternationals(QNINTERNATIONALS* record, DWORD size) {
  if (!record) {
    ReadLocale(&g_internationals);
    AddDefaultTokens(g_internationals);
    return S_OK;
  }
  if (size < sizeof record->size) return E_INVALIDARG;
  const DWORD count = std::min<DWORD>(size, sizeof(QNINTERNATIONALS));
  std::copy_n(reinterpret_cast<const BYTE*>(&g_internationals), count, reinterpret_cast<BYTE*>(record));
  record->size = count;
  return S_OK;
}

HRESULT QnSetLangID(const WCHAR* text) {
  const std::u16string_view id = text && *text ? text : W("ENU");
  Store(id, g_internationals.languageIdText, &g_internationals.languageIdTextLength);
  return id.size() > g_internationals.languageIdTextLength ? kTextTooLong : S_OK;
}

int QnGetInat(int index, WCHAR* text) {
  return QnGetInatN(index, text, 64);
}

int QnGetInatN(int index, WCHAR* text, int size) {
  switch (index) {
    case 0:
      return static_cast<int>(g_internationals.systemLcid);
    case 1:
      return static_cast<int>(g_internationals.languageId);
    case 4:
      return static_cast<int>(g_internationals.countryCode);
    default:
      break;
  }
  if (!text || size <= 0) return 0;
  int length = 0;
  const WCHAR* const source = InternationalText(index, &length);
  const int count = std::min(length, size - 1);
  std::copy_n(source, count, text);
  text[count] = 0;
  return count;
}
