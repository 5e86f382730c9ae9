// The view of a peak file, which objects of a single thread read through.
#include <utility>

#include "qn/media/peak_object_internal.h"

namespace qn {

void CQnAudioPeak::MapView() {
  LARGE_INTEGER size;
  if (view_ || !GetFileSizeEx(file_, &size) || size.QuadPart <= 0) return;
  const HANDLE mapping = CreateFileMappingW(file_, nullptr, PAGE_READONLY, 0, 0, nullptr);
  if (!mapping) return;
  const auto bytes = static_cast<SIZE_T>(size.QuadPart);
  view_ = static_cast<const uint8_t*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, bytes));
  viewBytes_ = view_ ? bytes : 0;
  CloseHandle(mapping);
}

void CQnAudioPeak::UnmapView() {
  if (const uint8_t* const view = std::exchange(view_, nullptr)) UnmapViewOfFile(view);
  viewBytes_ = 0;
}

}  // namespace qn
