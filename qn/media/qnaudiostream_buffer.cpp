// The buffers of an audio stream: single blocks, and the pool of eight.
#include <algorithm>
#include <iterator>

#include "qn/media/qnaudiostream_internal.h"
#include "qn/platform/memory.h"

void* QnAudioStream_AllocBuffer(HQNAUDIOSTREAM stream, DWORD frames) {
  if (!stream) return nullptr;
  const uint64_t bytes = frames == stream->bufferFrames ? stream->bufferBytes
                                                        : uint64_t{frames} * stream->clientFormat.nBlockAlign;
  const HGLOBAL block = GlobalAlloc(GMEM_MOVEABLE, bytes);
  if (!block) return nullptr;
  void* const buffer = GlobalLock(block);
  if (!buffer) GlobalFree(block);
  return buffer;
}

void* QnAudioStream_FreeBuffer(HQNAUDIOSTREAM stream, void* buffer) {
  // A block from the pool leaves it, or it would be freed again with the stream.
  void* const none = nullptr;
  if (stream) std::replace(std::begin(stream->buffers), std::end(stream->buffers), buffer, none);
  if (const HGLOBAL block = buffer ? GlobalHandle(buffer) : nullptr) {
    GlobalUnlock(block);
    GlobalFree(block);
  }
  return nullptr;
}

void* QnAudioStream_GetBuffer(HQNAUDIOSTREAM stream, DWORD frames) {
  if (!stream) return nullptr;
  void** const slot = std::find(std::begin(stream->buffers), std::end(stream->buffers), nullptr);
  return slot == std::end(stream->buffers) ? nullptr : *slot = QnAudioStream_AllocBuffer(stream, frames);
}

void* QnAudioStream_ReleaseBuffer(HQNAUDIOSTREAM stream, void* buffer) {
  if (!stream || !buffer) return buffer;
  void** const slot = std::find(std::begin(stream->buffers), std::end(stream->buffers), buffer);
  return slot == std::end(stream->buffers) ? buffer : QnAudioStream_FreeBuffer(stream, buffer);
}

HRESULT QnAudioStream_GetBuffers(HQNAUDIOSTREAM stream, void** out, DWORD count, DWORD frames, QNSAMPLETYPE) {
  if (!stream || !out) return E_INVALIDARG;
  for (DWORD i = 0; i < count; ++i) {
    out[i] = QnAudioStream_GetBuffer(stream, frames);
    if (!out[i]) return E_OUTOFMEMORY;
  }
  return S_OK;
}

HRESULT QnAudioStream_ReleaseBuffers(HQNAUDIOSTREAM stream, void** buffers, DWORD count) {
  if (!stream || !buffers) return E_INVALIDARG;
  HRESULT status = S_OK;
  for (DWORD i = 0; i < count; ++i) {
    if (!buffers[i]) status = S_FALSE;
    QnAudioStream_ReleaseBuffer(stream, buffers[i]);
  }
  return status;
}
