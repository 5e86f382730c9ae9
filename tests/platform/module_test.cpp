#include "qn/platform/module.h"

#include <gtest/gtest.h>

#include <elf.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <thread>
#include <tuple>

#include "fuzz/resource_use.h"
#include "qn/platform/locale.h"
#include "qn/platform/memory.h"
#include "qn/platform/text.h"
#include "tests/support/support.h"

extern const unsigned char test_platform_resources[];
extern const size_t test_platform_resources_size;

namespace {

using Words = std::vector<uint16_t>;

// The data of a found resource as 16-bit words.
Words WordsOf(HRSRC resource) {
  const auto* const data = static_cast<const uint8_t*>(LockResource(LoadResource(nullptr, resource)));
  Words words;
  for (DWORD i = 0; data && i + 2 <= SizeofResource(nullptr, resource); i += 2) {
    words.push_back(qn::ReadUnaligned<uint16_t>(data + i));
  }
  return words;
}

TEST(Module, IsFoundByAddressNameAndPath) {
  const HMODULE executable = GetModuleHandleW(nullptr);
  EXPECT_EQ(executable, ModuleFromAddress(test_platform_resources));
  const HMODULE library = ModuleFromAddress(reinterpret_cast<const void*>(&std::quick_exit));
  EXPECT_EQ(library, GetModuleHandleW(W("libc.so.6")));
  WCHAR path[1024];
  for (const HMODULE module : {executable, library}) {
    ASSERT_GT(GetModuleFileNameW(module, path, 1024), 0u);
    EXPECT_EQ(path[0], u'\\');
    EXPECT_EQ(GetModuleHandleW(path), module);
    EXPECT_EQ(reinterpret_cast<const char*>(module)[1], 'E') << "the handle is where the file is mapped";
  }
  EXPECT_EQ(ModuleFromAddress(path), nullptr);
  for (const WCHAR* const name : {W(""), W("libnothing.so"), W("\\tmp"), W("\\no\\such")}) {
    EXPECT_EQ(GetModuleHandleW(name), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
  }
  EXPECT_EQ(GetModuleFileNameW(reinterpret_cast<HMODULE>(path), path, 1024), 0u);
  EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
}

TEST(Module, PathIsCutToTheRoom) {
  WCHAR whole[1024], path[1024];
  const DWORD length = GetModuleFileNameW(nullptr, whole, 1024);
  const std::u16string text(whole);
  ASSERT_EQ(text.size(), length);
  for (const DWORD size : {0u, 1u, 2u, length, length + 1}) {
    std::fill(path, path + 1024, u'#');
    EXPECT_EQ(GetModuleFileNameW(nullptr, path, size), std::min(size, length));
    EXPECT_EQ(GetLastError(), size > length ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER);
    EXPECT_EQ(path[size], u'#');
    EXPECT_TRUE(size == 0 || text.substr(0, size - 1) == path);
  }
}

TEST(Resource, LanguagesAreSearchedInOrder) {
  const struct {
    WORD id, asked, user, thread;
    int found;  // the language, or minus the error
  } kRows[] = {{10, 0x407, 0x409, 0, 0x407}, {10, 0x807, 0x409, 0, -1815}, {10, 0, 0x407, 0, 0x407},
               {10, 0, 0x40C, 0, 0x409},     {10, 0, 0x407, 0x411, 0x411}, {11, 0x807, 0x409, 0, 0x007},
               {11, 0x409, 0x409, 0, 0},     {11, 0, 0x407, 0, 0},         {12, 0, 0x407, 0, 0x411},
               {12, 0, 0x416, 0, 0x416},     {12, 0x407, 0x407, 0, -1815}, {99, 0x407, 0x407, 0, -1814}};
  for (const auto& row : kRows) {
    ASSERT_TRUE(SetUserDefaultLCID(row.user));
    std::thread([&] {
      if (row.thread) SetThreadLocale(row.thread);
      const HRSRC found = FindResourceExW(nullptr, RT_RCDATA, MAKEINTRESOURCEW(row.id), row.asked);
      const int language = found ? WordsOf(found).at(0) : -static_cast<int>(GetLastError());
      EXPECT_EQ(language, row.found) << row.id << " asked " << row.asked << " user " << row.user;
      EXPECT_TRUE(row.asked || found == FindResourceW(nullptr, MAKEINTRESOURCEW(row.id), RT_RCDATA));
    }).join();
  }
  SetUserDefaultLCID(0);
}

TEST(Resource, NamesAreNumbersOrTextsWithoutCase) {
  const std::tuple<const WCHAR*, const WCHAR*, DWORD> kRows[] = {
      {W("küste"), W("GRÜSSE"), 1814}, {W("küste"), W("grüße"), 0},         {RT_RCDATA, W("#11"), 0},
      {W("#10"), W("mIXED"), 0},       {W("#10"), W("Mixe"), 1814},         {W("#10"), W("Mixed2"), 1814},
      {W("Küsten"), W("Grüße"), 1813}, {W("#65546"), W("Mixed"), 1813},     {nullptr, W("#0"), 1813},
      {RT_RCDATA, nullptr, 1814},      {W("#10x"), W("Mixed"), 1813},       {W("#"), W("Mixed"), 1813},
      {RT_STRING, W("#2"), 0},         {RT_VERSION, MAKEINTRESOURCEW(1), 0}};
  for (const auto& row : kRows) {
    const auto& [type, name, error] = row;
    SetLastError(0);
    EXPECT_EQ(FindResourceW(nullptr, name, type) == nullptr, error != 0) << &row - kRows;
    EXPECT_EQ(GetLastError(), error) << &row - kRows;
  }
  EXPECT_EQ(FindResourceW(reinterpret_cast<HMODULE>(8), W("#11"), RT_RCDATA), nullptr);
  EXPECT_EQ(SizeofResource(nullptr, nullptr), 0u);
  EXPECT_EQ(LoadResource(nullptr, reinterpret_cast<HRSRC>(8)), nullptr);
}

TEST(Resource, LanguagesAreEnumeratedInOrder) {
  const auto list = [](HMODULE, const WCHAR*, const WCHAR*, WORD language, intptr_t words) -> BOOL {
    auto* const seen = reinterpret_cast<Words*>(words);
    seen->push_back(language);
    return seen->size() < 4;
  };
  Words seen;
  const auto words = reinterpret_cast<intptr_t>(&seen);
  EXPECT_TRUE(EnumResourceLanguagesW(nullptr, RT_STRING, MAKEINTRESOURCEW(2), list, words));
  EXPECT_EQ(seen, (Words{0x409, 0x407, 0x40C}));
  EXPECT_FALSE(EnumResourceLanguagesW(nullptr, RT_RCDATA, W("Mixed"), list, words));
  EXPECT_EQ(GetLastError(), ERROR_RESOURCE_ENUM_USER_STOP);
  EXPECT_FALSE(EnumResourceLanguagesW(nullptr, RT_RCDATA, W("None"), list, words));
  EXPECT_EQ(GetLastError(), ERROR_RESOURCE_NAME_NOT_FOUND);
}

TEST(Resource, CompiledFormsAreThePublishedOnes) {
  const std::tuple<const WCHAR*, const WCHAR*, Words> kRows[] = {
      {RT_STRING, W("#2"), {0, 3, 'J', 'a', 0, 1, 0, 7, 0xFC, 0xD83D, 0xDE00, '\n', '"', 'A',
                            0, 0, 0,   0,   0, 0, 0, 0, 0,    0,      0,      0,    0}},
      {RT_RCDATA, W("Mixed"), {1, 2, 0, 'a' | 'b' << 8, 0xFF00}},
      {RT_MENU, W("#7"), {0, 0, 0x10, 'F', 0, 0x08, 101, 'O', 0, 0x80, 0, 0, 0x4081, 102, 'X', 0}},
      {RT_DIALOG, W("#8"), {1,   0xFFFF, 5,      0,      8,   0, 0x0040, 0x80C0, 2,   1,      2,      30,
                            40,  0,      0,      'T',    0,   8, 400,    0x0100, 'F', 0,      0,      0,
                            0,   0,      0x0001, 0x5001, 3,   4, 50,     14,     1,   0,      0xFFFF, 0x80,
                            'O', 'K',    0,      0,      6,   0, 0x200,  0,      0,   0x4001, 0,      0xFFFF,
                            2,   3,      9,      0,      'Q', 0, 0,      0}}};
  for (const auto& [type, name, words] : kRows) {
    EXPECT_EQ(WordsOf(FindResourceExW(nullptr, type, name, 0x407)), words) << qn::ToUtf8(name);
  }
}

// A record by hand: the rest of a header behind type and name, and the data, are zeros.
void Append(qntest::Bytes* image, DWORD dataSize, DWORD headerSize, const Words& names, size_t size) {
  const size_t start = image->size();
  image->resize(start + size);
  std::memcpy(image->data() + start, &dataSize, 4);
  std::memcpy(image->data() + start + 4, &headerSize, 4);
  if (!names.empty()) std::memcpy(image->data() + start + 8, names.data(), 2 * names.size());
}

TEST(Resource, WalkPassesDamagedRecordsAndEndsAtWrongSizes) {
  const Words five = {0xFFFF, 5, 0xFFFF, 6}, noEnd = {'a', 'b', 'c', 'd', 0xFFFF, 1}, text = {'a', 0, 'b', 0};
  qntest::Bytes image;
  Append(&image, 3, 32, five, 36);   // the next begins at a multiple of 4
  Append(&image, 4, 20, noEnd, 24);  // a name that does not end in the header
  Append(&image, 0, 31, five, 32);   // a header too short for its fields
  Append(&image, 1, 33, text, 36);   // an odd header: the data follow it
  Append(&image, 0, 32, five, 32);
  // Wrong sizes of data and header, and the bytes from that record to the end.
  const DWORD kRows[][3] = {{0, 12, 44}, {13, 0, 12}, {1, 32, 32}, {0xFFFFFFFF, 0xFFFFFFFF, 44}, {0, 0, 7}};
  for (const auto& [dataSize, headerSize, left] : kRows) {
    qntest::Bytes ending = image;
    Append(&ending, dataSize, headerSize, {}, 12);
    Append(&ending, 0, 32, five, 32);
    ending.resize(image.size() + left);
    EXPECT_EQ(qnfuzz::UseResources(ending.data(), ending.size()), 3u) << dataSize << " " << headerSize;
  }
  EXPECT_EQ(qnfuzz::UseResources(image.data(), 31), 0u);
  qn::ResourceRecord record;
  ASSERT_TRUE(qn::FindResourceRecord({image.data(), image.size()}, W("A"), W("B"), 0, &record));
  EXPECT_EQ(record.data - image.data(), 36 + 24 + 32 + 33);
}

TEST(Resource, ForeignBytesAreHarmless) {
  const size_t size = test_platform_resources_size;
  const size_t whole = qnfuzz::UseResources(test_platform_resources, size);
  EXPECT_EQ(whole, 17u);
  size_t before = 0;
  for (size_t length = 0; length <= size; ++length) {
    // Of the exact size, and not aligned every other time.
    const size_t shift = length & 1;
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[length + shift]);
    std::memcpy(copy.get() + shift, test_platform_resources, length);
    const size_t count = qnfuzz::UseResources(copy.get() + shift, length);
    EXPECT_TRUE(count == before || count == before + 1);
    before = count;
  }
  EXPECT_EQ(before, whole);
  auto& random = qntest::Random();
  for (int i = 0; i < 4000; ++i) {
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[size]);
    std::memcpy(copy.get(), test_platform_resources, size);
    for (int flips = 1 + i % 4; flips > 0; --flips)
      copy[random() % size] ^= static_cast<uint8_t>(1 << random() % 8);
    EXPECT_LE(qnfuzz::UseResources(copy.get(), size), 64u);
  }
}

