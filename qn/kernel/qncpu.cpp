#include "qn/kernel/qncpu.h"

#include <algorithm>
#include <atomic>
#include <thread>

#include "qn/kernel/qncpu_internal.h"

#if defined(__x86_64__)
#include <cpuid.h>
#include <xmmintrin.h>
#endif

namespace {

constexpr DWORD kClassBits = 0x0000000F;
constexpr DWORD kInstructionSetBits = 0x00000FF0;
constexpr DWORD kAllBits = 0xFFFFFFFF;

// The masks take no lock: other threads may change them at any time, and each reader sees the old or the new
// value. Two threads that detect at once store the same results.
std::atomic<DWORD> g_CPUAllow{kAllBits};
std::atomic<DWORD> g_CPUClassOverride{0};
std::atomic<DWORD> g_CPUDetected{0};
std::atomic<DWORD> g_CPUHardware{0};  // no one asks for it; it is here for whoever looks with a debugger
std::atomic<DWORD> g_CPUOS{0};
std::atomic<DWORD> g_ProcessorCount{0};
std::atomic<bool> g_CPUDetectDone{false};

constexpr auto kRelaxed = std::memory_order_relaxed;

#if defined(__x86_64__)

qn::ProcessorReport ReadProcessor() {
  qn::ProcessorReport report;
  report.processorType = 8664;
  report.highestLeaf = __get_cpuid_max(0, nullptr);
  DWORD eax, ebx;
  __get_cpuid(1, &eax, &ebx, &report.leaf1Ecx, &report.leaf1Edx);
  return report;
}

constexpr DWORD kFlushToZeroAndDenormalsAreZero = 0x8040;

DWORD FloatModes() {
  return _mm_getcsr();
}
void SetFloatModes(DWORD modes) {
  _mm_setcsr(modes);
}

#else

constexpr DWORD kFlushToZeroAndDenormalsAreZero = 0;

DWORD FloatModes() {
  return 0;
}
void SetFloatModes(DWORD) {}

qn::ProcessorReport ReadProcessor() {
  return {};
}

#endif

void DetectProcessor() {
  const qn::ProcessorSupport support = qn::InterpretProcessor(ReadProcessor());
  // The thread that detects, as a rule the one that loads the library, keeps this mode: hosts rely on it.
  if (support.effective & QNCPU_DAZ) SetFloatModes(FloatModes() | kFlushToZeroAndDenormalsAreZero);
  g_ProcessorCount.store(std::max(1u, std::thread::hardware_concurrency()), kRelaxed);
  g_CPUHardware.store(support.hardware, kRelaxed);
  g_CPUOS.store(support.os, kRelaxed);
  g_CPUDetected.store(support.effective, kRelaxed);
  g_CPUDetectDone.store(true, std::memory_order_release);
}

void DetectOnce() {
  if (!g_CPUDetectDone.load(std::memory_order_acquire)) DetectProcessor();
}

DWORD FilterOrAll(DWORD filter) {
  return filter ? filter : kAllBits;
}

}  // namespace

