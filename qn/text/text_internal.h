// What the text modules share: the library's own language handle and the locale record in use.
#pragma once

#include "qn/text/qnlang.h"
#include "qn/text/qnprint.h"

namespace qn {

// The library's own language handle; null before attach, after detach and if its opening failed.
HQNLANG KernelLanguage();

// The language handle's part of attach, for the library's module, and of detach. Opens nothing when there is
// a handle already; a negative status when it cannot be opened.
HRESULT OpenKernelLanguage(HMODULE module);
void CloseKernelLanguage();

// The locale record in use, written by QnLang_GetInternationals(nullptr, 0) and QnSetLangID alone and read
// without a lock.
extern QNINTERNATIONALS g_internationals;

inline const QNINTERNATIONALS& Internationals() {
  return g_internationals;
}

// The token table's part of attach and detach. Makes nothing when there is a table already; false when there
// is no memory.
bool OpenPrintTokens();
void ClosePrintTokens();

}  // namespace qn