TEST(Version, OfAModuleAndOfAFile) {
  const qntest::ScratchFolder scratch;
  const auto* const bytes = test_platform_resources;
  qntest::WriteFileBytes(scratch.Native("a.res"), {bytes, bytes + test_platform_resources_size});
  qntest::WriteFileBytes(scratch.Native("none.res"), {bytes, bytes + 32});
  WCHAR module[1024];
  GetModuleFileNameW(nullptr, module, 1024);
  std::filesystem::copy_file(qn::PathToNative(module), scratch.Native("copy"));
  const std::u16string file = scratch.Path("a.res"), copy = scratch.Path("copy");
  for (const WCHAR* const path : {static_cast<const WCHAR*>(module), file.c_str(), copy.c_str()}) {
    DWORD handle = 7;
    const DWORD size = GetFileVersionInfoSizeW(path, &handle);
    ASSERT_GT(size, 0u);
    EXPECT_EQ(handle, 0u);
    const HGLOBAL block = GlobalAlloc(GHND, size);
    void* const data = GlobalLock(block);
    EXPECT_FALSE(GetFileVersionInfoW(path, 0, size - 1, data));
    ASSERT_TRUE(GetFileVersionInfoW(path, 0, size, data));
    // The paths, the lengths or -1 for a part that is not there, and the words.
    using Row = std::tuple<std::u16string, int, Words>;
    for (const auto& [name, length, words] :
         {Row(u"\\", 52, {0x04BD, 0xFEEF, 0, 1, 2, 1, 4, 3, 0, 5, 0, 0}),
          Row(u"\\VarFileInfo\\Translation", 8, {0x409, 1200, 0x407, 1200}),
          Row(u"\\stringfileinfo\\040904b0\\productname", 5, {'T', 'e', 's', 't', 0}),
          Row(u"\\StringFileInfo\\040904B0\\Odd", 3, {'1', '2', 0}),
          Row(u"StringFileInfo\\040904B0\\Empty", 1, {0}), Row(u"\\StringFileInfo\\040904B0", 0, {0}),
          Row(u"\\StringFileInfo\\040904B0\\Product", -1, {}), Row(u"\\ProductName", -1, {}),
          Row(u"\\StringFileInfo\\040704B0\\ProductName", -1, {})}) {
      SCOPED_TRACE(qn::ToUtf8(name));
      void* value;
      UINT units;
      ASSERT_EQ(VerQueryValueW(data, name.c_str(), &value, &units), length >= 0);
      if (length < 0) continue;
      EXPECT_EQ(units, static_cast<UINT>(length));
      const auto* const found = static_cast<const uint16_t*>(value);
      EXPECT_EQ(Words(found, found + words.size()), words);
    }
    GlobalFree(block);
  }
  for (const auto& [name, error] :
       {std::pair{"none.res", ERROR_RESOURCE_TYPE_NOT_FOUND}, {"missing.res", ERROR_FILE_NOT_FOUND}}) {
    EXPECT_EQ(GetFileVersionInfoSizeW(scratch.Path(name).c_str(), nullptr), 0u);
    EXPECT_EQ(GetLastError(), error);
  }
}

