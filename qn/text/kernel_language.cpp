// The library's own language handle.

#include <atomic>

#include "qn/kernel/qnkernel_internal.h"
#include "qn/text/text_internal.h"

namespace qn {
namespace {

constinit std::atomic<HQNLANG> g_language = nullptr;

}  // namespace

HQNLANG KernelLanguage() {
  return g_language.load(std::memory_order_acquire);
}

HRESULT OpenKernelLanguage(HMODULE module) {
  if (KernelLanguage()) return S_OK;
  HQNLANG language = nullptr;
  const HRESULT status = Steps().openLanguage(&language, module, 0, 0);
  if (SUCCEEDED(status)) g_language.store(language, std::memory_order_release);
  return status;
}

void CloseKernelLanguage() {
  QnLang_Close(g_language.exchange(nullptr));
}

}  // namespace qn
