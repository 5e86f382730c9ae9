// What the library says of the system: its version, the version of a file, the depth of the screens.

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <string_view>

#include "qn/kernel/qnkernel_internal.h"
#include "qn/platform/memory.h"
#include "qn/platform/system.h"
#include "qn/platform/wingdi.h"
#include "qn/settings/qnstatus.h"
#include "qn/text/qnprint.h"

namespace {

bool IsAtLeast(WORD major, WORD minor) {
  return IsWindowsVersionOrGreater(major, minor, 0) != 0;
}

bool IsWindows11() {
  constexpr DWORD kFirstBuild = 22000;
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  if (!IsAtLeast(10, 0) || RtlGetVersion(&version) < 0) return false;
  if (version.dwMajorVersion != 10) return version.dwMajorVersion > 10;
  return version.dwMinorVersion > 0 || version.dwBuildNumber >= kFirstBuild;
}

// Null for a system without a name.
const WCHAR* SystemName() {
  if (IsWindows11()) return W("Windows 11.0");
  if (IsAtLeast(10, 0)) return W("Windows 10.0");
  if (IsAtLeast(6, 3)) return W("Windows 8.1");
  if (IsAtLeast(6, 2)) return W("Windows 8");
  // The name behind this is 6.2 again, which never comes here: hosts rely on 6.1 and older being unknown.
  return nullptr;
}

const WCHAR* ArchitectureSuffix() {
  SYSTEM_INFO information{};
  GetNativeSystemInfo(&information);
  switch (information.wProcessorArchitecture) {
    case PROCESSOR_ARCHITECTURE_INTEL:
      return W(" (32-bit)");
    case PROCESSOR_ARCHITECTURE_AMD64:
      return W(" (64-bit)");
    default:
      return W("");
  }
}

// Writes `text` at `length` of a buffer, cut to what is left of `size`, and moves `length` on.
void Append(WCHAR* buffer, int size, int* length, std::u16string_view text) {
  *length += static_cast<int>(text.copy(buffer + *length, static_cast<size_t>(size - 1 - *length)));
  buffer[*length] = 0;
}

// The version block of a file.
class VersionBlock {
 public:
  bool Read(const WCHAR* path) {
    size_ = GetFileVersionInfoSizeW(path, nullptr);
    if (size_ == 0) return false;
    memory_.reset(GlobalAlloc(GHND, size_));
    data_ = memory_ ? static_cast<const BYTE*>(GlobalLock(memory_.get())) : nullptr;
    return data_ && GetFileVersionInfoW(path, 0, size_, const_cast<BYTE*>(data_));
  }

  bool FindText(const WCHAR* name, std::u16string_view* text) const {
    void* found = nullptr;
    UINT length = 0;
    WORD translation[2];
    if (!VerQueryValueW(data_, W("\\VarFileInfo\\Translation"), &found, &length)) return false;
    if (length < sizeof translation) return false;
    std::memcpy(translation, found, sizeof translation);
    WCHAR key[128];
    QnCchPrintF(key, 128, nullptr, W("\\StringFileInfo\\%04hX%04hX\\%s"), translation[0], translation[1],
                name);
    if (!VerQueryValueW(data_, key, &found, &length)) return false;
    // A value that the file does not call a text need not end.
    const auto* const start = static_cast<const BYTE*>(found);
    const size_t room = (size_ - static_cast<size_t>(start - data_)) / sizeof(WCHAR);
    *text = {reinterpret_cast<const WCHAR*>(start), std::min<size_t>(length, room)};
    *text = text->substr(0, text->find(W('\0')));
    return true;
  }

 private:
  struct Free {
    void operator()(HGLOBAL memory) const {
      GlobalUnlock(memory);
      GlobalFree(memory);
    }
  };
  std::unique_ptr<void, Free> memory_;
  const BYTE* data_ = nullptr;
  DWORD size_ = 0;
};

constexpr int kHighColorBits = 16;
constexpr int kNotAsked = -1;
constinit std::atomic<int> g_isHighColor = kNotAsked;
constinit std::atomic<int> g_isAllMonitorsHighColor = kNotAsked;

int AskHighColor() {
  const HDC dc = GetDC(nullptr);
  const bool isHigh = GetDeviceCaps(dc, BITSPIXEL) >= kHighColorBits;
  if (dc) ReleaseDC(nullptr, dc);
  return isHigh;
}

BOOL AskMonitor(HMONITOR monitor, HDC, RECT*, LPARAM data) {
  MONITORINFOEXW information{};
  information.cbSize = sizeof information;
  if (!GetMonitorInfoW(monitor, &information)) return TRUE;
  const HDC dc = CreateDCW(W("DISPLAY"), information.szDevice, nullptr, nullptr);
  if (!dc) return TRUE;
  const int bits = GetDeviceCaps(dc, BITSPIXEL);
  if (bits > 0 && bits < kHighColorBits) *reinterpret_cast<int*>(data) = FALSE;
  DeleteDC(dc);
  return TRUE;
}

int AskAllMonitors() {
  int allHigh = TRUE;
  EnumDisplayMonitors(nullptr, nullptr, AskMonitor, reinterpret_cast<LPARAM>(&allHigh));
  return allHigh;
}

BOOL AskOnce(std::atomic<int>* answer, int (*ask)()) {
  if (answer->load() == kNotAsked) answer->store(ask());
  return answer->load();
}

}  // namespace

void qn::RefreshHighColor() {
  g_isHighColor = AskHighColor();
  g_isAllMonitorsHighColor = AskAllMonitors();
}

BOOL QnOSVersionOK(DWORD level) {
  switch (level) {
    case 6:
      return IsAtLeast(5, 1);
    case 7:
      return IsAtLeast(6, 0);
    case 8:
      return IsAtLeast(6, 1);
    case 9:
      return IsAtLeast(6, 2);
    case 10:
      return IsAtLeast(10, 0);
    case 11:
      return IsWindows11();
    default:
      return FALSE;
  }
}

BOOL QnGetOS(WCHAR* text, int size) {
  const bool hasRoom = text && size >= 1;
  const WCHAR* const name = SystemName();
  if (!name) {
    // Hosts compare with this spelling.
    if (hasRoom) QnCchPrintF(text, size, nullptr, W("Unknown Versoin"));
    return FALSE;
  }
  if (hasRoom) {
    int length = 0;
    Append(text, size, &length, name);
    Append(text, size, &length, ArchitectureSuffix());
  }
  return TRUE;
}

BOOL QnIsOS64Bit() {
  return TRUE;  // nothing to ask: this code runs nowhere else
}

HRESULT QnVersion_GetString(const WCHAR* path, const WCHAR* name, WCHAR* text, int size) {
  VersionBlock block;
  std::u16string_view value;
  if (!path || !name || !*name || (!text && size > 0)) return QN_E_NOT_FOUND;
  if (!block.Read(path) || !block.FindText(name, &value)) return QN_E_NOT_FOUND;
  int length = 0;
  if (size > 0) Append(text, size, &length, value);
  return S_OK;
}

BOOL QnIsHighColor() {
  return AskOnce(&g_isHighColor, AskHighColor);
}

BOOL QnIsAllMonitorsHighColor() {
  return AskOnce(&g_isAllMonitorsHighColor, AskAllMonitors);
}
