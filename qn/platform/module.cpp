#include "qn/platform/module.h"

#include <dlfcn.h>
#include <link.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unicode/ucol.h>
#include <unicode/ustring.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

#include "qn/platform/error_internal.h"
#include "qn/platform/module_internal.h"
#include "qn/platform/text.h"
#include "qn/platform/unload_internal.h"

namespace {

// A module as the loader lists it; the first listed is the executable, which has no path there.
struct Module {
  const dl_phdr_info* info;
  bool isExecutable;

  HMODULE Handle() const {
    uintptr_t lowest = UINTPTR_MAX;
    ForEachSegment(
        [&](const ElfW(Phdr) & segment) { lowest = std::min<uintptr_t>(lowest, segment.p_vaddr); });
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    return reinterpret_cast<HMODULE>((info->dlpi_addr + lowest) & ~(page - 1));
  }
  bool Holds(uintptr_t address) const {
    bool holds = false;
    ForEachSegment([&](const ElfW(Phdr) & segment) {
      holds |= address - (info->dlpi_addr + segment.p_vaddr) < segment.p_memsz;
    });
    return holds;
  }
  std::string Path() const {
    std::error_code error;
    if (!isExecutable) return std::filesystem::absolute(info->dlpi_name, error).string();
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    return length < 0 ? std::string() : std::string(path, static_cast<size_t>(length));
  }

 private:
  template <class Visit>
  void ForEachSegment(Visit visit) const {
    for (int i = 0; i < info->dlpi_phnum; ++i) {
      if (info->dlpi_phdr[i].p_type == PT_LOAD) visit(info->dlpi_phdr[i]);
    }
  }
};

// Shows the loaded modules to `visit` until it returns true. What it throws goes around the loader's walk.
template <class Visit>
void VisitModules(Visit visit) {
  struct State {
    Visit* visit;
    bool isExecutable;
    std::exception_ptr exception;
  } state{&visit, true, nullptr};
  const auto step = [](dl_phdr_info* info, size_t, void* data) noexcept {
    auto* const s = static_cast<State*>(data);
    try {
      const bool isExecutable = std::exchange(s->isExecutable, false);
      return (*s->visit)(Module{info, isExecutable}) ? 1 : 0;
    } catch (const std::exception&) {
      s->exception = std::current_exception();
      return 1;
    }
  };
  dl_iterate_phdr(step, &state);
  if (state.exception) std::rethrow_exception(state.exception);
}

// The handle of the first module that `matches`.
template <class Match>
HMODULE FindModule(Match matches) {
  HMODULE handle = nullptr;
  VisitModules([&](const Module& module) {
    const bool found = matches(module);
    if (found) handle = module.Handle();
    return found;
  });
  return handle;
}

HMODULE Executable() {
  return FindModule([](const Module& module) { return module.isExecutable; });
}

struct Registration {
  HMODULE module;
  qn::ResourceImage image;
};

// The table lives in plain memory without a destructor: libraries register before the constructors of this
// one have run and take back after its destructors have.
constinit pid_t loader = 0;  // the process that loaded the library
constinit std::mutex lock;
constinit Registration* registrations = nullptr;
constinit size_t count = 0;
constinit size_t capacity = 0;

template <class Match>
qn::ResourceImage FindImage(Match matches) {
  const std::lock_guard guard(lock);
  const Registration* const end = registrations + count;
  const Registration* const found = std::find_if(registrations, registrations + count, matches);
  return found == end ? qn::ResourceImage() : found->image;
}

}  // namespace

