#include "qn/text/qnlang.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>

#include "qn/platform/memory.h"
#include "qn/text/qnlang_internal.h"
#include "qn/text/text_internal.h"

using qn::kNoText;
using qn::LanguageGuard;

namespace {

constexpr LONG kDefaultRingSize = 8192;
constexpr LONG kLeastRingSize = 2048;
constexpr DWORD kRingReserve = 1024;
constexpr size_t kMostText = 1024;  // characters of a string id's text, with terminator

// The languages in the order of a record's entries.
constexpr DWORD kLanguages[] = {0x409, 0x411, 0x407, 0x40A, 0x40C, 0x804, 0x404, 0x406, 0x40B,
                                0x410, 0x412, 0x413, 0x414, 0x416, 0x816, 0x419, 0x41D, 0x415};
static_assert(std::size(kLanguages) == QNLANG_COUNT);

// Positions count from 1.
std::atomic_ref<LONG> ActiveIndex(HQNLANG language) {
  return std::atomic_ref(language->activeIndex);
}
std::atomic_ref<const WCHAR*> Entry(const qnlang_t* record, LONG position) {
  return std::atomic_ref(const_cast<qnlang_t*>(record)->text[position - 1]);
}

bool IsStringId(const void* text) {
  return IS_INTRESOURCE(text);
}
UINT StringId(const void* text) {
  return static_cast<UINT>(reinterpret_cast<uintptr_t>(text));
}

// Threads that come here at once find the same.
LONG WorkOutActiveIndex(HQNLANG language) {
  const DWORD lcid = QnLang_GetConditionedLCID(language->lcid ? language->lcid : GetUserDefaultUILanguage());
  const auto* const found = std::find_if(std::begin(kLanguages), std::end(kLanguages), [=](DWORD known) {
    return QnLang_GetConditionedLCID(known) == lcid;
  });
  const LONG index = found != std::end(kLanguages) ? static_cast<LONG>(found - kLanguages) + 1 : 1;
  ActiveIndex(language).store(index, std::memory_order_release);
  return index;
}

// The text in the module that a record's id stands for, or null. It is used in place, so it has to end there.
const WCHAR* FindRecordText(HMODULE module, const void* id, DWORD lcid) {
  const std::u16string_view text = qn::FindStringResource(module, StringId(id), lcid);
  return text.find(W('\0')) != text.npos ? text.data() : nullptr;
}

// The entry of a record for an active index. A shorter record gives its last one.
LONG PositionIn(const qnlang_t* record, LONG active) {
  return std::min<LONG>(active, record->count);
}

// Replaces a record's string id by its text, or by the English text, and returns that. Hosts rely on the
// language in which an id is looked up, which is the one behind the active language in the table.
const WCHAR* ResolveEntry(HQNLANG language, const qnlang_t* record, LONG active) {
  const LONG position = PositionIn(record, active);
  const WCHAR* text = Entry(record, position).load(std::memory_order_acquire);
  if (!IsStringId(text)) return text;
  if (!language) return kNoText;
  text = FindRecordText(language->module, text, active < QNLANG_COUNT ? kLanguages[active] : 0);
  if (!text) {
    text = Entry(record, 1).load(std::memory_order_acquire);
    if (IsStringId(text)) text = FindRecordText(language->module, text, qn::kEnglish);
    if (!text) return kNoText;
  }
  Entry(record, position).store(text, std::memory_order_release);
  return text;
}

bool IsAligned(const WCHAR* const* record) {
  return reinterpret_cast<uintptr_t>(record) % alignof(qnlang_t) == 0;
}

// The whole way to a record's text; apart from the short one, which needs no stack.
[[gnu::noinline]] const WCHAR* GetRecordText(HQNLANG language, const WCHAR* const* record) {
  if (!record) return kNoText;
  qnlang_t copy;
  std::memcpy(&copy.marker, record, sizeof copy.marker);
  if (copy.marker != QNLANG_MARKER) return kNoText;
  const auto* entries = reinterpret_cast<const qnlang_t*>(record);
  if (!IsAligned(record)) {
    // A record in packed data cannot be written to in one piece, so its ids stay.
    std::memcpy(static_cast<void*>(&copy), record, offsetof(qnlang_t, text));
    copy.count = std::min<BYTE>(copy.count, QNLANG_COUNT);
    std::memcpy(copy.text, reinterpret_cast<const BYTE*>(record) + offsetof(qnlang_t, text),
                copy.count * sizeof *copy.text);
    entries = &copy;
  }
  if (entries->count == 0) return kNoText;
  LONG active = language ? ActiveIndex(language).load(std::memory_order_acquire) : 1;
  if (active < 1) active = WorkOutActiveIndex(language);
  return ResolveEntry(language, entries, active);
}

// An item of the cache. A search key is an id alone, so that searching takes no memory.
struct CacheItem {
  UINT id;
  WCHAR text[2];  // as many as the text needs
};

LONG CompareIds(ULONGLONG, const void* key, const void* item) {
  const UINT first = *static_cast<const UINT*>(key);
  const UINT second = *static_cast<const UINT*>(item);
  return first < second ? -1 : first > second;
}

// The two characters mark a text that is shown without them.
std::u16string_view WithoutMarker(std::u16string_view text) {
  constexpr std::u16string_view kMarker = W("^*");
  return text.starts_with(kMarker) ? text.substr(kMarker.size()) : text;
}

std::u16string_view FindText(const tQNLANG* language, UINT id) {
  const auto find = [=](DWORD lcid) {
    const std::u16string_view text = qn::FindStringResource(language->module, id, lcid);
    return text.substr(0, text.find(W('\0')));
  };
  const std::u16string_view text = language->useLanguage ? find(language->lcid) : std::u16string_view();
  return text.empty() ? find(qn::kEnglish) : text;
}

const WCHAR* AddToCache(tQNLIST* cache, UINT id, std::u16string_view text) {
  void* memory = nullptr;
  const SIZE_T bytes = offsetof(CacheItem, text) + (text.size() + 1) * sizeof(WCHAR);
  if (FAILED(QnList_AllocItem(cache, bytes, &memory))) return kNoText;
  auto* const item = static_cast<CacheItem*>(memory);
  item->id = id;
  std::copy(text.begin(), text.end(), item->text);
  const LONG index = QnList_FindSortedInsertIndexRange(cache, &id, 0, -1, CompareIds);
  if (SUCCEEDED(QnList_InsertList(cache, index, nullptr, -1))) return item->text;
  QnList_DeleteList(cache, -1, -1, FALSE);
  return kNoText;
}

}  // namespace

