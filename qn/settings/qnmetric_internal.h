// The library's own metric handle, which stands behind QNMETRIC_DEFAULT.
#pragma once

#include "qn/platform/types.h"

namespace qn {

// Opens the handle at attach and closes it at detach.
HRESULT OpenKernelMetrics();
void CloseKernelMetrics();

}  // namespace qn
