#include "qn/kernel/qnkernel.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "qn/kernel/qnkernel_internal.h"
#include "qn/kernel/qntimer_internal.h"
#include "qn/platform/system_internal.h"
#include "qn/platform/winuser_internal.h"
#include "qn/settings/qnerror.h"
#include "qn/settings/qnmetric.h"
#include "qn/settings/qnmsgbox.h"
#include "qn/text/qnnumber.h"
#include "qn/text/qnprint.h"
#include "qn/text/text_internal.h"

namespace {

using Text = std::u16string_view;

std::string calls;
HRESULT languageStatus;
int boxes = 0;

HRESULT OpenLanguage(HQNLANG* language, HMODULE module, DWORD lcid, LONG ringSize) {
  const bool settledBefore = QnKernel_GetAppKernel() == module && qn::ProcessTimeBase().initialized &&
                             qn::g_KernelCursorBase == 100 && qn::g_hHostModule == GetModuleHandleW(nullptr);
  calls += settledBefore && lcid == 0 && ringSize == 0 ? 'L' : '?';
  return FAILED(languageStatus) ? languageStatus : QnLang_Open(language, module, lcid, ringSize);
}

// Whether the texts are open shows where in the order a step stands. What a step answers is not looked at.
template <char name, class Result, class... Arguments>
Result Note(Arguments...) {
  calls += qn::KernelLanguage() ? name : static_cast<char>(name - 'A' + 'a');
  return Result();
}

// What works in any case, without texts too.
void UseWithoutLanguage(HMODULE module) {
  WCHAR text[200];
  QnFormatFileSize(1500, text, 200, TRUE);
  QnCchPrintF(text, 200, nullptr, W("$(AppName) $d $(SMPTE.Label.Drop)"), 1234);
  EXPECT_EQ(QnGetString(qn::KernelLanguage(), 17u)[0], 0);
  EXPECT_NE(QnErrorHandler_GetErrorMessage(1, E_ACCESSDENIED, W("x"))[0], 0);
  EXPECT_FALSE(_QnLang_UpdateKernelOnlyLCID(0x407));
  EXPECT_EQ(QnSetMetric(QNMETRIC_DEFAULT, 1, 7), E_FAIL);
  _QnMsgBoxSetAppData(module, nullptr, W("Test"));
  QnMsgBoxSetNoUIHook([](const WCHAR*) { ++boxes; });
  EXPECT_EQ(QnErrorHandler_MsgBox(nullptr, MB_YESNO | MB_DEFBUTTON2, 1, E_FAIL, nullptr, TRUE), IDNO);
  QnMsgBoxSetNoUIHook(nullptr);
}

TEST(Kernel, AttachesAndDetachesInOrder) {
  const HMODULE module = QnKernel_GetAppKernel();
  EXPECT_EQ(module, GetModuleHandleW(nullptr));
  const qn::AttachSteps steps = qn::Steps();
  qn::Steps() = {OpenLanguage,    Note<'P', void>, Note<'C', BOOL>, Note<'T', BOOL>,
                 Note<'S', void>, Note<'R', void>, Note<'W', void>, Note<'A', void>};
  SetErrorMode(4);
  const struct {
    DWORD reason;
    HRESULT languageStatus;
    BOOL result;
    const char* calls;
    HRESULT attachStatus;
  } rows[] = {{2, S_OK, TRUE, "", S_OK},
              {qn::DLL_PROCESS_DETACH, S_OK, TRUE, "TSRwa", S_FALSE},
              {qn::DLL_PROCESS_ATTACH, E_OUTOFMEMORY, FALSE, "Lp", E_OUTOFMEMORY},
              {qn::DLL_PROCESS_ATTACH, S_OK, TRUE, "LPC", S_OK},
              {qn::DLL_PROCESS_ATTACH, S_OK, TRUE, "PC", S_OK}};  // what is there stays
  for (const auto& row : rows) {
    calls.clear();
    languageStatus = row.languageStatus;
    EXPECT_EQ(qn::DllMain(module, row.reason, nullptr), row.result);
    EXPECT_EQ(calls, row.calls);
    EXPECT_EQ(qn::AttachStatus(), row.attachStatus);
    EXPECT_EQ(QnKernel_GetAppKernel(), row.attachStatus == S_FALSE ? nullptr : module);
    if (row.attachStatus != S_OK) UseWithoutLanguage(module);
  }
  EXPECT_EQ(boxes, 2);
  EXPECT_EQ(SetErrorMode(0), 0x8005u);
  qn::Steps() = steps;
}

TEST(Kernel, KnowsItsHostAndVersions) {
  EXPECT_EQ(_QnKernel_SetAppName(std::u16string(127, 'a').c_str()), S_OK);
  EXPECT_EQ(_QnKernel_SetAppName(std::u16string(200, 'b').c_str()), static_cast<HRESULT>(0x8007007A));
  EXPECT_EQ(QnKernel_GetAppName(), std::u16string(127, 'b'));
  WCHAR path[4096], expected[4096];
  const DWORD length = GetModuleFileNameW(nullptr, expected, 4096);
  EXPECT_EQ(QnKernel_GetAppKernelPathName(path, length), E_FAIL);
  EXPECT_EQ(QnKernel_GetAppKernelPathName(path, length + 1), S_OK);
  EXPECT_EQ(Text(path), expected);
  const struct {
    const WCHAR *path, *name;
    int size;
    HRESULT status;
    Text text;
  } rows[] = {{path, W("ProductName"), 3, S_OK, W("Te")},
              {path, W("ProductName"), 0, S_OK, W("?")},
              {path, W("Empty"), 8, S_OK, W("")},
              {path, W("Missing"), 8, QN_E_NOT_FOUND, W("?")},
              {W("\\etc\\passwd"), W("ProductName"), 8, QN_E_NOT_FOUND, W("?")}};
  for (const auto& row : rows) {
    WCHAR text[8] = W("?");
    EXPECT_EQ(QnVersion_GetString(row.path, row.name, text, row.size), row.status);
    EXPECT_EQ(Text(text), row.text);
  }
}

TEST(Kernel, NamesTheSystemAndItsLevels) {
  constexpr DWORD kLevels[] = {0, 5, 6, 7, 8, 9, 10, 11, 12, 0xFFFFFFFF};
  constexpr WORD kIntel = PROCESSOR_ARCHITECTURE_INTEL, kAmd = PROCESSOR_ARCHITECTURE_AMD64;
  const qn::SystemDescription own = qn::DescribedSystem();
  // Levels pass from 6 to the last one.
  const struct {
    qn::SystemDescription system;
    DWORD last;
    Text name;
  } rows[] = {
      {{11, 0, 0, true, kAmd}, 11, W("Windows 11.0 (64-bit)")},
      {{10, 1, 0, true, kIntel}, 11, W("Windows 11.0 (32-bit)")},
      {{10, 0, 21999, true, kAmd}, 10, W("Windows 10.0 (64-bit)")},
      {{10, 0, 22000, false, kAmd}, 10, W("Windows 10.0 (64-bit)")},
      {{6, 3, 9600, true, kAmd}, 9, W("Windows 8.1 (64-bit)")},
      {{6, 2, 9200, true, PROCESSOR_ARCHITECTURE_ARM64}, 9, W("Windows 8")},
      {{6, 1, 7601, true, kAmd}, 8, W("Unknown Versoin")},
      {{5, 0, 2195, true, kIntel}, 5, W("Unknown Versoin")},
      {own, 11, own.architecture == kAmd ? W("Windows 11.0 (64-bit)") : W("Windows 11.0")},
  };
  for (const auto& row : rows) {
    qn::DescribedSystem() = row.system;
    for (const DWORD level : kLevels)
      EXPECT_EQ(QnOSVersionOK(level), level >= 6 && level <= row.last) << level;
    for (int size = 0; size < 24; ++size) {
      WCHAR text[24] = W("?");
      EXPECT_EQ(QnGetOS(text, size), row.name[0] == 'W');
      EXPECT_EQ(Text(text), size == 0 ? W("?") : row.name.substr(0, static_cast<size_t>(size) - 1));
    }
  }
}

// Screens by their depth; 0 is one that no context can be made for.
std::vector<uintptr_t> screens;
int openContexts = 0;

HDC OpenContext(uintptr_t depth) {
  openContexts += depth != 0;
  return reinterpret_cast<HDC>(depth);
}

TEST(Kernel, AsksForTheDepthOfScreensOnce) {
  EXPECT_TRUE(QnIsHighColor() && QnIsAllMonitorsHighColor());
  qn::WindowBackend backend{};
  backend.getDC = [](HWND) { return OpenContext(screens[0]); };
  backend.createDC = [](auto, const WCHAR* device, auto, auto) { return OpenContext(device[0]); };
  backend.releaseDC = [](HWND, HDC) { return openContexts--; };
  backend.deleteDC = [](HDC) { return openContexts--; };
  backend.getDeviceCaps = [](HDC dc, int) { return static_cast<int>(reinterpret_cast<uintptr_t>(dc)); };
  backend.getMonitorInfo = [](HMONITOR monitor, MONITORINFOEXW* information) {
    information->szDevice[0] = static_cast<WCHAR>(*reinterpret_cast<uintptr_t*>(monitor));
    return TRUE;
  };
  backend.enumMonitors = [](MONITORENUMPROC procedure, LPARAM data) {
    for (uintptr_t& depth : screens) procedure(reinterpret_cast<HMONITOR>(&depth), nullptr, nullptr, data);
    return TRUE;
  };
  const qn::WindowBackend* const before = qn::SetWindowBackend(&backend);
  qn::Steps().releaseWindowCaches = [] { calls += 'W'; };
  const struct {
    std::vector<uintptr_t> screens;
    UINT message;
    BOOL primary, all;
  } rows[] = {{{8, 8}, 125, TRUE, TRUE},
              {{16, 8}, 126, TRUE, FALSE},
              {{15, 32}, 126, FALSE, FALSE},
              {{32, 0}, 21, TRUE, TRUE}};
  calls.clear();
  for (const auto& row : rows) {
    screens = row.screens;
    QnKernel_UserPrefChanges(nullptr, row.message);
    EXPECT_EQ(QnIsHighColor(), row.primary) << row.message;
    EXPECT_EQ(QnIsAllMonitorsHighColor(), row.all) << row.message;
  }
  EXPECT_EQ(calls, "W");
  EXPECT_EQ(openContexts, 0);
  qn::Steps().releaseWindowCaches = nullptr;
  qn::SetWindowBackend(before);
}

}  // namespace
