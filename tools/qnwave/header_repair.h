// The repair of a damaged header. The samples stay where they are.
//
// Where the format record and the place of the samples are known, only the fields that are wrong are written;
// everything else in the header stays: extensible records, many channels, other chunks. Only a file without a
// format chunk or without a way to its samples gets a new header, which knows the plain formats alone.
#pragma once

#include <optional>
#include <string>

#include "tools/qnwave/file.h"
#include "tools/qnwave/layout.h"
#include "tools/qnwave/sample_types.h"

namespace qnwave {

struct RepairOptions {
  AudioFormat defaults;           // for what the file does not tell any more
  std::optional<uint64_t> limit;  // the largest offset at which the samples may start
};

struct RepairPlan {
  bool rebuild = false;  // a new header, else fields alone
  uint64_t start = 0;    // of the samples
  bool startIsGuess = false;
  std::string done;  // what the repair does, for people
};

// What a repair of a damaged layout would do; nothing, with the reason in `*obstacle`, when it cannot be
// done.
std::optional<RepairPlan> PlanRepair(const File& file, const Layout& layout, const RepairOptions& options,
                                     qntool::Message* obstacle);

// Carries a plan out on a file that is open for change.
HRESULT CarryOut(const File& file, const Layout& layout, const RepairPlan& plan,
                 const RepairOptions& options);

}  // namespace qnwave
