// The one driver of all copy kernels: whole blocks go through the vector converters, and what they cannot
// take as it stands (tails, buffers that overlap, buffers larger than the cache) is made to fit them by small
// buffers on the stack.
#include <algorithm>
#include <cstring>

#include "hwy/cache_control.h"
#include "qn/audio/qncopy_internal.h"
#include "qn/audio/qncopy_rule.h"

namespace qn {
namespace {

constexpr size_t kLine = 64;     // bytes of a cache line
constexpr size_t kChunk = 1024;  // samples that are staged at a time in place
constexpr size_t kTurn =
    4096;  // bytes read and written in one turn of streaming: both stay in the first cache
constexpr size_t kFewSamples = 8;  // up to here single samples are quicker than a padded block
static_assert(kChunk % kConvertBlock == 0);

size_t Misalignment(const void* address) {
  return reinterpret_cast<uintptr_t>(address) % kLine;
}

// One conversion: a pair at a scale, as the converter functions that do it.
class Conversion {
 public:
  Conversion(const CopyPair& pair, float scale) : pair_(pair), scale_(scale) {
    const Converter& converter = FindConverter(pair.dst, pair.src);
    if (scale == 1.0f) {
      first_ = converter.unit;
    } else if (!converter.moderate || IsModerateScale(scale)) {
      first_ = converter.gain;
    } else {
      // Floats are multiplied as floats, integers as doubles; what comes of it is converted at scale 1.0.
      constexpr int kFloat = SampleFormIndex(QNST_FLOAT32), kDouble = SampleFormIndex(QNST_FLOAT64);
      const int middle = pair.src == kFloat ? kFloat : kDouble;
      first_ = FindConverter(middle, pair.src).gain;
      second_ = FindConverter(pair.dst, middle).unit;
    }
  }

  Conversion(const CopyPair& pair, float scale, ConvertFunction function)
      : pair_(pair), scale_(scale), first_(function) {}

  // Buffers that do not overlap.
  void Run(uint8_t* dst, const uint8_t* src, size_t samples) const {
    const size_t whole = samples / kConvertBlock * kConvertBlock, rest = samples - whole;
    if (whole > 0) RunBlocks(dst, src, whole);
    if (rest == 0) return;
    alignas(kLine) uint8_t in[kConvertBlock * 8], out[kConvertBlock * 8];
    std::memcpy(in, src + whole * pair_.srcBytes, rest * pair_.srcBytes);
    std::memset(in + rest * pair_.srcBytes, 0, (kConvertBlock - rest) * pair_.srcBytes);
    RunBlocks(out, in, kConvertBlock);
    std::memcpy(dst + whole * pair_.dstBytes, out, rest * pair_.dstBytes);
  }

  // Buffers that overlap so that in the pair's direction no result lands on a source still to be read.
  void RunInPlace(uint8_t* dst, const uint8_t* src, size_t samples) const {
    alignas(kLine) uint8_t in[kChunk * 8];
    for (size_t done = 0; done < samples;) {
      const size_t count = std::min(samples - done, kChunk);
      const size_t at = pair_.backward ? samples - done - count : done;
      std::memcpy(in, src + at * pair_.srcBytes, count * pair_.srcBytes);
      Run(dst + at * pair_.dstBytes, in, count);
      done += count;
    }
  }

  // Buffers that do not overlap and are larger than the cache: results are gathered in whole lines and
  // written past it, while the source of the turn after next is on its way.
  void RunStreaming(uint8_t* dst, const uint8_t* src, size_t samples) const {
    alignas(kLine) uint8_t out[kLine + kTurn];
    const size_t turn = kTurn / (pair_.srcBytes + pair_.dstBytes) / kConvertBlock * kConvertBlock;
    size_t filled = Misalignment(dst);  // bytes in `out`
    size_t skip = filled;               // of those, the ones at the front that are not ours
    uint8_t* line = dst - filled;       // where out[0] goes
    for (size_t done = 0; done < samples;) {
      const size_t count = std::min(samples - done, turn);
      Prefetch(src, std::min(done + 2 * turn, samples), std::min(done + 3 * turn, samples));
      Run(out + filled, src + done * pair_.srcBytes, count);
      filled += count * pair_.dstBytes;
      done += count;
      const size_t lines = filled / kLine;
      const size_t ragged = skip > 0 && lines > 0 ? 1 : 0;
      if (ragged > 0) std::memcpy(line + skip, out + skip, kLine - skip);
      StreamLines(line + ragged * kLine, out + ragged * kLine, lines - ragged);
      if (lines > 0) skip = 0;
      line += lines * kLine;
      filled -= lines * kLine;
      std::memcpy(out, out + lines * kLine, filled);
    }
    FinishStreaming();
    std::memcpy(line + skip, out + skip, filled - skip);
  }

 private:
  void Prefetch(const uint8_t* src, size_t from, size_t to) const {
    for (size_t at = from * pair_.srcBytes; at < to * pair_.srcBytes; at += kLine) hwy::Prefetch(src + at);
  }

