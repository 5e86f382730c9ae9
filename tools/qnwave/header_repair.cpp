#include "tools/qnwave/header_repair.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <vector>

#include "qn/media/qnwav.h"
#include "qn/media/riff64.h"
#include "qn/settings/qnstatus.h"
#include "tools/qnwave/describe.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

constexpr uint32_t kWaveForm = 0x45564157;  // "WAVE"
constexpr uint32_t kDataId = 0x61746164;    // "data"
constexpr uint32_t kJunkId = 0x4B4E554A;    // "JUNK"
// A record without cbSize: where the samples start at their earliest, the format chunk holds no more.
constexpr uint32_t kShortRecordBytes = 16;

bool IsWave64(const Layout& layout) {
  return layout.container == Container::kWave64;
}

// The earliest start of samples, and the earliest that the library's own headers reach.
uint64_t EarliestStart(const Layout& layout) {
  return IsWave64(layout) ? 104 : 44;
}
uint64_t EarliestPlainStart(const Layout& layout) {
  return IsWave64(layout) ? 112 : 46;
}

// True where the library's own headers cannot end: they have a record of 18 bytes, and a chunk of their own
// for what is left.
bool NeedsTightHeader(const Layout& layout, uint64_t start) {
  const uint64_t plain = EarliestPlainStart(layout);
  return start != plain && start < plain + RulesOf(layout.container).chunkHeaderBytes;
}

WAVEFORMATEX PlainRecord(const AudioFormat& format) {
  WAVEFORMATEX record;
  QnAudio_InitWfx(&record, format.rate, format.type, format.channels);
  return record;
}

// Keeps each field that makes sense and takes the others from the defaults.
void MendRecord(WAVEFORMATEX* record, const WAVEFORMATEX& defaults) {
  constexpr unsigned kMostChannels = 64;
  constexpr DWORD kLeastRate = 1000;
  constexpr DWORD kMostLikelyRate = 1000000;
  const WORD tag = record->wFormatTag;
  if (tag != WAVE_FORMAT_PCM && tag != WAVE_FORMAT_IEEE_FLOAT && tag != WAVE_FORMAT_EXTENSIBLE) {
    record->wFormatTag = defaults.wFormatTag;
  }
  if (record->nChannels == 0 || record->nChannels > kMostChannels) record->nChannels = defaults.nChannels;
  if (record->nSamplesPerSec < kLeastRate || record->nSamplesPerSec > kMostLikelyRate) {
    record->nSamplesPerSec = defaults.nSamplesPerSec;
  }
  const WORD bits = record->wBitsPerSample;
  const bool isFloat = record->wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
  const bool makesSense = isFloat ? bits == 32 || bits == 64 : bits >= 8 && bits <= 32;
  if (!makesSense)
    record->wBitsPerSample = isFloat && defaults.wBitsPerSample < 32 ? 32 : defaults.wBitsPerSample;
  record->nBlockAlign = static_cast<WORD>(record->nChannels * ((record->wBitsPerSample + 7u) / 8));
  record->nAvgBytesPerSec = record->nSamplesPerSec * record->nBlockAlign;
}

// The record of a file that gets a new header: what stands in the place of its record, mended.
WAVEFORMATEX RecordInPlace(const File& file, const Layout& layout, const RepairOptions& options) {
  WAVEFORMATEX record{};
  file.ReadAt(IsWave64(layout) ? 64 : 20, &record, kShortRecordBytes);
  // What an extensible record says more than a plain one is lost with the header.
  if (record.wFormatTag == WAVE_FORMAT_EXTENSIBLE) record.wFormatTag = 0;
  MendRecord(&record, PlainRecord(options.defaults));
  return record;
}

bool SizeIsWrong(const Layout& layout) {
  return layout.Has(Damage::kDataSize) || layout.Has(Damage::kDataCut);
}

// Whole frames alone are counted when the size is not the writer's own.
uint64_t CountedBytes(const Layout& layout, unsigned frameBytes) {
  const bool round = SizeIsWrong(layout) && frameBytes != 0 && frameBytes <= layout.dataBytes;
  return round ? layout.dataBytes - layout.dataBytes % frameBytes : layout.dataBytes;
}

// The end of the form: of its last chunk, which is the samples where their size was wrong.
uint64_t FormEnd(const Layout& layout, uint64_t dataBytes) {
  const ContainerRules& rules = RulesOf(layout.container);
  uint64_t end = layout.dataStart + rules.Padded(dataBytes);
  if (layout.form.unlisted != 0) end = layout.fileBytes;
  for (const Chunk& chunk : layout.form.children) {
    if (chunk.offset != layout.dataOffset) {
      end = std::max(end, chunk.offset + rules.chunkHeaderBytes + rules.Padded(chunk.size));
    }
  }
  return std::min(end, layout.fileBytes);
}

// Writes the fields of a header. The two containers differ in ids and in how sizes are counted.
class FieldWriter {
 public:
  FieldWriter(const File& file, const Layout& layout)
      : file_(file), wave64_(IsWave64(layout)), headerBytes_(RulesOf(layout.container).chunkHeaderBytes) {}

