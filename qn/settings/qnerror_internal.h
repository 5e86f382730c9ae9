// What the files of the error handler share: the library's own texts and the block of the latest failure.
#pragma once

#include "qn/settings/qnerror.h"

namespace qn {

// The text of a status in the library's own table, or null.
const qnlang_t* FindStatusRecord(HRESULT status);

// The sentence of a context; an unknown one has that of 0.
const qnlang_t* ContextRecord(ULONG_PTR context);

constexpr int kMessageSize = 2048;
constexpr int kDetailsSize = 8192;
constexpr int kLinkTargetSize = 2083;
constexpr int kLinkTextSize = 2048;

// The latest failure, cleared as a whole. The order of the fields is public.
struct ErrorBlock {
  HRESULT lastError;
  WCHAR message[kMessageSize];
  DWORD detailsThread;  // the first writer; 0: none yet
  DWORD detailsCount;
  WCHAR details[kDetailsSize];
  WCHAR hyperlinkTarget[kLinkTargetSize];
  WCHAR hyperlinkText[kLinkTextSize];
};
static_assert(offsetof(ErrorBlock, message) == 4 && offsetof(ErrorBlock, detailsThread) == 4100);
static_assert(offsetof(ErrorBlock, details) == 4108 && offsetof(ErrorBlock, hyperlinkTarget) == 20492);
static_assert(offsetof(ErrorBlock, hyperlinkText) == 24658);

extern ErrorBlock g_errorBlock;

inline bool HasDetails() {
  return g_errorBlock.detailsCount > 0 && g_errorBlock.details[0] != 0;
}

// Adds a text in which nothing is a format to the details, under the rules of
// QnErrorHandler_DetailsAddString.
HRESULT AddDetailsText(HRESULT status, const WCHAR* text);

}  // namespace qn
