// The lists of tags of a wave file, found and written back.
//
// The samples and every other chunk stay byte for byte. A change is made in place where the lists fit into
// their old place with the JUNK chunk behind it, or stand at the end of the file, and where one write within
// a page of memory turns the old tags into the new ones: the system carries such a write out as a whole or
// not at all, also when the process is killed. What is written before it no reader looks at yet, what is
// written behind it none any more. Every other change is a new file that takes the place of the old one.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/qnwave/file.h"
#include "tools/qnwave/layout.h"
#include "tools/qnwave/tag_list.h"

namespace qnwave {

// Where a list stands.
struct TagPlace {
  uint64_t offset = 0;     // of the chunk's header
  uint64_t end = 0;        // of the next chunk's
  uint64_t fillerEnd = 0;  // `end` where no filler follows
};

struct TagFile {
  Layout layout;
  std::vector<TagList> lists;
  std::vector<TagPlace> places;  // of each list
  TagPlace newPlace;             // of a list where there is none
  uint64_t chunksEnd = 0;        // behind the last whole chunk; beyond the file where its padding is missing
  std::vector<qntool::Message> damage;  // of the lists
  bool hasMoreLists = false;            // there are more than were read
};

// Lays out a WAV, Wave64 or RF64 file and reads its lists.
TagFile ReadTagFile(const File& file, const std::string& name);

// How changed lists get into a file.
// kTooLarge: the file passes what its header counts. kTooMuch: the lists pass what ReadTagFile reads.
enum class TagRoad { kNone, kInPlace, kAnew, kTooLarge, kTooMuch };

class TagWriter {
 public:
  // `changed` are the lists of `before` after ChangeTags.
  TagWriter(const File& file, const TagFile& before, const std::vector<TagList>& changed);

  // What there is to do. kNone: nothing.
  TagRoad Road() const { return road_; }

  // For kInPlace. On failure `*isUndone` tells whether the file is as it was.
  HRESULT WriteInPlace(bool* isUndone) const;

  // For kNone, kInPlace and kAnew: copies the file, which is open as `source` too, with the changes to an
  // empty one. `progress` is told of the bytes done. QN_E_CANCELLED after an interrupt.
  HRESULT WriteAnew(int source, int target, const std::function<void(uint64_t)>& progress) const;

 private:
  // Bytes that take the place of others.
  struct Splice {
    uint64_t offset = 0;
    uint64_t end = 0;  // of what they replace
    TagBytes bytes;
    size_t lastChunk = 0;    // of the chunks in the bytes
    uint64_t fillerEnd = 0;  // of the filler behind, or `end`

    void Add(const TagBytes& chunk) {
      if (!chunk.empty()) lastChunk = bytes.size();
      bytes.insert(bytes.end(), chunk.begin(), chunk.end());
    }
  };
  // When a byte is written. Before the switch: no reader of the old tags looks at it. After: none of the new
  // ones does.
  enum class Moment : uint8_t { kNever, kBefore, kSwitch, kAfter };
  struct Patch {
    uint64_t offset;
    TagBytes bytes;
    TagBytes old;  // as far as the file reaches
    std::vector<Moment> moments;
  };

  void CollectSplices(const std::vector<TagList>& changed);
  bool PlanInPlace();
  bool PlanPatch(Splice splice);
  bool PlanSwitch();
  bool WriteMoment(Moment moment) const;
  bool WriteSteps() const;
  bool Restore(uint64_t offset, const TagBytes& old) const;
  bool Undo() const;
  Splice FormSize(uint64_t end) const;

  const File& file_;
  const TagFile& before_;
  const ContainerRules& rules_;
  uint64_t fileBytes_;
  uint64_t formEnd_;  // as it is to be
  std::vector<Splice> splices_;
  std::vector<Patch> patches_;
  uint64_t grownBy_ = 0;  // in place
  uint64_t switchAt_ = 0;
  TagBytes switchBytes_;
  TagRoad road_ = TagRoad::kNone;
};

}  // namespace qnwave
