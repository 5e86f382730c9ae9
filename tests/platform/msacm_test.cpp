#include "qn/platform/msacm.h"

#include <gtest/gtest.h>

namespace {

// This program has no module of codecs beside it.
TEST(Acm, KnowsNothingWithoutItsModuleAndRefusesWhatIsNoQuestion) {
  WAVEFORMATEX format = {0x55, 2, 44'100, 16'000, 1, 0, 0};
  ACMFORMATTAGDETAILSW tag = {sizeof(tag), 9, 0x55, 9, 9, 9, {'x'}};
  EXPECT_EQ(acmFormatTagDetailsW(nullptr, &tag, 1), ACMERR_NOTPOSSIBLE);
  EXPECT_EQ(tag.cbFormatSize + tag.szFormatTag[0], 9u + 'x');
  EXPECT_EQ(acmFormatTagDetailsW(nullptr, &tag, 0), MMSYSERR_INVALFLAG);
  EXPECT_EQ(acmFormatTagDetailsW(nullptr, nullptr, 1), MMSYSERR_INVALPARAM);
  --tag.cbStruct;
  EXPECT_EQ(acmFormatTagDetailsW(nullptr, &tag, 1), MMSYSERR_INVALPARAM);

  const ACMFORMATDETAILSW line = {sizeof(line), 0, 0x55, 0, &format, 18, {}};
  const auto ask = [&](auto change, DWORD flags = 1) {
    ACMFORMATDETAILSW changed = line;
    change(&changed);
    return acmFormatDetailsW(nullptr, &changed, flags);
  };
  EXPECT_EQ(ask([](auto*) {}), ACMERR_NOTPOSSIBLE);
  EXPECT_EQ(ask([](auto*) {}, 3), MMSYSERR_INVALFLAG);
  EXPECT_EQ(ask([](auto* details) { details->cbwfx = 15; }), MMSYSERR_INVALPARAM);
  EXPECT_EQ(ask([](auto* details) { details->pwfx = nullptr; }), MMSYSERR_INVALPARAM);
  EXPECT_EQ(ask([](auto* details) { details->dwFormatTag = 0x50; }), MMSYSERR_INVALPARAM);
}

}  // namespace
