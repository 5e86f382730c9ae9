// The self-check of the copy kernels: every integer value to a float type and back, with half a unit added on
// the way, which pins the rounding of ties.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "qn/audio/qncopy_internal.h"
#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qncopy_selfcheck_internal.h"
#include "qn/kernel/qncpu.h"
#include "qn/settings/qnerror.h"
#include "qn/settings/qnmsgbox.h"

namespace qn {
namespace {

struct Row {
  QNSAMPLETYPE integer;
  QNSAMPLETYPE floating;
  bool vector;
  DWORD minClass;
};

constexpr Row kRows[] = {
    {QNST_PCM8U, QNST_FLOAT32, false, 0},     {QNST_PCM8S, QNST_FLOAT32, false, 0},
    {QNST_PCM16, QNST_FLOAT32, false, 0},     {QNST_PCM16BE, QNST_FLOAT32, false, 0},
    {QNST_PCM24, QNST_FLOAT32, false, 0},     {QNST_PCM24BE, QNST_FLOAT32, false, 0},
    {QNST_PCM24IN32, QNST_FLOAT32, false, 0}, {QNST_PCM8U, QNST_FLOAT64, false, 0},
    {QNST_PCM8S, QNST_FLOAT64, false, 0},     {QNST_PCM16, QNST_FLOAT64, false, 0},
    {QNST_PCM16BE, QNST_FLOAT64, false, 0},   {QNST_PCM24, QNST_FLOAT64, false, 0},
    {QNST_PCM24BE, QNST_FLOAT64, false, 0},   {QNST_PCM24IN32, QNST_FLOAT64, false, 0},
    {QNST_PCM16, QNST_FLOAT32, true, 6},      {QNST_PCM8U, QNST_FLOAT64, false, 6},
    {QNST_PCM16, QNST_FLOAT64, false, 6},
};

constexpr int32_t kChunk = 65536;

using Block = std::unique_ptr<uint8_t, void (*)(void*)>;
Block Allocate(size_t bytes) {
  return Block(static_cast<uint8_t*>(SelfCheckHooks().allocate(bytes)), SelfCheckHooks().release);
}

// Writes `count` values made by `value(i)` as samples of `type`. Unsigned and big-endian types are made from
// their plain signed sibling by its kernel.
template <typename Value>
void FillIntegers(QNSAMPLETYPE type, uint8_t* to, int32_t count, Value value) {
  const SampleForm& form = kSampleForms[SampleFormIndex(type)];
  const size_t bytes = static_cast<size_t>(form.bytes);
  for (int32_t i = 0; i < count; ++i) {
    const int32_t word = value(i);
    for (size_t b = 0; b < bytes; ++b)
      to[static_cast<size_t>(i) * bytes + b] = static_cast<uint8_t>(word >> (8 * b));
  }
  const QNSAMPLETYPE sibling = form.isOffset ? QNST_PCM8S : form.bytes == 2 ? QNST_PCM16 : QNST_PCM24;
  if (form.isOffset || form.isBigEndian)
    SelfCheckHooks().findKernel(type, sibling, false)(to, to, count, 1.0f);
}

template <typename T>
void AddHalfUnit(uint8_t* samples, int32_t count, int bits) {
  const T half = static_cast<T>(1.0 / PowerOfTwo(bits));
  for (int32_t i = 0; i < count; ++i) {
    uint8_t* const at = samples + static_cast<size_t>(i) * sizeof(T);
    const T x = std::clamp(LoadAs<T>(at) + half, T{-1}, T{1});
    std::memcpy(at, &x, sizeof x);
  }
}

// S_OK, E_UNEXPECTED for a mismatch or E_OUTOFMEMORY.
HRESULT CheckRow(const Row& row) {
  const QNCOPYFUNCTION forward = SelfCheckHooks().findKernel(row.floating, row.integer, row.vector);
  const QNCOPYFUNCTION backward = SelfCheckHooks().findKernel(row.integer, row.floating, row.vector);
  const SampleForm& form = kSampleForms[SampleFormIndex(row.integer)];
  const int32_t values = 1 << form.bits, lowest = -values / 2, highest = values / 2 - 1;
  const int32_t chunk = std::min(values, kChunk);
  const size_t bytes = static_cast<size_t>(chunk) * static_cast<size_t>(form.bytes);
  const Block integers = Allocate(bytes), again = Allocate(bytes);
  const Block floats = Allocate(static_cast<size_t>(chunk) * sizeof(double));
  if (!integers || !again || !floats) return E_OUTOFMEMORY;

  for (int32_t first = lowest; first <= highest; first += chunk) {
    FillIntegers(row.integer, integers.get(), chunk, [&](int32_t i) { return first + i; });
    forward(floats.get(), integers.get(), chunk, 1.0f);
    if (row.floating == QNST_FLOAT32) {
      AddHalfUnit<float>(floats.get(), chunk, form.bits);
    } else {
      AddHalfUnit<double>(floats.get(), chunk, form.bits);
    }
    // The same half unit on the integers, rounded to even: odd values go up by one.
    FillIntegers(row.integer, integers.get(), chunk,
                 [&](int32_t i) { return std::min(first + i + ((first + i) & 1), highest); });
    backward(again.get(), floats.get(), chunk, 1.0f);
    if (std::memcmp(integers.get(), again.get(), bytes) != 0) return E_UNEXPECTED;
  }
  return S_OK;
}

// The wait cursor for the length of a scope.
class WaitCursor {
 public:
  WaitCursor() : before_(SelfCheckHooks().showWaitCursor()) {}
  ~WaitCursor() { SelfCheckHooks().restoreCursor(before_); }
  WaitCursor(const WaitCursor&) = delete;
  WaitCursor& operator=(const WaitCursor&) = delete;

