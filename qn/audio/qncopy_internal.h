// The table of copy and channel kernels, and the driver that they share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "qn/audio/qncopy.h"
#include "qn/audio/qncopy_vector.h"

namespace qn {

// One pair of sample types. The table holds all 121 in the order of kSampleForms, destinations first;
// lookups, tests and benchmarks go through it.
struct CopyKernel {
  QNSAMPLETYPE dst;
  QNSAMPLETYPE src;
  QNCOPYFUNCTION scalar;  // null for the pairs without a kernel
  QNCOPYFUNCTION vector;  // null for the pairs with one kernel only
  DWORD vectorMask;       // processor bits that choose the vector kernel, all of them
};
std::span<const CopyKernel> CopyKernels();

// A short name of a sample type for tests and benchmarks: "s16", "s24be", "flt". "?" for none.
const char* SampleTypeName(QNSAMPLETYPE type);

// One pair of the channel lookup.
struct ChannelKernel {
  QNSAMPLETYPE dst;
  QNSAMPLETYPE src;
  QNCOPYCHANNELSFUNCTION scalar;
  QNCOPYCHANNELSFUNCTION vector;
  DWORD vectorMask;
};
std::span<const ChannelKernel> ChannelKernels();

// Calls a channel kernel for more frames than a LONG holds, in pieces of at most `limit`.
void CopyChannelInPieces(QNCOPYCHANNELSFUNCTION kernel, QNSAMPLETYPE dstType, void* dst, DWORD dstChannels,
                         DWORD dstChannel, QNSAMPLETYPE srcType, const void* src, DWORD srcChannels,
                         DWORD srcChannel, DWORD frames, LONG limit);

// What the driver has to know of a pair.
struct CopyPair {
  int dst;  // places in kSampleForms
  int src;
  size_t dstBytes;
  size_t srcBytes;
  bool backward;
  void (*inOrder)(uint8_t* dst, const uint8_t* src, size_t samples, float scale, bool backward);
};
const CopyPair& FindCopyPair(int dstIndex, int srcIndex);

// Converts with the pair's fastest code. Overlapping buffers give what a loop over single samples in the
// pair's direction gives.
void CopySamples(const CopyPair& pair, void* dst, const void* src, size_t samples, float scale);

// The same with the converter's `stepped` function, unless the buffers overlap in a way that only a loop over
// single samples copes with.
void CopySamplesStepped(const CopyPair& pair, void* dst, const void* src, size_t samples, float scale);

// The vector kernels of 16-bit from float and float from 16-bit; null where there are none.
QNCOPYFUNCTION SteppedKernel(QNSAMPLETYPE dst);

// Calls a kernel for more samples than a LONG holds, in pieces of at most `limit`; the order of the pieces is
// the pair's.
void CopyInPieces(const CopyKernel& pair, QNCOPYFUNCTION kernel, void* dst, const void* src, int64_t samples,
                  float scale, LONG limit);

// Bytes read and written from which results go to memory past the cache: such buffers don't fit it anyway.
inline constexpr size_t kStreamingBytes = size_t{24} << 20;

}  // namespace qn