int qn::CopyText(std::u16string_view text, WCHAR* buffer, int size) {
  if (!buffer || size < 1) return 0;
  const size_t length = std::min(text.size(), static_cast<size_t>(size - 1));
  std::copy_n(text.data(), length, buffer);
  buffer[length] = 0;
  return static_cast<int>(length);
}

HRESULT QnLang_Open(HQNLANG* languageOut, HMODULE module, DWORD lcid, LONG ringSize) {
  if (!languageOut) return E_INVALIDARG;
  ringSize = ringSize == 0 ? kDefaultRingSize : std::max(ringSize, kLeastRingSize);
  auto* const language = static_cast<HQNLANG>(GlobalAlloc(GPTR, sizeof(tQNLANG)));
  if (!language) return E_OUTOFMEMORY;
  language->module = module;
  language->lcid = lcid;
  language->ringSize = static_cast<DWORD>(ringSize);
  language->ringReserve = kRingReserve;
  InitializeCriticalSection(&language->lock);
  language->lockInitialised = TRUE;
  language->ring = static_cast<WCHAR*>(GlobalAlloc(GPTR, language->ringSize * sizeof(WCHAR)));
  const HRESULT status = language->ring
                             ? QnList_CreateExZ(&language->cache, sizeof(void*), -1, -1,
                                                QNLIST_OPT_OWNED_ITEMS | QNLIST_OPT_ANY_THREAD, 0, 0, 0)
                             : E_OUTOFMEMORY;
  if (FAILED(status)) {
    QnLang_Close(language);
    return status;
  }
  *languageOut = language;
  return S_OK;
}

HRESULT QnLang_Close(HQNLANG language) {
  if (!language) return S_OK;
  if (language->lockInitialised) DeleteCriticalSection(&language->lock);
  if (language->ring) GlobalFree(language->ring);
  QnList_Destroy(language->cache);
  GlobalFree(language);
  return S_OK;
}

