#include <algorithm>
#include <atomic>
#include <thread>
#include <tuple>

#include "qn/platform/system_internal.h"

namespace {

#if defined(__x86_64__)
constexpr WORD kArchitecture = PROCESSOR_ARCHITECTURE_AMD64;
#elif defined(__aarch64__)
constexpr WORD kArchitecture = PROCESSOR_ARCHITECTURE_ARM64;
#else
constexpr WORD kArchitecture = PROCESSOR_ARCHITECTURE_INTEL;
#endif

constexpr auto kUnsuccessful = static_cast<LONG>(0xC0000001);
constexpr auto kInvalidParameter = static_cast<LONG>(0xC000000D);

std::atomic<UINT> errorMode = 0;

}  // namespace

namespace qn {

SystemDescription& DescribedSystem() {
  static constinit SystemDescription description = {10, 0, 22000, true, kArchitecture};
  return description;
}

}  // namespace qn

inline namespace qnplatform {

UINT SetErrorMode(UINT mode) {
  return errorMode.exchange(mode);
}

LONG RtlGetVersion(OSVERSIONINFOW* version) {
  if (!version) return kInvalidParameter;
  const qn::SystemDescription& system = qn::DescribedSystem();
  if (!system.versionReadable) return kUnsuccessful;
  version->dwMajorVersion = system.major;
  version->dwMinorVersion = system.minor;
  version->dwBuildNumber = system.build;
  return 0;
}

BOOL IsWindowsVersionOrGreater(WORD major, WORD minor, WORD servicePackMajor) {
  const qn::SystemDescription& system = qn::DescribedSystem();
  return std::tuple<DWORD, DWORD, WORD>(system.major, system.minor, 0) >=
         std::tuple<DWORD, DWORD, WORD>(major, minor, servicePackMajor);
}

void GetNativeSystemInfo(SYSTEM_INFO* information) {
  if (!information) return;
  information->wProcessorArchitecture = qn::DescribedSystem().architecture;
  information->dwNumberOfProcessors = std::max(1u, std::thread::hardware_concurrency());
}

}  // namespace qnplatform
