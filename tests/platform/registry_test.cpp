#include "qn/platform/registry.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "qn/platform/file.h"
#include "qn/platform/text.h"
#include "tests/support/support.h"

namespace {

using qntest::Bytes;
using qntest::Random;

constexpr LSTATUS Number(DWORD error) {
  return static_cast<LSTATUS>(error);
}

// A user's hive in a file of its own, which does not exist yet.
class RegistryTest : public testing::Test {
 protected:
  RegistryTest() { UseFile(path_); }
  ~RegistryTest() override { SetRegistryFile(HKEY_CURRENT_USER, nullptr); }

  static void UseFile(const std::u16string& path) {
    EXPECT_EQ(SetRegistryFile(HKEY_CURRENT_USER, path.c_str()), 0);
  }

  void RunSql(const char* text) const {
    sqlite3* database = nullptr;
    EXPECT_EQ(sqlite3_open(native_.c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, text, nullptr, nullptr, nullptr), SQLITE_OK) << text;
    sqlite3_close(database);
  }

  qntest::ScratchFolder folder_;
  const std::u16string path_ = folder_.Path("a/b/user.sqlite");
  const std::string native_ = folder_.Native("a/b/user.sqlite");
};

HKEY Open(const std::u16string& path, REGSAM access = KEY_ALL_ACCESS, DWORD* disposition = nullptr) {
  HKEY key = nullptr;
  EXPECT_EQ(
      RegCreateKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, 0, access, nullptr, &key, disposition), 0);
  return key;
}

LSTATUS TryOpen(const std::u16string& path, REGSAM access) {
  HKEY key = nullptr;
  const LSTATUS status = RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, access, &key);
  EXPECT_EQ(RegCloseKey(key), status == 0 ? 0 : Number(ERROR_INVALID_HANDLE));
  return status;
}

LSTATUS Set(HKEY key, const std::u16string& name, const Bytes& data, DWORD type = REG_BINARY) {
  return RegSetValueExW(key, name.c_str(), 0, type, data.data(), static_cast<DWORD>(data.size()));
}

// What is stored, or nothing and the error.
std::optional<Bytes> Get(HKEY key, const std::u16string& name, LSTATUS* error = nullptr,
                         DWORD* type = nullptr) {
  DWORD size = 0;
  LSTATUS status = RegQueryValueExW(key, name.c_str(), nullptr, type, nullptr, &size);
  Bytes data(size + 1);  // never a null address
  if (status == 0) status = RegQueryValueExW(key, name.c_str(), nullptr, type, data.data(), &size);
  if (error) *error = status;
  if (status != 0) return std::nullopt;
  data.resize(size);
  return data;
}

LSTATUS EnumKey(HKEY key, DWORD index, DWORD size = 8, std::u16string* got = nullptr) {
  WCHAR name[8];
  const LSTATUS status = RegEnumKeyExW(key, index, name, &size, nullptr, nullptr, nullptr, nullptr);
  if (got && status == 0) got->assign(name, size);
  return status;
}

LSTATUS EnumValue(HKEY key, DWORD index) {
  WCHAR name[8];
  DWORD size = 8;
  return RegEnumValueW(key, index, name, &size, nullptr, nullptr, nullptr, nullptr);
}

// Runs `body` in another process, and `beside` here meanwhile.
int RunChild(
    const std::function<int()>& body, const std::function<void()>& beside = [] {}) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  beside();
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

// A fork closes it, which ends its log.
void CloseDatabase() {
  EXPECT_EQ(RunChild([] { return 0; }), 0);
}

