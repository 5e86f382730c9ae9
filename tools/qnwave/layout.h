// What a file holds and where: the chunks, the format record, the samples; and what is wrong with it.
//
// The walk goes by what is in the file, not by what its header promises, so that it works on damaged files
// too: a wrong id in a place where only one thing can stand is taken for that thing and reported.
//
// A file is healthy when its chunks lead to the samples and the sizes agree with what is there. What readers
// step over is no damage: chunks behind the samples, missing or odd padding, bytes behind the last chunk, a
// broken chunk behind the samples, a form size that is off by a header.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qn/platform/mmreg.h"
#include "tools/common/text.h"
#include "tools/qnwave/container.h"
#include "tools/qnwave/file.h"

namespace qnwave {

struct Chunk {
  std::string id;
  std::string listType;  // of a list
  uint64_t offset = 0;   // of the header
  uint64_t size = 0;     // of the data, as stated
  std::vector<Chunk> children;
  uint64_t unlisted = 0;       // children beyond those listed
  uint64_t unlistedBytes = 0;  // the bytes that they take up
};

enum class Damage {
  kFormHeader,    // the file header's id or type
  kFormSize,      // the size in it
  kFormatId,      // the id of the format chunk
  kFormatRecord,  // fields of the record
  kBrokenChunk,   // a chunk that does not lead on, in front of the samples
  kDataId,        // the id of the data chunk
  kDataSize,      // its size counts too little
  kDataCut,       // its size counts more than the file holds
  kNoFormat,      // there is no format chunk
  kNoData,        // there is no data chunk
  kTooLarge,      // there are more samples than the size fields can count
};

struct Problem {
  Damage damage;
  qntool::Message text;
};

struct Layout {
  Container container = Container::kUnknown;
  FileHeader header;
  uint64_t fileBytes = 0;
  Chunk form;  // the whole file, its children are the chunks

  bool hasFormat = false;
  uint64_t formatOffset = 0;      // of the chunk's header
  uint64_t formatBytes = 0;       // of the chunk's data
  WAVEFORMATEXTENSIBLE record{};  // what the chunk lacks is zero

  bool hasData = false;
  uint64_t dataOffset = 0;   // of the chunk's header
  uint64_t dataStart = 0;    // of the first sample
  uint64_t statedBytes = 0;  // the chunk's size as stated
  uint64_t dataBytes = 0;    // of the samples that there are

  uint64_t brokenOffset = 0;  // of the chunk that Damage::kBrokenChunk is about

  std::vector<Problem> problems;
  std::vector<qntool::Message> notes;  // oddities that are no damage

  bool Has(Damage damage) const;
  bool IsDamaged() const { return !problems.empty(); }

  // True for the containers whose headers can be repaired.
  bool IsRepairable() const;
};

// Lays out an open file. `assumed` is what a file is taken for whose start names no container; kUnknown
// leaves that to the ids that are found in it and to its name.
Layout ReadLayout(const File& file, const std::string& name, Container assumed = Container::kUnknown);

}  // namespace qnwave
