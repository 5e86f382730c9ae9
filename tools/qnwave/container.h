// How the containers store their file header and their chunk headers.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "qn/platform/types.h"
#include "tools/qnwave/file.h"

namespace qnwave {

enum class Container { kUnknown, kWav, kWave64, kRf64, kAiff, kOther };

// "WAV", "Wave64", ...
const char* ContainerName(Container container);

// What a chunk is to this tool.
enum class ChunkKind { kFormat, kData, kList, kSizes64, kOther };

struct ChunkHeader {
  ChunkKind kind = ChunkKind::kOther;
  uint8_t id[16] = {};     // as it stands in the file
  uint64_t size = 0;       // of the data, as stated
  bool plausible = false;  // something that a program may have written as an id
  bool empty = false;      // all bytes of the header are zero
};

struct ContainerRules {
  uint32_t fileHeaderBytes;
  uint32_t chunkHeaderBytes;
  uint32_t alignment;
  uint32_t listTypeBytes;

  uint64_t Padded(uint64_t size) const { return size + (alignment - size % alignment) % alignment; }
};

// The rules of a container whose chunks are walked, all but kUnknown and kOther.
const ContainerRules& RulesOf(Container container);

// The header at an offset, or nothing where the file ends before it does.
std::optional<ChunkHeader> ReadChunkHeader(ByteWindow& window, Container container, uint64_t offset);

// An id for people: four characters, \xNN for those that are not printable, or a GUID that spells none.
std::string ShownId(Container container, const uint8_t* id);

// The type of the list whose data starts at an offset.
std::string ReadListType(ByteWindow& window, Container container, uint64_t offset);

struct FileHeader {
  bool idIsRight = false;
  bool typeIsRight = false;
  std::string type;       // as shown
  uint64_t formSize = 0;  // bytes that the form takes up to its end, counted from the file's start
};

// What stands in the place of a file header.
FileHeader ReadFileHeader(ByteWindow& window, Container container);

// How far a lost data chunk is searched for, in bytes from where it could be.
constexpr uint64_t kSearchLimit = 1 << 20;

// The offset of the first id of a data chunk in [from, to), at any byte.
std::optional<uint64_t> SearchDataId(ByteWindow& window, Container container, uint64_t from, uint64_t to);

// The container that the first bytes name outright: kOther for one that is known and none of ours, kUnknown
// when they name nothing.
Container NamedContainer(ByteWindow& window);

// What a file with a damaged start was, by the ids that are left in their places and by its name.
Container GuessContainer(ByteWindow& window, const std::string& name);

}  // namespace qnwave
