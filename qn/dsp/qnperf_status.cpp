// The statuses of the vector operations as result codes.
#include <iterator>

#include "qn/dsp/qnperf.h"

namespace {

constexpr LONG kFirst = 0x4E600;
constexpr LONG kSuccess = 0x40000;

HRESULT Failure(DWORD code) {
  return MakeStatus(0x80040000 | code);
}

}  // namespace

HRESULT QnPerfMapStatus(LONG status) {
  // Numbers of the library's own.
  if (status == -9999) return Failure(0xE6FF);
  if (status == -9998) return Failure(0xE700);
  const auto distance = static_cast<DWORD>(status < 0 ? -static_cast<LONGLONG>(status) : status);
  const DWORD code = distance + static_cast<DWORD>(kFirst);
  return status < 0 ? Failure(code) : static_cast<HRESULT>(code | static_cast<DWORD>(kSuccess));
}

HRESULT QnPerfStatusToHRESULT(LONG status) {
  return QnPerfMapStatus(status);
}

LONG QnPerfMapHintAlgorithm(LONG hint) {
  constexpr LONG kHints[] = {0, 1, 2};
  return hint >= 0 && hint < static_cast<LONG>(std::size(kHints)) ? kHints[hint] : 0;
}
