// The blocks of a time stretcher: the carry from one to the next, and the linear resampler at the end.
#include "qn/dsp/qntimestretch.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "qn/dsp/qnfir_vector.h"
#include "qn/dsp/qntimestretch_internal.h"
#include "qn/platform/memory.h"

namespace {

constexpr uint64_t kSpareFrames = 200;
// Doubles a sample.
constexpr uint64_t kInputRoom = 2, kOutputRoom = 1, kStretchRoom = 4;
constexpr uint64_t kMostFrames = std::numeric_limits<LONG>::max();

// Zeroes.
double* AllocateValues(uint64_t count) {
  return static_cast<double*>(GlobalAlloc(GPTR, count * sizeof(double)));
}

void FreeBuffers(const HQNTIME& time) {
  for (double* buffer : {time.inputBuffer, time.outputBuffer, time.stretchBuffer}) GlobalFree(buffer);
}

// Whole frames of a computed count; none for what is no number.
size_t FramesOf(double frames, uint64_t most) {
  if (!(frames > 0)) return 0;
  return frames < static_cast<double>(most) ? static_cast<size_t>(frames) : most;
}

// Resamples `count` frames to `outCount` others by straight lines, the step going from one rate to another.
void ChangeRate(const double* in, size_t count, double* out, size_t outCount, size_t channels, double from,
                double to) {
  std::copy_n(in, channels, out);
  if (count == 1 || outCount == 1) return;
  // Hosts rely on more than two channels being left as they are but for the first.
  const size_t written = channels > 2 ? 1 : channels;
  const double change = (to - from) / static_cast<double>(outCount);
  double position = from, step = from, difference[2] = {};
  for (size_t frame = 1; frame + 1 < outCount; ++frame) {
    const size_t i = FramesOf(position, count - 1);
    for (size_t c = 0; c < written; ++c) {
      const double* const v = in + i * channels + c;
      if (i + 1 < count) difference[c] = v[channels] - v[0];
      out[frame * channels + c] = v[0] + (position - static_cast<double>(i)) * difference[c];
    }
    position += step;
    step += change;
  }
  std::copy_n(in + (count - 1) * channels, channels, out + (outCount - 1) * channels);
}

// Gives the stretched frames through the output buffer. What is only copied may be more than that holds.
template <class T>
size_t GiveOut(const HQNTIME& time, size_t stretched, size_t frames, T* out) {
  if (stretched == 0 || frames == 0) return 0;
  const size_t channels = time.channels, room = time.bufferSamples * kOutputRoom;
  if (stretched != frames) {
    frames = std::min(frames, room / channels);
    ChangeRate(time.stretchBuffer, stretched, time.outputBuffer, frames, channels, time.previousRate,
               time.rate);
    qn::GiveChannel(time.outputBuffer, 1, frames * channels, out);
    return frames;
  }
  for (size_t done = 0, part; done < frames * channels; done += part) {
    part = std::min(frames * channels - done, room);
    std::copy_n(time.stretchBuffer + done, part, time.outputBuffer);
    qn::GiveChannel(time.outputBuffer, 1, part, out + done);
  }
  return frames;
}

template <class T>
DWORD ProcessBlock(HQNTIME& time, T* out, const T* in, DWORD inFrames) {
  const size_t channels = time.channels, carry = static_cast<size_t>(time.carryFrames);
  const uint64_t inSize = time.bufferSamples * kInputRoom, stretchSize = time.bufferSamples * kStretchRoom;
  const size_t fresh = std::min<uint64_t>(inFrames, std::min(inSize / channels, kMostFrames) - carry);
  const size_t total = carry + fresh;
  const auto last = static_cast<size_t>(time.totalFrames) * channels;
  std::memmove(time.inputBuffer, time.inputBuffer + last - carry * channels,
               carry * channels * sizeof(double));
  qn::TakeChannel(in, 1, fresh * channels, time.inputBuffer + carry * channels);

  const uint64_t most = std::min(stretchSize / channels, kMostFrames);
  const auto count = static_cast<double>(fresh);
  const size_t stretched = FramesOf((time.rate + time.previousRate) * 0.5 * count / time.ratio, most);
  if (stretched > 0) {
    const size_t again = qn::Splice({time.inputBuffer, inSize}, total * channels,
                                    {time.stretchBuffer, stretchSize}, stretched * channels, channels);
    time.carryFrames = static_cast<LONG>(again / channels);
  }
  time.totalFrames = static_cast<LONG>(total);
  return static_cast<DWORD>(GiveOut(time, stretched, FramesOf(count / time.ratio, most), out));
}

bool IsRatio(double ratio) {
  return ratio > 0 && ratio <= std::numeric_limits<double>::max();
}

template <class T>
void Process(HQNTIME* time, T* out, const T* in, DWORD* outFrames, DWORD inFrames) {
  DWORD written = 0;
  if (time && time->inputBuffer && IsRatio(time->ratio) && (inFrames == 0 || (out && in)))
    written = ProcessBlock(*time, out, in, inFrames);
  if (outFrames) *outFrames = written;
  if (!time) return;
  time->previousRatio = time->ratio;
  time->previousRate = time->rate;
}

}  // namespace

