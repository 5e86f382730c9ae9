#include "tools/qnwave/layout.h"

#include <algorithm>
#include <cstring>

#include "qn/audio/qnwaveformat.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

// What a tree holds at most: files of hundreds of thousands of chunks are counted, not listed.
constexpr size_t kMostListed = 256;
constexpr int kMostDepth = 4;
// Bytes of a format record that make sense: from the 14 that every one has to an extensible one with a tail.
constexpr uint32_t kLeastRecordBytes = 14;
constexpr uint32_t kMostRecordBytes = 128;
constexpr uint64_t kNowhere = UINT64_MAX;

class Reader {
 public:
  Reader(const File& file, Layout* layout)
      : window_(file), layout_(*layout), rules_(RulesOf(layout->container)) {}

  void Run();

 private:
  uint64_t DataOf(uint64_t chunk) const { return chunk + rules_.chunkHeaderBytes; }
  uint64_t RoomOf(uint64_t chunk) const { return layout_.fileBytes - DataOf(chunk); }
  void Report(Damage damage, Message text) { layout_.problems.push_back({damage, std::move(text)}); }
  void Note(Message text) { layout_.notes.push_back(std::move(text)); }

  std::optional<ChunkHeader> HeaderAt(uint64_t offset);
  Message QuotedIdAt(uint64_t offset) {
    return Message(Quoted(ShownId(layout_.container, HeaderAt(offset)->id)));
  }
  bool LeadsOn(uint64_t offset);
  bool ChainsToEnd(uint64_t offset);
  uint64_t NextChunk(uint64_t offset, uint64_t size);
  bool IsSilent(uint64_t offset);

  void List(Chunk* parent, uint64_t offset, const ChunkHeader& header, int depth);
  void ListChildren(Chunk* parent, uint64_t from, uint64_t to, int depth);
  uint64_t Walk(uint64_t from);
  void TakeFormat(uint64_t offset, uint64_t size);
  void TakeSizes64(uint64_t offset);
  void TakeData(uint64_t offset, ChunkHeader header);
  void JudgeRest(uint64_t end);

  uint64_t FindDisguisedFormat();
  bool IsZeroedFormat(uint64_t chunk);
  bool HasLikelyRecord(uint64_t chunk);
  bool IsData(uint64_t offset);
  bool IsDisguisedData(uint64_t offset);
  bool BridgeToData(uint64_t broken);
  void FindLostData(uint64_t broken);

  void CheckSizes();
  void CheckRecord();

  ByteWindow window_;
  Layout& layout_;
  const ContainerRules& rules_;
  size_t listed_ = 0;
  bool notedPadding_ = false;
  // Chunks that are what they are by their place, whatever their ids say.
  uint64_t formatAt_ = kNowhere;
  uint64_t dataAt_ = kNowhere;
  uint64_t formatSize_ = 0;  // where the header does not tell it
  uint64_t dataSize64_ = 0;
};

std::optional<ChunkHeader> Reader::HeaderAt(uint64_t offset) {
  auto header = ReadChunkHeader(window_, layout_.container, offset);
  if (header && (offset == formatAt_ || offset == dataAt_)) {
    header->kind = offset == formatAt_ ? ChunkKind::kFormat : ChunkKind::kData;
    header->plausible = true;
    if (offset == formatAt_ && formatSize_ != 0) header->size = formatSize_;
  }
  return header;
}

// A chunk that a program may have written and that ends within the file.
bool Reader::LeadsOn(uint64_t offset) {
  const auto header = HeaderAt(offset);
  return header && header->plausible && header->size <= RoomOf(offset);
}

// Whole chunks alone from here to the end of the file, but for a few bytes that hold no header.
bool Reader::ChainsToEnd(uint64_t offset) {
  while (DataOf(offset) <= layout_.fileBytes) {
    if (!LeadsOn(offset)) return false;
    offset = NextChunk(offset, HeaderAt(offset)->size);
  }
  return true;
}

// The place behind a chunk's data and its padding, which some programs leave out.
uint64_t Reader::NextChunk(uint64_t offset, uint64_t size) {
  const uint64_t end = DataOf(offset) + size;
  const uint64_t padded = DataOf(offset) + rules_.Padded(size);
  return end != padded && !LeadsOn(padded) && LeadsOn(end) ? end : padded;
}

