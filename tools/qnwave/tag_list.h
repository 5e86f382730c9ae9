// Lists of tags as they stand in files, what they hold together, and what changes make of them.
//
//   INFO      in WAV files, a LIST of narrow texts
//   UNFO      the same with wide texts
//   summary   in Wave64 files, a chunk of a count and wide texts
//
// What is not named by a change stays byte for byte.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "tools/qnwave/container.h"
#include "tools/qnwave/tag_text.h"

namespace qnwave {

enum class TagForm { kInfo, kUnfo, kSummary };

const char* TagFormName(TagForm form);
inline bool IsWide(TagForm form) {
  return form != TagForm::kInfo;
}

struct TagItem {
  uint32_t id;
  uint32_t offset;  // of its header, in the list's bytes
  uint32_t size;    // of the text, as far as it is there
  uint32_t end;     // behind the text and its padding
};

struct TagList {
  TagForm form = TagForm::kInfo;
  TagBytes bytes;  // all items, from behind the list's type or count
  std::vector<TagItem> items;
  bool isDamaged = false;
  uint32_t damagedAt = 0;  // in the bytes
  bool isChanged = false;  // by ChangeTags

  std::span<const uint8_t> TextOf(const TagItem& item) const {
    return std::span(bytes).subspan(item.offset + 8, item.size);
  }
};

// Finds the items in a list's bytes. `count` is the one that a summary states. Room behind the items that
// holds zeros alone is no damage.
void ReadTagItems(TagList* list, uint32_t count);

// One text of a file for people and programs.
struct Tag {
  uint32_t id = 0;
  std::string text;
  std::string list;        // "INFO", "UNFO", "INFO+UNFO" or "summary"
  std::string encoding;    // see DecodeTag
  bool disagrees = false;  // the two lists hold texts that do not belong together; the wide one is here
};

// The texts of all lists, those with a wide text of the same id once.
std::vector<Tag> MergeTags(const std::vector<const TagList*>& lists);

struct TagChanges {
  bool clear = false;
  std::vector<uint32_t> deleted;
  std::vector<std::pair<uint32_t, std::string>> set;  // behind the deletions; each id once

  bool IsEmpty() const { return !clear && deleted.empty() && set.empty(); }
};

// Carries changes out on all lists of a file; lists are added at the end where one is missing. A text goes to
// INFO if the code page can hold it, else to UNFO alone; one that UNFO holds already is kept there too. The
// ids that went to UNFO alone come back in `*wideOnly`.
void ChangeTags(std::vector<TagList>* lists, Container container, const TagChanges& changes,
                std::vector<uint32_t>* wideOnly);

// The list as a chunk with its padding; empty for a list without items.
TagBytes TagChunk(const TagList& list);

// The id of the chunk that holds a summary.
extern const uint8_t kSummaryId[16];

}  // namespace qnwave
