#include "qn/platform/registry.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <thread>

#include "tests/support/support.h"

namespace {

using qntest::Bytes;
using qntest::Random;
using qntest::ReadFileBytes;
using std::filesystem::exists;
using std::filesystem::status;

constexpr LSTATUS Number(DWORD error) {
  return static_cast<LSTATUS>(error);
}
constexpr LSTATUS kNotFound = Number(ERROR_FILE_NOT_FOUND);
constexpr LSTATUS kDenied = Number(ERROR_ACCESS_DENIED);
constexpr LSTATUS kInvalid = Number(ERROR_INVALID_PARAMETER);
constexpr LSTATUS kNoHandle = Number(ERROR_INVALID_HANDLE);
const HKEY kUser = HKEY_CURRENT_USER;

// Runs `body` in another process, and `beside` here meanwhile. What fails there fails here.
void InChild(
    const std::function<void()>& body, const std::function<void()>& beside = [] {}) {
  const pid_t child = fork();
  if (child == 0) body();
  if (child == 0) _exit(testing::Test::HasFailure());
  beside();
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

// A user's hive in a file of its own, which does not exist yet.
class RegistryTest : public testing::Test {
 protected:
  RegistryTest() { UseFile("a/b/user.sqlite"); }
  ~RegistryTest() override { SetRegistryFile(kUser, nullptr); }

  void UseFile(const char* name) const { SetRegistryFile(kUser, folder_.Path(name).c_str()); }

  // Another file of that name, at which open connections look anew, after statements of somebody else. What
  // they begin and do not commit stays as a killed writer leaves it.
  Bytes Replace(const Bytes& bytes, const char* sql) const {
    std::filesystem::remove(native_);
    qntest::WriteFileBytes(native_, bytes);
    InChild([&] {
      sqlite3* database = nullptr;
      sqlite3_open(native_.c_str(), &database);
      EXPECT_EQ(sqlite3_exec(database, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sql;
    });
    return ReadFileBytes(native_);
  }

  const qntest::ScratchFolder folder_;
  const std::string native_ = folder_.Native("a/b/user.sqlite");
};

HKEY Open(const std::u16string& path, REGSAM access = KEY_ALL_ACCESS, DWORD* disposition = nullptr) {
  HKEY key = nullptr;
  EXPECT_EQ(RegCreateKeyExW(kUser, path.c_str(), 0, nullptr, 0, access, nullptr, &key, disposition), 0);
  return key;
}

LSTATUS TryOpen(const std::u16string& path, REGSAM access = KEY_READ) {
  HKEY key = nullptr;
  const LSTATUS status = RegOpenKeyExW(kUser, path.c_str(), 0, access, &key);
  RegCloseKey(key);
  return status;
}

LSTATUS Set(HKEY key, const std::u16string& name, const Bytes& data, DWORD type = REG_BINARY) {
  return RegSetValueExW(key, name.c_str(), 0, type, data.data(), static_cast<DWORD>(data.size()));
}

// The first room is too small for anything.
LSTATUS Get(HKEY key, const std::u16string& name, Bytes* data = nullptr, DWORD* type = nullptr) {
  Bytes room(1);
  DWORD size = 0;
  LSTATUS result = RegQueryValueExW(key, name.c_str(), nullptr, type, room.data(), &size);
  if (result == Number(ERROR_MORE_DATA)) {
    room.resize(size + 1);
    result = RegQueryValueExW(key, name.c_str(), nullptr, type, room.data(), &size);
  }
  if (data) data->assign(room.begin(), room.begin() + size);
  return result;
}

bool Holds(HKEY key, const Bytes& expected) {
  Bytes data;
  return Get(key, u"v", &data) == 0 && data == expected;
}

// The subkeys or values of a key, with capitals for letters.
std::vector<std::u16string> List(HKEY key, bool values) {
  std::vector<std::u16string> names;
  LSTATUS status = 0;
  while (status == 0) {
    WCHAR name[8];
    DWORD size = 8;
    const auto index = static_cast<DWORD>(names.size());
    status = values ? RegEnumValueW(key, index, name, &size, nullptr, nullptr, nullptr, nullptr)
                    : RegEnumKeyExW(key, index, name, &size, nullptr, nullptr, nullptr, nullptr);
    if (status == 0) names.emplace_back(name, size);
    if (status == 0 && names.back() == u"a") names.back() = u"A";
  }
  EXPECT_EQ(status, Number(ERROR_NO_MORE_ITEMS));
  return names;
}

TEST_F(RegistryTest, NothingIsMadeBeforeTheFirstWrite) {
  EXPECT_TRUE(List(kUser, true).empty() && List(kUser, false).empty());
  EXPECT_EQ(TryOpen(u""), kNotFound);
  EXPECT_EQ(RegDeleteTreeW(kUser, u"x"), kNotFound);
  EXPECT_FALSE(exists(folder_.Native("a")));
  // An empty file is no damage, and a link to nothing is followed, by the lock too.
  qntest::WriteFileBytes(folder_.Native("empty"), {});
  std::filesystem::create_symlink("a/target", folder_.Native("link"));
  for (const char* name : {"a/b/user.sqlite", "empty", "link"}) {
    UseFile(name);
    EXPECT_EQ(Set(kUser, u"x", {1}), 0);
  }
  EXPECT_EQ(static_cast<int>(status(folder_.Native("a")).permissions()), 0700);
  EXPECT_EQ(static_cast<int>(status(folder_.Native("a/target.lock")).permissions()), 0600);
  EXPECT_EQ(GetRegistryDamage(kUser, nullptr, 0), 0);
}

TEST_F(RegistryTest, PathsRightsAndHandles) {
  DWORD disposition = 0;
  const HKEY top = Open(u"\\Top\\\\Sub\\", KEY_ALL_ACCESS, &disposition);
  EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
  for (const REGSAM access : {0x0u, 0x1u, 0x2u, 0x4u, 0x10000u, KEY_READ, KEY_WRITE}) {
    EXPECT_EQ(Set(top, u"v", {1}), 0);
    RegCloseKey(Open(u"Top\\Sub\\below"));
    const HKEY key = Open(u"tOP\\sub", access, &disposition);
    EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
    const auto allowed = [&](REGSAM bits) { return access & bits ? 0 : kDenied; };
    HKEY made = nullptr;
    EXPECT_EQ(RegCreateKeyW(key, u"new", &made), allowed(4));
    EXPECT_EQ(Get(key, u"v"), allowed(1));
    EXPECT_EQ(Set(key, u"v", {1}), allowed(2));
    EXPECT_EQ(RegDeleteValueW(key, u"v"), allowed(2));
    for (const WCHAR* path : {u"below", u"\\"}) EXPECT_EQ(RegDeleteTreeW(key, path), allowed(0x10002));
    EXPECT_EQ(TryOpen(u"Top\\Sub\\below"), access & 0x10002 ? kNotFound : 0);
    EXPECT_EQ(RegDeleteTreeW(top, u""), 0);
    EXPECT_EQ(Set(made, u"v", {1}), made ? Number(ERROR_KEY_DELETED) : kNoHandle);
  }
  // The key that takes the place of a deleted one is another one.
  EXPECT_EQ(RegDeleteTreeW(kUser, u"top"), 0);
  RegCloseKey(Open(u"Top\\Sub"));
  EXPECT_EQ(Get(top, u"v"), Number(ERROR_KEY_DELETED));
  EXPECT_EQ(RegCloseKey(top), 0);
  for (const HKEY bad : {top, HKEY{}})
    EXPECT_TRUE(Set(bad, u"v", {1}) == kNoHandle && RegCloseKey(bad) == kNoHandle);

  std::u16string deep;
  while (deep.size() < 1024) deep += u"d\\";
  const std::u16string longest(16'383, u'n');
  const HKEY key = Open(deep);
  EXPECT_EQ(TryOpen(deep + u"d"), kInvalid);
  EXPECT_EQ(TryOpen(std::u16string(256, u'k')), kInvalid);
  EXPECT_TRUE(Set(key, longest, Bytes(64 << 20)) == 0 && Get(key, longest) == 0);
  EXPECT_EQ(Set(key, u"1", Bytes((64 << 20) + 1)), kInvalid);
  EXPECT_EQ(Set(key, longest + u"n", {}), kInvalid);
}

TEST_F(RegistryTest, ListingNeedsRoomAndRights) {
  RegCloseKey(Open(u"Top\\Sub"));
  EXPECT_EQ(Set(Open(u"Top"), u"Name", {5, 6}), 0);
  for (const REGSAM access : {1u, 8u}) {
    const HKEY key = Open(u"Top", access);
    for (const DWORD room : {3u, 4u, 5u}) {
      const LSTATUS few = Number(ERROR_MORE_DATA);
      WCHAR name[5] = u"____";
      BYTE data[2] = {};
      DWORD size = room, bytes = 1;
      EXPECT_EQ(RegEnumValueW(key, 0, name, &size, nullptr, nullptr, data, &bytes),
                access & 1 ? few : kDenied);
      EXPECT_TRUE(size == room && *name == u'_' && data[0] == 0 &&
                  bytes == (room == 5 && access & 1 ? 2 : 1));
      const LSTATUS status = RegEnumKeyExW(key, 0, name, &size, nullptr, nullptr, nullptr, nullptr);
      EXPECT_EQ(status, access & 1 ? kDenied : room < 4 ? few : 0);
      EXPECT_EQ(std::u16string(name), status == 0 ? u"Sub" : u"____");
    }
    RegCloseKey(key);
  }
}

// Keys stay on the file that they were opened on; their file may vanish, and they go with a fork.
TEST_F(RegistryTest, OpenKeysAndTheirFile) {
  const HKEY key = Open(u"A");
  UseFile("other.sqlite");
  EXPECT_EQ(Set(key, u"v", {1}), 0);
  EXPECT_EQ(TryOpen(u"A"), kNotFound);
  InChild([&] {
    EXPECT_TRUE(Holds(key, {1}) && Set(key, u"v", {2}) == 0);
    int opened = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
      opened += std::filesystem::read_symlink(entry.path(), error) == native_;
    EXPECT_EQ(opened, 2) << "the parent's, left alone, and the child's";
  });
  EXPECT_TRUE(Holds(key, {2}));
  std::filesystem::remove_all(folder_.Native("a"));
  EXPECT_EQ(Get(key, u"v"), kNotFound);
  EXPECT_EQ(Set(key, u"v", {3}), 0);
  UseFile("a/b/user.sqlite");
  EXPECT_TRUE(Holds(Open(u"A"), {3}));
  // A copy from before a key was made comes back: the key's id may be another one's by then.
  const Bytes copy = ReadFileBytes(native_);
  const HKEY late = Open(u"late");
  qntest::WriteFileBytes(native_ + ".copy", copy);
  std::filesystem::rename(native_ + ".copy", native_);
  const HKEY other = Open(u"other");
  EXPECT_EQ(Set(other, u"v", {7}) | Set(late, u"v", {8}), 0);
  EXPECT_TRUE(Holds(other, {7}) && Holds(Open(u"late"), {8}));
}

// Random work against a map from paths to values with their types.
TEST_F(RegistryTest, BehavesAsAMapOfMaps) {
  std::map<std::u16string, std::map<std::u16string, std::pair<DWORD, Bytes>>> model = {{u"", {}}};
  const auto pick = [](size_t count) { return static_cast<size_t>(Random()() % count); };
  const std::u16string names[] = {u"A", u"", {0xD800, u'_', 0xDC00}, u"\u0100"};
  EXPECT_EQ(Set(kUser, u"x", {}) | RegDeleteValueW(kUser, u"x"), 0);  // makes the database
  for (int step = 0; step < 1500 && !HasFailure(); ++step) {
    std::u16string path, typed;
    const size_t depth = pick(4), action = pick(8);
    for (size_t i = 0; i < depth; ++i) {
      path += pick(2) ? u"A\\" : u"_\\";
      typed += path[path.size() - 2] == u'A' && pick(2) ? u"\\a\\" : path.substr(path.size() - 2);
      if (action == 1) model[path];
    }
    if (action == 1) RegCloseKey(Open(typed));
    const LSTATUS expected = model.count(path) ? 0 : kNotFound;
    if (action == 0) {
      EXPECT_EQ(RegDeleteTreeW(kUser, typed.c_str()), expected);
      std::erase_if(model, [&](const auto& entry) { return entry.first.rfind(path, 0) == 0; });
      model[u""];
      continue;
    }
    HKEY key = nullptr;
    EXPECT_EQ(RegOpenKeyExW(kUser, typed.c_str(), 0, KEY_ALL_ACCESS, &key), expected);
    if (!key) continue;
    auto& values = model[path];
    const std::u16string& name = names[pick(4)];
    if (action == 2) {
      EXPECT_EQ(RegDeleteValueW(key, name.c_str()), values.erase(name) ? 0 : kNotFound);
    } else {
      values[name] = {static_cast<DWORD>(pick(1ull << 32)), Bytes(pick(20), static_cast<uint8_t>(step))};
      EXPECT_EQ(Set(key, name == u"A" ? u"a" : name, values[name].second, values[name].first), 0);
    }
    for (const auto& each : names) {
      std::pair<DWORD, Bytes> got;
      EXPECT_EQ(Get(key, each, &got.second, &got.first), values.count(each) ? 0 : kNotFound);
      EXPECT_TRUE(!values.count(each) || values[each] == got);
    }
    std::vector<std::u16string> valueNames, keyNames;
    for (const auto& entry : values) valueNames.push_back(entry.first);
    for (const WCHAR* each : {u"A", u"_"}) {
      if (model.count(path + each + u'\\')) keyNames.push_back(each);
    }
    EXPECT_TRUE(List(key, true) == valueNames && List(key, false) == keyNames);
    RegCloseKey(key);
  }
}

// A writer counts up a value, reports each number once it is stored, and is killed somewhere.
TEST_F(RegistryTest, AKilledWriterLosesNothingReported) {
  const HKEY key = Open(u"A");
  void* const shared = mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  auto& reported = *static_cast<std::atomic<uint32_t>*>(shared);
  for (int round = 0; round < 10; ++round) {
    reported = 0;
    const pid_t child = fork();
    // In small and large: both halves of a torn value would show.
    for (uint32_t i = 1; i != 0 && child == 0; reported = i++) {
      if (Set(key, u"v", Bytes(i % 3 ? 4 : 20'000, static_cast<uint8_t>(i))) != 0) _exit(1);
    }
    const uint32_t last = 50 + static_cast<uint32_t>(Random()() % 200);
    while (reported < last && waitpid(child, nullptr, WNOHANG) == 0) usleep(100);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_GE(reported, last);
    Bytes data(1);
    EXPECT_EQ(Get(key, u"v", &data), 0);
    EXPECT_LE(static_cast<uint8_t>(data[0] - reported), 1) << "neither the last one nor the next";
    EXPECT_EQ(data, Bytes(data.size(), data[0]));
  }
}

// Each of two processes with two threads makes its own keys and values in the same new database.
TEST_F(RegistryTest, ProcessesAndThreadsWriteAtOnce) {
  const auto name = [](size_t i) { return u"Shared\\" + std::u16string(i, u'n'); };
  const auto work = [&](size_t from) {
    for (size_t i = from; i < from + 60; ++i) EXPECT_EQ(Set(Open(name(i)), u"v", {1}), 0);
  };
  const auto process = [&](size_t from) {
    std::thread other([&] { work(from); });
    work(from + 60);
    other.join();
  };
  InChild([&] { process(1); }, [&] { process(121); });
  for (size_t i = 1; i <= 240; ++i) EXPECT_TRUE(Holds(Open(name(i)), {1}));
}

TEST_F(RegistryTest, AFullDiskLeavesTheOldValue) {
  HKEY key = Open(u"A");
  EXPECT_EQ(Set(key, u"v", Bytes(50'000, 1)), 0);
  InChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {300'000, 300'000};
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ(Set(key, u"v", Bytes(400'000, 2)), Number(ERROR_DISK_FULL));
    EXPECT_EQ(RegCreateKeyW(kUser, u"A", &key), 0);
    EXPECT_TRUE(Holds(key, Bytes(50'000, 1)));
    EXPECT_EQ(Set(key, u"v", Bytes(10, 3)), 0);
  });
  EXPECT_TRUE(Holds(key, Bytes(10, 3)));
}

TEST_F(RegistryTest, DamagedDatabasesAreSetAside) {
  // Files that end early, and bytes of 0xFF: whole regions, then the formats for writing, reading and tables,
  // the version and the program.
  const std::pair<size_t, size_t> edits[] = {{20'580, 0}, {100, 0},       {50, 0}, {0, 16},
                                             {100, 3000}, {4096, 36'000}, {18, 1}, {19, 1},
                                             {47, 1},     {60, 1},        {71, 1}};
  const char* const statements[] = {"DROP TABLE data", "CREATE TABLE more(x)",
                                    "DELETE FROM keys WHERE parent = 0", "UPDATE data SET data = 5"};
  const HKEY key = Open(u"A\\B");
  for (char16_t i = 0; i < 40; ++i) EXPECT_EQ(Set(key, std::u16string(1, u'0' + i), Bytes(1000, 4)), 0);
  const Bytes good = ReadFileBytes(native_);
  int number = 0;
  const auto aside = [&](int i) { return native_ + ".damaged-" + std::to_string(i); };
  // The key is open while the file goes bad, and two processes find out at once.
  const auto use = [&](const Bytes& bad) {
    const auto write = [&](const WCHAR* name) {
      EXPECT_TRUE(Get(key, u"5") != 0 && Set(key, name, {7}) == 0);
    };
    InChild([&] { write(u"v"); }, [&] { write(u"y"); });
    EXPECT_TRUE(ReadFileBytes(aside(++number)) == bad) << number;
    EXPECT_FALSE(exists(aside(number + 1)));
    EXPECT_TRUE(Holds(key, {7}) && Get(key, u"y") == 0);
  };
  for (const auto& [from, count] : edits) {
    Bytes bad = good;
    std::fill_n(bad.begin() + static_cast<ptrdiff_t>(from), count, uint8_t{0xFF});
    if (count == 0) bad.resize(from);
    use(Replace(bad, ""));
  }
  for (const char* sql : statements) use(Replace(good, sql));

  // A journal without its pages: they were cut off, or went aside when somebody was killed.
  for (const char* name : {"", "-journal"}) {
    Replace(good, "PRAGMA cache_size = 1; BEGIN; UPDATE data SET data = zeroblob(5000)");
    const Bytes journal = ReadFileBytes(native_ + "-journal");
    *name ? static_cast<void>(std::filesystem::remove(native_)) : std::filesystem::resize_file(native_, 0);
    EXPECT_EQ(TryOpen(u"A"), kNotFound);
    EXPECT_TRUE(ReadFileBytes(aside(++number) + "-journal") == journal);
    const auto expected = folder_.Path("a/b/user.sqlite.damaged-" + std::to_string(number) + name);
    WCHAR report[300];
    EXPECT_EQ(GetRegistryDamage(kUser, report, 300), static_cast<int>(expected.size()));
    EXPECT_EQ(report, expected);
  }
}

TEST_F(RegistryTest, DatabasesOfOthersStay) {
  EXPECT_EQ(Set(kUser, u"v", {1}), 0);
  const Bytes good = ReadFileBytes(native_);
  for (const auto& [sql, status] :
       {std::pair{"CREATE TABLE t(x); PRAGMA application_id = 5", ERROR_BADDB},
        {"PRAGMA application_id = 0x514E5247; PRAGMA user_version = 2", ERROR_ACCESS_DENIED}}) {
    const Bytes before = Replace({}, sql);
    EXPECT_EQ(TryOpen(u"A"), Number(status));
    EXPECT_EQ(Set(kUser, u"v", {1}), Number(status));
    EXPECT_TRUE(ReadFileBytes(native_) == before);
  }
  // Another program made it keep a log.
  Replace(good, "PRAGMA journal_mode = WAL; UPDATE data SET data = x'02'");
  EXPECT_TRUE(Holds(kUser, {2}));
  EXPECT_EQ(ReadFileBytes(native_)[18], 1);
}

// A folder, a file and a file system without rights.
TEST_F(RegistryTest, WhatCannotBeWrittenIsRead) {
  EXPECT_EQ(Set(Open(u"A"), u"v", {1}) | Set(kUser, u"v", {1}), 0);
  const auto expectReadOnly = [&] {
    HKEY key = nullptr;
    EXPECT_EQ(RegCreateKeyW(kUser, u"A", &key), 0);
    EXPECT_TRUE(Holds(key, {1}));
    EXPECT_EQ(TryOpen(u"A", KEY_WRITE), kDenied);
    EXPECT_TRUE(RegDeleteTreeW(kUser, u"A") == kDenied && RegDeleteValueW(kUser, u"v") == kDenied);
    EXPECT_TRUE(Set(key, u"v", {1}) == kDenied && Set(kUser, u"v", {1}) == kDenied);
    for (const char* name : {"a/b/user.sqlite", "a/b/new", "a/new/new"}) {
      UseFile(name);
      EXPECT_EQ(RegCreateKeyW(kUser, u"B", &key), kDenied) << name;
    }
  };
  const auto setModes = [&](mode_t folders, mode_t file) {
    for (const char* name : {"", "a", "a/b"}) chmod(folder_.Native(name).c_str(), folders);
    chmod(native_.c_str(), file);
  };
  const auto asNobody = [&](mode_t file, const std::function<void()>& body) {
    setModes(0555, file);
    InChild([&] {
      if (geteuid() != 0 || setuid(65534) == 0) body();
    });
    setModes(0700, 0644);
  };
  asNobody(0444, expectReadOnly);
  asNobody(0666, expectReadOnly);
  InChild([&] {
    if (unshare(CLONE_NEWNS) != 0) return;  // without the right to mount
    const std::string folder = folder_.Native("a");
    mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
    mount(folder.c_str(), folder.c_str(), nullptr, MS_BIND, nullptr);
    mount("", folder.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr);
    expectReadOnly();
  });
  // What a killed writer left half done is undone by whoever has the rights, and hidden from others.
  Replace(ReadFileBytes(native_), "PRAGMA cache_size = 1; BEGIN; UPDATE data SET data = zeroblob(90000)");
  asNobody(0444, [] { EXPECT_EQ(TryOpen(u"A"), kDenied); });
  EXPECT_TRUE(Holds(Open(u"A"), {1}));
}

}  // namespace