// Zeros alone from here to the end of the file, as far as samples of it tell.
bool Reader::IsSilent(uint64_t offset) {
  constexpr uint64_t kSamples = 64;
  const uint64_t count = layout_.fileBytes - offset;
  const uint64_t step = std::max<uint64_t>(count / kSamples, ByteWindow::kMost);
  for (uint64_t at = 0; at < count; at += step) {
    const auto bytes = static_cast<uint32_t>(std::min<uint64_t>(count - at, ByteWindow::kMost));
    const uint8_t* const block = window_.At(offset + at, bytes);
    if (block && !std::all_of(block, block + bytes, [](uint8_t b) { return b == 0; })) return false;
  }
  return true;
}

void Reader::List(Chunk* parent, uint64_t offset, const ChunkHeader& header, int depth) {
  // The two chunks that everything is about are always listed.
  const bool must = depth == 0 && (header.kind == ChunkKind::kFormat || header.kind == ChunkKind::kData);
  if (listed_ >= kMostListed && !must) {
    ++parent->unlisted;
    parent->unlistedBytes += rules_.chunkHeaderBytes + header.size;
    return;
  }
  ++listed_;
  Chunk& chunk = parent->children.emplace_back();
  chunk.id = ShownId(layout_.container, header.id);
  chunk.offset = offset;
  chunk.size = header.size;
  if (header.kind != ChunkKind::kList || header.size < rules_.listTypeBytes || depth >= kMostDepth) return;
  chunk.listType = ReadListType(window_, layout_.container, DataOf(offset));
  const uint64_t end = DataOf(offset) + std::min(header.size, RoomOf(offset));
  ListChildren(&chunk, DataOf(offset) + rules_.listTypeBytes, end, depth + 1);
}

void Reader::ListChildren(Chunk* parent, uint64_t from, uint64_t to, int depth) {
  while (DataOf(from) <= to) {
    const auto header = HeaderAt(from);
    if (!header || !header->plausible || header->size > to - DataOf(from)) return;
    List(parent, from, *header, depth);
    from = NextChunk(from, header->size);
  }
}

// Walks chunks and takes what it meets, up to and with the samples and what is behind them. The result is the
// offset of a chunk that it could not go on from, or kNowhere.
uint64_t Reader::Walk(uint64_t offset) {
  const bool dataHasSamples = layout_.container != Container::kAiff;
  while (DataOf(offset) <= layout_.fileBytes) {
    const ChunkHeader header = *HeaderAt(offset);
    if (!header.plausible) return offset;
    if (header.kind == ChunkKind::kData && dataHasSamples && !layout_.hasData) {
      TakeData(offset, header);
      return kNowhere;
    }
    if (header.size > RoomOf(offset)) return offset;
    List(&layout_.form, offset, header, 0);
    if (header.kind == ChunkKind::kFormat && !layout_.hasFormat) TakeFormat(offset, header.size);
    if (header.kind == ChunkKind::kSizes64) TakeSizes64(offset);
    const uint64_t next = NextChunk(offset, header.size);
    if (next < DataOf(offset) + rules_.Padded(header.size) && !notedPadding_) {
      notedPadding_ = true;
      Note({messages::NoPadding, {Message::Number(offset)}});
    }
    offset = next;
  }
  return kNowhere;
}

void Reader::TakeFormat(uint64_t offset, uint64_t size) {
  if (layout_.container == Container::kAiff) return;
  const auto bytes = static_cast<uint32_t>(std::min<uint64_t>(size, sizeof(layout_.record)));
  const uint8_t* const data = window_.At(DataOf(offset), bytes);
  if (!data) return;
  layout_.hasFormat = true;
  layout_.formatOffset = offset;
  layout_.formatBytes = size;
  std::memcpy(&layout_.record, data, bytes);
}

// The sizes of an RF64 file: of the form, less its first 8 bytes, and of the samples.
void Reader::TakeSizes64(uint64_t offset) {
  const uint8_t* const data = window_.At(DataOf(offset), 16);
  if (!data || layout_.container != Container::kRf64) return;
  std::memcpy(&layout_.header.formSize, data, 8);
  layout_.header.formSize += 8;
  std::memcpy(&dataSize64_, data + 8, 8);
}