HRESULT QnTimeInit(HQNTIME** handle, int create, _time_props* props, LONG sampleRate, DWORD channels) {
  if (!handle || !props || (!create && !*handle)) return E_POINTER;
  if (!IsRatio(props->ratio) || (create && channels == 0)) return E_INVALIDARG;
  if (create) {
    auto* const time = static_cast<HQNTIME*>(GlobalAlloc(GPTR, sizeof(HQNTIME)));
    if (!time) return E_OUTOFMEMORY;
    time->previousRatio = props->ratio;
    time->previousRate = 1;
    time->sampleRate = sampleRate;
    time->channels = channels;
    *handle = time;
  }
  (*handle)->ratio = props->ratio;
  (*handle)->rate = 1;
  return S_OK;
}

HRESULT QnTimeBufAlloc(HQNTIME* handle, int frames) {
  if (!handle) return E_POINTER;
  if (frames < 0) return E_INVALIDARG;
  const uint64_t samples = (static_cast<uint64_t>(frames) + kSpareFrames) * handle->channels;
  if (samples > SIZE_MAX / (kStretchRoom * sizeof(double))) return E_OUTOFMEMORY;
  HQNTIME buffers = *handle;
  buffers.bufferSamples = samples;
  buffers.inputBuffer = AllocateValues(samples * kInputRoom);
  buffers.outputBuffer = AllocateValues(samples * kOutputRoom);
  buffers.stretchBuffer = AllocateValues(samples * kStretchRoom);
  if (!buffers.inputBuffer || !buffers.outputBuffer || !buffers.stretchBuffer) {
    FreeBuffers(buffers);
    return E_OUTOFMEMORY;
  }
  // What is carried is silence now; it has to lie within the buffer.
  const uint64_t room = std::min(samples * kInputRoom / handle->channels, kMostFrames);
  buffers.totalFrames =
      static_cast<LONG>(std::min<uint64_t>(static_cast<uint64_t>(handle->totalFrames), room));
  FreeBuffers(*handle);
  *handle = buffers;
  return S_OK;
}

void QnTimeProcess(HQNTIME* handle, float* out, const float* in, DWORD* outFrames, DWORD inFrames) {
  Process(handle, out, in, outFrames, inFrames);
}

void QnTimeProcess(HQNTIME* handle, double* out, const double* in, DWORD* outFrames, DWORD inFrames) {
  Process(handle, out, in, outFrames, inFrames);
}

int ccQnTimeGetInBufSize(HQNTIME* handle, int frames) {
  return handle ? static_cast<int>(FramesOf(frames * handle->ratio, kMostFrames)) : 0;
}

void QnTimeClose(HQNTIME* handle) {
  if (!handle) return;
  FreeBuffers(*handle);
  GlobalFree(handle);
}