  HRESULT FileHeader(uint64_t formEnd) const {
    if (!file_.Seek(0)) return QN_E_FILE_WRITE;
    return wave64_ ? riff64_WriteFileID(file_.Get(), &RIFF64_GUID_WAVE, formEnd - headerBytes_)
                   : riff_WriteFileID(file_.Get(), kWaveForm, static_cast<uint32_t>(formEnd - headerBytes_));
  }
  HRESULT FormSize(uint64_t formEnd) const {
    return wave64_ ? riff64_SetRIFFSize(file_.Get(), formEnd - headerBytes_)
                   : riff_SetRIFFSize(file_.Get(), static_cast<uint32_t>(formEnd - headerBytes_));
  }
  HRESULT Format(uint64_t offset, uint64_t bytes) const {
    return ChunkHeader(offset, RIFF_ID_FMT, RIFF64_GUID_FMT, bytes);
  }
  HRESULT Data(uint64_t offset, uint64_t bytes) const {
    return ChunkHeader(offset, kDataId, RIFF64_GUID_DATA, bytes);
  }
  // A chunk that ends at `next`. It keeps its id if that may be one.
  HRESULT Bridge(uint64_t offset, uint64_t next) const {
    GUID id = RIFF64_GUID_JUNK;
    uint32_t fourCc = kJunkId;
    uint8_t name[sizeof(GUID)] = {};
    const uint32_t idBytes = wave64_ ? sizeof(id) : sizeof(fourCc);
    if (!file_.ReadAt(offset, name, idBytes)) return QN_E_FILE_READ;
    if (std::all_of(name, name + 4, [](uint8_t c) { return std::isprint(c) != 0; })) {
      std::memcpy(&id, name, sizeof(id));
      std::memcpy(&fourCc, name, sizeof(fourCc));
    }
    return ChunkHeader(offset, fourCc, id, next - offset - headerBytes_);
  }

 private:
  HRESULT ChunkHeader(uint64_t offset, uint32_t fourCc, const GUID& id, uint64_t bytes) const {
    if (!file_.Seek(offset)) return QN_E_FILE_WRITE;
    return wave64_ ? riff64_WriteChunkHeader(file_.Get(), &id, bytes)
                   : riff_WriteChunkHeader(file_.Get(), fourCc, static_cast<uint32_t>(bytes));
  }

  const File& file_;
  const bool wave64_;
  const uint32_t headerBytes_;
};

// The fields that are wrong, and those alone.
HRESULT PatchFields(const File& file, const Layout& layout, const RepairOptions& options) {
  const FieldWriter writer(file, layout);
  HRESULT status = S_OK;
  WAVEFORMATEX record = layout.record.Format;
  if (layout.Has(Damage::kFormatRecord)) {
    MendRecord(&record, PlainRecord(options.defaults));
    const uint64_t data = layout.formatOffset + RulesOf(layout.container).chunkHeaderBytes;
    if (!file.WriteAt(data, &record, kShortRecordBytes)) return QN_E_FILE_WRITE;
  }
  if (layout.Has(Damage::kFormatId)) status = writer.Format(layout.formatOffset, layout.formatBytes);
  if (status == S_OK && layout.Has(Damage::kBrokenChunk)) {
    status = writer.Bridge(layout.brokenOffset, layout.dataOffset);
  }
  const uint64_t dataBytes = CountedBytes(layout, record.nBlockAlign);
  if (status == S_OK && (SizeIsWrong(layout) || layout.Has(Damage::kDataId))) {
    status = writer.Data(layout.dataOffset, dataBytes);
  }
  const bool newSize = layout.Has(Damage::kFormSize);
  const uint64_t formEnd = newSize ? FormEnd(layout, dataBytes) : layout.header.formSize;
  if (status == S_OK && layout.Has(Damage::kFormHeader)) return writer.FileHeader(formEnd);
  return status == S_OK && newSize ? writer.FormSize(formEnd) : status;
}

// A new header for a start at which the library's own headers do not end: the format chunk fills the room.
HRESULT WriteTightHeader(const File& file, const Layout& layout, const RepairOptions& options,
                         uint64_t start) {
  const ContainerRules& rules = RulesOf(layout.container);
  std::vector<uint8_t> format(start - rules.fileHeaderBytes - 2 * rules.chunkHeaderBytes);
  const WAVEFORMATEX record = RecordInPlace(file, layout, options);
  std::memcpy(format.data(), &record, kShortRecordBytes);
  const uint64_t room = layout.fileBytes - start;
  const uint64_t dataBytes = room - room % record.nBlockAlign;
  const FieldWriter writer(file, layout);
  HRESULT status = writer.FileHeader(std::min(start + rules.Padded(dataBytes), layout.fileBytes));
  if (status == S_OK) status = writer.Format(rules.fileHeaderBytes, format.size());
  const uint64_t formatStart = rules.fileHeaderBytes + rules.chunkHeaderBytes;
  if (status == S_OK && !file.WriteAt(formatStart, format.data(), static_cast<uint32_t>(format.size()))) {
    status = QN_E_FILE_WRITE;
  }
  return status == S_OK ? writer.Data(start - rules.chunkHeaderBytes, dataBytes) : status;
}

