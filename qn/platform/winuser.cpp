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
  if (!backend || !(backend->*operation)) {
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

int MessageBoxW(HWND owner, const WCHAR* text, const WCHAR* caption, UINT flags) {
  return Call(&qn::WindowBackend::messageBox, owner, text, caption, flags);
}

HWND GetLastActivePopup(HWND window) {
  return Call(&qn::WindowBackend::getLastActivePopup, window);
}

int GetClassNameW(HWND window, WCHAR* text, int size) {
  return Call(&qn::WindowBackend::getClassName, window, text, size);
}

int GetWindowTextW(HWND window, WCHAR* text, int size) {
  return Call(&qn::WindowBackend::getWindowText, window, text, size);
}

HHOOK SetWindowsHookExW(int kind, HOOKPROC procedure, HANDLE module, DWORD threadId) {
  return Call(&qn::WindowBackend::setHook, kind, procedure, module, threadId);
}

BOOL UnhookWindowsHookEx(HHOOK hook) {
  return Call(&qn::WindowBackend::unhook, hook);
}

LRESULT CallNextHookEx(HHOOK hook, int code, WPARAM wParam, LPARAM lParam) {
  return Call(&qn::WindowBackend::callNextHook, hook, code, wParam, lParam);
}

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

BOOL GetClientRect(HWND window, RECT* place) {
  return Call(&qn::WindowBackend::getClientRect, window, place);
}

HCURSOR LoadCursorW(HMODULE module, const WCHAR* name) {
  return Call(&qn::WindowBackend::loadCursor, module, name);
}

HCURSOR SetCursor(HCURSOR cursor) {
  return Call(&qn::WindowBackend::setCursor, cursor);
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

int GetDeviceCaps(HDC dc, int index) {
  const qn::WindowBackend* const backend = windowBackend.load(std::memory_order_acquire);
  if (!backend) return index == BITSPIXEL ? 32 : 0;
  return Call(&qn::WindowBackend::getDeviceCaps, dc, index);
}

HDC CreateDCW(const WCHAR* driver, const WCHAR* device, const WCHAR* output, const void* mode) {
  return Call(&qn::WindowBackend::createDC, driver, device, output, mode);
}

BOOL DeleteDC(HDC dc) {
  return Call(&qn::WindowBackend::deleteDC, dc);
}

BOOL EnumDisplayMonitors(HDC, const RECT*, MONITORENUMPROC procedure, LPARAM data) {
  return Call(&qn::WindowBackend::enumMonitors, procedure, data);
}

BOOL GetMonitorInfoW(HMONITOR monitor, MONITORINFOEXW* information) {
  return Call(&qn::WindowBackend::getMonitorInfo, monitor, information);
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
