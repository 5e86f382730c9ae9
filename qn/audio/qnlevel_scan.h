// What levels are measured of: the sample types, the magnitude of one sample, and scans that gather values of
// each channel with vectors.
#pragma once

#include <algorithm>
#include <numeric>

#include "qn/audio/qncopy_rule.h"
#include "qn/audio/qncopy_vector.h"

namespace qn {

// The types that have levels are the first of the table.
inline constexpr int kLevelForms = SampleFormIndex(QNST_PCM8S) + 1;

// The magnitude of a sample in a form whose values compare as integers: the value of an integer type, the
// bits of a float. The lowest value of a type counts as its highest, words beyond 24 bits as 24-in-32 do.
// Of 8 bits, -127 counts as 126: hosts rely on that.
template <int kType>
uint64_t Magnitude(decltype(LoadSample<kType>(nullptr)) sample) {
  if constexpr (kType == QNST_FLOAT32) {
    return std::bit_cast<uint32_t>(sample) & 0x7FFFFFFF;
  } else if constexpr (kType == QNST_FLOAT64) {
    return std::bit_cast<uint64_t>(sample) & 0x7FFFFFFFFFFFFFFF;
  } else {
    constexpr int32_t kHighest = static_cast<int32_t>(HighRail(kForm<kType>));
    if (kForm<kType>.bits == 8 && sample == -127) return 126;
    return static_cast<uint64_t>(std::min(sample < 0 ? -std::max(sample, -kHighest) : sample, kHighest));
  }
}

// What is added up of float samples. Single squares are rounded to float.
enum class Term { kMagnitude, kSquare, kSingleSquare };

template <int kType, Term kTerm>
double TermOf(const uint8_t* from) {
  const auto sample = LoadSample<kType>(from);
  if constexpr (kTerm == Term::kSingleSquare) return static_cast<double>(sample * sample);
  const double wide = static_cast<double>(sample);
  return kTerm == Term::kMagnitude ? std::bit_cast<double>(Magnitude<QNST_FLOAT64>(wide)) : wide * wide;
}

template <int kType>
uint64_t SquareOf(const uint8_t* from) {
  const int64_t sample = LoadSample<kType>(from);
  return static_cast<uint64_t>(sample * sample);
}

// Scans take up to this many channels, and a multiple of ScanRow frames.
inline constexpr size_t kMostScanChannels = 64;
constexpr size_t ScanRow(size_t channels) {
  return kConvertBlock / std::gcd(channels, kConvertBlock);
}

// Each joins the values of some frames to those of `channels` channels. The highest are of Magnitude; the
// squares are those of an integer type, modulo 2^64; the sums are those of a float type, in no fixed order.
void ScanHighest(int type, const uint8_t* src, size_t frames, size_t channels, uint64_t* highest);
void ScanSquares(int type, const uint8_t* src, size_t frames, size_t channels, uint64_t* sums);
void ScanSums(int type, Term term, const uint8_t* src, size_t frames, size_t channels, double* sums);

// Calls block(first frame, frames) for blocks that scans take and the cache holds. Returns the frames that
// they cover, all but the last few; none if there are too many channels.
template <class Block>
size_t ForEachScanBlock(size_t channels, size_t sampleBytes, size_t frames, Block block) {
  if (channels == 0 || channels > kMostScanChannels) return 0;
  constexpr size_t kBlockBytes = 65536;
  // Blocks of several rows, since the lanes of a row are joined one by one.
  constexpr size_t kFewestRows = 16;
  const size_t row = ScanRow(channels), rows = kBlockBytes / (row * channels * sampleBytes);
  const size_t most = row * std::max(rows, kFewestRows);
  const size_t covered = frames / row * row;
  for (size_t first = 0; first < covered; first += most) {
    if (!block(first, std::min(most, covered - first))) break;
  }
  return covered;
}

}  // namespace qn