// An ELF file of nothing but notes: somebody's, then one with `content`.
template <class Header, class Segment>
qntest::Bytes ElfFile(char width, uint32_t alignment, const std::string& content) {
  qntest::Bytes file(sizeof(Header) + 2 * sizeof(Segment));
  const auto append = [&](const std::string& bytes) {
    file.insert(file.end(), bytes.begin(), bytes.end());
    while ((file.size() - sizeof(Header) - 2 * sizeof(Segment)) % alignment != 0) file.push_back(0xAA);
  };
  for (const auto& [owner, text] :
       {std::pair<std::string, std::string>("GNU", "five!"), {"qnkernel", content}}) {
    const uint32_t sizes[] = {static_cast<uint32_t>(owner.size() + 1), static_cast<uint32_t>(text.size()), 1};
    append(std::string(reinterpret_cast<const char*>(sizes), sizeof(sizes)) + owner + '\0');
    append(text);
  }
  Segment segments[2] = {};
  segments[1].p_type = PT_NOTE;
  segments[1].p_offset = sizeof(Header) + sizeof(segments);
  segments[1].p_filesz = static_cast<uint32_t>(file.size() - segments[1].p_offset);
  segments[1].p_align = alignment;
  Header header = {};
  std::memcpy(header.e_ident, (std::string(ELFMAG) + width + char{ELFDATA2LSB}).data(), EI_VERSION);
  header.e_phoff = sizeof(header);
  header.e_phentsize = sizeof(Segment);
  header.e_phnum = 2;
  std::memcpy(file.data(), &header, sizeof(header));
  std::memcpy(file.data() + sizeof(header), segments, sizeof(segments));
  return file;
}

