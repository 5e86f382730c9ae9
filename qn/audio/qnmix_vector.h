// The vector code of the mix kernels: one mixer a pair of sample types, for the best instruction set of the
// processor.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/audio/qncopy_vector.h"

namespace qn {

// Adds `samples` samples, a multiple of kConvertBlock, between buffers that do not overlap. Sample i takes
// gains[i % period], which is in the units of lanes and destination; `gains` has period + kConvertBlock
// entries, going round.
using MixFunction = void (*)(uint8_t* dst, const uint8_t* src, size_t samples, const double* gains,
                             size_t period);

// Adds samples of the destination's own type, a multiple of kConvertBlock. They lie where copies put them, so
// words of 24 bits have no more.
using AddFunction = void (*)(uint8_t* dst, const uint8_t* src, size_t samples);

// Up to this size of all gains, an integer stays clear of the rails.
inline constexpr double kSoftestGain = 0.99;

// Null without the vector units, or where the pair has no such case.
struct Mixer {
  MixFunction wide;    // products in double
  MixFunction soft;    // the same between integers, with gains up to kSoftestGain
  MixFunction single;  // float from float and double: the sample and the gain are made single first
  AddFunction add;     // integer destinations
};

// The mixer of a pair, by the places of its types in kSampleForms.
const Mixer& FindMixer(int dstIndex, int srcIndex);

// Parts of the table, each in a source file of its own so that they compile side by side.
const Mixer& FindMixerTo8And16(int dstIndex, int srcIndex);
const Mixer& FindMixerTo24And32(int dstIndex, int srcIndex);
const Mixer& FindMixerToFloat(int dstIndex, int srcIndex);

}  // namespace qn
