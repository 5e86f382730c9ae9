#include "qn/platform/mapping_internal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstring>
#include <string_view>

#include "qn/platform/error_internal.h"
#include "qn/platform/exception.h"
#include "qn/platform/module.h"

namespace {

struct Mapping {
  uintptr_t start, end;
  uintptr_t base;  // where the first of the mappings begins that belong together
  bool isUsable, isReadable, isExecutable;
  uint64_t offset, major, minor, inode;  // the file; an inode of 0 is none
  std::string_view path;                 // until the next one is read

  bool IsOfFileOf(const Mapping& other) const {
    return inode == other.inode && major == other.major && minor == other.minor;
  }
};

int OpenList() {
  return open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
}

// The list that is kept open. What hosts do with descriptors that they do not know may have made its number
// that of another file; and it shows the process that opened it, not a fork of that.
struct KeptList {
  bool IsThere() const {
    struct stat info;
    return fstat(file, &info) == 0 && info.st_dev == device && info.st_ino == inode;
  }

  std::atomic<int> file = -1;
  std::atomic<dev_t> device = 0;
  std::atomic<ino_t> inode = 0;
  std::atomic<pid_t> process = 0;
};
constinit KeptList kept;

// Walks the mappings in the order of their addresses. It runs inside signals: it calls nothing but what is
// safe there, and holds its buffer itself.
class MappingWalk {
 public:
  MappingWalk() : file_(OpenList()) {
    if (file_ >= 0 || !kept.IsThere()) return;
    isKept_ = kept.process == getpid();
    if (!isKept_) close(kept.file);
    file_ = isKept_ ? kept.file.load() : OpenList();
  }
  ~MappingWalk() {
    if (file_ >= 0 && !isKept_) close(file_);
  }
  MappingWalk(const MappingWalk&) = delete;
  MappingWalk& operator=(const MappingWalk&) = delete;

  bool Next(Mapping* mapping) {
    std::string_view line;
    if (!NextLine(&line) || !Parse(line, mapping)) return false;
    mapping->base = mapping->start;
    if (mapping->inode == 0) return true;
    // The parts of a module follow each other. A part that maps the file's start after a gap begins another
    // mapping of the same file.
    const bool follows = mapping->IsOfFileOf(last_) && (mapping->start == last_.end || mapping->offset != 0);
    if (follows) mapping->base = last_.base;
    last_ = *mapping;
    return true;
  }

 private:
  // A line: start-end rwxp offset major:minor inode path, all numbers but the inode hexadecimal.
  static bool Parse(std::string_view line, Mapping* mapping) {
    const char* place = line.data();
    const char* const end = place + line.size();
    const auto number = [&](auto* value, int base) {
      *value = 0;
      place = std::from_chars(place, end, *value, base).ptr;
      if (place < end) ++place;
    };
    number(&mapping->start, 16);
    number(&mapping->end, 16);
    constexpr size_t kRights = 5;
    if (static_cast<size_t>(end - place) < kRights) return false;
    const std::string_view rights(place, kRights);
    mapping->isUsable = rights.substr(0, 3) != "---";
    mapping->isReadable = rights[0] == 'r';
    mapping->isExecutable = rights[2] == 'x';
    place += kRights;
    number(&mapping->offset, 16);
    number(&mapping->major, 16);
    number(&mapping->minor, 16);
    number(&mapping->inode, 10);
    while (place < end && *place == ' ') ++place;
    mapping->path = {place, static_cast<size_t>(end - place)};
    return true;
  }

  // The next line without its end; a line that is longer than any path ends the walk.
  bool NextLine(std::string_view* line) {
    for (;;) {
      const std::string_view rest(buffer_ + begin_, end_ - begin_);
      const size_t length = rest.find('\n');
      if (length != rest.npos) {
        *line = rest.substr(0, length);
        begin_ += length + 1;
        return true;
      }
      std::memmove(buffer_, rest.data(), rest.size());
      begin_ = 0;
      end_ = rest.size();
      ssize_t got;
      do {
        got = pread(file_, buffer_ + end_, sizeof(buffer_) - end_, place_);
      } while (got < 0 && errno == EINTR);
      if (got <= 0) return false;
      end_ += static_cast<size_t>(got);
      place_ += got;
    }
  }