TEST(Version, IsANoteOfAnElfFileThatMayBeDamaged) {
  const std::string content = "12345678901";
  for (const qntest::Bytes& file : {ElfFile<Elf64_Ehdr, Elf64_Phdr>(ELFCLASS64, 4, content),
                                    ElfFile<Elf64_Ehdr, Elf64_Phdr>(ELFCLASS64, 8, content),
                                    ElfFile<Elf32_Ehdr, Elf32_Phdr>(ELFCLASS32, 4, content)}) {
    const size_t end = static_cast<size_t>(std::find(file.begin(), file.end(), '9') - file.begin()) + 3;
    for (size_t length = 0; length <= file.size(); ++length) {
      EXPECT_EQ(qnfuzz::UseVersionFile(file.data(), length), length < end ? 0 : content.size()) << length;
    }
    for (size_t bit = 0; bit < 8 * file.size(); ++bit) {
      qntest::Bytes damaged = file;
      damaged[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
      qnfuzz::UseVersionFile(damaged.data(), damaged.size());
    }
  }
}

TEST(ResourceCompiler, TellsWhereAScriptIsWrong) {
  const qntest::ScratchFolder scratch;
  const std::string file = scratch.Native("a.rc");
  const std::string command = "python3 " QN_RESOURCE_COMPILER " --name n --res " + scratch.Native("a.res") +
                              " --cpp " + scratch.Native("a.cpp") + " " + file + " 2>&1";
  using Row = std::pair<std::string, int>;  // 0: right
  for (const auto& [script, line] :
       {Row("1 RCDATA { 1 }\n// { \n# {\n/* {\n */ 2 RCDATA { }", 0), Row("1 RCDATA {\n 65536 }", 2),
        Row("STRINGTABLE {\n 1 \"a\"\n 1 \"b\" }", 3), Row("1 RCDATA { }\n1 RCDATA { }", 2),
        Row("/*\n*/ 1 MENU { MENUITEM \"a\" }", 2), Row("1 MENU {\n}", 2), Row("1 RCDATA {\n 1", 2),
        Row("1 DIALOGEX 0, 0, 1, 1\nSTYLE DS_SETFONT { }", 2), Row("0 RCDATA { }", 1),
        Row("1 DIALOGEX 0, 0, 1, 1\n{ PUSHBUTTON 1 }", 2), Row("STRINGTABLE { 1 \"a\\0b\" }", 1),
        Row("STRINGTABLE {\n 1 \"open }", 2), Row("\n1 RCDATA \"missing.bin\"", 2)}) {
    qntest::WriteFileBytes(file, {script.begin(), script.end()});
    std::string output;
    EXPECT_EQ(qntest::RunCommand(command, &output) == 0, line == 0) << script << output;
    const std::string place = line ? file + ":" + std::to_string(line) + ": " : "";
    EXPECT_EQ(output.substr(0, place.size()), place) << script << output;
  }
}

}  // namespace
