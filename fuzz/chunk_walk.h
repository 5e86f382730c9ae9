// A chunk file of any bytes through the functions that both families have for reading, searching, walking,
// deleting and updating. A Family has them under the names used here.
#pragma once

#include <vector>

#include "fuzz/fuzz_file.h"
#include "qn/platform/memory.h"
#include "tests/support/chunk_calls.h"

namespace qnfuzz {

inline uint64_t Position(HANDLE file) {
  LARGE_INTEGER none = {}, position = {};
  SetFilePointerEx(file, none, &position, FILE_CURRENT);
  return static_cast<uint64_t>(position.QuadPart);
}

inline uint64_t Length(HANDLE file) {
  LARGE_INTEGER size = {};
  GetFileSizeEx(file, &size);
  return static_cast<uint64_t>(size.QuadPart);
}

// Reads the data at the position in every way.
template <class Family>
void ReadEverything(HANDLE file, typename Family::Size size) {
  uint8_t buffer[64];
  typename Family::Size location;
  Family::Save(file, &location);
  riff_DataBlock block = {static_cast<uint32_t>(size), nullptr};
  if (SUCCEEDED(Family::ReadAlloc(file, &block)) && block.data) {
    Check(block.size <= Length(file), "a block larger than the file");
    GlobalUnlock(GlobalHandle(block.data));
    Check(!GlobalFree(GlobalHandle(block.data)), "a block that is not freed");
  }
  Family::Restore(file, location);
  Family::ReadBounded(file, buffer, static_cast<uint32_t>(size), 64 - size % 4);
  Family::Restore(file, location);
  Family::ReadData(file, buffer, size % 64);
  Family::ReadTexts(file, location, size);
}

template <class Family>
void SearchEverything(HANDLE file, const typename Family::Id& id) {
  const auto key = Family::Key(id);
  typename Family::Size size = 0;
  for (const int64_t start : std::initializer_list<int64_t>{-1, 0, 7, 23, 60, 4000, INT64_MAX}) {
    auto remaining = static_cast<typename Family::Budget>(start);
    for (const auto find : {Family::Find, Family::FindList}) {
      auto budget = remaining;
      Family::Start(file);
      if (SUCCEEDED(find(file, key, &size, &budget)))
        Check(Position(file) <= Length(file), "a find beyond the end");
      Check(Family::kGainsBudget || budget <= remaining, "a search that gains budget");
    }
    uint32_t count = 0;
    Family::Start(file);
    const uint64_t first = Position(file);
    Family::Count(file, &count, &remaining);
    Check(Position(file) == first, "a count that moves");
    Check(uint64_t{count} * 8 <= Length(file), "more entries than headers");
    Family::Seek(file, static_cast<int32_t>(count / 2), nullptr);
    Family::Seek(file, INT32_MAX, &remaining);
  }
  Family::Start(file);
  Family::FindList(file, key, &size, nullptr);
  Family::FindListInForm(file, key, &size);
  if (SUCCEEDED(Family::FindInForm(file, key, &size, nullptr))) ReadEverything<Family>(file, size);
}

// A host's own walk, and all that can be done with the ids that it meets.
template <class Family>
void WalkEverything(HANDLE file, std::vector<typename Family::Id> ids) {
  typename Family::Id id;
  typename Family::Size value;
  Family::Start(file);
  for (uint64_t place = 0; SUCCEEDED(Family::ReadHeader(file, &id, &value)); place = Position(file)) {
    Check(Position(file) > place, "a walk that goes back");
    if (ids.size() < 8) ids.push_back(id);
    Family::Skip(file, value);
  }
  for (const auto& wanted : ids) SearchEverything<Family>(file, wanted);
  for (const auto& wanted : ids) {
    for (const bool isList : {true, false}) {
      uint64_t before = Length(file);
      while (SUCCEEDED(Family::Delete(file, wanted, &value, isList))) {
        Check(Length(file) < before, "a deletion that removes nothing");
        Check(Position(file) == Length(file), "a deletion that ends elsewhere");
        before = Length(file);
      }
    }
  }
  // The updated size can ask for a file of 4 GiB, which costs nothing: it is a hole.
  Family::Update(file, 16);
}

}  // namespace qnfuzz
