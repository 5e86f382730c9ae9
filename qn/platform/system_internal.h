// The version that the system reports, replaceable by tests.
#pragma once

#include "qn/platform/system.h"

namespace qn {

struct SystemDescription {
  DWORD major;
  DWORD minor;
  DWORD build;
  bool versionReadable;  // false: RtlGetVersion fails
  WORD architecture;     // PROCESSOR_ARCHITECTURE_*
};

// In use by all functions of system.h; set before other threads ask.
SystemDescription& DescribedSystem();

}  // namespace qn