inline namespace qnplatform {

HMODULE ModuleFromAddress(const void* address) {
  const auto wanted = reinterpret_cast<uintptr_t>(address);
  return FindModule([&](const Module& module) { return module.Holds(wanted); });
}

HMODULE GetModuleHandleW(const WCHAR* name) try {
  if (!name) return Executable();
  const HMODULE module = qn::FindModuleByPath(qn::PathToNative(name));
  if (!module) SetLastError(ERROR_MOD_NOT_FOUND);
  return module;
} catch (const std::exception&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

DWORD GetModuleFileNameW(HMODULE handle, WCHAR* path, DWORD size) try {
  if (!path && size > 0) return static_cast<DWORD>(qn::FailWith(ERROR_INVALID_PARAMETER));
  std::string native;
  VisitModules([&](const Module& module) {
    const bool found = handle ? module.Handle() == handle : module.isExecutable;
    if (found) native = module.Path();
    return found;
  });
  if (native.empty()) return static_cast<DWORD>(qn::FailWith(ERROR_MOD_NOT_FOUND));
  const std::u16string text = qn::PathFromNative(native);
  const bool fits = text.size() < size;
  if (size > 0) path[text.copy(path, size - 1)] = 0;
  SetLastError(fits ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER);
  return fits ? static_cast<DWORD>(text.size()) : size;
} catch (const std::exception&) {
  return static_cast<DWORD>(qn::FailWith(ERROR_NOT_ENOUGH_MEMORY));
}

BOOL RegisterModuleResources(HMODULE module, const void* image, SIZE_T bytes) {
  if (!module) module = Executable();
  // A module that goes in a fork does not wait for a lock that no thread may hold any more.
  std::unique_lock guard(lock, std::defer_lock);
  if (image || !qn::IsForkedCopy()) {
    guard.lock();
  } else if (!guard.try_lock()) {
    return qn::FailWith(ERROR_BUSY);
  }
  Registration* const end = registrations + count;
  Registration* place =
      std::find_if(registrations, end, [&](const Registration& row) { return row.module == module; });
  if (!image) {
    if (place != end) *place = registrations[--count];
    if (count == 0) {
      std::free(std::exchange(registrations, nullptr));
      capacity = 0;
    }
    return TRUE;
  }
  if (place == end && count == capacity) {
    const size_t wanted = capacity * 2 + 8;
    auto* const grown =
        static_cast<Registration*>(std::realloc(registrations, wanted * sizeof(Registration)));
    if (!grown) return qn::FailWith(ERROR_NOT_ENOUGH_MEMORY);
    registrations = grown;
    capacity = wanted;
    place = registrations + count;
  }
  if (place == registrations + count) ++count;
  *place = {module, {static_cast<const uint8_t*>(image), bytes}};
  return TRUE;
}

}  // namespace qnplatform

namespace qn {

ResourceImage FindModuleImage(HMODULE module) {
  if (!module) module = Executable();
  return FindImage([&](const Registration& row) { return row.module == module; });
}

ResourceImage FindImageOf(const void* address) {
  const auto wanted = reinterpret_cast<uintptr_t>(address);
  return FindImage([&](const Registration& row) {
    return wanted - reinterpret_cast<uintptr_t>(row.image.bytes) < row.image.size;
  });
}

HMODULE FindModuleByPath(const std::string& path) {
  const bool isBare = path.find('/') == std::string::npos;
  struct stat wanted, info;
  if (!isBare && stat(path.c_str(), &wanted) != 0) return nullptr;
  return FindModule([&](const Module& module) {
    const std::string native = module.Path();
    if (isBare) return native.substr(native.rfind('/') + 1) == path;
    return stat(native.c_str(), &info) == 0 && info.st_dev == wanted.st_dev && info.st_ino == wanted.st_ino;
  });
}

void PrepareUnload() {
  loader = getpid();
  const auto keepThatOf = [](auto* function) {
    Dl_info info;
    if (!dladdr(reinterpret_cast<const void*>(function), &info)) return;
    // The second handle is given back: the mark stays with the library.
    if (void* const handle = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE)) dlclose(handle);
  };
  keepThatOf(u_strlen);
  keepThatOf(ucol_open);
  keepThatOf(sqlite3_open_v2);
}

bool IsForkedCopy() {
  return loader != 0 && loader != getpid();
}

}  // namespace qn
