#include "tools/qnwave/tag_file.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "qn/media/riff64.h"
#include "qn/settings/qnstatus.h"
#include "tools/common/interrupt.h"
#include "tools/qnwave/report.h"

namespace qnwave {
namespace {

// What is read of the lists, and so what is written of them: a file that claims more is damaged or no one's
// idea of tags.
constexpr uint64_t kMostListBytes = 4 << 20;
constexpr size_t kMostLists = 4096;
// The largest size that the header of a WAV file is given.
constexpr uint64_t kMostFormSize = 0xFFFFFFF7;
// The smallest page that systems have.
constexpr uint64_t kPageBytes = 4096;
// Behind the type of a list; a summary has its count in that place.
constexpr uint64_t kPrefixBytes = 4;

class ListFinder {
 public:
  ListFinder(const File& file, TagFile* result)
      : file_(file),
        window_(file),
        result_(*result),
        layout_(result->layout),
        rules_(RulesOf(layout_.container)) {}

  void Run();

 private:
  bool LeadsOn(uint64_t offset);
  uint64_t Next(uint64_t offset, uint64_t size);
  std::optional<TagForm> FormOf(uint64_t offset, const ChunkHeader& header);
  void Take(TagForm form, uint64_t offset, uint64_t size, uint64_t end, bool isCut);