// The data chunk, its size held against the file.
void Reader::TakeData(uint64_t offset, ChunkHeader header) {
  if (layout_.container == Container::kRf64 && header.size == UINT32_MAX) header.size = dataSize64_;
  const uint64_t size = header.size;
  const uint64_t room = RoomOf(offset);
  layout_.hasData = true;
  layout_.dataOffset = offset;
  layout_.dataStart = DataOf(offset);
  layout_.statedBytes = size;
  layout_.dataBytes = std::min(size, room);
  List(&layout_.form, offset, header, 0);

  // As far as the record tells it: a record may be damaged too.
  const uint64_t oneFrame = std::clamp<uint64_t>(layout_.record.Format.nBlockAlign, 1, 256);
  if (size > room) {
    const bool open = layout_.container == Container::kWav && size == UINT32_MAX;
    Report(Damage::kDataCut, open ? Message(messages::DataOpen, {Message::Bytes(room)})
                                  : Message(messages::DataCut, {Message::Bytes(size), Message::Bytes(room)}));
  } else if (size == 0 && room >= oneFrame && !ChainsToEnd(layout_.dataStart)) {
    layout_.dataBytes = room;
    Report(Damage::kDataSize, {messages::DataZero, {Message::Bytes(room)}});
  } else {
    JudgeRest(NextChunk(offset, size));
  }
}

// What stands behind the samples: more chunks, something else, or samples that the size does not count.
void Reader::JudgeRest(uint64_t end) {
  if (end >= layout_.fileBytes) return;
  const auto next = HeaderAt(end);
  if (next && next->plausible) {
    const uint64_t broken = Walk(end);
    if (broken != kNowhere) {
      Note({messages::BrokenBehind, {Message::Number(broken)}});
    }
    return;
  }
  // A form that counts the rest as its own, or a file beyond what a WAV file can count, has a data chunk that
  // counts too little. Zeros are padding.
  const uint64_t formEnd = layout_.header.formSize;
  const bool claimed = formEnd + rules_.alignment > layout_.fileBytes &&
                       formEnd <= layout_.fileBytes + rules_.chunkHeaderBytes;
  const bool wrapped = layout_.container == Container::kWav && layout_.fileBytes > UINT32_MAX;
  if (next && (claimed || wrapped) && !IsSilent(end)) {
    layout_.dataBytes = layout_.fileBytes - layout_.dataStart;
    Report(Damage::kDataSize, {messages::DataFollowed, {Message::Bytes(layout_.statedBytes)}});
    return;
  }
  Note({messages::RestNoChunk, {Message::Bytes(layout_.fileBytes - end)}});
}

// The format chunk of a file that has none by its id: a chunk with a likely record, or else a first chunk of
// a record's size that leads on.
uint64_t Reader::FindDisguisedFormat() {
  const uint64_t first = rules_.fileHeaderBytes;
  if (IsZeroedFormat(first)) return first;
  uint64_t likely = kNowhere;
  uint64_t possible = kNowhere;
  for (uint64_t offset = first;;) {
    const auto header = HeaderAt(offset);
    if (header && header->kind == ChunkKind::kFormat) return kNowhere;
    if (!header || header->kind == ChunkKind::kData) break;
    const bool fits = header->size >= kLeastRecordBytes && header->size <= kMostRecordBytes;
    const uint64_t next = DataOf(offset) + rules_.Padded(header->size);
    if (fits && likely == kNowhere && HasLikelyRecord(offset)) {
      likely = offset;
    } else if (fits && offset == first && (LeadsOn(next) || IsData(next))) {
      possible = offset;
    } else if (!LeadsOn(offset)) {
      break;
    }
    offset = next;
  }
  return likely != kNowhere ? likely : possible;
}

// A header that was zeroed in front of a record that was not: the chunk ends where the data chunk starts.
bool Reader::IsZeroedFormat(uint64_t chunk) {
  const auto header = HeaderAt(chunk);
  if (!header || !header->empty || !HasLikelyRecord(chunk)) return false;
  const uint64_t record = DataOf(chunk);
  const auto data =
      SearchDataId(window_, layout_.container, record + kLeastRecordBytes, record + kMostRecordBytes);
  if (!data || (*data - record) % rules_.alignment != 0) return false;
  formatSize_ = *data - record;
  return true;
}

