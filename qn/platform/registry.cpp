#include "qn/platform/registry.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "qn/platform/handle_internal.h"
#include "qn/platform/registry_store_internal.h"
#include "qn/platform/text.h"
#include "qn/platform/unload_internal.h"

namespace {

using qn::RegistryDatabase;
using qn::RegistryRow;
using qn::RegistryStore;

constexpr size_t kMaxKeyName = 255;
constexpr size_t kMaxDepth = 512;
constexpr size_t kMaxValueName = 16'383;
constexpr DWORD kMaxValueSize = 64 << 20;

constexpr REGSAM kQueryValue = 0x1;
constexpr REGSAM kSetValue = 0x2;
constexpr REGSAM kCreateSubKey = 0x4;
constexpr REGSAM kEnumerateSubKeys = 0x8;
constexpr REGSAM kDelete = 0x10000;
constexpr REGSAM kWriting = kSetValue | kCreateSubKey | kDelete;
constexpr REGSAM kUnchecked = 0x2000000;  // all rights, of which the file's are found out at their use

using KeyPath = std::vector<std::u16string>;

// An open key. Its id stands for it in the database with that root; in another one, which took the place of
// a damaged or removed database, the path does.
struct Key final : qn::SystemObject {
  std::shared_ptr<RegistryStore> store;
  int64_t root = 0;
  qn::RegistryIdentity file;
  int64_t id = 0;
  KeyPath path;
  REGSAM access = KEY_ALL_ACCESS;
};

struct Hive {
  HKEY handle;
  const char* variable;
  bool isMachine;
  std::mutex mutex = {};
  std::shared_ptr<RegistryStore> store = {};
  qn::RegistryDamage damage = {};
};

// They have no destructors to run at exit, where others may still write settings; ReleaseRegistry ends them.
struct Hives {
  Hive rows[2] = {{HKEY_CURRENT_USER, "QNKERNEL_USER_REGISTRY", false},
                  {HKEY_LOCAL_MACHINE, "QNKERNEL_MACHINE_REGISTRY", true}};
};
constinit std::atomic<Hives*> g_hives = nullptr;

Hive* FindHive(HKEY key) {
  Hives* hives = g_hives.load(std::memory_order_acquire);
  if (!hives) {
    auto made = std::make_unique<Hives>();
    if (g_hives.compare_exchange_strong(hives, made.get(), std::memory_order_acq_rel)) hives = made.release();
  }
  for (Hive& hive : hives->rows) {
    if (hive.handle == key) return &hive;
  }
  return nullptr;
}

std::string HomeFolder() {
  const char* home = std::getenv("HOME");
  if (home && *home == '/') return home;
  char buffer[4096];
  passwd entry;
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found) return found->pw_dir;
  return "";
}

std::string DefaultFile(const Hive& hive) {
  const char* named = std::getenv(hive.variable);
  if (named && *named) return named;
  if (hive.isMachine) return "/etc/xdg/qnkernel/machine.sqlite";
  const char* config = std::getenv("XDG_CONFIG_HOME");
  // A relative folder is to be ignored.
  const std::string folder = config && *config == '/' ? config : HomeFolder() + "/.config";
  return folder + "/qnkernel/user.sqlite";
}

std::shared_ptr<RegistryStore> MakeStore(Hive& hive, const std::string& file) {
  std::error_code error;
  const auto whole = std::filesystem::absolute(file, error);
  // The machine's settings are there for all users to read.
  return std::make_shared<RegistryStore>(error ? file : whole.string(), hive.isMachine ? 0755 : 0700,
                                         hive.damage);
}

// Gives what the exported functions return; no exception leaves them.
template <typename Body>
LSTATUS Answer(Body body) {
  try {
    return static_cast<LSTATUS>(body());
  } catch (const std::bad_alloc&) {
    return static_cast<LSTATUS>(ERROR_NOT_ENOUGH_MEMORY);
  }
}

// The key of a handle, or null. A hive's handle is the hive's root with all rights.
std::shared_ptr<const Key> FindKey(HKEY handle) {
  Hive* const hive = FindHive(handle);
  if (!hive) return std::dynamic_pointer_cast<const Key>(qn::FindHandle(handle));
  auto key = std::make_shared<Key>();
  const std::lock_guard guard(hive->mutex);
  if (!hive->store) hive->store = MakeStore(*hive, DefaultFile(*hive));
  key->store = hive->store;
  return key;
}

// Appends the names of a path below a key. Empty names, as from a doubled separator, are passed over.
DWORD AppendPath(const WCHAR* text, KeyPath* path) {
  std::u16string_view rest = text ? text : u"";
  while (!rest.empty()) {
    const size_t length = std::min(rest.find(u'\\'), rest.size());
    if (length > kMaxKeyName) return ERROR_INVALID_PARAMETER;
    if (length != 0) path->emplace_back(rest.substr(0, length));
    rest.remove_prefix(std::min(length + 1, rest.size()));
  }
  return path->size() > kMaxDepth ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
}

