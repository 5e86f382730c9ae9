// The object of a recursive filter: its fields and its state.
#include "qn/dsp/qniir.h"

#include <iterator>

CQnIIR::CQnIIR() : CQnIIR(nullptr) {}

CQnIIR::CQnIIR(const CQnIIR* source)
    : channels(), lastChannelMask(), polynomials(), numBiquads(), biquads(), gain(), dry(), useSIMD() {
  if (source) *this = *source;
}

void CQnIIR::Reset(DWORD channelMask) {
  for (tQNIIR_BIQUAD& stage : biquads)
    for (DWORD channel = 0; channel < 2; ++channel)
      if (channelMask >> channel & 1) stage.d1[channel] = stage.d2[channel] = 0;
}

void CQnIIR::ResetAll() {
  Reset(3);
}

void CQnIIR::SetDelayElementsFrom(const CQnIIR* other) {
  if (!other) return;
  for (DWORD i = 0; i < other->numBiquads; ++i) {
    for (DWORD channel = 0; channel < 2; ++channel) {
      biquads[i].d1[channel] = other->biquads[i].d1[channel];
      biquads[i].d2[channel] = other->biquads[i].d2[channel];
    }
  }
}

DWORD CQnIIR::getChannels() const {
  return channels;
}

DWORD CQnIIR::getLastChannelMask() const {
  return lastChannelMask;
}

DWORD CQnIIR::getNumBiquads() const {
  return numBiquads;
}

double CQnIIR::getGain() const {
  return gain;
}

double CQnIIR::getDry() const {
  return dry;
}

const tQNIIR_POLYNOMIAL* CQnIIR::getPolynomial(DWORD index) const {
  return index < std::size(polynomials) ? &polynomials[index] : nullptr;
}

tQNIIR_POLYNOMIAL* CQnIIR::getPolynomial(DWORD index) {
  return index < std::size(polynomials) ? &polynomials[index] : nullptr;
}

const tQNIIR_BIQUAD* CQnIIR::getBiquad(DWORD index) const {
  return index < numBiquads ? &biquads[index] : nullptr;
}

tQNIIR_BIQUAD* CQnIIR::getBiquad(DWORD index) {
  return index < numBiquads ? &biquads[index] : nullptr;
}
