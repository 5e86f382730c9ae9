#include "qn/platform/tree_place_internal.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>

#include "qn/platform/error_internal.h"

namespace qn {
namespace {

bool IsSame(const Descriptor& folder, const Identity& identity) {
  struct stat info;
  return folder && fstat(folder.Get(), &info) == 0 && IdentityOf(info) == identity;
}

}  // namespace

Descriptor OpenFolder(int parent, const char* name) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  return Descriptor(TEMP_FAILURE_RETRY(openat(parent, name, kFlags)));
}

bool ReadNames(int folder, Names* names) {
  Descriptor own = OpenFolder(folder, ".");
  if (!own) return false;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(fdopendir(own.Get()), closedir);
  if (!directory) return false;
  static_cast<void>(own.Release());
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(directory.get());
    if (!entry) return errno == 0;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names->emplace_back(name);
  }
}

Place::Place(Descriptor root) : folder_(std::move(root)) {
  struct stat info = {};
  fstat(Get(), &info);
  trail_.push_back({"", IdentityOf(info)});
  // Missing for a root that cannot be searched, which has no way down either.
  root_ = OpenFolder(Get(), ".");
}

bool Place::Down(const std::string& name, Descriptor child) {
  struct stat info;
  // A child that may not be searched could not be left again.
  if (fstat(child.Get(), &info) != 0 || faccessat(child.Get(), "..", F_OK, 0) != 0) return false;
  trail_.push_back({name, IdentityOf(info)});
  folder_ = std::move(child);
  return true;
}

bool Place::Up(Descriptor* left) {
  trail_.pop_back();
  Descriptor parent = OpenFolder(Get(), "..");
  const bool direct = IsSame(parent, trail_.back().identity);
  if (!direct) {
    size_t depth = 1;
    parent = OpenFolder(root_.Get(), ".");
    while (parent && depth < trail_.size()) {
      Descriptor child = OpenFolder(parent.Get(), trail_[depth].name.c_str());
      if (!IsSame(child, trail_[depth].identity)) break;
      parent = std::move(child);
      ++depth;
    }
    trail_.resize(parent ? depth : 0);
  }
  std::swap(folder_, parent);
  if (left) *left = std::move(parent);
  if (!direct) errno = ENOENT;
  return direct;
}

std::optional<Root> OpenRoot(const WCHAR* name) {
  std::string path;
  if (!ToPath(name, &path)) {
    FailWith(ERROR_PATH_NOT_FOUND);
    return std::nullopt;
  }
  StripSlashes(&path);
  const size_t nameAt = path.rfind('/') + 1;
  Root root;
  root.name = path.substr(nameAt);
  if (root.name.empty()) {  // the root of the file system
    FailWith(ERROR_ACCESS_DENIED);
    return std::nullopt;
  }
  const std::string parent = nameAt == 0 ? "." : path.substr(0, nameAt);
  root.parent = Descriptor(open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!root.parent) {
    FailWith(errno == ENOENT ? ERROR_PATH_NOT_FOUND : ErrorFromErrno(errno));
    return std::nullopt;
  }
  return root;
}

}  // namespace qn
