// Search and list walking, written once for the families of chunk files. A Format tells what differs:
//
//   Id, Size, Budget           types of an id, a data size and a budget
//   kHeaderSize, kTypeSize     bytes of a chunk's header and of a list's type
//   kLeastForType              the budget that a list's type asks for behind the list's header
//   kListId                    the id of a list
//   ReadHeader(file, id, size) reads a header; the size is that of the data
//   Padded(size)               the way from a chunk's data to the next header
//   Spend(budget, bytes)       the budget of a search behind a skipped chunk
//   Drain(budget, bytes)       the budget of a list walk behind an entry
//   SpendList(budget, size)    the budget of a search behind a list of another type, its type being paid for
//
// The position moves on by a header's bytes at least with each chunk, whatever a size or a budget says, so
// that every walk ends.
#pragma once

#include "qn/media/chunkio_internal.h"
#include "qn/settings/qnstatus.h"

namespace qn {

// Scans from the position for a chunk while the budget has `least` bytes. A null budget has no bound.
template <class Format>
HRESULT FindChunk(HANDLE file, const typename Format::Id& wanted, typename Format::Size* size,
                  typename Format::Budget* remaining, typename Format::Budget least = Format::kHeaderSize) {
  typename Format::Budget budget = remaining ? *remaining : 0;
  for (;;) {
    if (remaining && budget < least) {
      *remaining = budget;
      return QN_E_NOT_FOUND;
    }
    typename Format::Id id;
    typename Format::Size dataSize;
    if (!Format::ReadHeader(file, id, dataSize)) return QN_E_FILE_READ;
    if (id == wanted) {
      if (size) *size = dataSize;
      if (remaining) *remaining = budget - Format::kHeaderSize;
      return S_OK;
    }
    const uint64_t padded = Format::Padded(dataSize);
    Skip(file, padded);
    if (remaining) budget = Format::Spend(budget, padded);
  }
}

// Scans from the position for a list of a type; `least` is what the budget must have for its header.
template <class Format>
HRESULT FindList(HANDLE file, const typename Format::Id& wanted, typename Format::Size* size,
                 typename Format::Budget* remaining, typename Format::Budget least = Format::kHeaderSize) {
  for (;;) {
    typename Format::Size dataSize = 0;
    const HRESULT status = FindChunk<Format>(file, Format::kListId, &dataSize, remaining, least);
    if (FAILED(status)) return status;
    if (remaining && *remaining < Format::kLeastForType) return QN_E_NOT_FOUND;
    typename Format::Id type;
    if (!ReadField(file, type)) return QN_E_FILE_READ;
    if (remaining) *remaining -= Format::kTypeSize;
    if (type == wanted) {
      if (size) *size = dataSize - Format::kTypeSize;
      return S_OK;
    }
    Skip(file, Format::Padded(dataSize), Format::kTypeSize);
    if (remaining) *remaining = Format::SpendList(*remaining, dataSize);
  }
}

// Moves over one chunk and takes it off the budget. QN_E_NOT_FOUND when the budget holds no header.
template <class Format>
HRESULT PassEntry(HANDLE file, typename Format::Budget* remaining) {
  if (remaining && *remaining < Format::kHeaderSize) return QN_E_NOT_FOUND;
  typename Format::Id id;
  typename Format::Size size;
  if (!Format::ReadHeader(file, id, size)) return QN_E_FILE_READ;
  const uint64_t padded = Format::Padded(size);
  Skip(file, padded);
  if (remaining) *remaining = Format::Drain(*remaining, padded);
  return S_OK;
}

template <class Format>
HRESULT CountEntries(HANDLE file, uint32_t* count, typename Format::Budget* remaining) {
  if (!count) return E_INVALIDARG;
  *count = 0;
  const KeepPosition keep(file);
  HRESULT status;
  while (SUCCEEDED(status = PassEntry<Format>(file, remaining))) ++*count;
  return status == QN_E_NOT_FOUND ? S_OK : status;
}

template <class Format>
HRESULT SeekEntry(HANDLE file, int32_t index, typename Format::Budget* remaining) {
  if (index < 0) return QN_E_NOT_FOUND;
  HRESULT status = S_OK;
  for (; index > 0 && SUCCEEDED(status); --index) status = PassEntry<Format>(file, remaining);
  return status;
}

}  // namespace qn