DWORD ReadName(const WCHAR* text, std::u16string_view* name) {
  *name = text ? text : u"";
  return name->size() > kMaxValueName ? ERROR_INVALID_PARAMETER : ERROR_SUCCESS;
}

// Where a walk down a path has come.
struct Place {
  int64_t id = 0;
  bool created = false;
};

enum class Missing { kFails, kIsMade };

DWORD Walk(RegistryDatabase& database, const KeyPath& path, size_t from, Missing missing, Place* place) {
  for (size_t i = from; i < path.size(); ++i) {
    const int64_t parent = place->id;
    place->id = database.FindKey(parent, path[i]);
    place->created = place->id == 0;
    if (!place->created) continue;
    if (missing == Missing::kFails) return ERROR_FILE_NOT_FOUND;
    place->id = database.AddKey(parent, path[i]);
  }
  return ERROR_SUCCESS;
}

// Finds an open key in its database, without asking whether it was deleted. Writing into a database that took
// the place of the key's makes the key anew.
DWORD Locate(RegistryDatabase& database, const Key& key, Missing missing, Place* place) {
  const bool same = key.root == database.Root() && key.file == database.Identity();
  place->id = same ? key.id : database.Root();
  return same ? ERROR_SUCCESS : Walk(database, key.path, 0, missing, place);
}

DWORD LocateLiving(RegistryDatabase& database, const Key& key, Missing missing, Place* place) {
  const DWORD status = Locate(database, key, missing, place);
  if (status != ERROR_SUCCESS) return status;
  return database.HasKey(place->id) ? ERROR_SUCCESS : ERROR_KEY_DELETED;
}

// Finds what lies at the end of `path`, which begins with the key's own.
DWORD LocateBelow(RegistryDatabase& database, const Key& key, const KeyPath& path, Missing missing,
                  Place* place) {
  const DWORD status = LocateLiving(database, key, missing, place);
  return status == ERROR_SUCCESS ? Walk(database, path, key.path.size(), missing, place) : status;
}

DWORD OpenKey(HKEY handle, const WCHAR* subKey, REGSAM access, Missing missing, HKEY* result,
              DWORD* disposition) {
  if (!result) return ERROR_INVALID_PARAMETER;
  *result = nullptr;
  const auto base = FindKey(handle);
  if (!base) return ERROR_INVALID_HANDLE;
  auto key = std::make_shared<Key>(*base);
  DWORD status = AppendPath(subKey, &key->path);
  if (status != ERROR_SUCCESS) return status;

  Place place;
  Missing walk = Missing::kFails;
  const RegistryStore::Work find = [&](RegistryDatabase& database) {
    place = {};
    key->root = database.Root();
    key->file = database.Identity();
    return LocateBelow(database, *base, key->path, walk, &place);
  };
  status = key->store->Read(find);
  if (status == ERROR_FILE_NOT_FOUND && missing == Missing::kIsMade) {
    if (!(base->access & kCreateSubKey)) return ERROR_ACCESS_DENIED;
    walk = Missing::kIsMade;
    status = key->store->Write(find);
  }
  if (status != ERROR_SUCCESS) return status;
  if ((access & kWriting) && !key->store->IsWritable()) return ERROR_ACCESS_DENIED;
  key->access = access == kUnchecked ? KEY_ALL_ACCESS : access;
  key->id = place.id;
  *result = static_cast<HKEY>(qn::AddHandle(key));
  if (!*result) return ERROR_NOT_ENOUGH_MEMORY;
  if (disposition) *disposition = place.created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
  return ERROR_SUCCESS;
}

// Hands out the bytes of a value with their type, from two columns.
DWORD CopyValue(const RegistryRow& row, int column, DWORD* type, BYTE* data, DWORD* size) {
  const std::string_view bytes = row.Bytes(column + 1);
  const bool fits = !data || bytes.size() <= *size;
  if (data && fits) std::copy(bytes.begin(), bytes.end(), data);
  if (type) *type = static_cast<DWORD>(row.Number(column));
  if (size) *size = static_cast<DWORD>(bytes.size());
  return fits ? ERROR_SUCCESS : ERROR_MORE_DATA;
}

