#include "qn/kernel/qncpu.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "qn/kernel/qncpu_internal.h"

namespace {

TEST(Cpu, InterpretsWhatAProcessorReports) {
  constexpr DWORD kEdx = 0x06808011;  // FPU, TSC, CMOV, MMX, SSE, SSE2
  constexpr DWORD kEcx = 0x10180201;  // SSE3, SSSE3, SSE4.1, SSE4.2, AVX
  // The masks of the hardware, of the system, and what is effective.
  const std::pair<qn::ProcessorReport, std::array<DWORD, 3>> cases[] = {
      {{8664, 13, kEdx, kEcx}, {0x27FF0, 0x7F0, 0x277E3}},  // neither MMX nor AVX become effective
      {{486, 1, kEdx, kEcx}, {0, 0, 1}},                    // no CPUID
      {{8664, 0, kEdx, kEcx}, {0, 0, 0}},
      {{586, 1, 1u << 15, 0}, {0x1000, 0, 0x1002}},         // CMOV without FPU
      {{8664, 1, 1u << 25, 0}, {0x20020, 0x7A0, 0x20020}},  // SSE: the system would run what follows
      {{8664, 1, 1u << 26, kEcx}, {0xFC0, 0, 0}},           // all but SSE
  };
  for (const auto& [report, masks] : cases) {
    const qn::ProcessorSupport support = qn::InterpretProcessor(report);
    EXPECT_EQ((std::array{support.hardware, support.os, support.effective}), masks);
  }
}

TEST(Cpu, DetectsOnceAndFiltersByMasks) {
#if defined(__x86_64__)
  if (!qn::DetectedDaz()) {  // nothing has detected yet in this process
    const auto modes = [] { return __builtin_ia32_stmxcsr() & 0x8040; };
    unsigned inOther = 0;
    std::thread([&] { inOther = (QnGetProcessorCount(), modes()); }).join();
    EXPECT_EQ(inOther, 0x8040u);
    QnGetCPUSupport(0);  // the other thread has detected: this one is left alone
    EXPECT_EQ(modes(), 0u);
  }
#endif
  const DWORD detected = QnGetCPUSupport(0), os = QnGetOSSupport(0);
  EXPECT_EQ(QnGetCPUSupport(0x20), detected & 0x20);
  QnDisallowCPUSupport(QNCPU_SSE2);
  EXPECT_EQ(QnGetCPUSupport(0), detected & ~QNCPU_SSE2);
  QnAllowCPUSupport(QNCPU_SSE2);
  EXPECT_EQ(QnOnlyAllowCPUSupport(0x1010), 0);
  EXPECT_EQ(QnGetCPUSupport(0), detected);
  // The class follows the highest allowed set.
  const DWORD cases[][2] = {{0x10, 4}, {0x30, 5}, {0x50, 6}, {0x80, 0}, {0, 0}};
  for (const auto& [allowed, processorClass] : cases) {
    EXPECT_EQ(QnOnlyAllowCPUSupport(allowed), 1);
    QnSetCPUClassBySupport();
    EXPECT_EQ(QnGetCPUSupport(0), (detected & (allowed | ~0xFFFu)) | processorClass);
    EXPECT_EQ(QnGetCPUSupport(0x80000000), processorClass);
  }
  QnDisallowCPUSupport(0xFFFFFFFF);
  EXPECT_EQ(QnGetCPUSupport(0), 0u);
  EXPECT_EQ(QnGetOSSupport(0), os);
  EXPECT_EQ(qn::DetectedDaz(), (detected & QNCPU_DAZ) != 0);
  QnAllowCPUSupport(0xFFFFFFFF);
}

}  // namespace
