#include "qn/kernel/qnkernel.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "qn/kernel/qncpu_internal.h"
#include "qn/kernel/qnkernel_internal.h"
#include "qn/kernel/qntimer_internal.h"
#include "qn/platform/system.h"
#include "qn/platform/unload_internal.h"
#include "qn/platform/winuser.h"
#include "qn/settings/qnerror.h"
#include "qn/settings/qnmetric_internal.h"
#include "qn/text/text_internal.h"

namespace {

constinit qn::AttachSteps g_steps;
constinit HRESULT g_attachStatus = S_FALSE;
constinit HMODULE g_hKernel = nullptr;
constinit DWORD g_QnfcLegacy = 0;
constinit WCHAR g_AppName[128] = {};

// Calls a step that an upper layer may have put in.
template <class Step, class... Arguments>
void Run(Step step, Arguments... arguments) {
  if (step) step(arguments...);
}

// Each step runs even if the one before had nothing to do, and finds by itself what is there already.
BOOL Attach(HINSTANCE instance) {
  constexpr UINT kNoBoxes = SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX;
  SetErrorMode(SetErrorMode(kNoBoxes) | kNoBoxes);
  qn::InitializeTimeBase();
  g_hKernel = instance;
  qn::DetectProcessorAtAttach();
  qn::g_KernelCursorBase = 100;
  qn::g_hHostModule = GetModuleHandleW(nullptr);
  // The number formatter needs no "C" locale beside the tokens: no number goes through the C library's
  // locale.
  qn::OpenPrintTokens();
  g_attachStatus = qn::OpenKernelLanguage(instance);
  if (FAILED(g_attachStatus)) {
    Run(g_steps.initializePerformance);
    return FALSE;  // what is set up stays
  }
  QnLang_GetInternationals(nullptr, 0);
  Run(g_steps.initializePerformance);
  qn::OpenKernelMetrics();
  Run(g_steps.initializeControls, instance, DWORD{0});
  return TRUE;
}

void Detach(HINSTANCE instance) {
  Run(g_steps.terminateControls, instance, DWORD{0});
  Run(g_steps.releasePeakScratch);
  Run(g_steps.releaseSincTable);
  qn::CloseKernelMetrics();
  qn::CloseKernelLanguage();
  qn::ClosePrintTokens();
  Run(g_steps.releaseWindowCaches);
  Run(g_steps.releaseCursors);
  g_hKernel = nullptr;
  g_attachStatus = S_FALSE;
}

// The loader runs these two. The state that they touch is there before any code runs and has no destructors,
// which at the end of a process run before detach.
__attribute__((constructor)) void Load() {
  qn::PrepareUnload();
  qn::DllMain(ModuleFromAddress(&g_steps), qn::DLL_PROCESS_ATTACH, nullptr);
}

__attribute__((destructor)) void Unload() {
  qn::StopServing();
  qn::EndRowThreads();
  if (qn::IsForkedCopy()) return;
  qn::DllMain(ModuleFromAddress(&g_steps), qn::DLL_PROCESS_DETACH, nullptr);
  qn::ReleaseViews();
  qn::ReleaseHandles();
  qn::ReleaseRegistry();
  qn::ReleaseCollation();
}

}  // namespace

namespace qn {

constinit HMODULE g_hHostModule = nullptr;
constinit DWORD g_KernelCursorBase = 0;
constinit HWND g_AppHwnd = nullptr;

BOOL DllMain(HINSTANCE instance, DWORD reason, void*) {
  if (reason == DLL_PROCESS_ATTACH) return Attach(instance);
  if (reason == DLL_PROCESS_DETACH) Detach(instance);
  return TRUE;
}

AttachSteps& Steps() {
  return g_steps;
}

HRESULT AttachStatus() {
  return g_attachStatus;
}

}  // namespace qn

HMODULE QnKernel_GetAppKernel() {
  return g_hKernel;
}

HRESULT QnKernel_GetAppKernelPathName(WCHAR* text, DWORD size) {
  if (!g_hKernel) return E_FAIL;
  if (!text || size == 0) return QnErrorHandler_TranslateWin32Error(ERROR_INVALID_PARAMETER);
  // A path that is cut is a failure, which leaves the caller's buffer alone.
  WCHAR path[4096];
  const DWORD length = GetModuleFileNameW(g_hKernel, path, static_cast<DWORD>(std::size(path)));
  if (length == 0 || length == std::size(path)) return QnErrorHandler_TranslateWin32Error(GetLastError());
  if (length >= size) return QnErrorHandler_TranslateWin32Error(ERROR_INSUFFICIENT_BUFFER);
  std::copy_n(path, length + 1, text);
  return S_OK;
}

HRESULT _QnKernel_SetAppName(const WCHAR* name) {
  constexpr HRESULT kCut = static_cast<HRESULT>(0x8007007A);
  if (!name) return E_INVALIDARG;
  const std::u16string_view text = name;
  const size_t length = std::min(text.size(), std::size(g_AppName) - 1);
  std::char_traits<WCHAR>::move(g_AppName, text.data(), length);  // it may be a part of the name
  g_AppName[length] = 0;
  return length == text.size() ? S_OK : kCut;
}

const WCHAR* QnKernel_GetAppName() {
  return g_AppName;
}

HWND QnKernel_GetAppHwnd() {
  return qn::g_AppHwnd;
}

void QnKernel_SetQnfcLegacy(DWORD value) {
  g_QnfcLegacy = value;
}

DWORD QnKernel_IsQnfcLegacy() {
  return g_QnfcLegacy;
}

void QnKernel_UserPrefChanges(HWND, UINT message) {
  if (message != WM_SYSCOLORCHANGE && message != WM_DISPLAYCHANGE) return;
  qn::RefreshHighColor();
  if (message == WM_SYSCOLORCHANGE) Run(g_steps.releaseWindowCaches);
}
