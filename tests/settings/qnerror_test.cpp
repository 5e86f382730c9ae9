#include "qn/settings/qnerror.h"

#include <gtest/gtest.h>

#include <map>

namespace {

TEST(TranslateSystemError, EveryNumberHasItsStatus) {
  constexpr uint32_t kNotFound = 0x8004E00A, kMemory = 0x8007000E, kFull = 0x8004E002;
  const std::pair<const DWORD, uint32_t> kRows[] = {
      {0, 0},           {1, 0x80070057},   {2, kNotFound},    {3, kNotFound},    {126, kNotFound},
      {127, kNotFound}, {4, 0x8004E026},   {5, 0x80070005},   {6, 0x80070006},   {14, kMemory},
      {84, kMemory},    {15, 0x800404B0},  {32, 0x8004E05A},  {39, kFull},       {112, kFull},
      {80, 0x8004E032}, {110, 0x8004E007}, {120, 0x80004001}, {123, 0x8004E00D}, {170, 0x8004E005},
      {183, 0x8004E170}};
  const std::map<DWORD, uint32_t> expected(std::begin(kRows), std::end(kRows));
  for (DWORD code = 0; code < 20'000; ++code) {
    const auto row = expected.find(code);
    const uint32_t status = row == expected.end() ? 0x80004005 : row->second;
    ASSERT_EQ(static_cast<uint32_t>(QnErrorHandler_TranslateWin32Error(code)), status) << code;
  }
}

}  // namespace
