// Dither: prepares floating-point audio for its conversion to integers. Noise is added, and each sample is
// rounded to the grid of the target, so that the conversion that follows loses nothing; the error of the
// rounding can be fed back, which moves it to less audible frequencies.
#pragma once

#include <cstddef>
#include <cstdint>

#include "qn/audio/qnwaveformat.h"
#include "qn/platform/types.h"

// The noise, with its amplitude in steps of the target; r is uniform from -1 to 1.
enum eQNDITHER_DITHERTYPE : LONG {
  eQNDITHER_NONE = 0,
  eQNDITHER_RECTANGULAR_HALF = 1,  // r * 0.5
  eQNDITHER_RECTANGULAR = 2,       // r
  eQNDITHER_TRIANGULAR = 3,        // (r1 + r2) * 0.5
  eQNDITHER_HIGHPASS = 4,          // (r - 0.99 * the r before) * 0.5
  eQNDITHER_GAUSSIAN = 5,          // with a standard deviation of 0.5
};

// How the error is fed back.
enum eQNDITHER_NOISESHAPE : LONG {
  eQNDITHER_SHAPE_NONE = 0,
  eQNDITHER_SHAPE_FIRST = 1,
  eQNDITHER_SHAPE_SECOND_HIGH = 2,  // and 0.75 of the error before the last one
  eQNDITHER_SHAPE_SECOND_LOW = 3,   // and 0.5 of it
};

// The state of a generator of random words, R250: the word drawn is x[i] ^= x[j], and then i and j move to
// their successors.
struct QnRand {
  uint32_t i;
  uint32_t j;
  uint8_t next[252];
  uint32_t x[250];
};

extern "C" {

// A generator that starts the sequence of `seed`; null when there is no memory. Free it with QnRand_Free.
QN_API QnRand* QnRand_Create(DWORD seed);

// Starts the sequence of `seed`, which comes from the C library's srand and rand: they are left somewhere
// else, and another thread that calls them at the time changes it. Null does nothing.
QN_API void QnRand_Seed(QnRand* state, DWORD seed);

// Null does nothing.
QN_API void QnRand_Free(QnRand* state);
}

// Adds nothing to `random` but draws; makes `count` values. `previous` is the last r of
// eQNDITHER_HIGHPASS; the other noises leave it alone.
using QNDITHERNOISE = void (*)(QnRand* random, double* previous, double amplitude, double* noise,
                               size_t count);

// An object belongs to one thread at a time.
class QN_API CQnDither {
 public:
  // For a target of a sample type, or of integers of `bits` bits, with a generator of its own. Without memory
  // for the generator no noise is added.
  CQnDither(QNSAMPLETYPE type, eQNDITHER_DITHERTYPE ditherType, eQNDITHER_NOISESHAPE noiseShape);
  CQnDither(DWORD bits, eQNDITHER_DITHERTYPE ditherType, eQNDITHER_NOISESHAPE noiseShape);

  // Copies every field, the generator's pointer too: both objects then draw from one generator, which both
  // destructors would free. Hosts rely on the sharing and see to it themselves: whoever copies keeps the
  // pointer that is overwritten, puts it back (or null) before the object goes, and lets the one that owns
  // the generator go last.
  CQnDither(const CQnDither& other);
  CQnDither& operator=(const CQnDither& other);

  // Frees the generator, if there is one.
  ~CQnDither();

  // Starts again, with clear state and another sequence of noise; two objects that start within one
  // microsecond can have the same one. Noise or a shape that there is not counts as none. `bits` counts
  // modulo 32. Samples of double precision are not to be dithered: QNST_FLOAT64 makes them NaN.
  void Reset(QNSAMPLETYPE type, eQNDITHER_DITHERTYPE ditherType, eQNDITHER_NOISESHAPE noiseShape);
  void Reset(DWORD bits, eQNDITHER_DITHERTYPE ditherType, eQNDITHER_NOISESHAPE noiseShape);

  // Dithers `frames` interleaved frames in place, one channel after the other. Full scale is 1.0, and nothing
  // is clipped: a sample beyond the range of 32 bits, counted in steps of the target, wraps.
  // The error is kept from call to call for the first 6 channels. Those behind them are shaped too, but start
  // with none in each call.
  void ProcessFloat(float* samples, DWORD frames, DWORD channels);
  void ProcessDouble(double* samples, DWORD frames, DWORD channels);

  static constexpr DWORD kMostShaped = 6;

  uint32_t type;  // the QNSAMPLETYPE; 0 in the form by bits
  uint32_t ditherType;
  uint32_t noiseShape;
  QnRand* random;
  QNDITHERNOISE noise;
  double amplitude;  // in steps of the target with a shape, of full scale without
  double scale;      // steps of the target in 1.0
  double inverseScale;
  double previous;             // the last r of eQNDITHER_HIGHPASS
  double error1[kMostShaped];  // of the last sample of a channel
  double error2[kMostShaped];  // of the one before, as it is fed back

 private:
  void Restart(uint32_t newType, double newScale, eQNDITHER_DITHERTYPE newDitherType,
               eQNDITHER_NOISESHAPE newNoiseShape);
};

static_assert(sizeof(eQNDITHER_DITHERTYPE) == 4 && sizeof(eQNDITHER_NOISESHAPE) == 4);
static_assert(sizeof(QnRand) == 1260 && offsetof(QnRand, next) == 8 && offsetof(QnRand, x) == 260);
static_assert(sizeof(CQnDither) == 160 && offsetof(CQnDither, ditherType) == 4 &&
              offsetof(CQnDither, noiseShape) == 8 && offsetof(CQnDither, random) == 16 &&
              offsetof(CQnDither, noise) == 24 && offsetof(CQnDither, amplitude) == 32 &&
              offsetof(CQnDither, scale) == 40 && offsetof(CQnDither, inverseScale) == 48 &&
              offsetof(CQnDither, previous) == 56 && offsetof(CQnDither, error1) == 64 &&
              offsetof(CQnDither, error2) == 112);
