// Loads the library and unloads it again and again, as a host does with a plug-in that brings it along, and
// holds what stays behind against what was there before. The program links neither the library nor what that
// stands on; QNKERNEL names the library's file.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "qn/qn.h"

namespace {

namespace fs = std::filesystem;

void* library;

template <class Function>
Function Find(Function, const char* name) {
  void* const found = dlsym(library, name);
  if (!found) throw std::runtime_error(dlerror());
  return reinterpret_cast<Function>(found);
}
#define FIND(name) Find(static_cast<decltype(&name)>(nullptr), #name)

void UseNothing() {}

void UseTexts() {
  WCHAR text[64];
  EXPECT_NE(FIND(QnErrorHandler_GetErrorMessage)(1, E_ACCESSDENIED, nullptr)[0], 0);
  EXPECT_EQ(FIND(QnCchPrintF)(text, 64, nullptr, W("$d"), 44'100), S_OK);
  EXPECT_TRUE(FIND(_QnLang_UpdateKernelOnlyLCID)(0x411));
  EXPECT_TRUE(FIND(QnPrintF_AddToken)(W("AppName"), W("Unload")));
}

// Loads the module of the codecs, which stays in the process.
void UseCodecNames() {
  WCHAR text[64] = {};
  EXPECT_EQ(FIND(QnAudio_GetTagText)(0x55, text, 64), QN_HAS_CODEC_NAMES ? S_OK : E_FAIL);
  EXPECT_EQ(text[0], QN_HAS_CODEC_NAMES ? 'M' : 'U');
}

// Shares memory, for which a thread runs, and forgets to end that.
void LeaveShared() {
  const auto create = Find(static_cast<decltype(&CreateFileMappingW)>(nullptr),
                           "_ZN10qnplatform18CreateFileMappingWEPvS0_jjjPKDs");
  const auto map =
      Find(static_cast<decltype(&MapViewOfFile)>(nullptr), "_ZN10qnplatform13MapViewOfFileEPvjjjm");
  const HANDLE mapping = create(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 5000, nullptr);
  EXPECT_TRUE(map(mapping, FILE_MAP_WRITE, 0, 0, 0));
}

// Writes a setting, and forgets to close a file.
void LeaveOpen() {
  const auto create =
      Find(static_cast<decltype(&CreateFileW)>(nullptr), "_ZN10qnplatform11CreateFileWEPKDsjjPvjjS2_");
  EXPECT_NE(create(W("left.tmp"), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(FIND(QnSetMetric)(QNMETRIC_DEFAULT, 1, 2), S_OK);
}

// Converts a frame that is large enough for threads to share its rows.
void ConvertFrame() {
  constexpr LONG kWidth = 1024, kHeight = 512;
  const BITMAPINFOHEADER rgb = {40, kWidth, kHeight, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  const BITMAPINFOHEADER yuv = {40, kWidth, kHeight, 1, 12, QnMakeFourCC('I', '4', '2', '0'), 0, 0, 0, 0, 0};
  tQNYUVOFFSETS offsets;
  const tQNYUVCOLOR colour = {};
  const std::vector<BYTE> frame(FIND(QnYUVImageBytesAndOffsets)(&yuv, &offsets));
  std::vector<BYTE> bitmap(4 * kWidth * kHeight);
  EXPECT_EQ(FIND(QnYUV_YUVToRGB)(&rgb, 0, bitmap.data(), 0, &yuv, frame.data(), &offsets, &colour), S_OK);
  EXPECT_EQ(bitmap.back(), 255);
}

ptrdiff_t CountEntries(const char* folder) {
  return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
}

ptrdiff_t CountLines(const char* path, const std::string& pattern) {
  std::ifstream file(path);
  ptrdiff_t count = 0;
  for (std::string line; std::getline(file, line);) count += line.find(pattern) != line.npos;
  return count;
}

TEST(Unload, LeavesNothingBehind) {
  char name[] = "/tmp/qnunloadXXXXXX";
  const fs::path folder = mkdtemp(name);
  fs::current_path(folder);
  for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "TMPDIR"}) setenv(variable, folder.c_str(), 1);
  unsetenv("QNKERNEL_USER_REGISTRY");
  for (void (*use)() : {UseNothing, UseTexts, UseCodecNames, ConvertFrame, LeaveShared, LeaveOpen}) {
    std::vector<ptrdiff_t> before;
    ptrdiff_t memory = 0;
    for (int round = 0; round < 60; ++round) {
      library = dlopen(QNKERNEL, RTLD_NOW);
      ASSERT_TRUE(library) << dlerror();
      use();
      dlclose(library);
      ASSERT_FALSE(dlopen(QNKERNEL, RTLD_NOW | RTLD_NOLOAD)) << "it is still there";
      // The first rounds fill the caches of the libraries below, which stay.
      if (round != 19 && round != 59) continue;
      const std::vector now = {CountEntries("/proc/self/fd"), CountEntries("/proc/self/task"),
                               CountLines("/proc/self/maps", ""),
                               CountLines("/proc/locks", " " + std::to_string(getpid()) + " ")};
      const auto used = static_cast<ptrdiff_t>(mallinfo2().uordblks);
      if (round == 59) {
        EXPECT_EQ(now, before);
        EXPECT_LT(used, memory + 400);
      }
      before = now;
      memory = used;
    }
    EXPECT_EQ(fs::is_empty(folder), use != LeaveOpen);  // nothing is made before it is needed
  }
  fs::current_path("/");
  fs::remove_all(folder);
}

TEST(Unload, FindsTheCodecsBesideTheLibraryAlone) {
  char name[] = "/tmp/qnunloadXXXXXX";
  const fs::path folder = mkdtemp(name);
  fs::copy_file(QNKERNEL, folder / "libqnkernel.so.1");
  fs::current_path(fs::path(QNKERNEL).parent_path());  // where a module is
  library = dlopen((folder / "libqnkernel.so.1").c_str(), RTLD_NOW);
  ASSERT_TRUE(library) << dlerror();
  WCHAR text[64];
  EXPECT_EQ(FIND(QnAudio_GetTagText)(0x55, text, 64), E_FAIL);
  EXPECT_EQ(std::u16string(text), W("Unknown"));
  EXPECT_EQ(dlerror(), nullptr);
  dlclose(library);
  fs::current_path("/");
  fs::remove_all(folder);
}

}  // namespace
