#include "qn/platform/msacm.h"

#include <gtest/gtest.h>

namespace {

// This program has no module of codecs beside it.
TEST(Acm, KnowsNothingWithoutItsModuleAndRefusesWhatIsNoQuestion) {
  WAVEFORMATEX format = {0x55, 2, 44'100, 16'000, 1, 0, 0};
  ACMFORMATTAGDETAILSW tag = {sizeof(tag), 0, 0x55, 0, 0, 0, {}};
  EXPECT_EQ(acmFormatTagDetailsW(nullptr, &tag, 1), ACMERR_NOTPOSSIBLE);
  EXPECT_EQ(acmFormatTagDetailsW(nullptr, nullptr, 1), MMSYSERR_INVALPARAM);
  ACMFORMATDETAILSW line = {sizeof(line), 0, 0x55, 0, &format, 18, {}};
  EXPECT_EQ(acmFormatDetailsW(nullptr, &line, 1), ACMERR_NOTPOSSIBLE);
  line.cbwfx = 15;
  EXPECT_EQ(acmFormatDetailsW(nullptr, &line, 1), MMSYSERR_INVALPARAM);
  EXPECT_EQ(acmFormatDetailsW(nullptr, &line, 3), MMSYSERR_INVALFLAG);
}

}  // namespace
