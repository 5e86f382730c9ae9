#include <unicode/uchar.h>

#include <algorithm>
#include <array>

#include "qn/platform/error_internal.h"
#include "qn/platform/locale.h"
#include "qn/platform/module_internal.h"

namespace {

constexpr uint64_t kSmallestImage = 32;
constexpr uint64_t kSmallestRecord = 13;
constexpr uint64_t kSizes = 8;       // the two sizes in front of the type
constexpr uint64_t kHeaderEnd = 16;  // what follows type and name
constexpr WORD kIdMark = 0xFFFF;
constexpr LANGID kEnglish = 0x0409;
constexpr WORD kPrimaryLanguage = 0x03FF;

uint64_t RoundUp(uint64_t size) {
  return (size + 3) & ~uint64_t{3};
}

// Reads a type or a name at `*place` of a header and moves on; false when it does not end in the header.
bool ReadName(const uint8_t* header, uint64_t headerSize, uint64_t* place, qn::ResourceName* name) {
  const auto unitAt = [&](uint64_t offset) { return qn::ReadUnaligned<WORD>(header + offset); };
  if (*place + 4 <= headerSize && unitAt(*place) == kIdMark) {
    *name = {nullptr, 0, unitAt(*place + 2)};
    *place += 4;
    return true;
  }
  for (uint64_t end = *place; end + 2 <= headerSize; end += 2) {
    if (unitAt(end) != 0) continue;
    *name = {header + *place, static_cast<size_t>((end - *place) / 2), 0};
    *place = end + 2;
    return true;
  }
  return false;
}

bool ReadHeader(const uint8_t* start, uint64_t headerSize, uint64_t dataSize, qn::ResourceRecord* record) {
  uint64_t place = kSizes;
  if (!ReadName(start, headerSize, &place, &record->type)) return false;
  if (!ReadName(start, headerSize, &place, &record->name)) return false;
  place = RoundUp(place);
  if (place + kHeaderEnd > headerSize) return false;
  record->start = start;
  record->language = qn::ReadUnaligned<WORD>(start + place + 6);
  record->data = start + headerSize;
  record->dataSize = static_cast<DWORD>(dataSize);
  return true;
}

// The record that a handle stands for; false for a value that is none.
bool FromHandle(HRSRC resource, qn::ResourceRecord* record) {
  const auto* const start = reinterpret_cast<const uint8_t*>(resource);
  const qn::ResourceImage image = qn::FindImageOf(start);
  const auto position = static_cast<uint64_t>(start - image.bytes);
  return (image.bytes && qn::ResourceWalk(image, position).Next(record) && record->start == start) ||
         qn::FailWith(ERROR_INVALID_HANDLE);
}

// The languages to look for, the best first.
struct LanguageOrder {
  explicit LanguageOrder(WORD language) {
    if (language == 0) {
      rows = {static_cast<LANGID>(GetThreadLocale()), static_cast<LANGID>(GetUserDefaultLCID()),
              static_cast<LANGID>(GetSystemDefaultLCID()), kEnglish, 0};
      any = true;
    } else {
      const WORD primary = language & kPrimaryLanguage;
      rows = {language, primary, 0, 0, 0};
    }
  }

  // The place of a language in the order; kNone when it will not do.
  size_t Rank(WORD language) const {
    const auto place = static_cast<size_t>(std::find(rows.begin(), rows.end(), language) - rows.begin());
    return place == rows.size() && !any ? kNone : place;
  }

  static constexpr size_t kNone = SIZE_MAX;
  std::array<LANGID, 5> rows;
  bool any = false;
};

}  // namespace