 private:
  void* const before_;
};

// The status of the whole run, S_OK when nothing is wrong.
HRESULT CheckAllRows() {
  const WaitCursor cursor;
  HRESULT status = S_OK;
  for (int i = 0; i < static_cast<int>(std::size(kRows)); ++i) {
    if ((QnGetCPUSupport(0) & 0xF) < kRows[i].minClass) continue;
    const HRESULT row = CheckRow(kRows[i]);
    if (row == E_OUTOFMEMORY) return row;
    if (FAILED(row)) status = SelfCheckHooks().record(row, W("QnAudioCopy_UnitTest node[%d] failed."), i);
  }
  return status;
}

QNCOPYFUNCTION FindKernel(QNSAMPLETYPE dst, QNSAMPLETYPE src, bool vector) {
  const CopyKernel& pair =
      CopyKernels()[static_cast<size_t>(SampleFormIndex(dst) * kSampleFormCount + SampleFormIndex(src))];
  return vector && pair.vector != nullptr ? pair.vector : pair.scalar;
}

}  // namespace

CopySelfCheckHooks& SelfCheckHooks() {
  static CopySelfCheckHooks hooks = {
      []() -> void* { return nullptr; },
      [](void*) {},
      [](HRESULT status, const WCHAR* format, int row) {
        QnErrorHandler_DetailsAddString(status, format, row);
        return status;  // whether the log, which may be another failure's, takes it or not
      },
      [](HWND window, const WCHAR* text) { QnMsgBoxNoF(window, MB_ICONHAND, text); },
      [](size_t bytes) { return std::malloc(bytes); },
      [](void* block) { std::free(block); },
      FindKernel,
  };
  return hooks;
}

}  // namespace qn

extern "C" HRESULT QnAudioCopy_UnitTest(HWND window) {
  constexpr HRESULT kPassed = 1;
  const HRESULT status = qn::CheckAllRows();
  if (SUCCEEDED(status)) return kPassed;
  if (window == nullptr) return status;
  if (status != QN_E_CANCELLED) qn::SelfCheckHooks().show(window, W("INTERNAL: AudioCopy unit test failed!"));
  return S_OK;
}
