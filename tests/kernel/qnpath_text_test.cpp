#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "qn/kernel/qnpath.h"
#include "qn/platform/text.h"
#include "qn/platform/winuser_internal.h"
#include "qn/settings/qnstatus.h"
#include "tests/support/support.h"

namespace {

using std::string;
using std::to_string;

// Calls a function by its short name on `path` in its room, with two more texts.
int64_t Call(const string& name, WCHAR* path, int size, const WCHAR* a, const WCHAR* b) {
  const string bytes = qn::ToUtf8(a);
  if (name == "name") return (QnGetFileNamePtrW(a) - a) * 100 + QnGetFileNamePtrA(&bytes[0]) - &bytes[0];
  if (name == "dotA") return QnGetFileNameExtensionPtrA(&bytes[0]) - &bytes[0];
  if (name == "dot") return QnGetFileNameExtensionPtrW(a) - a;
  if (name == "stem") return QnGetFileNameWithoutPathOrExtension(path, path, size);
  if (name == "folder") return QnGetPathNameFromFilePath(path, path, size);
  if (name == "root") return QnGetRootPathFromFilePath(a, path, size);
  if (name == "slash") return QnAddSlashToPathName(path, size);
  if (name == "unslash") return QnRemoveSlashFromPathNameEnd(path, size);
  if (name == "append") return QnAppendToPathName(path, size, a, b);
  if (name == "add") return QnAddExtensionToPathName(path, size, a);
  if (name == "put") return QnReplaceExtensionOnPathNameEx(path, size, a, *b != 0);
  if (name == "valid") return QnValidateFileName(path, *a != 0);
  if (name == "up") return QnDirectoryUpOneLevel(path, size);
  if (name == "behind") return QnGetFileNamePtrRelative(a, path) - path;
  if (name == "front") return QnGetBasePathRelative(a, b, path, size);
  if (name == "exchange") return QnReplaceBasePathRelative(path, a, b, path, size);
  if (name == "match") return QnIsMatchWildCard(a, b);
  return QnFilenameFormatForCtl(reinterpret_cast<HWND>(*b != '!'), a, path, size, *b & 15);
}

// Each row: a function, the text before the call, its room to the character, two more texts; the text then,
// and the result. "-" stands for no text, "~" for a blank.
void CheckRows(const string& table) {
  std::istringstream words(table);
  std::vector<std::u16string> row;
  for (string word; words >> word;) {
    for (char& c : word) c = c == '~' ? ' ' : c;
    row.push_back(qn::FromUtf8(word == "-" ? "" : word));
    if (row.size() < 7) continue;
    std::vector<WCHAR> text(row[1].begin(), row[1].end());
    text.resize(std::stoul(qn::ToUtf8(row[2])));
    const int size = static_cast<int>(text.size());
    const auto result = Call(qn::ToUtf8(row[0]), text.data(), size, row[3].c_str(), row[4].c_str());
    text.push_back(0);
    EXPECT_EQ(text.data() + qn::FromUtf8(" " + to_string(result)), row[5] + W(" ") + row[6])
        << qn::ToUtf8(row[0] + W(" ") + row[1] + W(" ") + row[3]);
    row.clear();
  }
}

TEST(PathTextTest, PathsHaveParts) {
  CheckRows(R"(name - 9 C:\a.b\c.wav - - 707  name - 9 a\b/c - - 404  name - 9 C:c - - 202  name - 9 - - - 0
    dot - 9 C:\a.b\c.d.wav - - 10  dot - 9 a.b/c - - 5  dotA - 9 a.b~c - - 5  dotA - 9 .~b.c - - 3
    dot - 9 a.　 - - 3  dotA - 9 a.　 - - 1  stem \a.b\c.d.wav 13 - - c.d 3  folder C:\a\b.c 9 - - C:\a\ 5
    folder C:a/b 9 - - C: 2  folder a/b 9 - - - 0  root # 3 C:\x - C: 3  root # 9 /a\b\c - /a\ 3
    root # 9 a/b - - 0  root # 20 \\server\share\x - \\server\share\ 15  root # 9 \\server\share - - 0
    root # 9 \a\b - \ 1)");
}

TEST(PathTextTest, PathsAreChangedInTheirRoom) {
  const string longest = "C:\\" + string(256, 'a');
  CheckRows(R"(slash a 3 - - a\ 2  slash a 2 - - a 1  slash a\ 9 - - a\ 2  slash ab 2 - - ab 0
    unslash a\\ 4 - - a\ 2  unslash a/ 4 - - a/ 2  unslash a\ 2 - - a\ 0  unslash - 2 - - - 0
    append a.b 10 \c.d wav a.b\c.wav 9  append a.b 9 c wav a.b 0  append a\ 7 c .d a\c.d 5  append a 3 c - a 0
    append - 9 c d c.d 3  append a 9 - b a\ 2  add a.WAV 6 .wav - a.WAV 5  add a.WAV 6 wav - a.WAV 5
    add a.b.c 8 wav - a.b.wav 7  add a.b.c 7 wav - a.b.c 0  put a 9 b - a.b 3  put a/ 9 b strip a/ 2
    put t_12.wav 9 mp3 - t_12.mp3 8  put t_12.wav 9 mp3 strip t.mp3 5  put t12.wav 9 - strip t12 3
    put 12.wav 7 b strip 12.b 4  put t_.wav 7 .b strip t_.b 4  put x_1\23 9 b strip x_1\23.b 8
    put a_1 9 b strip a.b 3  valid con. 5 + - con_ 0  valid "*/:<>?\|~.~ 30 + - _________~._ 0
    valid a*? 9 - - a*? 0  valid a.b~c 9 + - a.b~c 1  up C:\a\b\ 9 - - C:\a\ 1  up C:\a 9 - - C:\ 1
    up C:\ 9 - - C:\ 0  up C:\\ 9 - - C:\ 1  up C:\a 4 - - C:\a 0  up abc:\ 9 - - abc:\ 1  up )" +
            longest + " 300 - - C:\\ 1 up " + longest + "a 300 - - " + longest + "a 0");
}

TEST(PathTextTest, FoldersAreExchanged) {
  const string letters(258, 'c');
  CheckRows(R"(behind C:\p\Mus\É 20 D:\x\MUS\é - C:\p\Mus\É 5  behind C:\y\\a 9 D:\xy\a - C:\y\\a 6
    behind C:\b\a 9 b\A - C:\b\a 3  behind C:\b\a 9 c:\b\a - C:\b\a 3  behind C:\b 9 a - C:\b 4  behind C:\p\a 9 D:\xa - C:\p\a 5
    front # 9 D:\m\a C:\p\M\a C:\p\ 5  front # 5 D:\m\a C:\p\M\a C:\p 5  front # 6 a C:\b C:\b\ 5
    front # 5 a C:\b C:\b 5  front # 9 a - - 0  exchange c:\a\x 9 C:\A\ D:\bcd\ D:\bcd\x 0
    exchange c:\a\x 8 C:\A\ D:\bcd\ - -2147467259  exchange c:\a 9 C:\A\ - - -2147467259)");
  CheckRows("exchange ab 300 a " + letters + " " + letters + "b 0");
  CheckRows("exchange ab 300 a c" + letters + " - -2147467259");
}

TEST(PathTextTest, WildCardsMatchWithoutTryingAgain) {
  CheckRows(
      R"(match - 1 * a.b - 1  match - 1 *.wav a.wav - 1  match - 1 *.wav a.b.wav - 0  match - 1 a? ab - 1
    match - 1 a? a - 0  match - 1 a a. - 1  match - 1 a a.b - 0  match - 1 a. a - 1  match - 1 a A - 0
    match - 1 *.* a. - 1  match - 1 *.* a - 0  match - 1 a* a - 1  match - 1 a* ab.c - 0  match - 1 *ab xab - 1
    match - 1 *ab aab - 0  match - 1 a*b a - 1  match - 1 a*b ax - 0  match - 1 *? - - 1  match - 1 *? a - 0
    match - 1 ?* . - 1  match - 1 ?* a.b - 0  match - 1 *a b.a - 0  match - 1 - . - 1  match - 1 ał*ł aBxB - 1
    match - 1 a* aĀ - 1)");
}

TEST(PathTextTest, PathsAreShownInTheirWidth) {
  // A character is 10 pixels wide in the control's font, and not to be measured in another.
  static HGDIOBJ selected = &selected;
  qn::WindowBackend ruler{};
  ruler.sendMessage = [](HWND window, UINT, WPARAM, LPARAM) { return reinterpret_cast<LRESULT>(window); };
  ruler.getDC = [](HWND) { return reinterpret_cast<HDC>(&selected); };
  ruler.releaseDC = [](HWND, HDC) { return 1; };
  ruler.selectObject = [](HDC, HGDIOBJ object) { return std::exchange(selected, object); };
  ruler.getClientRect = [](HWND, RECT* place) -> BOOL { return *place = {0, 0, 82, 5}, TRUE; };
  ruler.getTextExtent = [](HDC, const WCHAR*, int length, SIZE* extent) -> BOOL {
    return *extent = {10 * length, 1}, selected != &selected;
  };
  CheckRows("show # 9 \\a 4 # -2147467259");
  const qn::WindowBackend* const before = qn::SetWindowBackend(&ruler);
  CheckRows(R"(show # 20 \folder\abcdef.wav 0 abcdef.wav 0  show # 5 \folder\abcdef.wav 0 abcd 0
    show # 20 \folder\abc 1 \...\abc 0  show # 20 \folder\abcdef.wav 2 abcde... 0  show # 20 \a 3 - 0
    show # 20 \folder\abcdef.wav 4 \fold... 0  show # 9 - 0 - 0  show # 9 a ! # 319489
    show # 9 a 5 # -2147024809)");
  EXPECT_EQ(selected, &selected);
  qn::SetWindowBackend(before);
}

TEST(PathTextTest, ExecutablesHaveTwoSignatures) {
  const qntest::ScratchFolder folder;
  for (const uint32_t header : {0x40u, 4002u, 4003u, 4092u, 4093u, 0xFFFFFFFFu}) {
    qntest::Bytes bytes(5000, 3);
    std::memcpy(bytes.data(), "MZ", 2);
    std::memcpy(bytes.data() + 0x3C, &header, 4);
    if (header < 4096) std::memcpy(bytes.data() + header, "PE\0", 4);
    qntest::WriteFileBytes(folder.Native("a"), bytes);
    DWORD machine = 1, subsystem = 1;
    const HRESULT status = QnGetFileExecutableInfo(folder.Path("a").c_str(), &machine, &subsystem);
    EXPECT_EQ(status, header <= 4092 ? 0 : QN_E_FILE_FORMAT);
    EXPECT_EQ(machine, header <= 4090 ? 0x303u : header > 4092);
    EXPECT_EQ(subsystem, header <= 4002 ? 0x303u : header > 4092);
  }
  EXPECT_EQ(QnGetFileExecutableInfo(folder.Path("none").c_str(), nullptr, nullptr), QN_E_NOT_FOUND);
}

TEST(PathTextTest, FoldersOfUsersShow) {
  string shown;
  for (int id = 0; id < 256; ++id) shown += QnIsHiddenFolderByDefault(id | 0xFF00) ? "" : to_string(id) + " ";
  EXPECT_EQ(shown, "5 12 16 25 40 46 53 54 55 ");
}

}  // namespace
