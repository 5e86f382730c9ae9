// The instruction sets that the copy kernels are compiled for: AVX-512 with byte permutations, AVX2 and NEON.
// Any other processor runs the rule sample by sample. To be included before Highway's headers.
#pragma once

#define HWY_WANT_AVX3_DL
#define HWY_DISABLED_TARGETS \
  (HWY_SSSE3 | HWY_SSE4 | HWY_AVX3 | HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128)