TEST_F(RegistryTest, ValuesOfAnyTypeKeepTheirBytes) {
  const HKEY key = Open(u"Software\\A");
  const std::u16string lone = {0xD800, u'x', 0xDC00};
  const std::u16string longest(16'383, u'n');
  const struct {
    std::u16string name;
    DWORD type;
    Bytes data;
  } rows[] = {{u"", REG_SZ, {'d', 0, 0, 0}},          {u"Leer", REG_NONE, {}},
              {u"\u00e4", REG_QWORD, Bytes(8, 0xFF)}, {u"\u00c4", REG_EXPAND_SZ, {0xD8}},
              {lone, REG_MULTI_SZ, Bytes(6)},         {longest, 0xFFFFFFFF, Bytes(64 << 20, 7)}};
  for (const auto& row : rows) EXPECT_EQ(Set(key, row.name, row.data, row.type), 0);
  for (const auto& row : rows) {
    DWORD type = 0;
    EXPECT_TRUE(Get(key, row.name, nullptr, &type) == row.data);
    EXPECT_EQ(type, row.type);
  }
  EXPECT_EQ(Set(key, u"1", Bytes((64 << 20) + 1)), Number(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(Set(key, longest + u"n", {}), Number(ERROR_INVALID_PARAMETER));

  // Case, and the room.
  EXPECT_EQ(Set(key, u"lEER", {9, 8, 7}), 0);
  BYTE room[4] = {1, 1, 1, 1};
  DWORD size = 2;
  DWORD type = 0;
  EXPECT_EQ(RegQueryValueExW(key, u"LEER", nullptr, &type, room, &size), Number(ERROR_MORE_DATA));
  EXPECT_EQ(size, 3u);
  EXPECT_EQ(RegQueryValueExW(key, u"LEER", nullptr, &type, room, &size), 0);
  EXPECT_EQ(room[2], 7);
  EXPECT_EQ(RegQueryValueExW(key, u"none", nullptr, &type, room, &size), Number(ERROR_FILE_NOT_FOUND));
  RegCloseKey(key);
}

TEST_F(RegistryTest, NothingIsMadeBeforeTheFirstWrite) {
  EXPECT_EQ(TryOpen(u"", KEY_READ), Number(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(RegDeleteValueW(HKEY_CURRENT_USER, u"x"), Number(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, u"x"), Number(ERROR_FILE_NOT_FOUND));
  EXPECT_EQ(EnumKey(HKEY_CURRENT_USER, 0), Number(ERROR_NO_MORE_ITEMS));
  EXPECT_FALSE(std::filesystem::exists(folder_.Native("a")));
  EXPECT_EQ(Set(HKEY_CURRENT_USER, u"x", {1}), 0);
  struct stat info;
  EXPECT_EQ(stat(folder_.Native("a").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);
  EXPECT_EQ(qntest::ReadFileBytes(native_)[18], 2) << "this file system is local: a log";

  // An empty file is no damage.
  qntest::WriteFileBytes(folder_.Native("empty"), {});
  UseFile(folder_.Path("empty"));
  EXPECT_EQ(Set(HKEY_CURRENT_USER, u"x", {1}), 0);
  EXPECT_EQ(GetRegistryDamage(HKEY_CURRENT_USER, nullptr, 0), 0);
}

TEST_F(RegistryTest, PathsRightsAndHandles) {
  DWORD disposition = 0;
  const HKEY top = Open(u"\\Top\\\\Sub\\", KEY_ALL_ACCESS, &disposition);
  EXPECT_EQ(disposition, REG_CREATED_NEW_KEY);
  RegCloseKey(Open(u"tOP\\sub", KEY_READ, &disposition));
  EXPECT_EQ(disposition, REG_OPENED_EXISTING_KEY);
  std::u16string deep;
  for (int i = 0; i < 512; ++i) deep += u"d\\";
  RegCloseKey(Open(deep));
  EXPECT_EQ(TryOpen(deep + u"d", KEY_READ), Number(ERROR_INVALID_PARAMETER));
  EXPECT_EQ(TryOpen(std::u16string(256, u'k'), KEY_READ), Number(ERROR_INVALID_PARAMETER));
  // Each right by itself.
  const Bytes one = {1};
  EXPECT_EQ(Set(top, u"v", one), 0);
  RegCloseKey(Open(u"Top\\Sub\\below"));
  for (REGSAM access = 0; access < 16; ++access) {
    const HKEY key = Open(u"Top\\Sub", access);
    const auto allowed = [&](REGSAM bit) { return access & bit ? 0 : Number(ERROR_ACCESS_DENIED); };
    LSTATUS status = 0;
    Get(key, u"v", &status);
    EXPECT_EQ(status, allowed(1));
    EXPECT_EQ(EnumValue(key, 0), allowed(1));
    EXPECT_EQ(Set(key, u"v", one), allowed(2));
    EXPECT_EQ(RegDeleteTreeW(key, nullptr) | Set(top, u"v", one), allowed(2));
    HKEY below = nullptr;
    EXPECT_EQ(RegCreateKeyW(key, u"new", &below), allowed(4));
    RegCloseKey(below);
    RegDeleteKeyW(top, u"new");
    RegCloseKey(Open(u"Top\\Sub\\below"));
    EXPECT_EQ(EnumKey(key, 0), allowed(8));
    RegCloseKey(key);
  }

  // Deletion under an open handle; the key that takes the place is another one.
  EXPECT_EQ(RegDeleteKeyW(HKEY_CURRENT_USER, u"Top\\Sub"), Number(ERROR_ACCESS_DENIED)) << "it has subkeys";
  EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, u"top"), 0);
  RegCloseKey(Open(u"Top\\Sub"));
  LSTATUS status = 0;
  Get(top, u"v", &status);
  EXPECT_EQ(status, Number(ERROR_KEY_DELETED));
  EXPECT_EQ(Set(top, u"v", one), Number(ERROR_KEY_DELETED));

  // What is no open key.
  EXPECT_EQ(RegCloseKey(top), 0);
  const HANDLE file =
      CreateFileW(folder_.Path("f").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  for (const HKEY bad : {top, HKEY{}, static_cast<HKEY>(file), static_cast<HKEY>(INVALID_HANDLE_VALUE)}) {
    EXPECT_EQ(Set(bad, u"v", one), Number(ERROR_INVALID_HANDLE));
    EXPECT_EQ(RegCloseKey(bad), Number(ERROR_INVALID_HANDLE));
  }
  EXPECT_TRUE(CloseHandle(file)) << "it was left open";
}

// Keys stay on the file that they were opened on, and their file may vanish.
TEST_F(RegistryTest, OpenKeysAndTheirFile) {
  const HKEY key = Open(u"A");
  UseFile(folder_.Path("other.sqlite"));
  EXPECT_EQ(Set(key, u"v", {1}), 0);
  EXPECT_EQ(TryOpen(u"A", KEY_READ), Number(ERROR_FILE_NOT_FOUND));
  UseFile(path_);
  EXPECT_EQ(Get(Open(u"A"), u"v"), Bytes{1});
  EXPECT_EQ(RunChild([&] { return Get(key, u"v") == Bytes{1} ? Set(key, u"v", {2}) : 1; }), 0);
  EXPECT_EQ(Get(key, u"v"), Bytes{2}) << "a fork carries keys along";
  std::filesystem::remove_all(folder_.Native("a"));
  EXPECT_EQ(Get(key, u"v"), std::nullopt);
  EXPECT_EQ(Set(key, u"v", {3}), 0);
  EXPECT_EQ(Get(Open(u"A"), u"v"), Bytes{3});
}

// Random work against a map from folded paths to values, looked at through enumeration.
TEST_F(RegistryTest, BehavesAsAMapOfMaps) {
  std::map<std::u16string, std::map<std::u16string, Bytes>> model = {{u"", {}}};
  const auto pick = [](size_t count) { return static_cast<size_t>(Random()() % count); };
  const std::u16string names[] = {u"A", u"B", u"_", u"\u0100"};
  const auto below = [](const std::u16string& path, const std::u16string& top) {
    return top.empty() || path == top || path.compare(0, top.size() + 1, top + u"\\") == 0;
  };
  EXPECT_EQ(RegDeleteKeyW(Open(u"x"), u""), 0);  // makes the database
  for (int step = 0; step < 1500 && !HasFailure(); ++step) {
    std::u16string path;
    for (size_t depth = pick(4); depth != 0; --depth) path += (path.empty() ? u"" : u"\\") + names[pick(4)];
    std::u16string typed = path;
    for (char16_t& c : typed) c = c < 128 && pick(2) ? static_cast<char16_t>(tolower(c)) : c;
    const auto found = model.find(path);
    const std::u16string& name = names[pick(4)];
    const size_t action = pick(6);
    HKEY key = nullptr;
    if (action == 0) {
      RegCloseKey(Open(typed));
      for (size_t end = 0; end != path.npos && !path.empty(); model[path.substr(0, end)])
        end = path.find(u'\\', end + 1);
    } else if (action == 1) {
      EXPECT_EQ(RegDeleteTreeW(HKEY_CURRENT_USER, typed.c_str()) == 0, found != model.end());
      std::erase_if(model, [&](const auto& entry) { return below(entry.first, path); });
      model[u""];
    } else if (action == 2) {
      const auto isBelow = [&](const auto& entry) { return below(entry.first, path); };
      const bool leaf = !path.empty() && std::count_if(model.begin(), model.end(), isBelow) == 1;
      EXPECT_EQ(RegDeleteKeyW(HKEY_CURRENT_USER, typed.c_str()) == 0, leaf);
      if (leaf) model.erase(path);
    } else {
      EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, typed.c_str(), 0, KEY_ALL_ACCESS, &key) == 0,
                found != model.end());
      if (!key) continue;
      const Bytes data(pick(20), static_cast<uint8_t>(step));
      EXPECT_EQ(pick(4) == 0 ? RegDeleteValueW(key, name.c_str()) * 0 : Set(key, name, data), 0);
      const auto stored = Get(key, name);
      EXPECT_TRUE(!stored || stored == data);
      found->second.erase(name);
      if (stored) found->second[name] = data;
      DWORD index = 0;
      for (const auto& [valueName, value] : found->second) {
        WCHAR text[2];
        BYTE bytes[20];
        DWORD room = sizeof bytes;
        DWORD size = 2;
        EXPECT_EQ(RegEnumValueW(key, index++, text, &size, nullptr, nullptr, bytes, &room), 0);
        EXPECT_EQ(text, valueName);
        EXPECT_EQ(Bytes(bytes, bytes + room), value);
      }
      EXPECT_EQ(EnumValue(key, index), Number(ERROR_NO_MORE_ITEMS));
      index = 0;
      for (const auto& sub : names) {
        std::u16string got;
        if (!model.count(path.empty() ? sub : path + u"\\" + sub)) continue;
        EXPECT_EQ(EnumKey(key, index++, 2, &got), 0);
        EXPECT_TRUE(got == sub || got[0] == sub[0] + u'a' - u'A');
      }
      EXPECT_EQ(EnumKey(key, index), Number(ERROR_NO_MORE_ITEMS));
      RegCloseKey(key);
    }
  }
}

// A writer counts up a value, reports each number once it is stored, and is killed somewhere.
TEST_F(RegistryTest, AKilledWriterLosesNothingReported) {
  const HKEY key = Open(u"A");
  for (int round = 0; round < 10; ++round) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
      for (uint32_t i = 1;; ++i) {
        // The same number in small and large: both halves of a torn value would show.
        Bytes data(i % 3 == 0 ? 20'000 : 4);
        for (size_t at = 0; at < data.size(); at += 4) memcpy(&data[at], &i, 4);
        if (Set(key, u"count", data) != 0 || write(ends[1], &i, 4) != 4) _exit(1);
      }
    }
    close(ends[1]);
    uint32_t reported = 0;
    const uint32_t last = 50 + static_cast<uint32_t>(Random()() % 400);
    while (reported < last && read(ends[0], &reported, 4) == 4) continue;
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    while (read(ends[0], &reported, 4) == 4) continue;
    close(ends[0]);
    EXPECT_GE(reported, last);
    const Bytes data = Get(key, u"count").value_or(Bytes(4));
    uint32_t stored = 0;
    memcpy(&stored, data.data(), 4);
    EXPECT_TRUE(stored == reported || stored == reported + 1) << stored << " after " << reported;
    for (size_t at = 4; at < data.size(); at += 4) EXPECT_EQ(memcmp(&data[at], &stored, 4), 0);
  }
}

// Each of two processes with two threads makes its own keys and values in the same new database.
TEST_F(RegistryTest, ProcessesAndThreadsWriteAtOnce) {
  constexpr int kWrites = 60;
  const auto work = [](char16_t id, LSTATUS* failed) {
    for (int i = 0; i < kWrites; ++i) {
      const std::u16string name = {id, static_cast<char16_t>(u'A' + i)};
      const HKEY key = Open(u"Shared\\" + name);
      *failed |= Set(key, u"v", {1}) | RegCloseKey(key);
    }
  };
  const auto process = [&](char16_t id) {
    LSTATUS failed[2] = {};
    std::thread other([&] { work(id, &failed[0]); });
    work(static_cast<char16_t>(id + 1), &failed[1]);
    other.join();
    return failed[0] | failed[1];
  };
  EXPECT_EQ(RunChild([&] { return process(u'a') != 0; }, [&] { EXPECT_EQ(process(u'p'), 0); }), 0);
  const HKEY shared = Open(u"Shared");
  DWORD count = 0;
  while (EnumKey(shared, count) == 0) ++count;
  // Names differ in ASCII case alone for some i: those share a key.
  EXPECT_EQ(count, 4u * (kWrites - 26));
}

TEST_F(RegistryTest, AFullDiskLeavesTheOldValue) {
  const HKEY key = Open(u"A");
  EXPECT_EQ(Set(key, u"v", Bytes(50'000, 1)), 0);
  const int result = RunChild([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {300'000, 300'000};
    setrlimit(RLIMIT_FSIZE, &limit);
    if (Set(key, u"v", Bytes(400'000, 2)) != Number(ERROR_DISK_FULL)) return 1;
    if (Get(key, u"v") != Bytes(50'000, 1)) return 2;
    return Set(key, u"v", Bytes(10, 3)) == 0 ? 0 : 3;
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(Get(key, u"v"), Bytes(10, 3));
}

TEST_F(RegistryTest, DamagedDatabasesAreSetAside) {
  const auto fill = [](size_t from, size_t count, uint8_t with) {
    return [=](Bytes& file) { std::fill_n(file.begin() + static_cast<ptrdiff_t>(from), count, with); };
  };
  const auto cut = [](size_t size) { return [=](Bytes& file) { file.resize(size); }; };
  const auto sql = [this](const char* text) {
    return [=, this](Bytes& file) {
      qntest::WriteFileBytes(native_, file);
      RunSql(text);
      file = qntest::ReadFileBytes(native_);
    };
  };
  const std::function<void(Bytes&)> damages[] = {cut(20'580),
                                                 cut(100),
                                                 cut(50),
                                                 fill(0, 16, 'x'),
                                                 fill(100, 3000, 0xA5),
                                                 fill(4096, 36'000, 0),  //
                                                 sql("DROP TABLE data"),
                                                 sql("CREATE TABLE more(x)"),
                                                 sql("PRAGMA application_id = 1"),  //
                                                 sql("DELETE FROM keys WHERE parent = 0"),
                                                 sql("UPDATE data SET data = 5")};
  const Bytes good = [&] {
    const HKEY key = Open(u"A\\B");
    for (char16_t i = 0; i < 40; ++i) EXPECT_EQ(Set(key, std::u16string(1, u'0' + i), Bytes(1000, 4)), 0);
    RegCloseKey(key);
    CloseDatabase();
    return qntest::ReadFileBytes(native_);
  }();
  int number = 0;
  for (const auto& damage : damages) {
    // The key is open while the file goes bad, and two processes find out at once.
    std::filesystem::remove(native_);
    qntest::WriteFileBytes(native_, good);
    const HKEY key = Open(u"A\\B");
    CloseDatabase();
    Bytes bad = good;
    damage(bad);
    qntest::WriteFileBytes(native_, bad);
    const auto use = [&](const WCHAR* name) {
      return Get(key, u"5").has_value() || Set(key, name, {7}) != 0;
    };
    EXPECT_EQ(RunChild([&] { return use(u"x"); }, [&] { EXPECT_FALSE(use(u"y")); }), 0);
    const std::string aside = native_ + ".damaged-";
    EXPECT_TRUE(qntest::ReadFileBytes(aside + std::to_string(++number)) == bad) << number;
    EXPECT_FALSE(std::filesystem::exists(aside + std::to_string(number + 1)));
    EXPECT_TRUE(Get(key, u"x") == Bytes{7} && Get(key, u"y") == Bytes{7});
    RegCloseKey(key);
    CloseDatabase();
  }
  // Damage that this process finds alone is reported.
  qntest::WriteFileBytes(native_, Bytes(5000, 'x'));
  EXPECT_EQ(TryOpen(u"A", KEY_READ), Number(ERROR_FILE_NOT_FOUND));
  const std::u16string expected = path_ + u".damaged-12";
  WCHAR report[300];
  for (const int room : {300, 5}) {
    EXPECT_EQ(GetRegistryDamage(HKEY_CURRENT_USER, report, room), static_cast<int>(expected.size()));
    EXPECT_EQ(report, expected.substr(0, static_cast<size_t>(room) - 1));
  }
}

// A database in a folder without rights, of a newer version, and one that somebody else holds.
TEST_F(RegistryTest, WhatCannotBeWrittenIsReadOrRefused) {
  EXPECT_EQ(Set(Open(u"A"), u"v", {1}), 0);
  const auto asNobody = [&](const std::function<bool()>& body) {
    return RunChild([&] { return (geteuid() != 0 || setuid(65534) == 0) && body() ? 0 : 1; });
  };
  for (const auto& [mode, file] : {std::pair{0555, 0444}, {0555, 0644}, {0755, 0444}}) {
    CloseDatabase();
    for (const char* name : {"", "a", "a/b"}) chmod(folder_.Native(name).c_str(), static_cast<mode_t>(mode));
    chmod(native_.c_str(), static_cast<mode_t>(file));
    const int result = asNobody([] {
      HKEY key = nullptr;
      return TryOpen(u"A", KEY_WRITE) == Number(ERROR_ACCESS_DENIED) &&
             Set(HKEY_CURRENT_USER, u"v", {2}) == Number(ERROR_ACCESS_DENIED) &&
             RegCreateKeyW(HKEY_CURRENT_USER, u"B", &key) == Number(ERROR_ACCESS_DENIED) &&
             RegOpenKeyExW(HKEY_CURRENT_USER, u"A", 0, KEY_READ, &key) == 0 && Get(key, u"v") == Bytes{1} &&
             Get(key, u"w") == std::nullopt;
    });
    EXPECT_EQ(result, 0) << mode << ' ' << file;
    for (const char* name : {"", "a", "a/b"}) chmod(folder_.Native(name).c_str(), 0700);
    chmod(native_.c_str(), 0644);
  }
  RunSql("PRAGMA user_version = 2");
  UseFile(path_);
  EXPECT_EQ(TryOpen(u"A", KEY_READ), Number(ERROR_ACCESS_DENIED));
  EXPECT_EQ(Set(HKEY_CURRENT_USER, u"v", {1}), Number(ERROR_ACCESS_DENIED));
}

}  // namespace