  int file_;
  bool isKept_ = false;
  off_t place_ = 0;  // its own, for several threads may read the kept list at once
  size_t begin_ = 0, end_ = 0;
  Mapping last_ = {};
  char buffer_[2 * PATH_MAX];
};

bool IsIn(const Mapping& mapping, uintptr_t address) {
  return address - mapping.start < mapping.end - mapping.start;
}

// Writes a native path in the library's form, cut to the room; its whole length. The kernel's list has a line
// feed of a name as "\012".
size_t CopyPath(std::string_view native, char* path, size_t size) {
  size_t length = 0;
  for (size_t i = 0; i < native.size(); ++i, ++length) {
    const bool isLineFeed = native.substr(i, 4) == "\\012";
    if (isLineFeed) i += 3;
    if (length + 1 < size) path[length] = isLineFeed ? '\n' : native[i] == '/' ? '\\' : native[i];
  }
  if (size > 0) path[length < size ? length : size - 1] = 0;
  return length;
}

}  // namespace

namespace qn {

void KeepMappings(bool isKept) {
  if (kept.IsThere()) {
    if (isKept && kept.process == getpid()) return;
    close(kept.file);
  }
  kept.file = isKept ? OpenList() : -1;
  struct stat info;
  if (fstat(kept.file, &info) != 0) return;
  kept.device = info.st_dev;
  kept.inode = info.st_ino;
  kept.process = getpid();
}

bool IsUsable(uintptr_t address) {
  MappingWalk walk;
  Mapping mapping;
  bool isListed = false;
  for (; walk.Next(&mapping); isListed = true) {
    if (IsIn(mapping, address)) return mapping.isUsable;
  }
  return !isListed;
}

bool IsReadable(uintptr_t first, uintptr_t last) {
  MappingWalk walk;
  Mapping mapping;
  bool isListed = false;
  for (; walk.Next(&mapping); isListed = true) {
    if (mapping.end <= first) continue;
    if (first < mapping.start || !mapping.isReadable) return false;
    if (last < mapping.end) return true;
    first = mapping.end;
  }
  return !isListed;
}

}  // namespace qn

inline namespace qnplatform {

SIZE_T VirtualQuery(const void* address, MEMORY_BASIC_INFORMATION* information, SIZE_T size) {
  if (!information || size < sizeof(*information)) return 0;
  MappingWalk walk;
  Mapping mapping;
  do {
    if (!walk.Next(&mapping)) return 0;
  } while (!IsIn(mapping, reinterpret_cast<uintptr_t>(address)));
  information->BaseAddress = reinterpret_cast<void*>(mapping.start);
  information->AllocationBase = reinterpret_cast<void*>(mapping.base);
  information->RegionSize = mapping.end - mapping.start;
  return sizeof(*information);
}

DWORD GetModuleFileNameA(HMODULE module, char* path, DWORD size) {
  if (!path && size > 0) return static_cast<DWORD>(qn::FailWith(ERROR_INVALID_PARAMETER));
  size_t length = 0;
  if (!module) {
    char native[PATH_MAX];
    const ssize_t got = readlink("/proc/self/exe", native, sizeof(native));
    if (got > 0) length = CopyPath({native, static_cast<size_t>(got)}, path, size);
  }
  // What has no code is a file that somebody reads, not a module.
  MappingWalk walk;
  for (Mapping mapping; module && length == 0 && walk.Next(&mapping);) {
    if (mapping.base != reinterpret_cast<uintptr_t>(module) || !mapping.isExecutable) continue;
    if (mapping.inode != 0) length = CopyPath(mapping.path, path, size);
  }
  if (length == 0) return static_cast<DWORD>(qn::FailWith(ERROR_MOD_NOT_FOUND));
  const bool fits = length < size;
  SetLastError(fits ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER);
  return fits ? static_cast<DWORD>(length) : size;
}

}  // namespace qnplatform
