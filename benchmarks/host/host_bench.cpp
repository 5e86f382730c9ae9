// What a host does all day: names, messages of failures, settings and folders, beside what its programmer
// would take instead. The peers write narrow text. Files lie in the directory for temporary files. All that
// keep settings wait for the disk at each write; of those that move a folder only ours does.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sqlite3.h>
#include <unicode/ucol.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "benchmarks/support/allocations.h"
#include "qn/kernel/qnpath.h"
#include "qn/platform/registry.h"
#include "qn/platform/text.h"
#include "qn/settings/qnerror.h"
#include "qn/settings/qnmetric.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t kRounds = 256;

// Registers a case. `work` is told the number of its call. Before each call of slow work, which tells its
// success, comes `prepare`, which is not measured.
template <typename Work>
void Add(const std::string& name, bool (*prepare)(), Work work) {
  benchmark::RegisterBenchmark(("host/" + name).c_str(), [=](benchmark::State& state) {
    if (!prepare) work(0);  // the first call sets up what the others use
    size_t call = 0;
    for (auto _ : state) {
      if (prepare) {
        state.PauseTiming();
        if (!prepare()) return state.SkipWithError("not possible here");
        state.ResumeTiming();
      }
      benchmark::DoNotOptimize(work(call++ % kRounds));
      benchmark::ClobberMemory();
    }
    if (prepare && !prepare()) return;
    const size_t rounds = prepare ? 1 : kRounds;
    const int64_t before = qnbench::Allocations();
    for (size_t i = 0; i < rounds; ++i) {
      const auto result = work(i);
      if (prepare && !result) return state.SkipWithError("failed");
      benchmark::DoNotOptimize(result);
    }
    const auto made = static_cast<double>(qnbench::Allocations() - before);
    state.counters["allocations"] = made / static_cast<double>(rounds);
  });
}

template <typename Work>
void Add(const std::string& name, Work work) {
  Add(name, nullptr, work);
}

// A path of 60 characters for each call, and where its name starts; every other one is a ".wav".
struct Path {
  std::string narrow;
  std::u16string wide;
  const char* narrowName;
  const WCHAR* wideName;
};
const Path& PathAt(size_t call) {
  static const std::vector<Path> paths = [] {
    std::vector<Path> made(kRounds);
    for (size_t i = 0; i < kRounds; ++i) {
      std::string& narrow = made[i].narrow;
      narrow = "/home/user/Music/Project 1/Recordings/Overdub, take " + std::to_string(i);
      narrow.resize(56, '-');
      narrow += i % 2 == 0 ? ".wav" : ".pek";
      made[i].wide = qn::PathFromNative(narrow);
      made[i].narrowName = QnGetFileNamePtrA(narrow.c_str());
      made[i].wideName = QnGetFileNamePtrW(made[i].wide.c_str());
    }
    return made;
  }();
  return paths[call % kRounds];
}

void AddPaths() {
  Add("name_and_extension/ours", [](size_t i) {
    const WCHAR* const path = PathAt(i).wide.c_str();
    return QnGetFileNameExtensionPtrW(path) - QnGetFileNamePtrW(path);
  });
  Add("name_and_extension/filesystem", [](size_t i) {
    const fs::path path(PathAt(i).narrow);
    return path.filename().native().size() - path.extension().native().size();
  });
  Add("replace_extension/ours", [](size_t i) {
    WCHAR path[260];
    std::memcpy(path, PathAt(i).wide.c_str(), 61 * sizeof(WCHAR));
    return QnReplaceExtensionOnPathName(path, 260, W(".mp3"));
  });
  Add("replace_extension/filesystem",
      [](size_t i) { return fs::path(PathAt(i).narrow).replace_extension(".mp3").native().size(); });
  Add("wild_card/ours", [](size_t i) { return QnIsMatchWildCard(W("*.wav"), PathAt(i).wideName); });
  Add("wild_card/fnmatch", [](size_t i) { return fnmatch("*.wav", PathAt(i).narrowName, 0); });
  Add("numbered_names/ours",
      [](size_t i) { return QnFilenameLogicalCompare(PathAt(i).wideName, PathAt(i + 1).wideName); });
  Add("numbered_names/strverscmp",
      [](size_t i) { return strverscmp(PathAt(i).narrowName, PathAt(i + 1).narrowName); });
  UErrorCode error = U_ZERO_ERROR;
  UCollator* const numeric = ucol_open("", &error);
  ucol_setAttribute(numeric, UCOL_NUMERIC_COLLATION, UCOL_ON, &error);
  Add("numbered_names/icu", [numeric](size_t i) {
    return ucol_strcoll(numeric, PathAt(i).wideName, -1, PathAt(i + 1).wideName, -1);
  });
}

