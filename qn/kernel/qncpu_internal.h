// Processor detection as a pure function, and what kernels read of its result.
#pragma once

#include "qn/kernel/qncpu.h"

namespace qn {

// What a processor says of itself. Only the types 586 and 8664 have CPUID.
struct ProcessorReport {
  DWORD processorType = 0;  // 386, 486, 586 or 8664 (x86-64); anything else is none of these
  DWORD highestLeaf = 0;    // CPUID leaf 0, EAX
  DWORD leaf1Edx = 0;
  DWORD leaf1Ecx = 0;
};

// The masks that follow, see QNCPU_*.
struct ProcessorSupport {
  DWORD hardware = 0;   // what the processor reports
  DWORD os = 0;         // what the operating system lets run
  DWORD effective = 0;  // what kernels may use, with the processor class in the low four bits
};

ProcessorSupport InterpretProcessor(const ProcessorReport& report);

// Attach's part: detects unless some query has already done so, and stores (allow mask AND result) OR class
// override as what is detected.
void DetectProcessorAtAttach();

// True when detection has run and found QNCPU_DAZ. The allow mask plays no part: it chooses kernels, while
// this tells a chosen vector kernel how to set MXCSR.
bool DetectedDaz();

// Shows a thread its denormals while it stands, whatever detection has switched on there: a number that
// becomes text is no sample.
class DenormalsShown {
 public:
  DenormalsShown();
  ~DenormalsShown();
  DenormalsShown(const DenormalsShown&) = delete;
  DenormalsShown& operator=(const DenormalsShown&) = delete;

 private:
  DWORD saved_ = 0;
};

}  // namespace qn