// Reads at an open key. Only when nothing is found is it asked whether the key was deleted: reads are many.
template <typename ReadAt>
DWORD ReadKey(HKEY handle, REGSAM needed, ReadAt readAt) {
  const auto key = FindKey(handle);
  if (!key) return ERROR_INVALID_HANDLE;
  if (!(key->access & needed)) return ERROR_ACCESS_DENIED;
  return key->store->Read([&](RegistryDatabase& database) {
    Place place;
    DWORD status = Locate(database, *key, Missing::kFails, &place);
    if (status != ERROR_SUCCESS) return status;
    status = readAt(database, place.id);
    return status == ERROR_FILE_NOT_FOUND && !database.HasKey(place.id) ? ERROR_KEY_DELETED : status;
  });
}

template <typename WriteAt>
DWORD WriteKey(HKEY handle, Missing missing, WriteAt writeAt) {
  const auto key = FindKey(handle);
  if (!key) return ERROR_INVALID_HANDLE;
  if (!(key->access & kSetValue)) return ERROR_ACCESS_DENIED;
  return key->store->Write([&](RegistryDatabase& database) {
    Place place;
    const DWORD status = LocateLiving(database, *key, missing, &place);
    return status == ERROR_SUCCESS ? writeAt(database, place.id) : status;
  });
}

// Hands out the row of an enumeration that `find` finds: its name, and what `copyRest` copies, which comes
// first because it can fail.
template <typename Find, typename CopyRest>
DWORD Enumerate(HKEY handle, REGSAM needed, WCHAR* name, DWORD* nameSize, Find find, CopyRest copyRest) {
  if (!name || !nameSize) return ERROR_INVALID_PARAMETER;
  const DWORD status = ReadKey(handle, needed, [&](RegistryDatabase& database, int64_t id) -> DWORD {
    const RegistryRow row = find(database, id);
    if (!row) return ERROR_FILE_NOT_FOUND;
    const std::u16string text = row.Name(0);
    if (text.size() >= *nameSize) return ERROR_MORE_DATA;
    const DWORD copied = copyRest(row);
    if (copied != ERROR_SUCCESS) return copied;
    std::copy_n(text.c_str(), text.size() + 1, name);
    *nameSize = static_cast<DWORD>(text.size());
    return ERROR_SUCCESS;
  });
  return status == ERROR_FILE_NOT_FOUND ? ERROR_NO_MORE_ITEMS : status;
}

DWORD DeleteTree(HKEY handle, const WCHAR* subKey) {
  const auto key = FindKey(handle);
  if (!key) return ERROR_INVALID_HANDLE;
  if (!(key->access & (kSetValue | kDelete))) return ERROR_ACCESS_DENIED;
  KeyPath path = key->path;
  const DWORD status = AppendPath(subKey, &path);
  if (status != ERROR_SUCCESS) return status;
  const bool keep = path.size() == key->path.size();

  const auto find = [&](RegistryDatabase& database, Place* place) {
    return LocateBelow(database, *key, path, Missing::kFails, place);
  };
  // Asked by reading first: what is not there needs neither a new database nor rights to write.
  const DWORD found = key->store->Read([&](RegistryDatabase& database) {
    Place place;
    return find(database, &place);
  });
  if (found != ERROR_SUCCESS) return found;
  return key->store->Write([&](RegistryDatabase& database) {
    Place place;
    const DWORD error = find(database, &place);
    if (error == ERROR_SUCCESS) database.DeleteTree(place.id, keep);
    return error;
  });
}

}  // namespace