// The library speaks German here, and its texts are the peers' formats.
void AddErrors() {
  static constexpr HRESULT kDiskFull = static_cast<HRESULT>(0x8004E002);
  static constexpr HRESULT kLastRow = static_cast<HRESULT>(0x8004E189);
  _QnLang_UpdateKernelOnlyLCID(0x407);
  static const std::string sentence = qn::ToUtf8(QnErrorHandler_GetContextString(6));
  static const std::string format = sentence + qn::ToUtf8(QnErrorHandler_GetHresultString(kDiskFull));
  static char message[2048];
  const auto print = [](size_t i) {
    return std::snprintf(message, sizeof message, format.c_str(), PathAt(i).narrow.c_str());
  };
  Add("error_message/ours",
      [](size_t i) { return QnErrorHandler_GetErrorMessage(6, kDiskFull, PathAt(i).wide.c_str()); });
  Add("error_message/snprintf", print);
  Add("status_text/ours", [](size_t) { return QnErrorHandler_GetHresultString(kLastRow); });
  Add("status_text/error_code",
      [](size_t) { return std::error_code(ENOSPC, std::generic_category()).message().size(); });
  Add("failure/ours", [](size_t i) {
    QnErrorHandler_DetailsInit();
    QnErrorHandler_DetailsAddString(kDiskFull, W("Track %d: %s"), 12, PathAt(i).wideName);
    const BSTR text = QnErrorHandler_ComposeErrorText(6, kDiskFull, PathAt(i).wide.c_str());
    const WCHAR last = text[SysStringLen(text) - 1];
    SysFreeString(text);
    return last;
  });
  Add("failure/string", [print](size_t i) {
    const std::string details = std::string("Track ") + std::to_string(12) + ": " + PathAt(i).narrowName;
    print(i);
    return (std::string(message) + "\r\n<Details>\r\n" + details + "\r\n\r\n</Details>").size();
  });
}

// A folder for the files of this group, and one on the memory's file system; both are gone at the end.
struct Folders {
  Folders() { fs::create_directory(disk); }
  ~Folders() {
    fs::remove_all(disk);
    fs::remove_all(memory);
  }
  const std::string name = "qnbench-" + std::to_string(getpid());
  const fs::path disk = fs::temp_directory_path() / name;
  const fs::path memory = "/dev/shm/" + name;
};
const Folders& GetFolders() {
  static const Folders folders;
  return folders;
}
fs::path Scratch(const char* name) {
  return GetFolders().disk / name;
}
std::u16string Wide(const fs::path& path) {
  return qn::PathFromNative(path.string());
}

// 100 numbers: in the library's registry, where they are an application's and the library's own; in a table
// of SQLite, with what the registry promises, by a prepared statement; and as a text, written anew each time.
constexpr size_t kSettings = 100;

HQNMETRIC Metrics() {
  static const HQNMETRIC metrics = [] {
    SetRegistryFile(HKEY_CURRENT_USER, Wide(Scratch("user.sqlite")).c_str());
    HQNMETRIC opened = nullptr;
    QnMetric_Open(&opened, W("Editor"), 0x00200000, W("View"));
    for (const HQNMETRIC handle : {opened, QNMETRIC_DEFAULT}) {
      for (size_t id = 0; id < kSettings; ++id) QnSetMetric(handle, static_cast<LONG>(id), 1);
    }
    return opened;
  }();
  return metrics;
}

