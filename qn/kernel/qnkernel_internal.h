// The entry point of the library and the process-wide state behind it.
#pragma once

#include "qn/kernel/qnkernel.h"
#include "qn/text/qnlang.h"

namespace qn {

constexpr DWORD DLL_PROCESS_DETACH = 0;
constexpr DWORD DLL_PROCESS_ATTACH = 1;

// What the loader calls, with reason 1 when the library enters a process and 0 when it leaves. Nonzero is
// success; any other reason does nothing.
BOOL DllMain(HINSTANCE instance, DWORD reason, void* reserved);

// The steps of attach and detach that belong to layers above this one. They put their functions here from
// constructors of priority 101, which run before attach; a null step does nothing.
struct AttachSteps {
  HRESULT (*openLanguage)(HQNLANG* language, HMODULE module, DWORD lcid, LONG ringSize) = QnLang_Open;
  void (*initializePerformance)() = nullptr;
  BOOL (*initializeControls)(HINSTANCE instance, DWORD reserved) = nullptr;
  BOOL (*terminateControls)(HINSTANCE instance, DWORD reserved) = nullptr;
  void (*releasePeakScratch)() = nullptr;   // the blocks that threads have read peaks through
  void (*releaseSincTable)() = nullptr;     // the table of the first resampler
  void (*releaseWindowCaches)() = nullptr;  // colours, brushes, fonts, memory device contexts
  void (*releaseCursors)() = nullptr;       // selects the arrow, then destroys the cached cursors
};
AttachSteps& Steps();

// The executable, from which application cursors of the kernel cursor range are loaded, and the range's first
// id; it holds 300. Both are set at attach.
extern HMODULE g_hHostModule;
extern DWORD g_KernelCursorBase;

// The host's main window; _QnMsgBoxSetAppData writes it.
extern HWND g_AppHwnd;

// Asks for the depth of the screens again.
void RefreshHighColor();

}  // namespace qn
