// The text modules' part of the library's attach to a process and its detach.

#include <atomic>

#include "qn/text/text_internal.h"

namespace qn {
namespace {

std::atomic<HQNLANG> kernelLanguage = nullptr;

__attribute__((constructor)) void AttachText() {
  OpenPrintTokens();
  // Without memory for the handle the library goes on in English; a constructor cannot refuse the load.
  HQNLANG language = nullptr;
  if (SUCCEEDED(QnLang_Open(&language, ModuleFromAddress(&kernelLanguage), 0, 0))) kernelLanguage = language;
  QnLang_GetInternationals(nullptr, 0);
}

__attribute__((destructor)) void DetachText() {
  QnLang_Close(kernelLanguage.exchange(nullptr));
  ClosePrintTokens();
}

}  // namespace

HQNLANG KernelLanguage() {
  return kernelLanguage.load(std::memory_order_acquire);
}

}  // namespace qn