bool Reader::HasLikelyRecord(uint64_t chunk) {
  WAVEFORMATEX record{};
  const uint8_t* const data = window_.At(DataOf(chunk), kLeastRecordBytes);
  if (!data) return false;
  std::memcpy(&record, data, kLeastRecordBytes);
  return (record.wFormatTag == WAVE_FORMAT_PCM || record.wFormatTag == WAVE_FORMAT_IEEE_FLOAT ||
          record.wFormatTag == WAVE_FORMAT_EXTENSIBLE) &&
         record.nChannels != 0 && record.nBlockAlign != 0 && record.nSamplesPerSec != 0 &&
         record.nAvgBytesPerSec == record.nSamplesPerSec * record.nBlockAlign;
}

bool Reader::IsData(uint64_t offset) {
  const auto header = HeaderAt(offset);
  return header && header->kind == ChunkKind::kData;
}

// Behind a format chunk, a chunk that fills the file exactly, or a header that was zeroed, is the data chunk.
bool Reader::IsDisguisedData(uint64_t offset) {
  const auto header = HeaderAt(offset);
  if (!header || !layout_.hasFormat) return false;
  const uint64_t room = RoomOf(offset);
  return header->empty ||
         (header->size != 0 && (header->size == room || rules_.Padded(header->size) == room));
}

// A chunk in front of the samples whose header does not lead to the data chunk: looks for that at any byte
// behind the format chunk. Ids that are followed by an impossible size are text in a chunk.
bool Reader::BridgeToData(uint64_t broken) {
  uint64_t from = DataOf(layout_.formatOffset) + rules_.Padded(layout_.formatBytes);
  const uint64_t limit = from + kSearchLimit;
  for (;;) {
    const auto found = SearchDataId(window_, layout_.container, from, limit);
    const auto header = found ? HeaderAt(*found) : std::nullopt;
    if (!header) return false;
    from = *found + 1;
    const bool possible = header->size <= RoomOf(*found) || header->size == UINT32_MAX;
    // The chunk that this one lies in, or that the walk ended at, must be able to end here.
    std::vector<Chunk>& chunks = layout_.form.children;
    uint64_t owner = broken != kNowhere && broken < *found ? broken : layout_.formatOffset;
    for (const Chunk& chunk : chunks) {
      if (chunk.offset < *found) owner = std::max(owner, chunk.offset);
    }
    if (!possible || owner == layout_.formatOffset || *found < DataOf(owner) ||
        (*found - owner) % rules_.alignment != 0) {
      continue;
    }
    chunks.erase(
        std::remove_if(chunks.begin(), chunks.end(), [&](const Chunk& c) { return c.offset >= owner; }),
        chunks.end());
    layout_.brokenOffset = owner;
    Report(Damage::kBrokenChunk, {messages::ChunkAstray, {Message::Number(owner)}});
    TakeData(*found, *header);
    return true;
  }
}

// The samples of a file whose chunks do not lead to them.
void Reader::FindLostData(uint64_t broken) {
  if (!layout_.hasFormat) return;
  if (broken == kNowhere || !IsDisguisedData(broken)) {
    if (BridgeToData(broken)) return;
    // All chunks are whole and none is the data: the last one is if it fills most of the file.
    const std::vector<Chunk>& chunks = layout_.form.children;
    if (broken != kNowhere || layout_.form.unlisted != 0 || chunks.empty()) return;
    const Chunk& last = chunks.back();
    if (!last.listType.empty() || last.size < layout_.fileBytes / 2 || !IsDisguisedData(last.offset)) return;
    broken = last.offset;
    layout_.form.children.pop_back();
  }
  Report(Damage::kDataId, {messages::DataId, {QuotedIdAt(broken)}});
  dataAt_ = broken;
  Walk(broken);
}