sqlite3_stmt* Prepare(const char* sql) {
  static sqlite3* const table = [] {
    sqlite3* opened = nullptr;
    sqlite3_open(Scratch("table.sqlite").c_str(), &opened);
    sqlite3_exec(opened,
                 "PRAGMA synchronous = EXTRA; CREATE TABLE data(key INTEGER NOT NULL, name TEXT NOT NULL,"
                 " data INTEGER NOT NULL, PRIMARY KEY(key, name)) WITHOUT ROWID;"
                 "WITH RECURSIVE ids(id) AS (SELECT 0 UNION SELECT id + 1 FROM ids WHERE id < 99)"
                 " INSERT INTO data SELECT 7, id, 1 FROM ids",
                 nullptr, nullptr, nullptr);
    return opened;
  }();
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(table, sql, -1, &statement, nullptr);
  return statement;
}
int Ask(sqlite3_stmt* statement, size_t id) {
  const std::string name = std::to_string(id);
  sqlite3_bind_text(statement, 1, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
  const int value = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int(statement, 0) : 0;
  return sqlite3_reset(statement) == SQLITE_OK ? value : 0;
}
int ReadTable(size_t id) {
  static sqlite3_stmt* const read = Prepare("SELECT data FROM data WHERE key = 7 AND name = ?1");
  return Ask(read, id);
}
bool WriteTable(size_t id, int value) {
  static sqlite3_stmt* const write =
      Prepare("UPDATE data SET data = ?2 WHERE key = 7 AND name = ?1 RETURNING data");
  sqlite3_bind_int(write, 2, value);
  return Ask(write, id) == value;
}

bool WriteIni(size_t id, int value) {
  std::string text;
  for (size_t i = 0; i < kSettings; ++i)
    text += std::to_string(i) + "=" + std::to_string(i == id ? value : 1) + "\n";
  const std::string path = Scratch("settings.ini");
  const int file = open((path + ".new").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  const bool put = write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  const bool kept = put && fsync(file) == 0;
  close(file);
  return kept && rename((path + ".new").c_str(), path.c_str()) == 0;
}
int ReadIni(size_t id) {
  static const bool made = WriteIni(0, 1);
  std::ifstream file(Scratch("settings.ini"));
  const std::string start = std::to_string(id) + "=";
  for (std::string line; made && std::getline(file, line);) {
    if (line.starts_with(start)) return std::stoi(line.substr(start.size()));
  }
  return 0;
}

// Writes change the number, as one that is there already needs no disk.
void AddSettings() {
  static int value = 1;
  for (const bool own : {false, true}) {
    const std::string name = own ? "get_default_metric/" : "get_metric/";
    Add(name + "ours", [own](size_t i) {
      const HQNMETRIC handle = Metrics();
      return QnGetMetricEx(own ? QNMETRIC_DEFAULT : handle, static_cast<LONG>(i % kSettings), 0, 100, 7);
    });
    Add(name + "sqlite", [](size_t i) { return ReadTable(i % kSettings); });
    Add(name + "ini", [](size_t i) { return ReadIni(i % kSettings); });
  }
  const auto open = [] { return Metrics() && ReadTable(0) == 1; };
  Add("set_metric/ours", open, [](size_t) { return QnSetMetric(Metrics(), 7, ++value) == S_OK; });
  Add("set_metric/sqlite", open, [](size_t) { return WriteTable(7, ++value); });
  Add("set_metric/ini", open, [](size_t) { return WriteIni(7, ++value); });
}

// 1000 small files in 20 folders; trees of earlier calls go first.
bool MakeTree() {
  const fs::path root = Scratch("tree");
  for (const fs::path& old : {GetFolders().memory, root}) fs::remove_all(old);
  for (int folder = 0; folder < 20; ++folder) {
    const fs::path below = root / std::to_string(folder);
    fs::create_directories(below);
    for (int i = 0; i < 50; ++i)
      std::ofstream(below / ("take " + std::to_string(i))) << std::string(500, 'x');
  }
  return true;
}

void AddFolders() {
  Add("delete_tree/ours", MakeTree,
      [](size_t) { return QnDeleteDirectoryTree(Wide(Scratch("tree")).c_str(), TRUE); });
  Add("delete_tree/filesystem", MakeTree, [](size_t) { return fs::remove_all(Scratch("tree")); });
  // To another file system; where the two are one there is no such case. A move to the disk would measure how
  // its file system finds room among all that was just deleted there.
  const auto makeToMove = [] {
    std::error_code error;
    MakeTree();
    fs::rename(Scratch("tree"), GetFolders().memory, error);
    return error == std::errc::cross_device_link;
  };
  Add("move_folder/ours", makeToMove, [](size_t) {
    return QnMoveFolder(Wide(Scratch("tree")).c_str(), Wide(GetFolders().memory).c_str()) == S_OK;
  });
  Add("move_folder/filesystem", makeToMove, [](size_t) {
    fs::copy(Scratch("tree"), GetFolders().memory, fs::copy_options::recursive);
    return fs::remove_all(Scratch("tree"));
  });
}

[[maybe_unused]] const bool registered = [] {
  AddPaths();
  AddErrors();
  AddSettings();
  AddFolders();
  return true;
}();

}  // namespace