namespace qn {

ProcessorSupport InterpretProcessor(const ProcessorReport& report) {
  constexpr DWORD kEdxFpu = 1u << 0;
  constexpr DWORD kEdxTsc = 1u << 4;
  constexpr DWORD kEdxCmov = 1u << 15;
  constexpr DWORD kEdxMmx = 1u << 23;
  constexpr DWORD kEdxSse = 1u << 25;
  constexpr DWORD kEdxSse2 = 1u << 26;
  constexpr DWORD kEcxAvx = 1u << 28;
  constexpr struct {
    DWORD ecx;
    DWORD support;
  } kLaterSets[] = {
      {1u << 0, QNCPU_SSE3}, {1u << 9, QNCPU_SSSE3}, {1u << 19, QNCPU_SSE41}, {1u << 20, QNCPU_SSE42}};

  const bool hasCpuid = report.processorType == 586 || report.processorType == 8664;
  const bool hasLeaf1 = hasCpuid && report.highestLeaf >= 1;
  const DWORD edx = hasLeaf1 ? report.leaf1Edx : 0;
  const DWORD ecx = hasLeaf1 ? report.leaf1Ecx : 0;

  // The class ends at 3 here. The classes 4 to 6 come from QnSetCPUClassBySupport alone.
  DWORD processorClass = 0;
  if (report.processorType == 486) processorClass = 1;
  if (report.processorType == 586) processorClass = 2;

  ProcessorSupport support;
  const auto setEverywhereButOs = [&support](DWORD bits) {
    support.hardware |= bits;
    support.effective |= bits;
  };
  if (edx & kEdxTsc) setEverywhereButOs(QNCPU_TSC);
  if (edx & kEdxCmov) {
    setEverywhereButOs(QNCPU_CMOV);
    if (edx & kEdxFpu) {
      setEverywhereButOs(QNCPU_FPUCMOV);
      processorClass = 3;
    }
  }
  // MMX and AVX never become effective: no kernel selects on them.
  if (edx & kEdxMmx) {
    support.hardware |= QNCPU_MMX;
    support.os |= QNCPU_MMX;
  }
  // Every system that runs this code saves the SSE state, so SSE runs wherever the processor has it and a
  // write of the denormal modes to MXCSR is taken.
  const bool sseRuns = (edx & kEdxSse) != 0;
  if (sseRuns) {
    setEverywhereButOs(QNCPU_SSE | QNCPU_DAZ);
    support.os |= QNCPU_SSE;
  }
  if (edx & kEdxSse2) {
    support.hardware |= QNCPU_SSE2;
    if (sseRuns) {
      support.os |= QNCPU_SSE2;
      support.effective |= QNCPU_SSE2;
    }
  }
  for (const auto& set : kLaterSets) {
    if (ecx & set.ecx) support.hardware |= set.support;
    if (sseRuns) support.os |= set.support;  // the system lets it run, whether or not the processor can
    support.effective |= support.hardware & support.os & set.support;
  }
  if (ecx & kEcxAvx) support.hardware |= QNCPU_AVX;
  support.effective |= processorClass;
  return support;
}

void DetectProcessorAtAttach() {
  if (g_CPUDetectDone.load(std::memory_order_acquire)) return;
  DetectProcessor();
  g_CPUDetected.store(
      (g_CPUDetected.load(kRelaxed) & g_CPUAllow.load(kRelaxed)) | g_CPUClassOverride.load(kRelaxed),
      kRelaxed);
}

bool DetectedDaz() {
  return (g_CPUDetected.load(kRelaxed) & QNCPU_DAZ) != 0;
}

DenormalsShown::DenormalsShown() : saved_(FloatModes()) {
  SetFloatModes(saved_ & ~kFlushToZeroAndDenormalsAreZero);
}

DenormalsShown::~DenormalsShown() {
  SetFloatModes(saved_);
}

}  // namespace qn

BOOL QnAllowCPUSupport(DWORD bits) {
  g_CPUAllow.fetch_or(bits, kRelaxed);
  return 1;
}

BOOL QnDisallowCPUSupport(DWORD bits) {
  g_CPUAllow.fetch_and(~bits, kRelaxed);
  return 1;
}

BOOL QnOnlyAllowCPUSupport(DWORD bits) {
  if (bits & ~kInstructionSetBits) return 0;
  g_CPUAllow.store((g_CPUAllow.load(kRelaxed) & ~kInstructionSetBits) | bits, kRelaxed);
  return 1;
}

BOOL QnSetCPUClassBySupport() {
  const DWORD allow = g_CPUAllow.fetch_and(~kClassBits, kRelaxed);
  DWORD processorClass = 0;
  if (allow & QNCPU_MMX) processorClass = 4;
  if (allow & QNCPU_SSE) processorClass = 5;
  if (allow & QNCPU_SSE2) processorClass = 6;
  g_CPUClassOverride.store(processorClass, kRelaxed);
  return 1;
}

DWORD QnGetCPUSupport(DWORD filter) {
  DetectOnce();
  return (FilterOrAll(filter) & g_CPUAllow.load(kRelaxed) & g_CPUDetected.load(kRelaxed)) |
         g_CPUClassOverride.load(kRelaxed);
}

DWORD QnGetOSSupport(DWORD filter) {
  DetectOnce();
  return FilterOrAll(filter) & g_CPUOS.load(kRelaxed);
}

DWORD QnGetProcessorCount() {
  DetectOnce();
  return g_ProcessorCount.load(kRelaxed);
}