void Reader::CheckSizes() {
  if (!layout_.hasData) return;
  // Some writers count a header or the padding too much or too little.
  const uint64_t slack = rules_.chunkHeaderBytes;
  const uint64_t stated = layout_.header.formSize;
  const uint64_t dataEnd = layout_.dataStart + layout_.dataBytes;
  if (layout_.container == Container::kWav && dataEnd - 8 > UINT32_MAX) {
    Report(Damage::kTooLarge, {messages::TooManySamples, {Message::Bytes(layout_.dataBytes)}});
  } else if (stated > layout_.fileBytes + slack) {
    Report(Damage::kFormSize,
           {messages::FormSizeBeyond, {Message::Bytes(stated), Message::Bytes(layout_.fileBytes)}});
  } else if (stated + slack < dataEnd) {
    Report(Damage::kFormSize, {messages::FormSizeBefore, {Message::Bytes(stated), Message::Number(dataEnd)}});
  }
}

// Fields with which no reader finds its way through the samples. Formats that are merely unusual pass.
void Reader::CheckRecord() {
  constexpr unsigned kMostChannels = 4096;
  constexpr unsigned kMostHertz = 1000000000;
  constexpr unsigned kMostBits = 64;
  const WAVEFORMATEX& format = layout_.record.Format;
  const unsigned tag = QnAudio_GetWaveFormatTag(&format);
  const unsigned frame = format.nChannels * ((format.wBitsPerSample + 7u) / 8);
  const bool linear = tag == WAVE_FORMAT_PCM || tag == WAVE_FORMAT_IEEE_FLOAT;
  const auto plain = [](unsigned number) { return Message(std::to_string(number)); };
  const bool empty = format.wFormatTag == 0 || format.nChannels == 0 || format.nSamplesPerSec == 0 ||
                     (linear && format.wBitsPerSample == 0);
  if (empty || format.nChannels > kMostChannels || format.nSamplesPerSec > kMostHertz ||
      format.wBitsPerSample > kMostBits) {
    Report(Damage::kFormatRecord, {messages::RecordSenseless,
                                   {plain(format.wFormatTag), plain(format.nChannels),
                                    plain(format.nSamplesPerSec), plain(format.wBitsPerSample)}});
  } else if (linear && (format.nBlockAlign < frame || format.nBlockAlign % format.nChannels != 0)) {
    Report(Damage::kFormatRecord,
           {messages::RecordFrames,
            {Message::Bytes(format.nBlockAlign), plain(format.nChannels), plain(format.wBitsPerSample)}});
  }
}

void Reader::Run() {
  layout_.header = ReadFileHeader(window_, layout_.container);
  layout_.form.id = ContainerName(layout_.container);
  layout_.form.listType = layout_.header.type;
  if (!layout_.header.idIsRight || !layout_.header.typeIsRight) {
    Report(Damage::kFormHeader, {messages::WrongStart, {Message(ContainerName(layout_.container))}});
  }
  const bool repairable = layout_.IsRepairable();
  if (repairable) formatAt_ = FindDisguisedFormat();
  if (formatAt_ != kNowhere) {
    Report(Damage::kFormatId, {messages::FormatId, {QuotedIdAt(formatAt_)}});
  }
  const uint64_t broken = Walk(rules_.fileHeaderBytes);
  layout_.form.size = layout_.header.formSize;
  if (layout_.container == Container::kAiff) {
    if (broken != kNowhere) Note({messages::ChunkBeyond, {Message::Number(broken)}});
    return;
  }
  if (repairable && !layout_.hasData) FindLostData(broken);
  CheckSizes();
  if (layout_.hasFormat) {
    CheckRecord();
  } else {
    Report(Damage::kNoFormat, messages::NoFormatChunk);
  }
  if (!layout_.hasData) Report(Damage::kNoData, messages::NoDataChunk);
}

}  // namespace

bool Layout::IsRepairable() const {
  return container == Container::kWav || container == Container::kWave64;
}

bool Layout::Has(Damage damage) const {
  return std::any_of(problems.begin(), problems.end(), [&](const Problem& p) { return p.damage == damage; });
}

Layout ReadLayout(const File& file, const std::string& name, Container assumed) {
  ByteWindow window(file);
  Layout layout;
  layout.fileBytes = window.FileSize();
  layout.container = NamedContainer(window);
  if (layout.container == Container::kUnknown) {
    layout.container = assumed != Container::kUnknown ? assumed : GuessContainer(window, name);
  }
  if (layout.container != Container::kUnknown && layout.container != Container::kOther) {
    Reader(file, &layout).Run();
  }
  return layout;
}

}  // namespace qnwave