  void RunBlocks(uint8_t* dst, const uint8_t* src, size_t samples) const {
    if (second_ == nullptr) return first_(dst, src, samples, scale_);
    alignas(kLine) uint8_t middle[kConvertBlock * 8];
    for (size_t done = 0; done < samples; done += kConvertBlock) {
      first_(middle, src + done * pair_.srcBytes, kConvertBlock, scale_);
      second_(dst + done * pair_.dstBytes, middle, kConvertBlock, 1.0f);
    }
  }

  const CopyPair& pair_;
  const float scale_;
  ConvertFunction first_ = nullptr;
  ConvertFunction second_ = nullptr;
};

// A plain copy; one beyond the size of the cache is written past it, and one onto itself touches nothing.
void CopyBytes(uint8_t* dst, const uint8_t* src, size_t bytes, bool overlap) {
  if (dst == src) return;
  if (overlap || 2 * bytes < kStreamingBytes) {
    std::memmove(dst, src, bytes);
    return;
  }
  const size_t head = Misalignment(dst) == 0 ? 0 : kLine - Misalignment(dst);
  const size_t lines = (bytes - head) / kLine, streamed = head + lines * kLine;
  std::memcpy(dst, src, head);
  StreamLines(dst + head, src + head, lines);
  FinishStreaming();
  std::memcpy(dst + streamed, src + streamed, bytes - streamed);
}

// How the two buffers of a call lie to each other.
enum class Layout { kApart, kInPlace, kTangled };

Layout LayoutOf(const CopyPair& pair, const uint8_t* dst, const uint8_t* src, size_t samples) {
  const uintptr_t dstAt = reinterpret_cast<uintptr_t>(dst), srcAt = reinterpret_cast<uintptr_t>(src);
  const uintptr_t dstEnd = dstAt + samples * pair.dstBytes, srcEnd = srcAt + samples * pair.srcBytes;
  if (dstAt >= srcEnd || srcAt >= dstEnd) return Layout::kApart;
  const bool inPlace = pair.backward ? dstAt >= srcAt && pair.dstBytes >= pair.srcBytes
                                     : dstAt <= srcAt && pair.dstBytes <= pair.srcBytes;
  return inPlace ? Layout::kInPlace : Layout::kTangled;
}

void RunAs(Layout layout, const Conversion& conversion, const CopyPair& pair, uint8_t* dst,
           const uint8_t* src, size_t samples) {
  if (layout == Layout::kInPlace) {
    conversion.RunInPlace(dst, src, samples);
  } else if (samples * (pair.dstBytes + pair.srcBytes) < kStreamingBytes) {
    conversion.Run(dst, src, samples);
  } else {
    conversion.RunStreaming(dst, src, samples);
  }
}

}  // namespace

const Converter& FindConverter(int dstIndex, int srcIndex) {
  const SampleForm& to = kSampleForms[dstIndex];
  if (to.isFloat) return FindConverterToFloat(dstIndex, srcIndex);
  return to.bits <= 16 ? FindConverterTo8And16(dstIndex, srcIndex)
                       : FindConverterTo24And32(dstIndex, srcIndex);
}

void CopySamples(const CopyPair& pair, void* dstBuffer, const void* srcBuffer, size_t samples, float scale) {
  uint8_t* const dst = static_cast<uint8_t*>(dstBuffer);
  const uint8_t* const src = static_cast<const uint8_t*>(srcBuffer);
  const Layout layout = LayoutOf(pair, dst, src, samples);
  if (pair.dst == pair.src && scale == 1.0f) {
    CopyBytes(dst, src, samples * pair.dstBytes, layout != Layout::kApart);
  } else if (samples <= kFewSamples || layout == Layout::kTangled || scale != scale) {
    // Of two NaNs an instruction keeps the one or the other: with a NaN for a gain one code decides it.
    pair.inOrder(dst, src, samples, scale, pair.backward);
  } else {
    RunAs(layout, Conversion(pair, scale), pair, dst, src, samples);
  }
}

void CopySamplesStepped(const CopyPair& pair, void* dstBuffer, const void* srcBuffer, size_t samples,
                        float scale) {
  uint8_t* const dst = static_cast<uint8_t*>(dstBuffer);
  const uint8_t* const src = static_cast<const uint8_t*>(srcBuffer);
  const Layout layout = LayoutOf(pair, dst, src, samples);
  if (layout == Layout::kTangled) return pair.inOrder(dst, src, samples, scale, pair.backward);
  const Conversion conversion(pair, scale, FindConverter(pair.dst, pair.src).stepped);
  RunAs(layout, conversion, pair, dst, src, samples);
}

void CopyInPieces(const CopyKernel& pair, QNCOPYFUNCTION kernel, void* dst, const void* src, int64_t samples,
                  float scale, LONG limit) {
  const CopyPair& sizes = FindCopyPair(SampleFormIndex(pair.dst), SampleFormIndex(pair.src));
  for (int64_t done = 0; done < samples;) {
    const LONG count = static_cast<LONG>(std::min<int64_t>(samples - done, limit));
    const size_t at = static_cast<size_t>(sizes.backward ? samples - done - count : done);
    kernel(static_cast<uint8_t*>(dst) + at * sizes.dstBytes,
           static_cast<const uint8_t*>(src) + at * sizes.srcBytes, count, scale);
    done += count;
  }
}

}  // namespace qn