namespace qn {

bool ResourceWalk::Next(ResourceRecord* record) {
  if (image_.size < kSmallestImage) return false;
  while (position_ < image_.size && image_.size - position_ >= kSizes) {
    const uint8_t* const start = image_.bytes + position_;
    const uint64_t dataSize = ReadUnaligned<DWORD>(start);
    const uint64_t headerSize = ReadUnaligned<DWORD>(start + 4);
    const uint64_t size = dataSize + headerSize;
    if (size < kSmallestRecord || size > image_.size - position_) break;
    position_ += RoundUp(size);
    if (ReadHeader(start, headerSize, dataSize, record)) return true;
  }
  position_ = image_.size;
  return false;
}

WantedName::WantedName(const WCHAR* name) {
  if (IS_INTRESOURCE(name)) {
    id_ = static_cast<WORD>(reinterpret_cast<uintptr_t>(name));
    return;
  }
  text_ = name;
  if (name[0] != u'#') return;
  DWORD id = 0;
  const WCHAR* digit = name + 1;
  for (; *digit >= u'0' && *digit <= u'9' && id <= 0xFFFF; ++digit) id = id * 10 + (*digit - u'0');
  if (digit == name + 1 || *digit || id > 0xFFFF) return;
  text_ = nullptr;
  id_ = static_cast<WORD>(id);
}

bool WantedName::Matches(const ResourceName& name) const {
  if (!text_ || !name.text) return !text_ && !name.text && id_ == name.id;
  for (size_t i = 0; i < name.length; ++i) {
    const WCHAR unit = ReadUnaligned<WCHAR>(name.text + 2 * i);
    if (!text_[i] || u_toupper(unit) != u_toupper(text_[i])) return false;
  }
  return !text_[name.length];
}

bool FindResourceRecord(const ResourceImage& image, const WCHAR* type, const WCHAR* name, WORD language,
                        ResourceRecord* found) {
  const WantedName wantedType(type), wantedName(name);
  const LanguageOrder order(language);
  DWORD error = ERROR_RESOURCE_TYPE_NOT_FOUND;
  size_t best = LanguageOrder::kNone;
  ResourceWalk walk(image);
  // The number 0 is that of the empty record in front, not a resource.
  for (ResourceRecord record; type && walk.Next(&record);) {
    if (!wantedType.Matches(record.type)) continue;
    if (!wantedName.Matches(record.name)) {
      error = std::max(error, ERROR_RESOURCE_NAME_NOT_FOUND);
      continue;
    }
    error = ERROR_RESOURCE_LANG_NOT_FOUND;
    const size_t rank = order.Rank(record.language);
    if (rank >= best) continue;
    best = rank;
    *found = record;
  }
  return best != LanguageOrder::kNone || FailWith(error);
}

}  // namespace qn

inline namespace qnplatform {

HRSRC FindResourceExW(HMODULE module, const WCHAR* type, const WCHAR* name, WORD language) {
  qn::ResourceRecord record;
  if (!qn::FindResourceRecord(qn::FindModuleImage(module), type, name, language, &record)) return nullptr;
  return reinterpret_cast<HRSRC>(const_cast<uint8_t*>(record.start));
}

HRSRC FindResourceW(HMODULE module, const WCHAR* name, const WCHAR* type) {
  return FindResourceExW(module, type, name, 0);
}

DWORD SizeofResource(HMODULE, HRSRC resource) {
  qn::ResourceRecord record;
  return FromHandle(resource, &record) ? record.dataSize : 0;
}

HGLOBAL LoadResource(HMODULE, HRSRC resource) {
  qn::ResourceRecord record;
  return FromHandle(resource, &record) ? const_cast<uint8_t*>(record.data) : nullptr;
}

void* LockResource(HGLOBAL data) {
  return data;
}

BOOL EnumResourceLanguagesW(HMODULE module, const WCHAR* type, const WCHAR* name, ENUMRESLANGPROCW procedure,
                            intptr_t parameter) {
  if (!procedure) return qn::FailWith(ERROR_INVALID_PARAMETER);
  const qn::ResourceImage image = qn::FindModuleImage(module);
  qn::ResourceRecord record;
  if (!qn::FindResourceRecord(image, type, name, 0, &record)) return FALSE;
  const qn::WantedName wantedType(type), wantedName(name);
  qn::ResourceWalk walk(image);
  while (walk.Next(&record)) {
    if (!wantedType.Matches(record.type) || !wantedName.Matches(record.name)) continue;
    if (!procedure(module, type, name, record.language, parameter)) {
      return qn::FailWith(ERROR_RESOURCE_ENUM_USER_STOP);
    }
  }
  return TRUE;
}

}  // namespace qnplatform
