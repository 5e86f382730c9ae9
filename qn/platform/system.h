// What the library asks of the system as a whole: its version, its processor, how it treats failures.
//
// The version is that of the published interface which this platform layer follows, 10.0 build 22000, and not
// the Linux kernel's: a host asks for a level to learn whether it may rely on what came with it, and all
// levels that can be asked for name systems no newer than the one at hand.
#pragma once

#include "qn/platform/types.h"

inline namespace qnplatform {

constexpr UINT SEM_FAILCRITICALERRORS = 0x0001;
constexpr UINT SEM_NOOPENFILEERRORBOX = 0x8000;

// Replaces the process's error mode, at first 0, and returns the one before. It is kept for hosts that read
// it back: Linux shows no boxes of its own that it could hold back.
QN_API UINT SetErrorMode(UINT mode);

struct OSVERSIONINFOW {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
};

// Fills in the version; `dwOSVersionInfoSize` is neither read nor written. 0, or a negative status for null
// or when the version cannot be told.
QN_API LONG RtlGetVersion(OSVERSIONINFOW* version);

// Nonzero if the version, which has no service pack, is at least that one: compared as the triple of all
// three numbers.
QN_API BOOL IsWindowsVersionOrGreater(WORD major, WORD minor, WORD servicePackMajor);

constexpr WORD PROCESSOR_ARCHITECTURE_INTEL = 0;
constexpr WORD PROCESSOR_ARCHITECTURE_AMD64 = 9;
constexpr WORD PROCESSOR_ARCHITECTURE_ARM64 = 12;

struct SYSTEM_INFO {
  WORD wProcessorArchitecture;  // PROCESSOR_ARCHITECTURE_*, of the library itself
  DWORD dwNumberOfProcessors;   // at least 1
};

// Fills in the processor; null is ignored.
QN_API void GetNativeSystemInfo(SYSTEM_INFO* information);

}  // namespace qnplatform
