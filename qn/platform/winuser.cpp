#include "qn/platform/winuser.h"

#include <atomic>

#include "qn/platform/error_internal.h"
#include "qn/platform/wingdi.h"
#include "qn/platform/winuser_internal.h"

namespace {

std::atomic<const qn::WindowBackend*> windowBackend = nullptr;
std::atomic<DWORD> processLayout = 0;

// Calls an operation of the backend; without a backend every handle is a bad one.
template <typename Result, typename... Parameters, typename... Arguments>
Result Call(Result (*qn::WindowBackend::*operation)(Parameters...), Arguments... arguments) {
  const qn::WindowBackend* const backend = windowBackend.load(std::memory_order_acquire);
  if (!backend) {
    SetLastError(ERROR_INVALID_WINDOW_HANDLE);
    return Result{};
  }
  return (backend->*operation)(arguments...);
}

}  // namespace

namespace qn {

const WindowBackend* SetWindowBackend(const WindowBackend* backend) {
  return windowBackend.exchange(backend, std::memory_order_acq_rel);
}

}  // namespace qn

inline namespace qnplatform {

BOOL SetWindowTextW(HWND window, const WCHAR* text) {
  return Call(&qn::WindowBackend::setWindowText, window, text);
}

int GetWindowTextLengthW(HWND window) {
  return Call(&qn::WindowBackend::getWindowTextLength, window);
}

HWND GetDlgItem(HWND dialog, int item) {
  return Call(&qn::WindowBackend::getDlgItem, dialog, item);
}

BOOL SetDlgItemTextW(HWND dialog, int item, const WCHAR* text) {
  const HWND window = GetDlgItem(dialog, item);
  return window && SetWindowTextW(window, text);
}

UINT GetDlgItemTextW(HWND dialog, int item, WCHAR* text, int size) {
  if (!text || size <= 0) return 0;
  text[0] = 0;
  const HWND window = GetDlgItem(dialog, item);
  return window ? static_cast<UINT>(Call(&qn::WindowBackend::getWindowText, window, text, size)) : 0;
}

LRESULT SendMessageW(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  return Call(&qn::WindowBackend::sendMessage, window, message, wParam, lParam);
}

BOOL SetProcessDefaultLayout(DWORD layout) {
  if (layout > LAYOUT_RTL) return qn::FailWith(ERROR_INVALID_PARAMETER);
  processLayout.store(layout, std::memory_order_relaxed);
  return TRUE;
}

BOOL GetProcessDefaultLayout(DWORD* layout) {
  if (!layout) return qn::FailWith(ERROR_INVALID_PARAMETER);
  *layout = processLayout.load(std::memory_order_relaxed);
  return TRUE;
}

HDC GetDC(HWND window) {
  return Call(&qn::WindowBackend::getDC, window);
}

int ReleaseDC(HWND window, HDC dc) {
  return Call(&qn::WindowBackend::releaseDC, window, dc);
}

HGDIOBJ SelectObject(HDC dc, HGDIOBJ object) {
  return Call(&qn::WindowBackend::selectObject, dc, object);
}

BOOL GetTextExtentPoint32W(HDC dc, const WCHAR* text, int length, SIZE* extent) {
  return Call(&qn::WindowBackend::getTextExtent, dc, text, length, extent);
}

}  // namespace qnplatform
