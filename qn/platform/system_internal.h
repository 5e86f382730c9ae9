// The version and the processor that the system reports, replaceable by tests.
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

// In use by all functions of system.h; takes no lock: set it before other threads ask, and set it back.
SystemDescription& DescribedSystem();

}  // namespace qn
