// The records of a `.res` image.
//
// A record begins at a multiple of 4 bytes from the image's start:
//
//   0  u32 size of the data
//   4  u32 size of the header
//   8  type: 0xFFFF and a u16 number, or a wide text with terminator
//      name: likewise, padded to a multiple of 4 from the record's start
//      u32 version of the data, u16 memory flags, u16 language, u32 version, u32 characteristics
//
// The data stand behind the header. Images come from files and from other modules: no size in them is
// trusted, and nothing in them need be aligned in memory.
#pragma once

#include <cstring>

#include "qn/platform/types.h"

namespace qn {

template <class T>
T ReadUnaligned(const uint8_t* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof(T));
  return value;
}

struct ResourceImage {
  const uint8_t* bytes = nullptr;
  uint64_t size = 0;
};

// The type or the name of a record: a number, or a text of UTF-16 units.
struct ResourceName {
  const uint8_t* text = nullptr;  // null: a number; not aligned
  size_t length = 0;              // in units, without the terminator
  WORD id = 0;
};

struct ResourceRecord {
  const uint8_t* start = nullptr;
  ResourceName type, name;
  WORD language = 0;
  const uint8_t* data = nullptr;
  DWORD dataSize = 0;
};

// Walks the records of an image. The walk ends at a record whose sizes add up to less than 13 or beyond the
// image's end, and an image below 32 bytes is empty; a record whose header does not hold what it should is
// passed over.
class ResourceWalk {
 public:
  explicit ResourceWalk(const ResourceImage& image, uint64_t position = 0)
      : image_(image), position_(position) {}
  bool Next(ResourceRecord* record);

 private:
  ResourceImage image_;
  uint64_t position_;
};

// A type or a name to look for: an id, a text, or "#" with the decimal digits of an id.
class WantedName {
 public:
  explicit WantedName(const WCHAR* name);
  bool Matches(const ResourceName& name) const;

 private:
  const WCHAR* text_ = nullptr;
  WORD id_ = 0;
};

// FindResourceExW in an image: true with the record, or false with the last error.
bool FindResourceRecord(const ResourceImage& image, const WCHAR* type, const WCHAR* name, WORD language,
                        ResourceRecord* found);

}  // namespace qn
