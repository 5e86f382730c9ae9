// Which container a file is.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "qn/media/riff64.h"
#include "tools/qnwave/container.h"

namespace qnwave {
namespace {

bool Is(const uint8_t* bytes, std::string_view id) {
  return std::memcmp(bytes, id.data(), id.size()) == 0;
}

// The id of the data chunk, as it stands in the file.
std::string_view DataId(Container container) {
  if (container != Container::kWave64) return "data";
  return std::string_view(reinterpret_cast<const char*>(&RIFF64_GUID_DATA), sizeof(RIFF64_GUID_DATA));
}

bool EndsWith(const std::string& name, std::string_view ending) {
  return name.size() >= ending.size() &&
         std::equal(ending.begin(), ending.end(), name.end() - static_cast<ptrdiff_t>(ending.size()),
                    [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? b - 'A' + 'a' : b); });
}

// How many of a container's ids stand in their places.
int CountIds(ByteWindow& window, Container container) {
  const uint32_t start = RulesOf(container).fileHeaderBytes;
  const FileHeader header = ReadFileHeader(window, container);
  const auto first = ReadChunkHeader(window, container, start);
  const auto data = SearchDataId(window, container, start, ByteWindow::kMost);
  return header.idIsRight + header.typeIsRight + (first && first->kind == ChunkKind::kFormat) +
         data.has_value();
}

bool StartsWithZeros(ByteWindow& window) {
  constexpr uint32_t kCount = 12;
  const uint8_t* const bytes = window.At(0, kCount);
  return bytes && std::all_of(bytes, bytes + kCount, [](uint8_t b) { return b == 0; });
}

}  // namespace

std::optional<uint64_t> SearchDataId(ByteWindow& window, Container container, uint64_t from, uint64_t to) {
  const std::string_view id = DataId(container);
  to = std::min(to, window.FileSize());
  while (from + id.size() <= to) {
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(ByteWindow::kMost, to - from));
    const uint8_t* const bytes = window.At(from, count);
    if (!bytes) return std::nullopt;
    const uint8_t* const hit = std::search(bytes, bytes + count, id.begin(), id.end(),
                                           [](uint8_t a, char b) { return a == static_cast<uint8_t>(b); });
    if (hit != bytes + count) return from + static_cast<uint64_t>(hit - bytes);
    from += count - (id.size() - 1);
  }
  return std::nullopt;
}

Container NamedContainer(ByteWindow& window) {
  for (const Container container :
       {Container::kWav, Container::kWave64, Container::kRf64, Container::kAiff}) {
    const FileHeader header = ReadFileHeader(window, container);
    if (header.idIsRight && header.typeIsRight) return container;
  }
  const uint8_t* const bytes = window.At(0, RulesOf(Container::kWav).fileHeaderBytes);
  if (!bytes) return Container::kUnknown;
  // Forms of other content, and other files whose bytes may hold any of our ids by chance.
  constexpr std::string_view kOtherForms[] = {"AVI ", "CDDA", "RMID", "WEBP", "ACON", "sfbk", "DLS "};
  constexpr std::string_view kOtherStarts[] = {"RIFX",  "FORM", "fLaC",    "OggS",  "ID3\3",
                                               "ID3\4", "%PDF", "\x89PNG", "PK\3\4"};
  const auto is = [&](size_t at) { return [bytes, at](std::string_view id) { return Is(bytes + at, id); }; };
  const bool other =
      std::any_of(std::begin(kOtherStarts), std::end(kOtherStarts), is(0)) ||
      (Is(bytes, "RIFF") && std::any_of(std::begin(kOtherForms), std::end(kOtherForms), is(8)));
  return other ? Container::kOther : Container::kUnknown;
}

Container GuessContainer(ByteWindow& window, const std::string& name) {
  const bool namedWav = EndsWith(name, ".wav") || EndsWith(name, ".wave");
  // One id of 16 bytes is no accident, one of 4 may be.
  if (CountIds(window, Container::kWave64) >= 1) return Container::kWave64;
  if (CountIds(window, Container::kWav) >= (namedWav ? 1 : 2)) return Container::kWav;
  if (!StartsWithZeros(window)) return Container::kUnknown;
  if (namedWav) return Container::kWav;
  return EndsWith(name, ".w64") ? Container::kWave64 : Container::kUnknown;
}

}  // namespace qnwave
