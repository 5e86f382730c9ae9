#include "tools/qnwave/tag_list.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace qnwave {
namespace {

constexpr size_t kItemHeader = 8;

uint32_t Word(const TagBytes& bytes, size_t offset) {
  uint32_t word;
  std::memcpy(&word, bytes.data() + offset, sizeof(word));
  return word;
}

void Append(TagBytes* bytes, const void* start, size_t count) {
  const size_t at = bytes->size();
  bytes->resize(at + count);
  if (count != 0) std::memcpy(bytes->data() + at, start, count);
}

template <class Number>
void AppendNumber(TagBytes* bytes, Number number) {
  Append(bytes, &number, sizeof(number));
}

uint32_t Padding(TagForm form, uint32_t size) {
  return form == TagForm::kSummary ? 0 : size & 1;
}

// An item that a program may have written, whole.
bool IsItem(const TagBytes& bytes, size_t offset) {
  return offset + kItemHeader <= bytes.size() && IsTagId(Word(bytes, offset)) &&
         Word(bytes, offset + 4) <= bytes.size() - offset - kItemHeader;
}

// A list that is written anew, item by item.
class ListWriter {
 public:
  explicit ListWriter(TagForm form) {
    list_.form = form;
    list_.isChanged = true;
  }

  void Keep(const TagList& from, const TagItem& item) {
    const size_t start = item.offset + kItemHeader;
    Begin(item.id, item.size);
    Append(&list_.bytes, from.bytes.data() + start, item.end - start);
    // Where padding is missing only lenient readers find the next item.
    End();
  }

  void Add(uint32_t id, const TagBytes& text) {
    Begin(id, static_cast<uint32_t>(text.size()));
    Append(&list_.bytes, text.data(), text.size());
    End();
  }

  const TagList& List() const { return list_; }

 private:
  void Begin(uint32_t id, uint32_t size) {
    list_.items.push_back({id, static_cast<uint32_t>(list_.bytes.size()), size, 0});
    AppendNumber(&list_.bytes, id);
    AppendNumber(&list_.bytes, size);
  }

  void End() {
    TagItem& item = list_.items.back();
    item.end = item.offset + static_cast<uint32_t>(kItemHeader) + item.size + Padding(list_.form, item.size);
    list_.bytes.resize(item.end);
  }

  TagList list_;
};

// A text that is to be set, in the forms that it is stored in.
struct NewText {
  std::optional<TagBytes> narrow;
  std::optional<TagBytes> wide;

  const std::optional<TagBytes>& In(TagForm form) const { return IsWide(form) ? wide : narrow; }
};

// True for bytes with zeros alone behind them.
bool IsWithZeros(std::span<const uint8_t> longer, const TagBytes& bytes) {
  return longer.size() >= bytes.size() && std::equal(bytes.begin(), bytes.end(), longer.begin()) &&
         std::all_of(longer.begin() + static_cast<ptrdiff_t>(bytes.size()), longer.end(),
                     [](uint8_t b) { return b == 0; });
}

}  // namespace

const uint8_t kSummaryId[16] = {0xBC, 0x94, 0x5F, 0x92, 0x5A, 0x52, 0xD2, 0x11,
                                0x86, 0xDC, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};

const char* TagFormName(TagForm form) {
  return form == TagForm::kInfo ? "INFO" : form == TagForm::kUnfo ? "UNFO" : "summary";
}

void ReadTagItems(TagList* list, uint32_t count) {
  const TagBytes& bytes = list->bytes;
  const bool isCounted = list->form == TagForm::kSummary;
  const auto damagedAt = [&](size_t offset) {
    list->isDamaged = true;
    list->damagedAt = static_cast<uint32_t>(offset);
  };
  size_t at = 0;
  for (; at + kItemHeader <= bytes.size();) {
    if (isCounted ? list->items.size() == count : Word(bytes, at) == 0) break;
    const uint32_t id = Word(bytes, at);
    if (!IsTagId(id)) return damagedAt(at);
    const uint32_t stated = Word(bytes, at + 4);
    const auto size = static_cast<uint32_t>(std::min<size_t>(stated, bytes.size() - at - kItemHeader));
    const size_t end = at + kItemHeader + size;
    // Some programs leave the padding out.
    const size_t padded = end + Padding(list->form, size);
    const bool isPadded = padded <= bytes.size() && (IsItem(bytes, padded) || !IsItem(bytes, end));
    const size_t next = isPadded ? padded : end;
    list->items.push_back({id, static_cast<uint32_t>(at), size, static_cast<uint32_t>(next)});
    if (size < stated) return damagedAt(at);
    at = next;
  }
  const bool isRoom =
      std::all_of(bytes.begin() + static_cast<ptrdiff_t>(at), bytes.end(), [](uint8_t b) { return b == 0; });
  const bool isShort = bytes.size() - at < kItemHeader;
  if ((isCounted && list->items.size() != count) || (!isRoom && !isShort)) damagedAt(at);
}

