// A plain reference of sample conversion, written from the rule's tables alone, with what the tests of the
// copy kernels share.
#pragma once

#include <functional>
#include <vector>

#include "qn/audio/qncopy_internal.h"
#include "tests/support/support.h"

namespace qntest {

// Bytes of a sample, of the eleven types and the two of the channel lookup.
size_t BytesOf(int type);

// One sample converted; the number of bytes written is that of `dst`.
void ConvertOne(int dst, uint8_t* to, int src, const uint8_t* from, float scale);

// All of `samples` converted, one after the other into a new buffer.
Bytes ConvertAll(int dst, int src, const Bytes& samples, float scale);

// The types of plain samples in the processor's byte order.
inline constexpr int kTypes[] = {16, 17, 18, 19, 32, 33, 48, 49};

WAVEFORMATEX Format(int type, size_t channels, DWORD rate = 48000);

// Doubles as samples of a type, back, and random ones up to a level.
Bytes Encode(int type, const std::vector<double>& values);
std::vector<double> Decode(int type, const Bytes& samples);
Bytes Noise(int type, size_t samples, double level = 1);

// True for pairs that run from the last sample to the first.
bool RunsBackward(int dst, int src);

// Samples of a type that are worth a test, in a mixed order: all values of 8 and 16 bits, else limits, halves
// and their neighbours, powers of two, denormals, infinities, NaNs, and noise.
Bytes SamplesOf(int type);

// `count` of them, over and over again if need be, with the floats within full scale.
Bytes TameSamplesOf(int type, size_t count);

// The pairs that have a kernel.
std::vector<qn::CopyKernel> Pairs();

// Runs `body` once for each instruction set that the kernels are compiled for and the machine has.
void ForEachTarget(const std::function<void()>& body);

// The same for each kernel of a pair: the scalar one, and the vector one if there is one.
void ForEachKernel(const qn::CopyKernel& pair, const std::function<void(QNCOPYFUNCTION)>& body);

// Runs `body` with denormals kept and, where the processor can, with denormals flushed to zero.
void ForEachDenormalMode(const std::function<void()>& body);

// A buffer of `size` bytes, `offset` bytes behind a multiple of 16, between guard bytes. With the address
// sanitizer the heap block ends where the buffer does.
class GuardedBuffer {
 public:
  GuardedBuffer(size_t size, size_t offset);
  uint8_t* data() { return block_.data() + front_; }
  bool Intact() const;
  Bytes Content() const { return Bytes(block_.data() + front_, block_.data() + front_ + size_); }

 private:
  size_t front_;
  size_t size_;
  Bytes block_;
};

}  // namespace qntest
