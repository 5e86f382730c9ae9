// The objects of the dither and its random generator. R250 is of Kirkpatrick and Stoll, A very fast
// shift-register sequence random number generator, Journal of Computational Physics 40 (1981).
#include "qn/dsp/qndither.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "qn/dsp/qndither_vector.h"
#include "qn/kernel/qntimer.h"
#include "qn/platform/memory.h"

namespace {

constexpr uint32_t kWords = 250, kLag = 103;

double ScaleOf(QNSAMPLETYPE type) {
  switch (type) {
    case QNST_PCM8U:
    case QNST_PCM8S:
      return 128;
    case QNST_PCM24:
    case QNST_FLOAT32:
    case QNST_PCM24IN32:
    case QNST_PCM24BE:
      return 0x800000;
    case QNST_PCM32:
    case QNST_PCM32BE:
      return INT32_MIN;  // the inverse has the sign too
    case QNST_FLOAT64:
      return 0;
    default:
      return 32768;
  }
}

double ScaleOfBits(DWORD bits) {
  return static_cast<int32_t>(1u << ((bits - 1) % 32));
}

double AmplitudeOf(uint32_t ditherType) {
  constexpr double kAmplitudes[] = {0, 0.5, 1, 0.5, 0.5, 0.5};
  return ditherType < std::size(kAmplitudes) ? kAmplitudes[ditherType] : 0;
}

uint32_t NextOfLibrary() {
  return static_cast<uint32_t>(std::rand());
}

}  // namespace

QnRand* QnRand_Create(DWORD seed) {
  auto* state = static_cast<QnRand*>(GlobalAlloc(GPTR, sizeof(QnRand)));
  QnRand_Seed(state, seed);
  return state;
}

void QnRand_Seed(QnRand* state, DWORD seed) {
  if (!state) return;
  std::srand(seed);
  state->i = 0;
  state->j = kLag;
  for (uint32_t k = kWords; k-- > 0;) {
    state->next[k] = static_cast<uint8_t>((k + 1) % kWords);
    state->x[k] = NextOfLibrary() * 4;
    state->x[k] += NextOfLibrary() << 17;
    state->x[k] += NextOfLibrary();
  }
  // 32 words whose bits form a triangle are linearly independent.
  for (uint32_t m = 0; m < 32; ++m) {
    uint32_t& word = state->x[3 + 7 * m];
    word = (word & (0xFFFFFFFF >> m)) | (0x80000000 >> m);
  }
}

void QnRand_Free(QnRand* state) {
  if (state) GlobalFree(state);
}

CQnDither::CQnDither(QNSAMPLETYPE newType, eQNDITHER_DITHERTYPE newDitherType,
                     eQNDITHER_NOISESHAPE newNoiseShape)
    : random(QnRand_Create(0)) {
  Reset(newType, newDitherType, newNoiseShape);
}

CQnDither::CQnDither(DWORD bits, eQNDITHER_DITHERTYPE newDitherType, eQNDITHER_NOISESHAPE newNoiseShape)
    : random(QnRand_Create(0)) {
  Reset(bits, newDitherType, newNoiseShape);
}

CQnDither::CQnDither(const CQnDither& other) = default;
CQnDither& CQnDither::operator=(const CQnDither& other) = default;

CQnDither::~CQnDither() {
  QnRand_Free(random);
}

void CQnDither::Reset(QNSAMPLETYPE newType, eQNDITHER_DITHERTYPE newDitherType,
                      eQNDITHER_NOISESHAPE newNoiseShape) {
  Restart(static_cast<uint32_t>(newType), ScaleOf(newType), newDitherType, newNoiseShape);
}

void CQnDither::Reset(DWORD bits, eQNDITHER_DITHERTYPE newDitherType, eQNDITHER_NOISESHAPE newNoiseShape) {
  Restart(0, ScaleOfBits(bits), newDitherType, newNoiseShape);
}

void CQnDither::Restart(uint32_t newType, double newScale, eQNDITHER_DITHERTYPE newDitherType,
                        eQNDITHER_NOISESHAPE newNoiseShape) {
  type = newType;
  ditherType = static_cast<uint32_t>(newDitherType);
  noiseShape = static_cast<uint32_t>(newNoiseShape);
  if (noiseShape > eQNDITHER_SHAPE_SECOND_LOW) noiseShape = eQNDITHER_SHAPE_NONE;
  previous = 0;
  std::ranges::fill(error1, 0);
  std::ranges::fill(error2, 0);
  // The counter itself, which two runs share less likely than their time since attach.
  const LONGLONG origin = 0;
  QnRand_Seed(random, static_cast<DWORD>(QnGetMicrosecEx(&origin)));
  scale = newScale;
  inverseScale = 1 / scale;
  noise = qn::FindDitherNoise(random ? ditherType : uint32_t{eQNDITHER_NONE});
  amplitude = AmplitudeOf(ditherType);
  if (noiseShape == eQNDITHER_SHAPE_NONE) amplitude /= scale;
}

void CQnDither::ProcessFloat(float* samples, DWORD frames, DWORD channels) {
  if (samples) qn::Dither(*this, samples, frames, channels);
}

void CQnDither::ProcessDouble(double* samples, DWORD frames, DWORD channels) {
  if (samples) qn::Dither(*this, samples, frames, channels);
}
