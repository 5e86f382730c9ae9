// What the library asks of the system as a whole: its version, its processor, how it treats failures.
//
// The version is that of the published interface that this platform layer follows, 10.0 build 22000 and newer
// of its own line, not the Linux kernel's: a host that asks for an older level gets yes.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

constexpr UINT SEM_FAILCRITICALERRORS = 0x0001;
constexpr UINT SEM_NOOPENFILEERRORBOX = 0x8000;

// Replaces the process's error mode, which hosts may read, and returns the one before. Linux shows no boxes
// of its own that it could hold back.
QN_API UINT SetErrorMode(UINT mode);

struct OSVERSIONINFOW {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
};

// The version; `dwOSVersionInfoSize` is not looked at. 0, or a negative status.
QN_API LONG RtlGetVersion(OSVERSIONINFOW* version);

// Nonzero if the version is at least that one.
QN_API BOOL IsWindowsVersionOrGreater(WORD major, WORD minor, WORD servicePackMajor);

constexpr WORD PROCESSOR_ARCHITECTURE_INTEL = 0;
constexpr WORD PROCESSOR_ARCHITECTURE_AMD64 = 9;
constexpr WORD PROCESSOR_ARCHITECTURE_ARM64 = 12;

struct SYSTEM_INFO {
  WORD wProcessorArchitecture;
  DWORD dwNumberOfProcessors;
};

QN_API void GetNativeSystemInfo(SYSTEM_INFO* information);

}  // namespace qnplatform
