#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "qn/kernel/qnpath.h"
#include "qn/platform/registry.h"
#include "qn/platform/shell.h"
#include "qn/platform/text.h"
#include "qn/text/qnnumber.h"
#include "tests/support/support.h"

namespace {

using Text = std::u16string;

// A result in hexadecimal, or a text.
struct Item : std::string {
  Item(const std::string& text) : std::string(text) {}
  Item(const WCHAR* text) : std::string(qn::ToUtf8(text)) {}
  Item(LONGLONG number) : std::string(9, ' ') {
    resize(snprintf(data(), 9, "%X", static_cast<DWORD>(number)));
  }
};

// Shell commands set the scene in "in". Links lead to "away", where nothing may change.
struct Scene : qntest::ScratchFolder {
  explicit Scene(const std::string& commands) {
    Run("mkdir in away; echo kept > away/kept.wav; chmod 444 away/kept.wav; cd in; " + commands);
  }
  ~Scene() { Gives("-r--r--r--", {Run("ls -l away/* | cut -c 1-10")}); }
  // The output, on one line.
  std::string Run(const std::string& commands) const {
    std::string output;
    qntest::RunCommand("cd " + Native("") + "; (" + commands + ") 2>&1 | paste -sd ' ' | tr -d '\\n'",
                       &output);
    return output;
  }
  // Expects results in their order; "~" stands for the scene.
  void Gives(const std::string& expected, std::initializer_list<Item> items) const {
    std::string all;
    for (const Item& item : items) all += item + " ";
    const std::string scene = qn::ToUtf8((*this)["in"]);
    for (size_t at; (at = all.find(scene)) != all.npos;) all.replace(at, scene.size(), "~");
    EXPECT_EQ(all, expected + " ");
  }
  // A path that lives as long as the scene.
  const WCHAR* operator[](const std::string& name) const { return paths.insert(Path(name)).first->c_str(); }
  mutable std::set<Text> paths;
};

HANDLE Open(const WCHAR* path, DWORD share) {
  return CreateFileW(path, GENERIC_READ, share, nullptr, OPEN_EXISTING, 0, nullptr);
}

TEST(PathFile, WhatIsThere) {
  const Scene is(
      "echo text > a; touch .h; mkdir -p e/e d/e t n l; mkfifo fifo; ln -s no dead; touch d/x t/Thumbs.DB "
      "t/z n/a"
      " n/thumbs.db; ln -s ../../away l/link; ln -s ../away e2; cp a d/y; ln -s ../a d/z; ln -s a la; "
      "ln -s no .dead");
  const HANDLE held = Open(is["in/a"], 7);
  // A file, and one that is not hidden; an empty folder, with all below, but for thumbnails; writable ones.
  std::string all;
  for (const char* name :
       {"a", ".h", "fifo", "dead", "no", "la", ".dead", "e2/kept.wav", "e/e/", "e", "d", "t", "n", "l"}) {
    const WCHAR* const path = is[std::string("in/") + name];
    for (const BOOL answer : {QnDoesFileExist(path, 0), QnDoesFileExist(path, 7), QnIsDirectoryEmpty(path),
                              QnIsDirectoryEmptyRecursive(path, 0), QnIsDirectoryEmptyRecursive(path, 1),
                              QnIsDirectoryWritable(path)})
      all += Item(answer);
    all += std::string(" ") + name + " ";
  }
  LONGLONG size = 7;
  is.Gives(
      "110000 a 100000 .h 000000 fifo 000000 dead 000000 no 110000 la 000000 .dead 110000 e2/kept.wav 001111 "
      "e/e/ 000111 e 000001 d 000011 t 000001 n 000001 l  0 0 0 1 0 0 5 8004E007 0 0 A 8004E00A 0 80070057 0 "
      "0 0 8004E00B",
      {all, QnIsDirectoryWritable(W("\\proc\\self")),
       QnIsDirectoryEmpty(is["in/e/e" + std::string(260, '/')]), QnIsFileWritable(is["in/a"]),
       QnIsFileWritable(is["in/.h"]), QnIsFileWritable(is["no"]), QnGetFileSizeByName(is["in/a"], &size),
       size, QnGetFileSizeByName(is["no"], &size), size, QnGetDirectorySize(is["in"], &size), size,
       QnGetDirectorySize(is["no"], &size), size, QnGetDirectorySize(is["in"], nullptr), size,
       QnGetFileSizeByName(is["in/fifo"], &size), QnIsFileWritable(is["in/fifo"]),
       QnGetFileExecutableInfo(is["in/fifo"], nullptr, nullptr)});
  CloseHandle(held);
}

TEST(PathFile, NamesThatCannotBeShownAndSumsThatAreTooLarge) {
  const Scene is(
      "mkdir \"$(printf 'd\\377')\" 'e\\f'; echo data > 'e\\f/x'; ln -s ../away d\uFFFD; "
      "ln -s ../away e\uFFFDf; mkdir /dev/shm/qntestsum; cd /dev/shm/qntestsum; "
      "truncate -s 9223372036854775807 a; ln a b");
  LONGLONG size = 0, sum = 0;
  QnGetDirectorySize(W("\\dev\\shm\\qntestsum"), &sum);
  EXPECT_TRUE(sum == 0 || sum == 0x7FFFFFFFFFFFFFFF) << sum;
  is.Gives("0 0 0 5 1 0 4", {QnIsDirectoryEmptyRecursive(is["in"], 0), QnIsDirectoryEmpty(is["in"]),
                             QnGetDirectorySize(is["in"], &size), size, QnDeleteFiles(is["in"], W("*"), TRUE),
                             is.Run("rm -rf /dev/shm/qntestsum; find in -type f | wc -l; ls in | wc -l")});
}

TEST(PathFile, TextsOfThePlatform) {
  const Scene is("touch name");
  std::filesystem::current_path(is.Native("in"));
  const int length = static_cast<int>(is.Native("in/name").size());
  WCHAR text[300] = W("kept");
  WCHAR* part;
  is.Gives(
      "0 kept 0 ~\\name FFFFFFFF ~\\no\\ 1 FFFFFFFE ~\\no no 5 \\tmp\\ B 1",
      {QnQualifyPath(W(".\\name"), text, length) - length, text,
       QnQualifyPath(W(".\\name"), text, length + 1) - length, text,
       QnGetFullPathName(W("..\\in\\no\\"), 300, text, &part) - length, text, part == nullptr,
       QnGetFullPathName(W("..\\in\\no"), 300, text, &part) - length, text, part, QnGetTempPath(300, text),
       text, QnGetModuleFileName(nullptr, text, 300) - QnGetModulePath(nullptr, text, 300),
       text[QnGetModulePath(nullptr, text, 300) - 1] == '\\'});
  std::filesystem::current_path("/");
}

TEST(PathFile, DisksAndTimes) {
  const Scene is("touch -d '2024-02-29 23:59:58 UTC' a; touch -d '1970-01-01 UTC' b");
  const ULONGLONG total = std::filesystem::space(is.Native("in")).capacity;
  EXPECT_TRUE(QnGetDiskTotalSpace(is["in/no"], 4096) == total / 4096 &&
              QnGetDiskTotalSpace(is["in/no"], 1 << 30) == total >> 30);
  WCHAR text[64];
  setenv("TZ", "JST-9", 1);
  tzset();
  is.Gives("0 FFFFFFFF 7 Unknown 6 0.0 MB 585DBF7D 5861477D 0 0",
           {QnGetDiskFreeSpace(is["no/a"], 1), QnGetDiskTotalSpace(W("\\dev\\shm\\"), 0),
            QnFormatDiskFreeSpace(W("\\\\no\\x\\a"), text), text, QnFormatDiskFreeSpace(W("\\proc\\a"), text),
            text, QnDosGetDateTimeUTC(is["in/a"]), QnDosGetDateTime(is["in/a"]), QnDosGetDateTime(is["in/b"]),
            QnDosGetDateTime(is["no"])});
  QnFormatDiskFreeSpace(is["in/no"], text);
  const double free = QnGetDiskFreeSpace(is["in/no"], 102400), unit = free < 10000 ? 10 : 10240;
  EXPECT_NEAR(QnTextToDoubleToken(text, nullptr, 1) * unit, free, unit / 2);
  const char* const clock =
      "date '+printf \"%%X %%X\" $(((%-m<<8|%-d)<<16|%Y)) $(((%-H<<8|%-M)<<8|%-S))' | sh";
  DWORD now[2] = {};
  std::string before, after = "-";
  while (before != after) before = is.Run(clock), QnGetDateTime(now), after = is.Run(clock);
  is.Gives(after + " 1", {now[0], now[1] >> 8, (now[1] & 255) < 100});
}

TEST(PathFile, MakesDirectoriesAndNames) {
  const Scene is("touch file; mkdir new new1 new3; touch new2");
  const auto make = [&](const std::string& name) { return QnCreateDirectory(is["in/" + name], nullptr); };
  WCHAR text[260] = W("kept");
  is.Gives("1 1 1 1 1 0 0 0 0 0 0 0 a/b/c nnnnnnnnnn \u65E5 \U0001F3B5/x 8 80070057 8004E03C kept 0 ~\\new2",
           {make("a/b/c"), make("a/b/c/"), make("\u65E5 \U0001F3B5/x"), make(std::string(255, 'n')),
            QnCreateDirectory(W("C:\\tmp\\"), nullptr), make("e//f"), make("file/h"), make("file"),
            make(std::string(256, 'n')), QnCreateDirectory(W("\\a"), nullptr),
            QnCreateDirectory(W("none\\x"), nullptr), QnCreateDirectory(W("C:\\\\tmp\\x"), nullptr),
            is.Run("cd in; ls -d a/b/c nnn* */x | cut -b 1-10; ls | wc -l"),
            QnGetUniqueSubFolder(is["in"], W("new"), text, 259),
            QnGetUniqueSubFolder(is["in"], Text(259, 'n').c_str(), text, 260), text,
            QnGetUniqueSubFolder(is["in/"], W("new"), text, 260), text});
}

TEST(PathFile, TemporaryFilesAreNeverShared) {
  const Scene is("touch n1.t; mkdir n2.t");
  const int longest = static_cast<int>(is.Native("in").size()) + 6;
  WCHAR text[300] = W("kept");
  const auto make = [&](const WCHAR* format, int size = 300) {
    return QnCreateTempFileAndNameEx(is["in"], W("n"), W(".t"), format, text, size);
  };
  is.Gives(
      "80070057 80070057 80070057 80070057 80070057 80070057 kept 0 ~\\n3.t 0 ~\\n4.t 0 ~\\n001.t 0 ~\\nx.t "
      "8004E032  8004E00A",
      {make(W("%s")), make(W("%d%d")), make(W("%f")), make(W("%300d")), make(nullptr, longest - 1),
       QnCreateTempFileAndNameEx(nullptr, W(""), nullptr, W("%d"), text, 300), text, make(nullptr, longest),
       text, make(W("%I64d")), text, make(W("%03d")), text, make(W("x")), text, make(W("x")), text,
       make(W("\\%d"))});
  const pid_t child = fork();
  std::string names;
  for (int i = 0; i < 100; i++)
    if (QnCreateTempFileAndName(is["in"], W(".wav"), text, 300) == S_OK) names += qn::ToUtf8(text) + "\n";
  qntest::WriteFileBytes(is.Native(child ? "parent" : "child"), {names.begin(), names.end()});
  if (!child) _exit(0);
  waitpid(child, nullptr, 0);
  is.Gives("200 200", {is.Run("cat parent child | sort -u | wc -l; ls in/*.wav | wc -l")});
}

TEST(PathFile, DeletesWhatItIsToldAndNothingElse) {
  const Scene is(
      "mkdir -p sub/dir.wav; touch a.wav B.WAV c.txt sub/c.txt sub/d.wav held.wav \u65E5.wav " +
      std::string(251, 'n') +
      ".wav; chmod 444 *.wav; ln -s ../away link.wav; ln -s ../away/kept.wav file.wav; ln -s x dead.wav");
  const auto files = [&](const char* folder, const WCHAR* pattern, BOOL recurse) {
    return QnDeleteFiles(is[folder], pattern, recurse);
  };
  const HANDLE held = Open(is["in/held.wav"], FILE_SHARE_READ);
  is.Gives("0 c.txt held.wav link.wav sub sub/d.wav sub/dir.wav 0 1 1 1 0 0 c.txt link.wav sub sub/dir.wav",
           {files("in", W("*.wav"), FALSE), is.Run("cd in; ls -d * s*/*v"), files("in", W("held*"), TRUE),
            CloseHandle(held), files("in", W("*.wav"), TRUE), files("in", W("*.wav"), TRUE),
            files("no", W("*"), TRUE), files("in", W("sub\\*.txt"), FALSE), is.Run("cd in; ls -d * s*/*v")});
  std::filesystem::current_path(is.Native("in/sub"));
  for (const WCHAR* path : {W("\\"), W("C:"), W(""), W("."), W(".."), W("C:.."), is["no"], is["in/sub/."]})
    EXPECT_FALSE(QnDeleteDirectoryTree(path, TRUE)) << qn::ToUtf8(path);
  std::filesystem::current_path("/");
  QnDeleteDirectoryTree(is["in/link.wav/"], FALSE);
  is.Gives(" 1 1 1 away",
           {is.Run("cd in; mkdir -p x/y; touch x/y/z; chmod 555 x/y"), QnDeleteDirectoryTree(is["in"], FALSE),
            QnIsDirectoryEmpty(is["in"]), QnDeleteDirectoryTree(is["in/"], TRUE), is.Run("ls")});
}

TEST(PathFile, MovesFolders) {
  const Scene is("mkdir sub; echo text > sub/a; ln -s ../away link; touch ../taken; ln -s in/sub ../below");
  const auto move = [&](const char* from, const char* to) { return QnMoveFolder(is[from], is[to]); };
  is.Gives("8004E170 8004E170 8004E186 8004E186 8004E00A 8004E00A 8004E00A 80070057 80070057",
           {move("in", "taken"), move("in", "in"), move("in", "in/sub/new"), move("in", "below/new"),
            move("no", "new"), move("taken", "new"), move("in", "no/new"), move("in", "new/.."),
            QnMoveFolder(W("\\"), is["new"])});
  const HANDLE held = Open(is["in/sub/a"], FILE_SHARE_READ | FILE_SHARE_WRITE);
  const std::string shm = "/dev/shm/qntest" + std::to_string(getpid());  // often another file system
  const Text other = qn::PathFromNative(shm);
  is.Gives(
      "8004E16E 0 1 1 0 0 0 new: link sub  new/sub: a away below new taken 0 away below taken text ../away 1",
      {move("in", "new"), QnCanMoveFolder(is["in"]), CloseHandle(held), QnCanMoveFolder(is["in"]),
       QnCanMoveFolder(W("\\proc\\self")), QnCanMoveFolder(is["taken"]), move("in/", "new"),
       is.Run("ls -R new; ls"), QnMoveFolder(is["new"], other.c_str()),
       is.Run("ls; cd " + shm + "; cat sub/a; readlink link"), QnDeleteDirectoryTree(other.c_str(), TRUE)});
}

TEST(PathFile, FoldersOfTheUser) {
  const Scene is("true");
  setenv("XDG_CONFIG_HOME", is.Native("in/config").c_str(), 1);
  SetRegistryFile(HKEY_CURRENT_USER, is["user.sqlite"]);
  WCHAR text[260] = W("kept"), personal[260];
  const auto folder = [&](const Text& name, int id = CSIDL_APPDATA) {
    return QnGetSpecialFolderNoVer(text, 260, id, name.c_str());
  };
  const auto preset = [&](int size = 260) {
    return QnGetPresetFolder(text, size, 12 << 20 | 11 << 16 | 77, W("App"));
  };
  is.Gives(
      "80070057 80004005 8004E03C kept 0 ~\\config\\Co\\App\\2.1\\ 1 0 ~\\config\\App\\ 1",
      {QnGetSpecialFolderVer(text, 259, CSIDL_APPDATA, W("App"), 2, 1), folder(W("App"), 0x7F),
       folder(Text(240, 'n')), text, QnGetSpecialFolderVer(text, 260, CSIDL_APPDATA, W("\\Co\\App"), 2, 1),
       text, QnIsDirectoryEmpty(text), folder(W("App")), text, QnIsDirectoryEmpty(text)});
  SHGetSpecialFolderPathW(nullptr, personal, CSIDL_PERSONAL, FALSE);
  HKEY key;
  const auto store = [&](DWORD type) {
    return RegSetValueExW(key, W("VSTPresetPath"), 0, type, reinterpret_cast<const BYTE*>("\\\0x\0y"), 5);
  };
  is.Gives(
      "0 1 away in 0 0 \\presets 8004E03C 0 0 0 \\x 0 0 1 0",
      {preset(), text == Text(personal), is.Run("ls"),
       QnSetPresetFolder(W("\\presets"), 12 << 20 | 11 << 16, W("App")), preset(9), text, preset(8),
       RegCreateKeyW(HKEY_CURRENT_USER, W("Software\\Marlow Creative Works\\App\\12.11\\Metrics"), &key),
       store(REG_SZ), preset(), text, store(REG_BINARY), preset(), text == Text(personal), RegCloseKey(key)});
}

}  // namespace
