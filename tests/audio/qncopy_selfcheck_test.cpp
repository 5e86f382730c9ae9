// The self-check: it passes, and it finds and reports what is wrong.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "qn/audio/qncopy_selfcheck_internal.h"
#include "qn/kernel/qncpu.h"
#include "qn/settings/qnerror.h"
#include "qn/settings/qnmsgbox.h"

namespace {

using qn::SelfCheckHooks;

// What the hooks saw.
struct Seen {
  std::vector<int> rows;
  std::vector<std::u16string> shown;
  int cursor = 0;
  int allocations = 0;
  HRESULT recorded = E_UNEXPECTED;
} seen;
qn::CopySelfCheckHooks saved;

const HWND kWindow = reinterpret_cast<HWND>(&seen);

// Hooks that watch, put back at the end of a test.
class CopySelfCheck : public testing::Test {
 protected:
  void SetUp() override {
    saved = SelfCheckHooks();
    seen = Seen();
    auto& hooks = SelfCheckHooks();
    hooks.showWaitCursor = []() -> void* {
      ++seen.cursor;
      return &seen.cursor;
    };
    hooks.restoreCursor = [](void* before) { seen.cursor -= before == &seen.cursor ? 1 : 100; };
    hooks.record = [](HRESULT status, const WCHAR* format, int row) {
      EXPECT_TRUE(status == E_UNEXPECTED && seen.cursor == 1);
      EXPECT_EQ(saved.record(status, format, row), status);
      seen.rows.push_back(row);
      return seen.recorded;
    };
    _QnMsgBoxSetAppData(nullptr, nullptr, W(""));
    QnMsgBoxSetNoUIHook([](const WCHAR* text) { seen.shown.push_back(text); });
    QnErrorHandler_DetailsInit();
  }
  void TearDown() override {
    EXPECT_EQ(seen.cursor, 0);
    QnMsgBoxSetNoUIHook(nullptr);
    SelfCheckHooks() = saved;
  }
};

// Rows 2 and 9 are 16-bit by way of float and double; 14 and 16 the same for a processor of class 6.
TEST_F(CopySelfCheck, NamesTheRowsThatFail) {
  SelfCheckHooks().findKernel = [](QNSAMPLETYPE dst, QNSAMPLETYPE src, bool vector) -> QNCOPYFUNCTION {
    const bool broken = dst == QNST_PCM16 && (src == QNST_FLOAT32 || src == QNST_FLOAT64);
    const QNCOPYFUNCTION wrong = [](void* to, const void*, LONG samples, float) {
      std::fill_n(static_cast<int16_t*>(to), samples, 1);
    };
    return broken ? wrong : saved.findKernel(dst, src, vector);
  };
  EXPECT_EQ(QnAudioCopy_UnitTest(nullptr), E_UNEXPECTED);
  EXPECT_EQ(seen.rows, (std::vector<int>{2, 9}));
  EXPECT_EQ(
      QnErrorHandler_DetailsInfo(nullptr, nullptr, nullptr),
      std::u16string(W("QnAudioCopy_UnitTest node[2] failed.\r\nQnAudioCopy_UnitTest node[9] failed.\r\n")));
  QnSetCPUClassBySupport();
  EXPECT_EQ(QnAudioCopy_UnitTest(kWindow), 0);
  EXPECT_EQ(QnGetCPUSupport(0) & 0xF, 6u);
  QnDisallowCPUSupport(0xFF0);
  QnSetCPUClassBySupport();  // no class is forced any more
  QnAllowCPUSupport(0xFFF);
  EXPECT_EQ(seen.rows, (std::vector<int>{2, 9, 2, 9, 14, 16}));
  EXPECT_EQ(seen.shown, (std::vector<std::u16string>{W("INTERNAL: AudioCopy unit test failed!")}));

  seen.recorded = QN_E_CANCELLED;  // nothing to show
  EXPECT_EQ(QnAudioCopy_UnitTest(kWindow), 0);
  EXPECT_EQ(seen.shown.size(), 1u);
}

TEST_F(CopySelfCheck, FindsNothingWrongOrEndsWhenMemoryDoes) {
  EXPECT_EQ(QnAudioCopy_UnitTest(kWindow), 1);
  SelfCheckHooks().allocate = [](size_t bytes) {
    return ++seen.allocations == 8 ? nullptr : std::malloc(bytes);
  };
  EXPECT_EQ(QnAudioCopy_UnitTest(nullptr), E_OUTOFMEMORY);
  EXPECT_LE(seen.allocations, 9);
  EXPECT_TRUE(seen.rows.empty() && seen.shown.empty());
}

}  // namespace