std::vector<Tag> MergeTags(const std::vector<const TagList*>& lists) {
  std::vector<Tag> tags;
  // The narrow texts that no wide one has been found for.
  std::unordered_map<uint32_t, std::pair<size_t, std::span<const uint8_t>>> narrow;
  const auto add = [&](const TagList& list, const TagItem& item) {
    Tag tag;
    tag.id = item.id;
    tag.list = TagFormName(list.form);
    tag.text = DecodeTag(IsWide(list.form), list.TextOf(item), &tag.encoding);
    const auto twin = narrow.find(item.id);
    if (IsWide(list.form) && twin != narrow.end()) {
      const auto [index, bytes] = twin->second;
      tag.disagrees = tags[index].text != tag.text && !IsReducedTag(bytes, tag.text);
      tag.list = tags[index].list + "+" + tag.list;
      tags[index] = std::move(tag);
      narrow.erase(twin);
      return;
    }
    if (!IsWide(list.form)) narrow.emplace(item.id, std::pair(tags.size(), list.TextOf(item)));
    tags.push_back(std::move(tag));
  };
  for (const bool wide : {false, true}) {
    for (const TagList* list : lists) {
      if (IsWide(list->form) != wide) continue;
      for (const TagItem& item : list->items) add(*list, item);
    }
  }
  return tags;
}

void ChangeTags(std::vector<TagList>* lists, Container container, const TagChanges& changes,
                std::vector<uint32_t>* wideOnly) {
  const bool isWave64 = container == Container::kWave64;
  std::unordered_set<uint32_t> wideIds;
  for (const TagList& list : *lists) {
    for (const TagItem& item : list.items) {
      if (!changes.clear && IsWide(list.form)) wideIds.insert(item.id);
    }
  }
  // A change that sets nothing deletes.
  std::unordered_map<uint32_t, NewText> texts;
  for (const uint32_t id : changes.deleted) texts[id] = {};
  for (const auto& [id, text] : changes.set) {
    NewText& added = texts[id];
    if (!isWave64) added.narrow = EncodeTag(false, text);
    if (!isWave64 && !added.narrow) wideOnly->push_back(id);
    if (!added.narrow || wideIds.count(id) != 0) added.wide = EncodeTag(true, text);
    // Readers that turn a summary into UTF-8 in a room of its stated size get that room.
    if (isWave64) added.wide->resize(std::max(added.wide->size(), (text.size() + 2) / 2 * 2));
  }

  const std::vector<TagList> before = changes.clear ? *lists : std::vector<TagList>();
  std::unordered_set<uint32_t> placed[2];
  for (TagList& list : *lists) {
    ListWriter writer(list.form);
    bool isChanged = changes.clear;
    if (changes.clear) list.items.clear();
    for (const TagItem& item : list.items) {
      const auto change = texts.find(item.id);
      if (change == texts.end()) {
        writer.Keep(list, item);
        continue;
      }
      const std::optional<TagBytes>& text = change->second.In(list.form);
      // Of items with the same id the first one takes the text.
      const bool takesText = text && placed[IsWide(list.form)].insert(item.id).second;
      if (takesText && IsWithZeros(list.TextOf(item), *text)) {
        writer.Keep(list, item);
        continue;
      }
      if (takesText) writer.Add(item.id, *text);
      isChanged = true;
    }
    if (isChanged) list = writer.List();
  }
  for (const TagForm form : {TagForm::kInfo, isWave64 ? TagForm::kSummary : TagForm::kUnfo}) {
    for (const auto& [id, ignored] : changes.set) {
      const std::optional<TagBytes>& text = texts[id].In(form);
      if (!text || !placed[IsWide(form)].insert(id).second) continue;
      auto list =
          std::find_if(lists->begin(), lists->end(), [&](const TagList& l) { return l.form == form; });
      if (list == lists->end()) {
        list = lists->emplace(lists->end());
        list->form = form;
      }
      ListWriter writer(form);
      for (const TagItem& item : list->items) writer.Keep(*list, item);
      writer.Add(id, *text);
      *list = writer.List();
    }
  }
  // What is cleared and set to what it was needs no change.
  for (size_t i = 0; i < before.size(); ++i) {
    TagList& list = (*lists)[i];
    const bool isSame =
        list.items.size() == before[i].items.size() && IsWithZeros(before[i].bytes, list.bytes);
    if (isSame && !before[i].isDamaged) list = before[i];
  }
}

TagBytes TagChunk(const TagList& list) {
  TagBytes chunk;
  if (list.items.empty()) return chunk;
  const uint32_t size = static_cast<uint32_t>(list.bytes.size()) + 4;
  if (list.form == TagForm::kSummary) {
    Append(&chunk, kSummaryId, sizeof(kSummaryId));
    AppendNumber(&chunk, uint64_t{size} + 24);
    AppendNumber(&chunk, static_cast<uint32_t>(list.items.size()));
  } else {
    Append(&chunk, "LIST", 4);
    AppendNumber(&chunk, size);
    Append(&chunk, TagFormName(list.form), 4);
  }
  Append(&chunk, list.bytes.data(), list.bytes.size());
  const Container container = list.form == TagForm::kSummary ? Container::kWave64 : Container::kWav;
  chunk.resize(RulesOf(container).Padded(chunk.size()));
  return chunk;
}

}  // namespace qnwave