HMODULE QnLang_InstFromLang(HQNLANG language) {
  return language ? language->module : nullptr;
}

DWORD QnLang_GetLCID(HQNLANG language) {
  return language ? language->lcid : 0;
}

BOOL QnLang_UpdateLCID(HQNLANG language, DWORD lcid) {
  if (!language) return FALSE;
  if (lcid == 0) lcid = qn::kEnglish;
  if (lcid != language->lcid) {
    const LanguageGuard guard(language);
    language->lcid = lcid;
    ActiveIndex(language).store(0, std::memory_order_release);
    QnList_DeleteList(language->cache, 0, -1, FALSE);
  }
  language->useLanguage = !QnLang_IsLCIDEnglish(lcid);
  return TRUE;
}

BOOL _QnLang_UpdateKernelLCID(HQNLANG language, DWORD lcid) {
  const HQNLANG kernel = qn::KernelLanguage();
  return kernel && QnLang_UpdateLCID(language, lcid) && QnLang_UpdateLCID(kernel, lcid);
}

BOOL _QnLang_UpdateKernelOnlyLCID(DWORD lcid) {
  const HQNLANG kernel = qn::KernelLanguage();
  if (!QnLang_UpdateLCID(kernel, lcid)) return FALSE;
  QnLang_UseRTL(kernel) ? QnLang_EnableProcessMirroring() : QnLang_DisableProcessMirroring();
  return TRUE;
}

BOOL IsQNLANGSTRINGID(HQNLANG, const WCHAR* text) {
  constexpr uintptr_t kAlignment = 4;
  return !IsStringId(text) && reinterpret_cast<uintptr_t>(text) % kAlignment == 0 && *text == QNLANG_MARKER;
}

const WCHAR* QnGetString(HQNLANG language, const WCHAR* const* record) {
  if (language && record && IsAligned(record)) [[likely]] {
    const auto* const entries = reinterpret_cast<const qnlang_t*>(record);
    const bool isRecord = entries->marker == QNLANG_MARKER;  // what is none may end here
    const LONG active = isRecord ? ActiveIndex(language).load(std::memory_order_acquire) : 0;
    if (const LONG position = isRecord ? PositionIn(entries, active) : 0; position > 0) [[likely]] {
      const WCHAR* const text = Entry(entries, position).load(std::memory_order_acquire);
      if (!IsStringId(text)) [[likely]]
        return text;
    }
  }
  return GetRecordText(language, record);
}

const WCHAR* QnGetString(HQNLANG language, UINT id) {
  if (!language || !language->cache) return kNoText;
  const LanguageGuard guard(language);
  const LONG hit = QnList_FindSortedItemRange(language->cache, &id, 0, -1, CompareIds);
  if (hit >= 0) return static_cast<CacheItem* const*>(language->cache->items)[hit]->text;
  const std::u16string_view text = WithoutMarker(FindText(language, id).substr(0, kMostText - 1));
  return text.empty() ? kNoText : AddToCache(language->cache, id, text);
}

const WCHAR* QnGetStringSmart(HQNLANG language, const WCHAR* text) {
  if (!text) return nullptr;
  if (IsStringId(text)) return QnGetString(language, StringId(text));
  if (!IsQNLANGSTRINGID(language, text)) return text;
  return QnGetString(language, reinterpret_cast<const WCHAR* const*>(text));
}

int QnLoadString(HQNLANG language, UINT id, WCHAR* text, int size) {
  return qn::CopyText(language ? WithoutMarker(FindText(language, id)) : kNoText, text, size);
}

int QnLoadString(HQNLANG language, const WCHAR* const* record, WCHAR* text, int size) {
  return qn::CopyText(WithoutMarker(QnGetString(language, record)), text, size);
}

// The place always has the reserve behind it, however far the position went on.
WCHAR* QnGetTempStringBuffer(HQNLANG language, LONG characters) {
  if (!language || !language->ring) return nullptr;
  const LanguageGuard guard(language);
  DWORD& position = language->ringPosition;
  if (position > language->ringSize - language->ringReserve) position = 0;
  WCHAR* const place = language->ring + position;
  if (characters == 0) *place = 0;
  position = (position + 2 + static_cast<DWORD>(characters)) & ~DWORD{1};
  return place;
}
