// Texts of the ANSI code page in chunks.
#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include "qn/media/chunkio_internal.h"
#include "qn/media/riff.h"
#include "qn/platform/locale.h"
#include "qn/settings/qnstatus.h"

HRESULT riff_ReadANSIString(HANDLE file, WCHAR* text, int32_t textLength, uint32_t* size) {
  if (!text || !size || textLength < 1) return E_INVALIDARG;
  const auto room = static_cast<uint32_t>(textLength);
  const uint32_t bytes = std::min(*size, room);
  const uint64_t start = qn::Tell(file);
  if (!qn::HasBytes(file, bytes)) return QN_E_FILE_READ;
  const std::unique_ptr<char[]> buffer(new (std::nothrow) char[bytes + size_t{1}]);
  if (!buffer) return E_OUTOFMEMORY;
  if (!qn::ReadExactly(file, buffer.get(), bytes)) return QN_E_FILE_READ;
  buffer[bytes > 0 ? bytes - 1 : 0] = '\0';
  text[0] = 0;
  MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, buffer.get(), -1, text, textLength);
  text[room - 1] = 0;
  qn::Seek(file, start + *size + (*size & 1));
  // For an even size too: hosts take the result off their budget.
  ++*size;
  return S_OK;
}

HRESULT riff_WriteANSIString(HANDLE file, WCHAR* text, uint32_t* written) {
  if (!text || !written) return E_INVALIDARG;
  const size_t length = std::char_traits<WCHAR>::length(text);
  if (length >= static_cast<size_t>(std::numeric_limits<int>::max())) return E_OUTOFMEMORY;
  const auto bytes = static_cast<uint32_t>(length + 1);
  const std::unique_ptr<char[]> buffer(new (std::nothrow) char[bytes]());
  if (!buffer) return E_OUTOFMEMORY;
  // Fails when the conversion needs more bytes than characters; the room then holds what fits.
  WideCharToMultiByte(CP_ACP, 0, text, -1, buffer.get(), static_cast<int>(bytes), nullptr, nullptr);
  buffer[length] = '\0';
  const uint32_t pad = bytes & 1;
  if (!qn::WriteExactly(file, buffer.get(), bytes) || !qn::WriteZeros(file, pad)) return QN_E_FILE_WRITE;
  *written = bytes + pad;
  return S_OK;
}