  const File& file_;
  ByteWindow window_;
  TagFile& result_;
  const Layout& layout_;
  const ContainerRules& rules_;
  uint64_t left_ = kMostListBytes;
};

bool IsFiller(Container container, const ChunkHeader& header) {
  if (container == Container::kWave64) return std::memcmp(header.id, &RIFF64_GUID_JUNK, 16) == 0;
  return std::memcmp(header.id, "JUNK", 4) == 0 || std::memcmp(header.id, "junk", 4) == 0 ||
         std::memcmp(header.id, "PAD ", 4) == 0;
}

bool ListFinder::LeadsOn(uint64_t offset) {
  const auto header = ReadChunkHeader(window_, layout_.container, offset);
  const uint64_t data = offset + rules_.chunkHeaderBytes;
  return header && header->plausible && header->size <= layout_.fileBytes - data;
}

// Behind the padding, which some programs leave out.
uint64_t ListFinder::Next(uint64_t offset, uint64_t size) {
  const uint64_t data = offset + rules_.chunkHeaderBytes;
  const uint64_t padded = data + rules_.Padded(size);
  return padded != data + size && !LeadsOn(padded) && LeadsOn(data + size) ? data + size : padded;
}

std::optional<TagForm> ListFinder::FormOf(uint64_t offset, const ChunkHeader& header) {
  if (layout_.container == Container::kWave64) {
    if (std::memcmp(header.id, kSummaryId, sizeof(kSummaryId)) != 0) return std::nullopt;
    return TagForm::kSummary;
  }
  if (header.kind != ChunkKind::kList || header.size < kPrefixBytes) return std::nullopt;
  const std::string type = ReadListType(window_, layout_.container, offset + rules_.chunkHeaderBytes);
  if (type == TagFormName(TagForm::kInfo)) return TagForm::kInfo;
  if (type == TagFormName(TagForm::kUnfo)) return TagForm::kUnfo;
  return std::nullopt;
}

// `size` is that of the chunk's data, within the file.
void ListFinder::Take(TagForm form, uint64_t offset, uint64_t size, uint64_t end, bool isCut) {
  TagList list;
  list.form = form;
  const uint64_t start = offset + rules_.chunkHeaderBytes + kPrefixBytes;
  const uint64_t count = size < kPrefixBytes ? 0 : size - kPrefixBytes;
  list.bytes.resize(std::min(count, left_));
  uint32_t items = 0;
  const bool isRead = size >= kPrefixBytes && file_.ReadAt(start - kPrefixBytes, &items, sizeof(items)) &&
                      file_.ReadAt(start, list.bytes.data(), static_cast<uint32_t>(list.bytes.size()));
  if (!isRead) list.bytes.clear();
  ReadTagItems(&list, items);
  if (count > left_) {
    list.isDamaged = true;
    result_.damage.push_back({messages::TagsTooLarge, {Message::Bytes(kMostListBytes)}});
  } else if (list.isDamaged || isCut || !isRead) {
    const uint64_t at = list.isDamaged ? start + list.damagedAt : offset;
    list.isDamaged = true;
    result_.damage.push_back({messages::TagsDamaged, {Message::Number(at)}});
  }
  left_ -= std::min(count, left_);
  result_.lists.push_back(std::move(list));
  result_.places.push_back({offset, end, end});
}

void ListFinder::Run() {
  uint64_t at = rules_.fileHeaderBytes;
  while (at + rules_.chunkHeaderBytes <= layout_.fileBytes) {
    const ChunkHeader header = *ReadChunkHeader(window_, layout_.container, at);
    const uint64_t room = layout_.fileBytes - at - rules_.chunkHeaderBytes;
    // The layout knows more of the samples than their chunk's header tells.
    const bool isData = layout_.hasData && at == layout_.dataOffset;
    const uint64_t size = isData ? layout_.dataBytes : header.size;
    const auto form = isData ? std::nullopt : FormOf(at, header);
    if (!isData && (!header.plausible || size > room)) {
      if (form) Take(*form, at, room, layout_.fileBytes, true);
      if (layout_.hasData && at < layout_.dataOffset) {
        at = layout_.dataOffset;
        continue;
      }
      if (form) at = layout_.fileBytes;
      break;
    }
    const uint64_t next = Next(at, size);
    TagPlace* const last = result_.places.empty() ? nullptr : &result_.places.back();
    if (last && last->end == at && IsFiller(layout_.container, header)) last->fillerEnd = next;
    if (form && result_.lists.size() == kMostLists) {
      result_.damage.push_back({messages::TagsTooMany, {Message::Number(kMostLists)}});
      result_.hasMoreLists = true;
      return;
    }
    if (form) Take(*form, at, size, next, false);
    if (layout_.hasData && at > layout_.dataOffset && IsFiller(layout_.container, header)) {
      result_.newPlace = {at, at, next};
    }
    at = next;
  }
  result_.chunksEnd = at;
  // Filler at the end is room too; what a filler in front of the samples is for is its writer's matter.
  if (result_.newPlace.fillerEnd != at) result_.newPlace = {at, at, at};
  // Some readers of Wave64 files do not find their way past the padding of the samples.
  const uint64_t data = layout_.dataOffset;
  if (layout_.container == Container::kWave64 && rules_.Padded(layout_.dataBytes) != layout_.dataBytes) {
    result_.newPlace = {data, data, data};
  }
}

bool WriteAll(int target, const uint8_t* bytes, size_t count, uint64_t offset) {
  while (count > 0) {
    const ssize_t put = pwrite(target, bytes, count, static_cast<off_t>(offset));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return false;
    bytes += put;
    count -= static_cast<size_t>(put);
    offset += static_cast<uint64_t>(put);
  }
  return true;
}

// Copies [from, to) to another place. Holes of sparse files stay holes.
HRESULT CopyRange(int source, uint64_t from, uint64_t to, int target, uint64_t offset,
                  const std::function<void(uint64_t)>& progress) {
  constexpr size_t kBlockBytes = 1 << 20;
  std::vector<uint8_t> block(kBlockBytes);
  uint64_t hole = from;
  for (uint64_t at = from; at < to;) {
    if (qntool::InterruptSignal() != 0) return QN_E_CANCELLED;
    if (at == hole) {
      // Where the system knows of no holes all is data.
      const off_t data = lseek(source, static_cast<off_t>(at), SEEK_DATA);
      if (data < 0 && errno == ENXIO) return S_OK;
      const uint64_t start = data < 0 ? at : static_cast<uint64_t>(data);
      const off_t end = lseek(source, static_cast<off_t>(start), SEEK_HOLE);
      offset += std::min(start, to) - at;
      at = start;
      hole = std::max(end < 0 ? to : std::min(static_cast<uint64_t>(end), to), std::min(at, to));
      continue;
    }
    const ssize_t got =
        pread(source, block.data(), std::min<uint64_t>(block.size(), hole - at), static_cast<off_t>(at));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return QN_E_FILE_READ;
    if (!WriteAll(target, block.data(), static_cast<size_t>(got), offset))
      return qntool::StatusFromErrno(QN_E_FILE_WRITE);
    at += static_cast<uint64_t>(got);
    offset += static_cast<uint64_t>(got);
    progress(at);
  }
  return S_OK;
}

// True for lists that ListFinder reads to their end, whatever fills the room behind them.
bool AreReadAgain(const std::vector<TagList>& lists, const ContainerRules& rules) {
  uint64_t bytes = 0;
  size_t count = 0;
  for (const TagList& list : lists) {
    if (list.isChanged && list.items.empty()) continue;
    bytes += list.bytes.size() + rules.chunkHeaderBytes;
    ++count;
  }
  return bytes <= kMostListBytes && count <= kMostLists;
}

}  // namespace

TagFile ReadTagFile(const File& file, const std::string& name) {
  TagFile result;
  result.layout = ReadLayout(file, name);
  const Container container = result.layout.container;
  if (result.layout.IsRepairable() || container == Container::kRf64) ListFinder(file, &result).Run();
  return result;
}

TagWriter::TagWriter(const File& file, const TagFile& before, const std::vector<TagList>& changed)
    : file_(file),
      before_(before),
      rules_(RulesOf(before.layout.container)),
      fileBytes_(before.layout.fileBytes),
      formEnd_(before.layout.header.formSize) {
  CollectSplices(changed);
  if (splices_.empty()) return;
  const uint64_t oldFormEnd = formEnd_;
  const bool isInPlace = PlanInPlace();
  uint64_t end = before.chunksEnd + grownBy_;
  if (!isInPlace) {
    end = before.chunksEnd;
    for (const Splice& splice : splices_) end += splice.bytes.size() - (splice.end - splice.offset);
  }
  // A header that left chunks out counts them from now on.
  formEnd_ = oldFormEnd >= before.chunksEnd ? oldFormEnd + (end - before.chunksEnd) : end;
  const bool isWav = before.layout.container == Container::kWav;
  if (!AreReadAgain(changed, rules_)) {
    road_ = TagRoad::kTooMuch;
  } else if (isWav && formEnd_ > oldFormEnd && formEnd_ - 8 > kMostFormSize) {
    road_ = TagRoad::kTooLarge;
  } else {
    road_ = isInPlace ? TagRoad::kInPlace : TagRoad::kAnew;
  }
}

// One for each list that changes; lists that are new stand behind the last one that was there.
void TagWriter::CollectSplices(const std::vector<TagList>& changed) {
  const size_t count = before_.places.size();
  for (size_t i = 0; i < changed.size(); ++i) {
    const bool isNew = i >= count;
    const bool takesNew = i + 1 == count && changed.size() > count;
    if (!isNew && !takesNew && !changed[i].isChanged) continue;
    if (!isNew || splices_.empty()) {
      const TagPlace& place = isNew ? before_.newPlace : before_.places[i];
      splices_.push_back({place.offset, place.end, {}, 0, place.fillerEnd});
    }
    splices_.back().Add(TagChunk(changed[i]));
  }
}

bool TagWriter::PlanInPlace() {
  for (const Splice& splice : splices_) {
    if (!PlanPatch(splice)) return false;
  }
  return PlanSwitch();
}

bool TagWriter::PlanPatch(Splice splice) {
  const bool isWave64 = before_.layout.container == Container::kWave64;
  const uint64_t header = rules_.chunkHeaderBytes;
  const uint64_t room = splice.fillerEnd - splice.offset;
  // It may grow at the end of the file where bytes that stand there too early are not taken for samples: no
  // header counts them.
  const bool isLast = splice.fillerEnd == before_.chunksEnd && before_.chunksEnd >= fileBytes_ &&
                      formEnd_ <= before_.chunksEnd && before_.layout.dataBytes != 0;
  TagBytes& bytes = splice.bytes;
  const auto setSize = [&](size_t chunk, uint64_t size) {
    if (isWave64) size += header;
    std::memcpy(bytes.data() + chunk + (isWave64 ? 16 : 4), &size, isWave64 ? 8 : 4);
  };
  if (bytes.size() > room) {
    if (!isLast) return false;
    grownBy_ = bytes.size() - room;
  } else if (const uint64_t gap = room - bytes.size(); gap >= header) {
    const size_t filler = bytes.size();
    bytes.resize(filler + header);
    if (isWave64) {
      std::memcpy(bytes.data() + filler, &RIFF64_GUID_JUNK, sizeof(RIFF64_GUID_JUNK));
    } else {
      std::memcpy(bytes.data() + filler, "JUNK", 4);
    }
    if (!isWave64 && gap - header > UINT32_MAX) return false;
    setSize(filler, gap - header);
  } else if (gap > 0) {
    // Too little for a chunk: readers end a list where no item fits any more.
    bytes.resize(room);
    setSize(splice.lastChunk, room - splice.lastChunk - header);
  }
  const uint64_t newCount = bytes.size();
  const uint64_t oldBytes = splice.end - splice.offset;
  bytes.resize(std::max(newCount, oldBytes));

  Patch patch = {splice.offset, std::move(bytes), {}, {}};
  const uint64_t inFile = fileBytes_ - std::min(splice.offset, fileBytes_);
  patch.old.resize(std::min<uint64_t>(patch.bytes.size(), inFile));
  if (!file_.ReadAt(patch.offset, patch.old.data(), static_cast<uint32_t>(patch.old.size()))) return false;
  // What readers of the old tags look at: the list and the header of the filler, or for a list that is new
  // whether there is a chunk.
  const bool isNew = oldBytes == 0;
  const uint64_t oldCount = isNew || splice.fillerEnd > splice.end ? oldBytes + header : oldBytes;
  for (size_t i = 0; i < patch.bytes.size(); ++i) {
    const bool isThere = i < patch.old.size();
    const bool wasRead = i < oldCount && (isThere || isNew);
    patch.moments.push_back(isThere && patch.old[i] == patch.bytes[i] ? Moment::kNever
                            : !wasRead                                ? Moment::kBefore
                            : i < newCount                            ? Moment::kSwitch
                                                                      : Moment::kAfter);
  }
  patches_.push_back(std::move(patch));
  return true;
}

// The bytes that make the change, with what lies between them; false when they are not on one page.
bool TagWriter::PlanSwitch() {
  uint64_t first = UINT64_MAX;
  uint64_t last = 0;
  for (const Patch& patch : patches_) {
    for (size_t i = 0; i < patch.moments.size(); ++i) {
      if (patch.moments[i] != Moment::kSwitch) continue;
      first = std::min(first, patch.offset + i);
      last = std::max(last, patch.offset + i);
    }
  }
  if (first > last) return true;
  if (first / kPageBytes != last / kPageBytes) return false;
  switchAt_ = first;
  switchBytes_.resize(last - first + 1);
  const uint64_t inFile = std::min<uint64_t>(switchBytes_.size(), fileBytes_ - std::min(first, fileBytes_));
  if (!file_.ReadAt(first, switchBytes_.data(), static_cast<uint32_t>(inFile))) return false;
  for (const Patch& patch : patches_) {
    for (size_t i = 0; i < patch.bytes.size(); ++i) {
      const uint64_t at = patch.offset + i;
      if (at >= first && at <= last) switchBytes_[at - first] = patch.bytes[i];
    }
  }
  return true;
}

bool TagWriter::WriteMoment(Moment moment) const {
  for (const Patch& patch : patches_) {
    const auto isOther = [&](size_t i) {
      return patch.moments[i] != moment && patch.moments[i] != Moment::kNever;
    };
    for (size_t from = 0; from < patch.moments.size();) {
      if (patch.moments[from] != moment) {
        ++from;
        continue;
      }
      size_t to = from;
      while (to < patch.moments.size() && !isOther(to)) ++to;
      if (!file_.WriteAt(patch.offset + from, patch.bytes.data() + from, static_cast<uint32_t>(to - from)))
        return false;
      from = to;
    }
  }
  return true;
}

bool TagWriter::WriteSteps() const {
  const auto count = static_cast<uint32_t>(switchBytes_.size());
  const Splice form = FormSize(formEnd_);
  return WriteMoment(Moment::kBefore) && FlushFileBuffers(file_.Get()) &&
         (count == 0 || file_.WriteAt(switchAt_, switchBytes_.data(), count)) &&
         WriteMoment(Moment::kAfter) &&
         (form.bytes.empty() ||
          file_.WriteAt(form.offset, form.bytes.data(), static_cast<uint32_t>(form.bytes.size()))) &&
         FlushFileBuffers(file_.Get());
}

// Puts bytes back that may have changed. What is still there is not written: that could fail for what made
// the change fail.
bool TagWriter::Restore(uint64_t offset, const TagBytes& old) const {
  TagBytes now(old.size());
  const auto count = static_cast<uint32_t>(old.size());
  if (count == 0 || (file_.ReadAt(offset, now.data(), count) && now == old)) return true;
  return file_.WriteAt(offset, old.data(), count);
}

// The steps backwards; false when the file may be neither what it was nor what it was to be.
bool TagWriter::Undo() const {
  const Splice form = FormSize(before_.layout.header.formSize);
  bool isUndone = Restore(form.offset, form.bytes);
  for (const Patch& patch : patches_) isUndone &= Restore(patch.offset, patch.old);
  isUndone &= file_.Size() == fileBytes_ || (file_.Seek(fileBytes_) && SetEndOfFile(file_.Get()));
  return FlushFileBuffers(file_.Get()) && isUndone;
}

HRESULT TagWriter::WriteInPlace(bool* isUndone) const {
  SetLastError(ERROR_SUCCESS);
  *isUndone = false;
  if (WriteSteps()) return S_OK;
  const HRESULT status = SystemStatus(QN_E_FILE_WRITE);
  *isUndone = Undo();
  return status;
}

// A size in the file header, with no bytes where it stays.
TagWriter::Splice TagWriter::FormSize(uint64_t end) const {
  const bool isWave64 = before_.layout.container == Container::kWave64;
  Splice splice;
  splice.offset = isWave64 ? 16 : 4;
  splice.end = splice.offset;
  if (formEnd_ == before_.layout.header.formSize) return splice;
  const uint64_t size = isWave64 ? end : end - 8;
  splice.bytes.resize(isWave64 ? 8 : 4);
  splice.end += splice.bytes.size();
  std::memcpy(splice.bytes.data(), &size, splice.bytes.size());
  return splice;
}

HRESULT TagWriter::WriteAnew(int source, int target, const std::function<void(uint64_t)>& progress) const {
  std::vector<Splice> splices = splices_;
  splices.insert(splices.begin(), FormSize(formEnd_));
  uint64_t from = 0;
  uint64_t offset = 0;
  for (Splice& splice : splices) {
    // Padding that the last chunk lacks.
    const uint64_t lacking = splice.offset - std::min(splice.offset, fileBytes_);
    const uint64_t to = splice.offset - lacking;
    const HRESULT status = CopyRange(source, from, to, target, offset, progress);
    if (status != S_OK) return status;
    offset += to - from + lacking;
    if (!WriteAll(target, splice.bytes.data(), splice.bytes.size(), offset))
      return qntool::StatusFromErrno(QN_E_FILE_WRITE);
    offset += splice.bytes.size();
    from = std::min(splice.end, fileBytes_);
  }
  const HRESULT status = CopyRange(source, from, fileBytes_, target, offset, progress);
  if (status != S_OK) return status;
  // The end may be a hole. It is to be on the disk before the old file goes.
  const bool isWhole =
      ftruncate(target, static_cast<off_t>(offset + fileBytes_ - from)) == 0 && fsync(target) == 0;
  return isWhole ? S_OK : qntool::StatusFromErrno(QN_E_FILE_WRITE);
}

}  // namespace qnwave
