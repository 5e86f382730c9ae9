#include "qn/platform/file.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <string>

#include "qn/platform/text.h"
#include "tests/support/support.h"

namespace {

using qntest::Bytes;
using qntest::ScratchFolder;

constexpr DWORD kReadWrite = GENERIC_READ | GENERIC_WRITE;
constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE Open(const std::u16string& path, DWORD access, DWORD share, DWORD disposition, DWORD attributes = 0) {
  return CreateFileW(path.c_str(), access, share, nullptr, disposition, attributes, nullptr);
}

// 0 when the file opens, else the last error.
DWORD OpenErrorOf(const std::u16string& path, DWORD access, DWORD share, DWORD disposition) {
  const HANDLE file = Open(path, access, share, disposition);
  if (file == INVALID_HANDLE_VALUE) return GetLastError();
  CloseHandle(file);
  return 0;
}

// Runs `body` in another process and gives its result, which has 8 bits.
DWORD InOtherProcess(const std::function<DWORD()>& body) {
  const pid_t child = fork();
  if (child == 0) _exit(static_cast<int>(body()));
  int status = 0;
  waitpid(child, &status, 0);
  return static_cast<DWORD>(WEXITSTATUS(status));
}

TEST(File, DispositionsAndTheirErrors) {
  const ScratchFolder folder;
  const auto path = folder.Path("a.bin");
  const std::string native = folder.Native("a.bin");

  EXPECT_EQ(OpenErrorOf(path, GENERIC_READ, 0, OPEN_EXISTING), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(OpenErrorOf(folder.Path("no/b"), kReadWrite, 0, CREATE_ALWAYS), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenErrorOf(folder.Path(""), GENERIC_READ, 0, OPEN_EXISTING), ERROR_ACCESS_DENIED);
  EXPECT_EQ(OpenErrorOf(u"", GENERIC_READ, 0, OPEN_EXISTING), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(OpenErrorOf(path, GENERIC_READ, 0, 6), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(OpenErrorOf(path, kReadWrite, 0, CREATE_NEW), 0u);
  EXPECT_EQ(OpenErrorOf(path, kReadWrite, 0, CREATE_NEW), ERROR_FILE_EXISTS);

  qntest::WriteFileBytes(native, Bytes(10, 7));
  EXPECT_EQ(OpenErrorOf(path, GENERIC_READ, 0, TRUNCATE_EXISTING), ERROR_INVALID_PARAMETER);
  HANDLE file = Open(path, kReadWrite, 0, OPEN_ALWAYS);
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  CloseHandle(file);
  EXPECT_EQ(qntest::ReadFileBytes(native).size(), 10u);
  CloseHandle(Open(path, kReadWrite, 0, TRUNCATE_EXISTING));
  EXPECT_TRUE(qntest::ReadFileBytes(native).empty());
}

TEST(File, ReadsWritesAndSeeksByBothForms) {
  const ScratchFolder folder;
  const HANDLE file = Open(folder.Path("big.bin"), kReadWrite, FILE_SHARE_READ, CREATE_ALWAYS);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);

  // A position of 3 GiB does not fit a signed 32-bit distance; with a high part it is a plain distance.
  LONG high = 0;
  EXPECT_EQ(SetFilePointer(file, static_cast<LONG>(0xC0000000u), &high, FILE_BEGIN), 0xC0000000u);
  DWORD moved = 0;
  EXPECT_TRUE(WriteFile(file, "abcd", 4, &moved, nullptr));
  EXPECT_EQ(moved, 4u);
  high = 1;
  EXPECT_EQ(SetFilePointer(file, 8, &high, FILE_BEGIN), 8u);
  EXPECT_EQ(high, 1);
  EXPECT_TRUE(SetEndOfFile(file));
  LARGE_INTEGER size;
  EXPECT_TRUE(GetFileSizeEx(file, &size));
  EXPECT_EQ(size.QuadPart, 0x100000008);

  EXPECT_EQ(SetFilePointer(file, 16, nullptr, FILE_BEGIN), 16u);
  EXPECT_EQ(SetFilePointer(file, -17, nullptr, FILE_CURRENT), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_NEGATIVE_SEEK);
  EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_END), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(SetFilePointer(file, 0, nullptr, FILE_CURRENT), 16u) << "a refused seek leaves the position";

  LARGE_INTEGER distance;
  distance.QuadPart = -4 - 0x40000004;
  LARGE_INTEGER reached;
  EXPECT_TRUE(SetFilePointerEx(file, distance, &reached, FILE_END));
  EXPECT_EQ(reached.QuadPart, 0xC0000000);
  char buffer[8] = {};
  EXPECT_TRUE(ReadFile(file, buffer, 4, &moved, nullptr));
  EXPECT_EQ(std::string(buffer), "abcd");
  distance.QuadPart = -2;
  EXPECT_TRUE(SetFilePointerEx(file, distance, nullptr, FILE_END));
  EXPECT_TRUE(ReadFile(file, buffer, 8, &moved, nullptr)) << "the end of the file is no failure";
  EXPECT_EQ(moved, 2u);
  CloseHandle(file);
}

TEST(File, HandlesAreRefusedOnceClosedOrWithoutTheAccess) {
  const ScratchFolder folder;
  const HANDLE file = Open(folder.Path("a"), GENERIC_WRITE, kShareAll, CREATE_ALWAYS);
  DWORD moved = 1;
  char byte = 0;
  EXPECT_FALSE(ReadFile(file, &byte, 1, &moved, nullptr));
  EXPECT_TRUE(CloseHandle(file));
  for (const HANDLE bad : {file, INVALID_HANDLE_VALUE, HANDLE{nullptr}, static_cast<HANDLE>(&byte)}) {
    EXPECT_FALSE(WriteFile(bad, &byte, 1, &moved, nullptr));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(CloseHandle(bad));
  }
  const HANDLE next = Open(folder.Path("a"), GENERIC_READ, kShareAll, OPEN_EXISTING);
  EXPECT_NE(next, file) << "a handle value is not used again at once";
  EXPECT_FALSE(WriteFile(next, &byte, 1, &moved, nullptr));
  CloseHandle(next);
}

// Every pair of openings, against the rule itself: each must share what the other uses.
TEST(File, ShareModesHoldInOneProcessAndBetweenTwo) {
  const ScratchFolder folder;
  const auto path = folder.Path("shared.bin");
  qntest::WriteFileBytes(folder.Native("shared.bin"), Bytes(4, 1));
  constexpr DWORD kAccesses[] = {0, GENERIC_READ, GENERIC_WRITE, kReadWrite, DELETE};
  const auto shareNeededFor = [](DWORD access) {
    return (access & GENERIC_READ ? FILE_SHARE_READ : 0) | (access & GENERIC_WRITE ? FILE_SHARE_WRITE : 0) |
           (access & DELETE ? FILE_SHARE_DELETE : 0);
  };
  for (const DWORD firstAccess : kAccesses) {
    for (DWORD firstShare = 0; firstShare < 8; ++firstShare) {
      const HANDLE first = Open(path, firstAccess, firstShare, OPEN_EXISTING);
      ASSERT_NE(first, INVALID_HANDLE_VALUE);
      for (const DWORD access : kAccesses) {
        for (DWORD share = 0; share < 8; ++share) {
          const bool fits =
              (shareNeededFor(access) & ~firstShare) == 0 && (shareNeededFor(firstAccess) & ~share) == 0;
          const DWORD expected = fits ? 0 : ERROR_SHARING_VIOLATION;
          EXPECT_EQ(OpenErrorOf(path, access, share, OPEN_EXISTING), expected)
              << std::hex << firstAccess << " " << firstShare << " then " << access << " " << share;
        }
      }
      CloseHandle(first);
    }
  }

  const HANDLE writer = Open(path, kReadWrite, FILE_SHARE_READ, OPEN_EXISTING);
  EXPECT_EQ(InOtherProcess([&] { return OpenErrorOf(path, GENERIC_READ, kShareAll, OPEN_EXISTING); }), 0u);
  EXPECT_EQ(InOtherProcess([&] { return OpenErrorOf(path, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING); }),
            ERROR_SHARING_VIOLATION);
  EXPECT_EQ(InOtherProcess([&] { return OpenErrorOf(path, GENERIC_WRITE, kShareAll, CREATE_ALWAYS); }),
            ERROR_SHARING_VIOLATION);
  EXPECT_EQ(qntest::ReadFileBytes(folder.Native("shared.bin")).size(), 4u) << "refused before it was cut";
  EXPECT_FALSE(DeleteFileW(path.c_str()));
  EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
  CloseHandle(writer);
  EXPECT_EQ(InOtherProcess([&] { return OpenErrorOf(path, kReadWrite, 0, OPEN_EXISTING); }), 0u);
  EXPECT_TRUE(DeleteFileW(path.c_str()));
}

TEST(File, PathsTakeBothSlashesDrivesAndOtherScripts) {
  const ScratchFolder folder;
  const std::string native = folder.Native("gr\xC3\xB6\xC3\x9F\x65 \xF0\x9D\x84\x9E.wav");
  qntest::WriteFileBytes(native, Bytes(3, 1));
  std::u16string path = qn::PathFromNative(native);
  EXPECT_EQ(path[0], u'\\');
  EXPECT_EQ(path.find(u'/'), std::u16string::npos);
  EXPECT_EQ(qn::PathToNative(path), native);
  EXPECT_EQ(OpenErrorOf(path, GENERIC_READ, 0, OPEN_EXISTING), 0u);
  EXPECT_EQ(OpenErrorOf(u"C:" + path, GENERIC_READ, 0, OPEN_EXISTING), 0u);
  EXPECT_EQ(OpenErrorOf(qn::FromUtf8(native), GENERIC_READ, 0, OPEN_EXISTING), 0u);
  EXPECT_EQ(qn::FromUtf8("a\xFFz"), u"a\xFFFDz");
}

TEST(File, Attributes) {
  const ScratchFolder folder;
  const auto path = folder.Path(".dot");
  CloseHandle(Open(path, kReadWrite, 0, CREATE_NEW, FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(GetFileAttributesW(path.c_str()), FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN);
  EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL));
  EXPECT_EQ(GetFileAttributesW(path.c_str()), FILE_ATTRIBUTE_HIDDEN);
  EXPECT_EQ(GetFileAttributesW(folder.Path("").c_str()), FILE_ATTRIBUTE_DIRECTORY);
  CloseHandle(Open(folder.Path("gone"), kReadWrite, 0, CREATE_NEW, FILE_FLAG_DELETE_ON_CLOSE));
  EXPECT_EQ(GetFileAttributesW(folder.Path("gone").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(File, ViewsOutliveTheirHandles) {
  const ScratchFolder folder;
  const auto path = folder.Path("view");
  HANDLE file = Open(path, kReadWrite, 0, CREATE_NEW);
  EXPECT_EQ(CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_FILE_INVALID);
  CloseHandle(file);

  const Bytes bytes(10000, 7);
  qntest::WriteFileBytes(folder.Native("view"), bytes);
  file = Open(path, GENERIC_READ, 0, OPEN_EXISTING);
  const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
  CloseHandle(file);
  EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, bytes.size() + 1), nullptr);
  const void* const view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
  CloseHandle(mapping);
  ASSERT_TRUE(view);
  EXPECT_EQ(std::memcmp(view, bytes.data(), bytes.size()), 0);
  EXPECT_TRUE(UnmapViewOfFile(view));
  EXPECT_FALSE(UnmapViewOfFile(view));
  EXPECT_EQ(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0), nullptr);
}

TEST(File, FifosHoldNobodyUp) {
  const ScratchFolder folder;
  const auto path = folder.Path("fifo");
  ASSERT_EQ(mkfifo(folder.Native("fifo").c_str(), 0666), 0);
  EXPECT_EQ(OpenErrorOf(path, GENERIC_WRITE, kShareAll, OPEN_EXISTING), ERROR_GEN_FAILURE);
  EXPECT_EQ(OpenErrorOf(path, kReadWrite, kShareAll, OPEN_EXISTING), ERROR_ACCESS_DENIED);
  const HANDLE reader = Open(path, GENERIC_READ, kShareAll, OPEN_EXISTING);
  const HANDLE writer = Open(path, GENERIC_WRITE, kShareAll, OPEN_EXISTING);
  char bytes[4];
  DWORD moved = 4;
  EXPECT_TRUE(ReadFile(reader, bytes, 4, &moved, nullptr) && moved == 0);
  EXPECT_TRUE(WriteFile(writer, "abc", 3, &moved, nullptr));
  EXPECT_TRUE(ReadFile(reader, bytes, 4, &moved, nullptr) && moved == 3);
  EXPECT_TRUE(CloseHandle(reader) && CloseHandle(writer));
}

TEST(File, AFullDiskTellsWhatWasWritten) {
  const ScratchFolder folder;
  // A limit on the file's size stands for the full disk: the second write comes up short.
  const DWORD written = InOtherProcess([&]() -> DWORD {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit limit = {100, 100};
    setrlimit(RLIMIT_FSIZE, &limit);
    const HANDLE file = Open(folder.Path("full"), kReadWrite, 0, CREATE_ALWAYS);
    char block[64] = {};
    DWORD put = 0;
    if (!WriteFile(file, block, 64, &put, nullptr) || WriteFile(file, block, 64, &put, nullptr)) return 0;
    return GetLastError() == ERROR_FILE_TOO_LARGE ? put : 0;
  });
  EXPECT_EQ(written, 100u - 64u);
}

}  // namespace
