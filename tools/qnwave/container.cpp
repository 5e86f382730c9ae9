#include "tools/qnwave/container.h"

#include <cstdio>
#include <cstring>

#include "qn/media/riff64.h"

namespace qnwave {
namespace {

constexpr ContainerRules kRiffRules = {12, 8, 2, 4};
constexpr ContainerRules kWave64Rules = {40, 24, 8, 16};
// Bytes 4 to 15 of the ids that spell a name of four characters.
constexpr uint8_t kFormGuidTail[] = {0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};

uint64_t Little(const uint8_t* bytes, unsigned count) {
  uint64_t value = 0;
  for (unsigned i = count; i-- > 0;) value = value << 8 | bytes[i];
  return value;
}

uint32_t Big32(const uint8_t* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

bool Is(const uint8_t* bytes, const char* fourCharacters) {
  return std::memcmp(bytes, fourCharacters, 4) == 0;
}

bool Is(const uint8_t* bytes, const GUID& guid) {
  return std::memcmp(bytes, &guid, sizeof(guid)) == 0;
}

bool IsPrintable(uint8_t c) {
  return c >= 0x20 && c < 0x7F;
}

bool ArePrintable(const uint8_t* bytes, unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    if (!IsPrintable(bytes[i])) return false;
  }
  return true;
}

bool AreZero(const uint8_t* bytes, unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    if (bytes[i] != 0) return false;
  }
  return true;
}

std::string ShownFourCc(const uint8_t* bytes) {
  std::string text;
  for (unsigned i = 0; i < 4; ++i) {
    char escape[8];
    std::snprintf(escape, sizeof(escape), IsPrintable(bytes[i]) ? "%c" : "\\x%02X", bytes[i]);
    text += escape;
  }
  return text;
}

// True for an id whose first four characters tell all.
bool SpellsName(const uint8_t* guid) {
  return ArePrintable(guid, 4) &&
         (std::memcmp(guid + 4, kFormGuidTail, sizeof(kFormGuidTail)) == 0 || Is(guid, RIFF64_GUID_LIST) ||
          Is(guid, RIFF64_GUID_RIFF) || Is(guid, RIFF64_GUID_JUNK));
}

std::string ShownGuid(const uint8_t* bytes) {
  GUID id;
  std::memcpy(&id, bytes, sizeof(id));
  char text[48];
  std::snprintf(text, sizeof(text), "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", id.Data1, id.Data2,
                id.Data3, id.Data4[0], id.Data4[1], id.Data4[2], id.Data4[3], id.Data4[4], id.Data4[5],
                id.Data4[6], id.Data4[7]);
  return text;
}

ChunkKind RiffKind(const uint8_t* id, Container container) {
  if (container == Container::kAiff) {
    return Is(id, "COMM") ? ChunkKind::kFormat : Is(id, "SSND") ? ChunkKind::kData : ChunkKind::kOther;
  }
  if (Is(id, "fmt ")) return ChunkKind::kFormat;
  if (Is(id, "data")) return ChunkKind::kData;
  if (Is(id, "LIST")) return ChunkKind::kList;
  return Is(id, "ds64") ? ChunkKind::kSizes64 : ChunkKind::kOther;
}

ChunkKind Wave64Kind(const uint8_t* id) {
  if (Is(id, RIFF64_GUID_FMT)) return ChunkKind::kFormat;
  if (Is(id, RIFF64_GUID_DATA)) return ChunkKind::kData;
  return Is(id, RIFF64_GUID_LIST) ? ChunkKind::kList : ChunkKind::kOther;
}

}  // namespace

const char* ContainerName(Container container) {
  switch (container) {
    case Container::kWav:
      return "WAV";
    case Container::kWave64:
      return "Wave64";
    case Container::kRf64:
      return "RF64";
    case Container::kAiff:
      return "AIFF";
    default:
      return "unknown";
  }
}

const ContainerRules& RulesOf(Container container) {
  return container == Container::kWave64 ? kWave64Rules : kRiffRules;
}

std::optional<ChunkHeader> ReadChunkHeader(ByteWindow& window, Container container, uint64_t offset) {
  const ContainerRules& rules = RulesOf(container);
  const uint8_t* const bytes = window.At(offset, rules.chunkHeaderBytes);
  if (!bytes) return std::nullopt;
  ChunkHeader header;
  header.empty = AreZero(bytes, rules.chunkHeaderBytes);
  if (container == Container::kWave64) {
    const uint64_t stored = Little(bytes + 16, 8);
    header.kind = Wave64Kind(bytes);
    std::memcpy(header.id, bytes, 16);
    header.size = stored < rules.chunkHeaderBytes ? 0 : stored - rules.chunkHeaderBytes;
    // Not every id spells a name, but such a chunk has a size that makes sense.
    const uint64_t room = window.FileSize() - offset;
    header.plausible =
        SpellsName(bytes) || (!AreZero(bytes, 16) && stored >= rules.chunkHeaderBytes && stored <= room);
  } else {
    header.kind = RiffKind(bytes, container);
    std::memcpy(header.id, bytes, 4);
    header.size = container == Container::kAiff ? Big32(bytes + 4) : Little(bytes + 4, 4);
    header.plausible = ArePrintable(bytes, 4);
  }
  return header;
}

std::string ShownId(Container container, const uint8_t* id) {
  return container == Container::kWave64 && !SpellsName(id) ? ShownGuid(id) : ShownFourCc(id);
}

std::string ReadListType(ByteWindow& window, Container container, uint64_t offset) {
  const uint8_t* const bytes = window.At(offset, RulesOf(container).listTypeBytes);
  return bytes ? ShownId(container, bytes) : std::string();
}

FileHeader ReadFileHeader(ByteWindow& window, Container container) {
  FileHeader header;
  const uint8_t* const bytes = window.At(0, RulesOf(container).fileHeaderBytes);
  if (!bytes) return header;
  switch (container) {
    case Container::kWave64:
      header.idIsRight = Is(bytes, RIFF64_GUID_RIFF);
      header.typeIsRight = Is(bytes + 24, RIFF64_GUID_WAVE);
      header.type = ShownId(container, bytes + 24);
      header.formSize = Little(bytes + 16, 8);
      return header;
    case Container::kAiff:
      header.idIsRight = Is(bytes, "FORM");
      header.typeIsRight = Is(bytes + 8, "AIFF") || Is(bytes + 8, "AIFC");
      header.formSize = uint64_t{Big32(bytes + 4)} + 8;
      break;
    default:
      header.idIsRight =
          container == Container::kRf64 ? Is(bytes, "RF64") || Is(bytes, "BW64") : Is(bytes, "RIFF");
      header.typeIsRight = Is(bytes + 8, "WAVE");
      header.formSize = Little(bytes + 4, 4) + 8;
  }
  header.type = ShownFourCc(bytes + 8);
  return header;
}

}  // namespace qnwave