inline namespace qnplatform {

LSTATUS RegOpenKeyExW(HKEY key, const WCHAR* subKey, DWORD, REGSAM access, HKEY* result) {
  return Answer([&] { return OpenKey(key, subKey, access, Missing::kFails, result, nullptr); });
}

LSTATUS RegCreateKeyExW(HKEY key, const WCHAR* subKey, DWORD, const WCHAR*, DWORD, REGSAM access, void*,
                        HKEY* result, DWORD* disposition) {
  return Answer([&] { return OpenKey(key, subKey, access, Missing::kIsMade, result, disposition); });
}

LSTATUS RegCreateKeyW(HKEY key, const WCHAR* subKey, HKEY* result) {
  return RegCreateKeyExW(key, subKey, 0, nullptr, 0, kUnchecked, nullptr, result, nullptr);
}

LSTATUS RegCloseKey(HKEY key) {
  return Answer([&]() -> DWORD {
    if (FindHive(key)) return ERROR_SUCCESS;
    return FindKey(key) && qn::RemoveHandle(key) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
  });
}

LSTATUS RegQueryValueExW(HKEY key, const WCHAR* name, DWORD*, DWORD* type, BYTE* data, DWORD* size) {
  return Answer([&] {
    std::u16string_view wanted;
    const DWORD status = ReadName(name, &wanted);
    if (status != ERROR_SUCCESS) return status;
    if (data && !size) return ERROR_INVALID_PARAMETER;
    const std::string folded = qn::FoldedName(wanted);
    return ReadKey(key, kQueryValue, [&](RegistryDatabase& database, int64_t id) {
      const RegistryRow row = database.FindValue(id, folded);
      return row ? CopyValue(row, 0, type, data, size) : ERROR_FILE_NOT_FOUND;
    });
  });
}

LSTATUS RegSetValueExW(HKEY key, const WCHAR* name, DWORD, DWORD type, const BYTE* data, DWORD size) {
  return Answer([&] {
    std::u16string_view wanted;
    const DWORD status = ReadName(name, &wanted);
    if (status != ERROR_SUCCESS) return status;
    if (size > kMaxValueSize || (!data && size != 0)) return ERROR_INVALID_PARAMETER;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    return WriteKey(key, Missing::kIsMade, [&](RegistryDatabase& database, int64_t id) {
      database.SetValue(id, wanted, type, bytes);
      return ERROR_SUCCESS;
    });
  });
}

LSTATUS RegDeleteValueW(HKEY key, const WCHAR* name) {
  return Answer([&] {
    std::u16string_view wanted;
    DWORD status = ReadName(name, &wanted);
    if (status != ERROR_SUCCESS) return status;
    // Asked by reading first: what is not there needs no new database.
    const std::string folded = qn::FoldedName(wanted);
    const auto find = [&](RegistryDatabase& database, int64_t id) {
      return database.FindValue(id, folded) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    };
    status = ReadKey(key, kSetValue, find);
    if (status != ERROR_SUCCESS) return status;
    return WriteKey(key, Missing::kFails, [&](RegistryDatabase& database, int64_t id) {
      return database.DeleteValue(id, wanted) ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
    });
  });
}

LSTATUS RegDeleteTreeW(HKEY key, const WCHAR* subKey) {
  return Answer([&] { return DeleteTree(key, subKey); });
}

LSTATUS RegEnumKeyExW(HKEY key, DWORD index, WCHAR* name, DWORD* nameSize, DWORD*, WCHAR* className,
                      DWORD* classSize, FILETIME* lastWrite) {
  return Answer([&]() -> DWORD {
    if (className && !classSize) return ERROR_INVALID_PARAMETER;
    const auto find = [&](RegistryDatabase& database, int64_t id) { return database.KeyAt(id, index); };
    return Enumerate(key, kEnumerateSubKeys, name, nameSize, find, [&](const RegistryRow&) {
      if (className && *classSize != 0) *className = 0;
      if (classSize) *classSize = 0;
      if (lastWrite) *lastWrite = {};
      return ERROR_SUCCESS;
    });
  });
}

LSTATUS RegEnumValueW(HKEY key, DWORD index, WCHAR* name, DWORD* nameSize, DWORD*, DWORD* type, BYTE* data,
                      DWORD* size) {
  return Answer([&]() -> DWORD {
    if (data && !size) return ERROR_INVALID_PARAMETER;
    const auto find = [&](RegistryDatabase& database, int64_t id) { return database.ValueAt(id, index); };
    return Enumerate(key, kQueryValue, name, nameSize, find,
                     [&](const RegistryRow& row) { return CopyValue(row, 1, type, data, size); });
  });
}

LSTATUS SetRegistryFile(HKEY handle, const WCHAR* path) {
  return Answer([&]() -> DWORD {
    Hive* const hive = FindHive(handle);
    if (!hive) return ERROR_INVALID_HANDLE;
    if (path && !*path) return ERROR_INVALID_PARAMETER;
    auto store = path ? MakeStore(*hive, qn::PathToNative(path)) : nullptr;
    const std::lock_guard guard(hive->mutex);
    hive->store.swap(store);
    return ERROR_SUCCESS;
  });
}

int GetRegistryDamage(HKEY handle, WCHAR* path, int size) try {
  if (path && size > 0) *path = 0;
  Hive* const hive = FindHive(handle);
  if (!hive) return 0;
  const std::lock_guard guard(hive->damage.mutex);
  const std::u16string text = qn::PathFromNative(hive->damage.path);
  if (path && size > 0) {
    path[text.copy(path, static_cast<size_t>(size) - 1)] = 0;
  }
  return static_cast<int>(text.size());
} catch (const std::bad_alloc&) {
  return 0;
}

}  // namespace qnplatform

void qn::ReleaseRegistry() {
  Hives* const hives = g_hives.load(std::memory_order_acquire);
  if (!hives) return;
  for (Hive& hive : hives->rows) {
    // A fork may have left the lock held for good.
    const std::unique_lock guard(hive.mutex, std::try_to_lock);
    if (!guard.owns_lock()) return;
    hive.store.reset();
  }
  g_hives = nullptr;
  delete hives;
}
