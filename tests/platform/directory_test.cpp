#include "qn/platform/directory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <ctime>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "qn/platform/shell.h"
#include "qn/platform/text.h"
#include "qn/platform/tree_internal.h"
#include "qn/platform/tree_record_internal.h"
#include "tests/support/support.h"

namespace {

using qntest::Bytes;
using qntest::RunCommand;
using qntest::ScratchFolder;

// 0 for success, else the last error.
DWORD ErrorOf(BOOL succeeded) {
  return succeeded ? 0 : GetLastError();
}

FILETIME ToFileTime(uint64_t ticks) {
  return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

uint64_t ToTicks(const FILETIME& time) {
  return uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

std::vector<std::string> Words(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

unsigned long Number(const std::string& text) {
  return std::stoul(text, nullptr, 0);
}

// Runs shell commands in the folder.
void In(const ScratchFolder& folder, const std::string& commands) {
  ASSERT_EQ(RunCommand("cd '" + folder.Native("") + "' && " + commands), 0) << commands;
}

// All that a tree holds and a copy of it must have, as other programs see it.
std::string Listing(const ScratchFolder& folder, const std::string& name) {
  std::string text;
  RunCommand("cd '" + folder.Native(name) +
                 "' && find . -printf '%P|%y|%m|%U|%G|%l|%T@\\n' | LC_ALL=C sort && " +
                 "find . -type f -exec cksum '{}' + | LC_ALL=C sort",
             &text);
  return text;
}

class OpenHandle {
 public:
  OpenHandle(const std::u16string& path, DWORD access, DWORD share)
      : handle_(CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr)) {}
  ~OpenHandle() { CloseHandle(handle_); }
  HANDLE Get() const { return handle_; }

 private:
  HANDLE handle_;
};

class Limit {
 public:
  Limit(decltype(RLIMIT_FSIZE) resource, rlim_t most) : resource_(resource) {
    signal(SIGXFSZ, SIG_IGN);
    getrlimit(resource, &before_);
    const rlimit limit = {most, before_.rlim_max};
    setrlimit(resource, &limit);
  }
  ~Limit() { setrlimit(resource_, &before_); }

 private:
  decltype(RLIMIT_FSIZE) resource_;
  rlimit before_;
};

class Variable {
 public:
  Variable(const char* name, const std::string& value) : name_(name) {
    if (const char* const before = getenv(name)) before_ = before;
    setenv(name, value.c_str(), 1);
  }
  ~Variable() { before_.empty() ? unsetenv(name_) : setenv(name_, before_.c_str(), 1); }

 private:
  const char* name_;
  std::string before_;
};

// Where thousands of folders do not take the disk half a minute.
const char* MemoryFolder() {
  return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}

// A tree with all kinds of entries, and beside it "outside", which its links lead to.
void MakeTree(const ScratchFolder& folder) {
  In(folder,
     "mkdir -p outside/in tree/a/b 'tree/ro' 'tree/Ж中' && echo kept > outside/in/kept && chmod 444 "
     "outside/in/kept && cd tree && ln -s ../outside toFolder && ln -s ../outside/in/kept toFile && "
     "ln -s nowhere dangling && ln -s loop loop && mkfifo fifo && echo 1 > a/one && echo 22 > a/b/two && "
     "head -c 300000 /dev/urandom > big && ln -s ../../outside a/b/toFolder && echo 3 > ro/three && "
     "echo 4 > 'Ж中/ü' && touch -hd '2001-02-03 04:05:06.789012345' big fifo dangling a/b && "
     "chmod 640 big && chmod 444 ro/three && chmod 555 ro && (chown -h 12:34 a big fifo dangling; true) && "
     "truncate -s 5M sparse && ln big a/big");
  setxattr(folder.Native("tree/big").c_str(), "user.k", "value", 5, 0);
  qntest::WriteFileBytes(folder.Native("tree/\xFF\xC3name\\x"), Bytes(3, 9));
}

TEST(Tree, RemovesEntriesOfAllKindsAndNothingElse) {
  const ScratchFolder folder;
  MakeTree(folder);
  const std::string outside = Listing(folder, "outside");
  In(folder, "ln -s tree link");
  EXPECT_EQ(ErrorOf(qn::RemoveTree(folder.Path("link").c_str(), false)), ERROR_DIRECTORY);
  EXPECT_EQ(ErrorOf(qn::RemoveTree(folder.Path("link\\").c_str(), true)), 0u);
  EXPECT_EQ(GetFileAttributesW(folder.Path("link").c_str()), INVALID_FILE_ATTRIBUTES);
  {
    // One file that is held does not keep the others.
    const OpenHandle held(folder.Path("tree/a/one"), GENERIC_READ, FILE_SHARE_READ);
    EXPECT_EQ(ErrorOf(qn::RemoveTree(folder.Path("tree").c_str(), true)), ERROR_SHARING_VIOLATION);
    EXPECT_EQ(RunCommand("test \"$(find '" + folder.Native("tree") + "' | wc -l)\" = 3"), 0);
  }
  EXPECT_EQ(ErrorOf(qn::RemoveTree(folder.Path("tree").c_str(), false)), 0u);
  EXPECT_EQ(ErrorOf(RemoveDirectoryW(folder.Path("tree").c_str())), 0u);
  EXPECT_EQ(ErrorOf(qn::RemoveTree(folder.Path("tree").c_str(), true)), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(ErrorOf(qn::RemoveTree(folder.Path("outside/in/kept").c_str(), true)), ERROR_DIRECTORY);
  EXPECT_EQ(ErrorOf(qn::RemoveTree(W("\\"), true)), ERROR_ACCESS_DENIED);
  EXPECT_EQ(Listing(folder, "outside"), outside);
}

TEST(Tree, LinksPutInTheWayAreNotFollowed) {
  const ScratchFolder folder;
  In(folder, "mkdir outside && cd outside && touch $(seq 50)");
  const std::string outside = Listing(folder, "outside");
  const std::string tree = folder.Native("tree/");
  std::atomic<bool> stop = false;
  std::thread swapper([&] {
    for (int i = 0; !stop; i = (i + 1) % 40) {
      const std::string name = tree + std::to_string(i);
      renameat2(AT_FDCWD, name.c_str(), AT_FDCWD, (name + "link").c_str(), RENAME_EXCHANGE);
    }
  });
  for (int round = 0; round < 8; ++round) {
    // Made where nobody swaps, and then put there.
    In(folder,
       "mkdir new && cd new && for i in $(seq 0 39); do mkdir $i $i/x && ln -s ../outside ${i}link; done && "
       "mv ../new ../tree");
    int tries = 0;
    while (!qn::RemoveTree(folder.Path("tree").c_str(), true) && tries < 10'000) ++tries;
  }
  stop = true;
  swapper.join();
  EXPECT_EQ(Listing(folder, "outside"), outside);
}

TEST(Tree, CopiesAll) {
  const ScratchFolder folder;
  MakeTree(folder);
  const std::string source = Listing(folder, "tree");
  EXPECT_EQ(ErrorOf(qn::CopyTree(folder.Path("tree").c_str(), folder.Path("copy").c_str())), 0u);
  EXPECT_EQ(Listing(folder, "copy"), source);
  EXPECT_EQ(Listing(folder, "tree"), source);
  char value[9] = {};
  const bool hasValue = getxattr(folder.Native("tree/big").c_str(), "user.k", value, 8) == 5;
  EXPECT_EQ(getxattr(folder.Native("copy/big").c_str(), "user.k", value, 8) == 5, hasValue);
  In(folder, "test $(stat -c %b copy/sparse) -lt 100");
}

TEST(Tree, RemovesNoMoreThanWasCopied) {
  const ScratchFolder folder;
  In(folder, "mkdir -p t/a t/b && touch t/1 t/2 t/3 t/b/4 && ln t/1 t/a/1 && ln -s 1 t/link");
  qn::TreeRecord record;
  EXPECT_EQ(ErrorOf(qn::CopyTree(folder.Path("t").c_str(), folder.Path("copy").c_str(), &record)), 0u);
  In(folder, "cd t && echo more >> 2 && mkdir empty && touch a/come && mv 3 b/3");
  const auto remove = [&] { return ErrorOf(qn::RemoveTree(folder.Path("t").c_str(), true, &record)); };
  EXPECT_EQ(remove(), ERROR_SHARING_VIOLATION);
  In(folder, "cd t && test \"$(echo * */*)\" = '2 a b empty a/come b/3' && rm -r 2 empty a/come b/3");
  EXPECT_EQ(remove(), 0u);
}

TEST(Tree, FailedCopyLeavesNothing) {
  const ScratchFolder folder;
  MakeTree(folder);
  In(folder, "ln -s tree link && mkdir there");
  const std::string all = Listing(folder, "");
  // From, to, the error, and the size that a file may have.
  const char* const rows[] = {"tree copy 223 100000", "tree tree/a/copy 87 -1", "tree there 183 -1",
                              "link copy 267 -1",     "missing copy 2 -1",      "tree missing/copy 3 -1"};
  for (const char* row : rows) {
    const auto words = Words(row);
    const Limit size(RLIMIT_FSIZE, Number(words[3]));
    const bool copied = qn::CopyTree(folder.Path(words[0]).c_str(), folder.Path(words[1]).c_str());
    EXPECT_EQ(ErrorOf(copied), Number(words[2])) << row;
  }
  const OpenHandle held(folder.Path("tree/a/b/two"), GENERIC_READ | GENERIC_WRITE, 0);
  const bool copied = qn::CopyTree(folder.Path("tree").c_str(), folder.Path("copy").c_str());
  EXPECT_EQ(ErrorOf(copied), ERROR_SHARING_VIOLATION);
  // The folder that a copy was tried in has a new time.
  In(folder, "touch -d '2001-02-03' . tree/a");
  const std::string after = Listing(folder, "");
  EXPECT_EQ(std::count(after.begin(), after.end(), '\n'), std::count(all.begin(), all.end(), '\n'));
}

TEST(Tree, DepthCostsNoDescriptors) {
  constexpr int kLevels = 3000;
  const ScratchFolder other;
  const Variable temporary("TMPDIR", MemoryFolder());
  const ScratchFolder folder;
  int place = open(folder.Native("").c_str(), O_RDONLY | O_DIRECTORY);
  for (int i = 0; i < kLevels; ++i) {
    const char* const name = i == 0 ? "deep" : "a name that is not too short";
    ASSERT_EQ(mkdirat(place, name, 0755), 0);
    const int child = openat(place, name, O_RDONLY | O_DIRECTORY);
    close(std::exchange(place, child));
  }
  close(place);
  struct stat here, there;
  stat(folder.Native("").c_str(), &here);
  stat(other.Native("").c_str(), &there);
  if (here.st_dev != there.st_dev) {
    const BOOL moved = MoveFileW(folder.Path("deep").c_str(), other.Path("deep").c_str());
    EXPECT_EQ(ErrorOf(moved), ERROR_NOT_SAME_DEVICE);
  }
  const Limit descriptors(RLIMIT_NOFILE, 64);
  EXPECT_EQ(ErrorOf(qn::CopyTree(folder.Path("deep").c_str(), folder.Path("copy").c_str())), 0u);
  EXPECT_EQ(RunCommand("test \"$(find '" + folder.Native("copy") + "' | wc -l)\" = 3000"), 0);
  for (const char* name : {"deep", "copy"})
    EXPECT_EQ(ErrorOf(qn::RemoveTree(folder.Path(name).c_str(), true)), 0u);
}

// The names that a pattern finds, sorted, but "." and ".." where they come; or the last error.
std::string Found(const ScratchFolder& folder, const std::string& pattern) {
  WIN32_FIND_DATAW data;
  const HANDLE find = FindFirstFileW(folder.Path(pattern).c_str(), &data);
  if (find == INVALID_HANDLE_VALUE) return std::to_string(GetLastError());
  std::vector<std::string> names;
  do {
    names.push_back(qn::ToUtf8(data.cFileName));
  } while (FindNextFileW(find, &data));
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
  EXPECT_TRUE(FindClose(find));
  EXPECT_FALSE(FindNextFileW(find, &data) || FindClose(find));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  const bool dots = names.size() > 1 && names[0] == "." && names[1] == "..";
  std::sort(names.begin() + (dots ? 2 : 0), names.end());
  std::string text;
  for (const std::string& name : names) text += name + " ";
  return text;
}

TEST(Directory, Patterns) {
  const ScratchFolder folder;
  In(folder, "touch a.wav AB.WAV noext .hid Äß.txt x.tar.gz 'b\\..\\c' && mkdir sub");
  const std::string all = ". .. .hid AB.WAV a.wav b\uFFFD..\uFFFDc noext sub x.tar.gz Äß.txt ";
  for (const char* pattern : {"*", "*.*", "***"}) EXPECT_EQ(Found(folder, pattern), all) << pattern;
  // A pattern and what it finds.
  const std::string rows[] = {"*.:. .. noext sub ",
                              "*.wav:AB.WAV a.wav ",
                              "?.WAV:a.wav ",
                              "a??.wav:AB.WAV a.wav ",
                              "noext.*:noext ",
                              "*.t?r.*:x.tar.gz ",
                              "äß*t:Äß.txt ",
                              "a.wav:a.wav ",
                              "A.wav:2",
                              "*.mp3:2",
                              "sub/:2",
                              "none/*:3",
                              "a.wav/*:3",
                              std::string(200, '*') + "q:2"};
  for (const std::string& row : rows) {
    const std::string pattern = row.substr(0, row.find(':'));
    EXPECT_EQ(pattern + ":" + Found(folder, pattern), row);
  }
}

TEST(Directory, AttributesOfLinksAndDevices) {
  const ScratchFolder folder;
  In(folder,
     "mkdir sub && echo 12345 > ro && chmod 444 ro && ln -s ro toFile && ln -s sub toFolder && touch .h && "
     "ln -s none dangling && ln -s loop loop && mkfifo fifo && ln -s fifo toFifo && touch -d @1000000000.5 "
     "ro && touch plain && ln -s plain toPlain && ln -s plain .toPlain && ln -s none .dead");
  // Name, attributes, the errors of SetFileAttributesW and DeleteFileW.
  const char* const rows[] = {"sub 0x10 0 5",       "toFile 0x401 0 0",   "toFolder 0x410 0 0",
                              "dangling 0x400 0 0", "loop 0x400 0 0",     "toFifo 0x440 0 0",
                              "fifo 0x40 0 0",      ".h 2 0 0",           "ro 1 0 32",
                              "toPlain 0x480 0 0",  ".toPlain 0x482 0 0", ".dead 0x402 0 0",
                              "none 0xFFFFFFFF 2 2"};
  const OpenHandle held(folder.Path("ro"), GENERIC_READ, 0);
  for (const char* row : rows) {
    const auto words = Words(row);
    const std::u16string path = folder.Path(words[0]);
    WIN32_FIND_DATAW data = {};
    data.dwFileAttributes = INVALID_FILE_ATTRIBUTES;
    FindClose(FindFirstFileW(path.c_str(), &data));
    EXPECT_EQ(data.dwFileAttributes, Number(words[1])) << row;
    EXPECT_EQ(GetFileAttributesW(path.c_str()), Number(words[1])) << row;
    if (words[0] == "toFile") {
      EXPECT_EQ(data.nFileSizeLow, 6u);
      EXPECT_EQ(ToTicks(data.ftLastWriteTime), 126444736005000000u);
    }
    // A link is changed and removed itself, even while its file is held.
    EXPECT_EQ(ErrorOf(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL)), Number(words[2])) << row;
    EXPECT_EQ(ErrorOf(DeleteFileW(path.c_str())), Number(words[3])) << row;
  }
}

TEST(Directory, MakeMoveCopyRemove) {
  const ScratchFolder folder;
  In(folder,
     "mkdir full ro sub && touch full/f && echo new > new && echo old > old && echo ro > ro.txt && "
     "ln -s old link && ln -s sub subLink && chmod 444 ro.txt && chmod 555 ro && mkfifo fifo && "
     "head -c 200000 /dev/zero > big && touch -d @1000000000.123456789 new && chmod 640 new");
  const OpenHandle held(folder.Path("full/f"), GENERIC_READ, 0);
  const Limit size(RLIMIT_FSIZE, 100'000);
  // Calls and their errors, in turn.
  const char* const rows[] = {
      "make made - 0",       "make made/ - 183",     "make none/made - 3", "remove made/ - 0",
      "remove made - 2",     "remove full - 145",    "remove new - 267",   "remove ro - 5",
      "remove subLink/ - 0", "move old new 183",     "move sub ro 183",    "move none x 2",
      "move new none/x 3",   "move sub sub/x 87",    "move full/f x 32",   "move fifo sub/fifo 0",
      "copyNew new old 80",  "copyNew new copied 0", "copy new link 0",    "copy link old 32",
      "copy new ro.txt 5",   "copy new sub 5",       "copy sub/fifo x 5",  "copy full/f x 32",
      "copy new full/f 32",  "copy new none/x 3",    "copy big new 223"};
  for (const char* row : rows) {
    const auto words = Words(row);
    const std::string& what = words[0];
    const std::u16string a = folder.Path(words[1]);
    const std::u16string b = folder.Path(words[2]);
    const BOOL done = what == "make"     ? CreateDirectoryW(a.c_str(), nullptr)
                      : what == "remove" ? RemoveDirectoryW(a.c_str())
                      : what == "move"   ? MoveFileW(a.c_str(), b.c_str())
                                         : CopyFileW(a.c_str(), b.c_str(), what == "copyNew");
    EXPECT_EQ(ErrorOf(done), Number(words[3])) << row;
  }
  EXPECT_EQ(Found(folder, "*"), ". .. big copied full link new old ro ro.txt sub ");
  In(folder, "cmp new old && cmp new copied && test -L link && test \"$(cat new)\" = new");
  In(folder, "test \"$(stat -c '%a %.Y' new)\" = \"$(stat -c '%a %.Y' copied)\"");
}

TEST(Directory, Paths) {
  const ScratchFolder folder;
  WCHAR text[MAX_PATH];
  WCHAR* part = nullptr;
  const std::u16string here = qn::PathFromNative(folder.Native(""));
  const int before = open(".", O_PATH);
  ASSERT_EQ(chdir(folder.Native("").c_str()), 0);
  // A path and its full form, which is behind the working directory if it starts with a letter.
  const std::u16string rows[] = {u"\\a\\..\\b|\\b",
                                 u"/a//./b/|\\a\\b\\",
                                 u"\\..\\..|\\",
                                 u"C:\\x|\\x",
                                 u"a\\.|a",
                                 u"\\\\server\\\\share\\..\\f|\\\\server\\f",
                                 u"c:a\\b\\..\\c d.|a\\c d."};
  for (const std::u16string& row : rows) {
    const std::u16string path = row.substr(0, row.find(u'|'));
    std::u16string full = row.substr(path.size() + 1);
    if (full[0] != u'\\') full = here + full;
    const auto length = static_cast<DWORD>(full.size());
    EXPECT_EQ(GetFullPathNameW(path.c_str(), MAX_PATH, text, &part), length);
    EXPECT_EQ(text, full);
    EXPECT_EQ(part ? std::u16string(part) : u"", full.substr(full.rfind(u'\\') + 1));
    text[0] = u'?';
    EXPECT_EQ(GetFullPathNameW(path.c_str(), length, text, &part), length + 1);
    EXPECT_TRUE(text[0] == u'?' && !part);
  }
  ASSERT_EQ(fchdir(before), 0);
  close(before);
  EXPECT_EQ(GetLongPathNameW(folder.Path("none").c_str(), text, MAX_PATH), 0u);
  EXPECT_EQ(GetLongPathNameW(folder.Path("").c_str(), text, MAX_PATH), here.size());

  for (const char* name : {"", "none"}) {
    const Variable temporary("TMPDIR", folder.Native(name));
    EXPECT_EQ(GetTempPathW(MAX_PATH, text), *name ? 5 : here.size());
    EXPECT_EQ(text, *name ? u"\\tmp\\" : here);
  }
  ULONGLONG available = 0, total = 0, free = 0;
  EXPECT_TRUE(GetDiskFreeSpaceExW(here.c_str(), &available, &total, &free));
  EXPECT_TRUE(0 < available && available <= free && free < total);
  EXPECT_EQ(ErrorOf(GetDiskFreeSpaceExW(folder.Path("none").c_str(), &available, nullptr, nullptr)),
            ERROR_PATH_NOT_FOUND);
}

constexpr time_t kSecondsTo1970 = 11'644'473'600;
constexpr uint64_t kTicksTo1970 = kSecondsTo1970 * 10'000'000;

// Against the C library, over 1601 to 2600 and time zones with offsets of seconds and half hours.
TEST(FileTime, CalendarZonesAndDos) {
  std::uniform_int_distribution<uint64_t> any(0, 315'000'000'000'000'000);
  for (const char* zone : {"UTC", "Europe/Berlin", "America/St_Johns", "Asia/Kolkata"}) {
    const Variable variable("TZ", zone);
    tzset();
    for (int i = 0; i < 5000; ++i) {
      const uint64_t ticks = any(qntest::Random());
      const FILETIME time = ToFileTime(ticks);
      const auto seconds = static_cast<time_t>(ticks / 10'000'000) - kSecondsTo1970;
      struct tm expected;
      gmtime_r(&seconds, &expected);
      SYSTEMTIME fields;
      ASSERT_TRUE(FileTimeToSystemTime(&time, &fields));
      EXPECT_EQ(std::tuple(fields.wYear, fields.wMonth, fields.wDay, fields.wDayOfWeek, fields.wHour,
                           fields.wMinute, fields.wSecond),
                std::tuple(expected.tm_year + 1900, expected.tm_mon + 1, expected.tm_mday, expected.tm_wday,
                           expected.tm_hour, expected.tm_min, expected.tm_sec));
      FILETIME back;
      ASSERT_TRUE(SystemTimeToFileTime(&fields, &back));
      EXPECT_EQ(ToTicks(back), ticks / 10'000 * 10'000);
      localtime_r(&seconds, &expected);
      if (FileTimeToLocalFileTime(&time, &back)) {
        EXPECT_EQ(ToTicks(back), ticks + static_cast<uint64_t>(expected.tm_gmtoff * 10'000'000));
      }
      WORD date = 0;
      WORD dayTime = 0;
      const time_t even = seconds + (ticks % 10'000'000 != 0);
      const time_t rounded = even + (even & 1);
      gmtime_r(&rounded, &expected);
      const bool fits = fields.wYear >= 1980 && expected.tm_year <= 207;
      ASSERT_EQ(FileTimeToDosDateTime(&time, &date, &dayTime), fits ? TRUE : FALSE);
      if (!fits) continue;
      EXPECT_EQ(date, (expected.tm_year - 80) * 512 + (expected.tm_mon + 1) * 32 + expected.tm_mday);
      EXPECT_EQ(dayTime, expected.tm_hour * 2048 + expected.tm_min * 32 + expected.tm_sec / 2);
    }
  }
}

TEST(FileTime, RefusesWhatIsOutOfRange) {
  const SYSTEMTIME rows[] = {{1600, 1, 0, 1, 0, 0, 0, 0},   {30828, 1, 0, 1, 0, 0, 0, 0},
                             {2001, 2, 0, 29, 0, 0, 0, 0},  {2001, 13, 0, 1, 0, 0, 0, 0},
                             {2001, 257, 0, 1, 0, 0, 0, 0}, {2001, 1, 0, 257, 0, 0, 0, 0},
                             {2001, 1, 0, 1, 24, 0, 0, 0},  {2001, 1, 0, 1, 0, 0, 0, 1000}};
  FILETIME time;
  SYSTEMTIME fields;
  for (const SYSTEMTIME& row : rows)
    EXPECT_EQ(ErrorOf(SystemTimeToFileTime(&row, &time)), ERROR_INVALID_PARAMETER);
  const FILETIME tooLate = ToFileTime(uint64_t{1} << 63);
  const FILETIME last = ToFileTime((uint64_t{1} << 63) - 1);
  EXPECT_TRUE(FileTimeToSystemTime(&last, &fields));
  EXPECT_EQ(fields.wYear, 30828);
  EXPECT_EQ(ErrorOf(FileTimeToSystemTime(&tooLate, &fields)), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(ErrorOf(FileTimeToLocalFileTime(&tooLate, &time)), ERROR_INVALID_PARAMETER);
  WORD date;
  WORD dayTime;
  EXPECT_EQ(ErrorOf(FileTimeToDosDateTime(&last, &date, &dayTime)), ERROR_INVALID_PARAMETER);
}

TEST(FileTime, OfOpenFiles) {
  const ScratchFolder folder;
  In(folder, "echo 1 > f && touch -d @1500000000 f");
  const OpenHandle file(folder.Path("f"), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ);
  const OpenHandle reader(folder.Path("f"), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
  const FILETIME written = ToFileTime(kTicksTo1970 - 5'000'000);  // half a second before 1970
  const FILETIME keep = ToFileTime(~uint64_t{0});
  const FILETIME tooLate = ToFileTime(uint64_t{1} << 63);
  EXPECT_TRUE(SetFileTime(file.Get(), nullptr, &keep, &written));
  EXPECT_EQ(ErrorOf(SetFileTime(file.Get(), nullptr, nullptr, &tooLate)), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(ErrorOf(SetFileTime(reader.Get(), nullptr, nullptr, &written)), ERROR_ACCESS_DENIED);
  FILETIME read[2];
  EXPECT_TRUE(GetFileTime(reader.Get(), nullptr, &read[0], &read[1]));
  EXPECT_EQ(ToTicks(read[0]), kTicksTo1970 + 15'000'000'000'000'000);
  EXPECT_EQ(ToTicks(read[1]), ToTicks(written));
}

TEST(Shell, Folders) {
  const ScratchFolder folder;
  const Variable home("HOME", folder.Native("")), config("XDG_CONFIG_HOME", "relative");
  const Variable data("XDG_DATA_HOME", "relative"), shared("XDG_DATA_DIRS", "/first/:/second");
  const std::string text =
      "# XDG_MUSIC_DIR=\"/no\"\nXDG_MUSIC_DIR=\"$HOME/first\"\n  XDG_MUSIC_DIR = \"$HOME/Mu\\\"sik\" # last\n"
      "XDG_DESKTOP_DIR=\"/desk top/\"\nXDG_VIDEOS_DIR=\"relative\"\nXDG_PICTURES_DIR=\"$HOMEx/p\"\n"
      "XDG_DOCUMENTS_DIR=\"$HOME\"\nXDG_TEMPLATES_DIR=\"$HOME/open\\";
  In(folder, "mkdir .config");
  qntest::WriteFileBytes(folder.Native(".config/user-dirs.dirs"), Bytes(text.begin(), text.end()));
  const std::u16string root = folder.Path("").substr(0, folder.Path("").size() - 1);
  const struct {
    int id;
    std::u16string path;
  } rows[] = {{CSIDL_MYMUSIC, root + u"\\Mu\"sik"},
              {CSIDL_DESKTOP, u"\\desk top"},
              {CSIDL_MYVIDEO, root + u"\\Videos"},
              {CSIDL_MYPICTURES, root + u"\\Pictures"},
              {CSIDL_PERSONAL, root},
              {CSIDL_TEMPLATES | CSIDL_FLAG_CREATE, root + u"\\Templates"},
              {CSIDL_PROFILE, root},
              {CSIDL_APPDATA, root + u"\\.config"},
              {CSIDL_LOCAL_APPDATA | CSIDL_FLAG_CREATE, root + u"\\.local\\share"},
              {CSIDL_COMMON_APPDATA, u"\\first"},
              {CSIDL_COMMON_MUSIC, u""},
              {0x7F, u""}};
  for (const auto& row : rows) {
    WCHAR path[MAX_PATH] = W("?");
    EXPECT_EQ(SHGetSpecialFolderPathW(nullptr, path, row.id, FALSE), row.path.empty() ? FALSE : TRUE);
    EXPECT_EQ(path, row.path);
    EXPECT_TRUE(!(row.id & CSIDL_FLAG_CREATE) || GetFileAttributesW(path) == FILE_ATTRIBUTE_DIRECTORY);
  }
  In(folder, "test $(stat -c %a .local/share) = 700 && test ! -e Videos");
}

TEST(Shell, LogicalOrder) {
  // Strictly ascending.
  const std::u16string nines(300, u'9');
  const std::u16string zeros(300, u'0');
  const std::u16string names[] = {u"",    u"_a",        u"0",          u"00001", u"1",     u"02",
                                  u"2",   u"2 b",       u"2a",         u"10",    u"a",     u"a!b",
                                  u"a0",  u"a000",      u"ä1",         u"a1b9x", u"a1b10", u"a01c",
                                  u"a1c", u"a" + nines, u"a1" + zeros, u"ab",    u"b"};
  for (size_t i = 0; i < std::size(names); ++i) {
    for (size_t k = 0; k < std::size(names); ++k) {
      const int order = StrCmpLogicalW(names[i].c_str(), names[k].c_str());
      EXPECT_EQ((order > 0) - (order < 0), (i > k) - (i < k))
          << qn::ToUtf8(names[i]) << " " << qn::ToUtf8(names[k]);
    }
  }
  EXPECT_EQ(StrCmpLogicalW(W("Take 9Ä"), W("tAKE 9ä")), 0);
  EXPECT_LT(StrCmpLogicalW(nullptr, W("")), 0);
}

}  // namespace
