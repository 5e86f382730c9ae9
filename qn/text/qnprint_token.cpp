// The token table: one list of the whole library, sorted by name.
//
// Each item holds its own texts, so an item is one block and a lookup allocates nothing. The list's lock is
// held while a value is copied: a replacement on another thread cannot free it meanwhile.

#include <algorithm>
#include <string_view>

#include "qn/text/qnprint_internal.h"

namespace qn {
namespace {

// Texts follow the record: the name, then at the next 4-byte boundary the value.
struct PrintToken {
  DWORD reserved;  // 0
  const WCHAR* name;
  DWORD valueLength;
  const WCHAR* value;
};

tQNLIST* g_tokens = nullptr;

LONG CompareTokens(ULONGLONG, const void* first, const void* second) {
  return lstrcmpiW(static_cast<const PrintToken*>(first)->name, static_cast<const PrintToken*>(second)->name);
}

class TokenLock {
 public:
  TokenLock() { EnterCriticalSection(&g_tokens->lock); }
  ~TokenLock() { LeaveCriticalSection(&g_tokens->lock); }
  TokenLock(const TokenLock&) = delete;
  TokenLock& operator=(const TokenLock&) = delete;
};

LONG FindToken(const WCHAR* name) {
  const PrintToken key = {0, name, 0, nullptr};
  return QnList_FindSortedItemRange(g_tokens, &key, 0, -1, CompareTokens);
}

// A new item, pending in the list; null without memory.
PrintToken* AllocateToken(std::u16string_view name, std::u16string_view value) {
  if (value.size() > 0x7FFFFFFF) return nullptr;
  const size_t nameOffset = sizeof(PrintToken);
  const size_t valueOffset = (nameOffset + (name.size() + 1) * sizeof(WCHAR) + 3) & ~size_t{3};
  void* item = nullptr;
  if (FAILED(QnList_AllocItem(g_tokens, valueOffset + (value.size() + 1) * sizeof(WCHAR), &item)))
    return nullptr;
  // The item comes zeroed, so both texts are terminated.
  BYTE* const bytes = static_cast<BYTE*>(item);
  WCHAR* const nameText = reinterpret_cast<WCHAR*>(bytes + nameOffset);
  WCHAR* const valueText = reinterpret_cast<WCHAR*>(bytes + valueOffset);
  std::copy(name.begin(), name.end(), nameText);
  std::copy(value.begin(), value.end(), valueText);
  return new (item) PrintToken{0, nameText, static_cast<DWORD>(value.size()), valueText};
}

}  // namespace

bool OpenPrintTokens() {
  return g_tokens || SUCCEEDED(QnList_CreateExZ(&g_tokens, sizeof(PrintToken*), 16, 16,
                                                QNLIST_OPT_LOCKED | QNLIST_OPT_OWNED_ITEMS, 0, 0, 0));
}

void ClosePrintTokens() {
  QnList_Destroy(g_tokens);
  g_tokens = nullptr;
}

bool WriteTokenValue(const WCHAR* name, PrintOutput* output) {
  if (!g_tokens) return false;
  const TokenLock lock;
  const LONG index = FindToken(name);
  if (index < 0) return false;
  const auto* const token = static_cast<PrintToken* const*>(g_tokens->items)[index];
  output->Write(token->value, static_cast<int>(token->valueLength));
  return true;
}

}  // namespace qn

using namespace qn;

BOOL QnPrintF_AddToken(const WCHAR* name, const WCHAR* value) {
  if (!name || !g_tokens) return FALSE;
  const TokenLock lock;
  PrintToken* const token = AllocateToken(name, value ? value : W(""));
  if (!token) return FALSE;
  // The slot of a replaced token is not given back, so its successor always finds room.
  const LONG present = FindToken(name);
  if (present >= 0) QnList_DeleteList(g_tokens, present, 1, FALSE);
  const LONG index = QnList_FindSortedInsertIndexRange(g_tokens, token, 0, -1, CompareTokens);
  if (SUCCEEDED(QnList_InsertList(g_tokens, index, nullptr, -1))) return TRUE;
  QnList_DeleteList(g_tokens, -1, -1, FALSE);
  return FALSE;
}

BOOL QnPrintF_DeleteToken(const WCHAR* name) {
  if (!name || !g_tokens) return FALSE;
  const TokenLock lock;
  const LONG index = FindToken(name);
  return index >= 0 && SUCCEEDED(QnList_DeleteList(g_tokens, index, 1, TRUE));
}