// Where the samples of a file without a way to them start: behind a data id, at the limit that was given, or
// where the headers of most programs end, so that whole frames fill the file.
void FindStart(const File& file, const Layout& layout, const RepairOptions& options, RepairPlan* plan) {
  const ContainerRules& rules = RulesOf(layout.container);
  if (layout.hasData) {
    plan->start = layout.dataStart;
    return;
  }
  ByteWindow window(file);
  const uint64_t earliest = EarliestStart(layout);
  const auto found = SearchDataId(window, layout.container, earliest - rules.chunkHeaderBytes,
                                  options.limit.value_or(kSearchLimit));
  plan->startIsGuess = !found;
  if (found) {
    plan->start = *found + rules.chunkHeaderBytes;
  } else if (options.limit) {
    plan->start = std::min(*options.limit, layout.fileBytes);
  } else {
    const unsigned frame = RecordInPlace(file, layout, options).nBlockAlign;
    const uint64_t plain = EarliestPlainStart(layout);
    const bool fits = layout.fileBytes >= earliest && (layout.fileBytes - earliest) % frame == 0;
    const bool plainFits = layout.fileBytes >= plain && (layout.fileBytes - plain) % frame == 0;
    // In doubt the earlier place, which loses nothing.
    plan->start = plainFits && !fits ? plain : earliest;
  }
}

std::string DescribePatches(const Layout& layout) {
  std::string parts;
  const auto add = [&](bool wrong, const char* part) {
    if (!wrong) return;
    parts += parts.empty() ? "" : ", ";
    parts += part;
  };
  add(layout.Has(Damage::kFormHeader), "the id of the file");
  add(layout.Has(Damage::kFormatId), "the id of the format chunk");
  add(layout.Has(Damage::kFormatRecord), "the format record");
  add(layout.Has(Damage::kBrokenChunk), "the size of the chunk in front of the samples");
  add(layout.Has(Damage::kDataId), "the id of the data chunk");
  const bool formSize = layout.Has(Damage::kFormSize);
  add(SizeIsWrong(layout) && formSize, "the sizes of the file and of the data");
  add(SizeIsWrong(layout) && !formSize, "the size of the data");
  add(!SizeIsWrong(layout) && formSize, "the size of the file");
  return "set " + parts + "; the rest of the header is as it was";
}

}  // namespace

std::optional<RepairPlan> PlanRepair(const File& file, const Layout& layout, const RepairOptions& options,
                                     Message* obstacle) {
  RepairPlan plan;
  // The header is held in memory until the repair has proved good.
  constexpr uint64_t kMostHeaderBytes = 256 << 20;
  if (layout.dataStart > kMostHeaderBytes) {
    *obstacle = messages::SamplesTooFar;
    return std::nullopt;
  }
  if (layout.Has(Damage::kTooLarge)) {
    *obstacle = {messages::WavCannotCount, {Message("--to-end")}};
    return std::nullopt;
  }
  plan.rebuild = !layout.hasFormat || !layout.hasData;
  if (!plan.rebuild) {
    if (layout.Has(Damage::kFormatRecord) && layout.formatBytes < kShortRecordBytes) {
      *obstacle = messages::RecordTooShort;
      return std::nullopt;
    }
    plan.start = layout.dataStart;
    plan.done = DescribePatches(layout);
    return plan;
  }
  FindStart(file, layout, options, &plan);
  if (plan.start < EarliestStart(layout) || plan.start >= layout.fileBytes || plan.start > kMostHeaderBytes) {
    *obstacle = messages::NoSamples;
    return std::nullopt;
  }
  if (plan.start % RulesOf(layout.container).alignment != 0) {
    *obstacle = {messages::OddStart, {Message::Number(plan.start)}};
    return std::nullopt;
  }
  if (!IsWave64(layout) && layout.fileBytes - 8 > UINT32_MAX) {
    *obstacle = {messages::WavCannotCount, {Message("--raw-in")}};
    return std::nullopt;
  }
  plan.done = "wrote a new header of " + Bytes(plan.start);
  if (plan.startIsGuess) plan.done += " (no data chunk was found: where the samples start is a guess)";
  return plan;
}

HRESULT CarryOut(const File& file, const Layout& layout, const RepairPlan& plan,
                 const RepairOptions& options) {
  if (!plan.rebuild) return PatchFields(file, layout, options);
  if (NeedsTightHeader(layout, plan.start)) return WriteTightHeader(file, layout, options, plan.start);
  const WAVEFORMATEX defaults = PlainRecord(options.defaults);
  return IsWave64(layout) ? QnFixTrashedW64(file.Get(), &defaults, static_cast<int64_t>(plan.start))
                          : QnFixTrashedWav(file.Get(), &defaults, static_cast<uint32_t>(plan.start));
}

}  // namespace qnwave
