#include "qn/kernel/qncpu.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "qn/kernel/qncpu_internal.h"

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

namespace {

TEST(CpuDetection, InterpretsWhatAProcessorReports) {
  constexpr DWORD kEdx = 0x06808011;  // FPU, TSC, CMOV, MMX, SSE, SSE2
  constexpr DWORD kEcx = 0x10180201;  // SSE3, SSSE3, SSE4.1, SSE4.2, AVX
  const struct {
    qn::ProcessorReport report;
    DWORD hardware, os, effective;
  } cases[] = {
      {{8664, 13, kEdx, kEcx}, 0x27FF0, 0x7F0, 0x277E3},  // neither MMX nor AVX become effective
      {{586, 1, 0, 0}, 0, 0, 2},
      {{486, 1, kEdx, kEcx}, 0, 0, 1},  // no CPUID
      {{8664, 0, kEdx, kEcx}, 0, 0, 0},
      {{586, 1, 1u << 15, 0}, 0x1000, 0, 0x1002},         // CMOV without FPU
      {{8664, 1, 1u << 25, 0}, 0x20020, 0x7A0, 0x20020},  // SSE: the system would run what follows
      {{8664, 1, 1u << 26, kEcx}, 0xFC0, 0, 0},           // all but SSE
  };
  for (const auto& [report, hardware, os, effective] : cases) {
    const qn::ProcessorSupport support = qn::InterpretProcessor(report);
    EXPECT_EQ(support.hardware, hardware);
    EXPECT_EQ(support.os, os);
    EXPECT_EQ(support.effective, effective);
  }
}

// Each test starts from the masks as they are at load and leaves them so.
class CpuMasks : public testing::Test {
 protected:
  CpuMasks() { Reset(); }
  ~CpuMasks() override { Reset(); }

  static void Reset() {
    QnDisallowCPUSupport(0xFFFFFFFF);
    QnSetCPUClassBySupport();
    QnAllowCPUSupport(0xFFFFFFFF);
  }
};

TEST_F(CpuMasks, AllowMaskFiltersTheDetectedOne) {
  const DWORD detected = QnGetCPUSupport(0);
  EXPECT_EQ(QnGetCPUSupport(0x20), detected & 0x20);
  EXPECT_EQ(qn::DetectedDaz(), (detected & QNCPU_DAZ) != 0);

  EXPECT_EQ(QnDisallowCPUSupport(QNCPU_SSE2), 1);
  EXPECT_EQ(QnGetCPUSupport(0), detected & ~QNCPU_SSE2);
  EXPECT_EQ(QnAllowCPUSupport(QNCPU_SSE2), 1);
  EXPECT_EQ(QnGetCPUSupport(0), detected);

  EXPECT_EQ(QnOnlyAllowCPUSupport(0x1010), 0);
  EXPECT_EQ(QnGetCPUSupport(0), detected);
  EXPECT_EQ(QnOnlyAllowCPUSupport(0), 1);
  EXPECT_EQ(QnGetCPUSupport(0), detected & ~0xFF0u);

  const DWORD os = QnGetOSSupport(0);
  QnDisallowCPUSupport(0xFFFFFFFF);
  EXPECT_EQ(QnGetCPUSupport(0), 0u);
  EXPECT_EQ(QnGetOSSupport(0), os);
  EXPECT_EQ(QnGetOSSupport(QNCPU_SSE), os & QNCPU_SSE);
  EXPECT_EQ(qn::DetectedDaz(), (detected & QNCPU_DAZ) != 0);
  EXPECT_EQ(QnGetProcessorCount(), std::max(1u, std::thread::hardware_concurrency()));
}

TEST_F(CpuMasks, ClassFollowsTheHighestAllowedSet) {
  const DWORD detected = QnGetCPUSupport(0);
  const DWORD cases[][2] = {{0x10, 4}, {0x20, 5}, {0x30, 5}, {0x50, 6}, {0xFF0, 6}, {0x80, 0}};
  for (const auto& [allowed, processorClass] : cases) {
    Reset();
    QnOnlyAllowCPUSupport(allowed);
    EXPECT_EQ(QnSetCPUClassBySupport(), 1);
    EXPECT_EQ(QnGetCPUSupport(0), (detected & (allowed | ~0xFFFu)) | processorClass);
    EXPECT_EQ(QnGetCPUSupport(0x80000000), processorClass);
  }
}

#if defined(__x86_64__)
TEST(CpuDetectionDeathTest, DetectingThreadKeepsFlushToZero) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";  // a process in which nothing has detected yet
  const auto detect = [] {
    constexpr unsigned kModes = 0x8040;
    unsigned inOther = kModes;
    const bool early = qn::DetectedDaz() || (_mm_getcsr() & kModes) != 0;
    std::thread([&inOther] {
      QnGetProcessorCount();
      inOther = _mm_getcsr() & kModes;
    }).join();
    QnGetCPUSupport(0);  // the other thread has detected: this one is left alone
    std::exit(early || inOther != kModes || (_mm_getcsr() & kModes) != 0 || !qn::DetectedDaz());
  };
  EXPECT_EXIT(detect(), testing::ExitedWithCode(0), "");
}
#endif

}  // namespace
