#include "qn/settings/qnerror.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <vector>

#include "qn/platform/sync.h"
#include "qn/platform/text.h"
#include "qn/settings/qnerror_internal.h"
#include "qn/settings/qnmsgbox.h"
#include "qn/text/qnprint.h"

namespace {

using Text = std::u16string;

constexpr HRESULT kUnknown = MakeStatus(0x8004FFFF);
const Text kMissing = W("\n\nError 0x8004ffff (message missing)");

qnlang_t record = {QNLANG_MARKER, 2, {}, {W("english"), W("japanese")}};
const WCHAR* const kRecord = reinterpret_cast<const WCHAR*>(&record);

// The boxes that were shown: flags, owner, the log at that time, text.
std::vector<std::string> boxes;

template <typename Value>
std::string Printed(const char* format, Value value) {
  char text[200];
  std::snprintf(text, sizeof text, format, (uintptr_t)value);
  return text;
}

// What an exception's line says between its code and "IP".
std::string DescribeException(DWORD code) {
  EXCEPTION_RECORD exception = {code, 0, nullptr, nullptr, 2, {0, 1}};
  EXCEPTION_POINTERS pointers = {&exception, nullptr};
  char text[200];
  QnErrorHandler_DumpExceptionRecord(text, sizeof text, nullptr, &pointers, 1);
  return std::string(text).substr(21, std::string_view(text).find(" IP:") - 21);
}

class ErrorHandler : public testing::Test {
 protected:
  void SetUp() override {
    _QnLang_UpdateKernelOnlyLCID(1033);
    QnPrintF_AddToken(W("AppName"), W("Editor"));
    QnErrorHandler_DetailsInit();
    boxes.clear();
    _QnMsgBoxSetAppData(nullptr, nullptr, W("100% Editor"));
    const auto hook = [](ULONGLONG, HWND window, const WCHAR* text, const WCHAR*, UINT flags) {
      const WCHAR* const log = QnErrorHandler_DetailsInfo(nullptr, nullptr, nullptr);
      boxes.push_back(Printed("%lX ", flags) + Printed("%lu ", window) + Printed("%lu ", log) +
                      qn::ToUtf8(text));
      return 7;
    };
    QnMsgBoxSetHook(hook, 0);
  }
  void TearDown() override { QnMsgBoxSetHook(nullptr, 0); }
};

// The tables as they were agreed on, apart from the code: a letter, a number, what it stands for.
TEST_F(ErrorHandler, EveryTableIsComplete) {
  std::ifstream file(QN_ERROR_TABLES);
  std::map<char, std::map<uint32_t, std::string>> tables;
  char table;
  for (uint32_t number; file >> table >> std::hex >> number;) {
    std::string& text = tables[table][number];
    std::getline(file.ignore(), text);
    for (size_t at; (at = text.find("\\n")) != text.npos;) text.replace(at, 2, "\n");
  }
  ASSERT_EQ(tables['S'].size(), 160u);
  for (const auto& [status, text] : tables['S'])
    EXPECT_EQ(QnErrorHandler_GetHresultString(MakeStatus(status)), qn::FromUtf8(text)) << status;
  auto& contexts = tables['C'];
  for (DWORD i = 0; i < 1000; ++i)
    EXPECT_EQ(QnErrorHandler_GetContextString(i), qn::FromUtf8(contexts[contexts.count(i) ? i : 0])) << i;
  for (const auto& [code, name] : tables['X'])
    EXPECT_EQ(DescribeException(code),
              "(" + name + ")" + (code == EXCEPTION_ACCESS_VIOLATION ? " READ:0x0000000000000001" : ""));
  EXPECT_EQ(DescribeException(0xE0000001), "(Unknown Type)");
  const auto expected = [&](char letter, DWORD code) {
    const auto row = tables[letter].find(code);
    return row == tables[letter].end() ? E_FAIL : static_cast<HRESULT>(std::stoul(row->second, nullptr, 16));
  };
  for (DWORD code = 0; code < 0x10010; ++code) {
    ASSERT_EQ(QnErrorHandler_TranslateWin32Error(code), expected('W', code)) << code;
    ASSERT_EQ(QnErrorHandler_TranslateCommDlgError(code), expected('D', code)) << code;
  }
  _QnLang_UpdateKernelOnlyLCID(0x407);
  EXPECT_NE(QnErrorHandler_GetHresultString(E_FAIL), qn::FromUtf8(tables['S'][0x80004005]));
}

// In a process of its own, for tables stay.
TEST_F(ErrorHandler, RegisteredTablesComeFirst) {
  const auto body = [] {
    const _qnerror_table first[] = {{E_FAIL, W("mine")}, {E_POINTER, nullptr}, {kUnknown, kRecord}};
    const _qnerror_table ids[] = {{E_FAIL, W("other")}, {QN_E_BUSY, reinterpret_cast<const WCHAR*>(5)}};
    HQNLANG language = nullptr;
    QnLang_Open(&language, nullptr, 0x411, 0);
    EXPECT_EQ(QnErrorHandler_AddErrorTable(nullptr, 1), 1);
    EXPECT_EQ(QnErrorHandler_AddErrorTable(language, first, 3), 0);
    for (int tables = 1; tables < 32; ++tables) EXPECT_EQ(QnErrorHandler_AddErrorTable(ids, 2), 0);
    EXPECT_EQ(QnErrorHandler_AddErrorTable(ids, 2), 1);
    EXPECT_EQ(QnErrorHandler_GetHresultString(E_FAIL), first[0].text);
    EXPECT_EQ(QnErrorHandler_GetHresultString(E_POINTER), nullptr);
    EXPECT_EQ(QnErrorHandler_GetHresultString(kUnknown), record.text[1]);
    EXPECT_EQ(QnErrorHandler_GetHresultString(QN_E_BUSY), Text());
  };
  EXPECT_EXIT((body(), std::_Exit(HasFailure())), testing::ExitedWithCode(0), "");
}

TEST_F(ErrorHandler, MessagesAreContextAndReason) {
  const Text long1947(1947, 'x'), long1948(1948, 'x'), long5000(5000, 'x');
  WCHAR list[64] = {}, decimal[64] = {};
  QnGetInat(40, list), QnGetInat(24, decimal);
  const Text separators = Text(list) + decimal;
  const struct {
    const WCHAR* context;
    const WCHAR* insert;
    Text expected;
  } kRows[] = {
      {reinterpret_cast<const WCHAR*>(6), W("a$d%"),
       W("An error occurred while saving the project file a$d%.") + kMissing},
      {W("%s"), nullptr, kMissing},
      {W("%d%% is %s"), W("x"), W("%d%% is %s") + kMissing},
      {W("%s, %s"), W("x"), W("%s, %s") + kMissing},
      {W("$(12%s%hs"), W("x"), W("$(12%s%hs") + kMissing},
      {W("%.2ls: 100%% $(AppName)"), W("xyz"), W("xy: 100% Editor") + kMissing},
      {kRecord, nullptr, W("english") + kMissing},
      {W("%s"), kRecord, W("english") + kMissing},
      {W("%s$,%*5$"), W("x"), W("x") + separators + W("5%") + kMissing},
      {W("<%lls>"), W("x"), W("<>") + kMissing},
      {long1947.c_str(), nullptr, long1947 + kMissing},
      {long1948.c_str(), nullptr, long1948},
      {W("%s"), long5000.c_str(), Text(2047, 'x')},
  };
  for (const auto& row : kRows) {
    const WCHAR* message = QnErrorHandler_GetErrorMessage(QnErrorContext(row.context), kUnknown, row.insert);
    EXPECT_EQ(message, row.expected);
    message = QnErrorHandler_GetErrorMessage(QnErrorContext(W("<%s")), kUnknown, message);  // its own insert
    const Text reason = row.expected.size() < 1947 ? kMissing : W("");
    EXPECT_EQ(message, (W("<") + row.expected + reason).substr(0, 2047));
  }
  const Text twice =
      W("An error occurred starting Editor.\n\nX file type is unsupported in this version of Editor.");
  EXPECT_EQ(QnErrorHandler_GetErrorMessage(26, MakeStatus(0x8004E164), W("X")), twice);
}

TEST_F(ErrorHandler, TheLogBelongsToOneFailure) {
  DWORD count = 9, thread = 0;
  EXPECT_EQ(QnErrorHandler_DetailsInfo(nullptr, &count, nullptr), nullptr);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(QnErrorHandler_DetailsAddString(E_FAIL, nullptr), E_POINTER);  // yet this thread is the owner now
  const auto elsewhere = [](HRESULT status) {
    return std::async(std::launch::async, [=] { return QnErrorHandler_DetailsAddString(status, W("other")); })
        .get();
  };
  EXPECT_EQ(elsewhere(QN_E_BUSY), E_FAIL);
  EXPECT_EQ(QnErrorHandler_DetailsAddString(QN_E_BUSY, W("%d, %s"), 44100, W("%d")), S_OK);
  EXPECT_EQ(elsewhere(E_FAIL), E_FAIL);
  EXPECT_EQ(elsewhere(QN_E_BUSY), S_OK);
  HRESULT status = S_OK;
  EXPECT_EQ(QnErrorHandler_DetailsInfo(&status, &count, &thread), Text(W("44100, %d\r\nother\r\n")));
  EXPECT_TRUE(status == QN_E_BUSY && count == 2 && thread == GetCurrentThreadId());

  const ULONG_PTR context = QnErrorContext(W("a%d"));
  // All of it comes in one text and in one box, without it the message alone does.
  for (const Text log : {W("\r\n<Details>\r\n44100, %d\r\nother\r\n\r\n</Details>"), W("")}) {
    const BSTR text = QnErrorHandler_ComposeErrorText(context, kUnknown, nullptr);
    EXPECT_EQ(text, W("a%d") + kMissing + log);
    SysFreeString(text);
    EXPECT_EQ(QnErrorHandler_DetailsSetHyperlink(Text(3000, 'x').c_str(), W("")), S_OK);
    EXPECT_EQ(QnErrorHandler_MsgBox(nullptr, 0xC013, context, kUnknown, nullptr, !log.empty()), 7);
    EXPECT_EQ(boxes.back(),
              (log.empty() ? "13 0 0 " : "C013 0 0 Warning: ") + qn::ToUtf8(W("a%d") + kMissing + log));
  }
  EXPECT_EQ(QnErrorHandler_MsgBox(nullptr, 0, 0, QN_E_CANCELLED, nullptr, FALSE), 1);
  EXPECT_EQ(boxes.size(), 2u);
  EXPECT_EQ(QnErrorHandler_DetailsSetHyperlink(W("a"), nullptr), E_POINTER);
  EXPECT_EQ(QnErrorHandler_DetailsSetHyperlink(kRecord, kRecord), S_OK);
  EXPECT_EQ(Text(qn::g_errorBlock.hyperlinkTarget) + qn::g_errorBlock.hyperlinkText, W("englishenglish"));
  for (const std::string prefix : {"", "Warning: "}) {
    QnErrorHandler_MsgBoxText(nullptr, 0, Text(20'000, 'x').c_str(), !prefix.empty());
    EXPECT_EQ(boxes.back(), "0 0 0 " + prefix + std::string(20'000, 'x'));
  }

  // 8191 characters with the line end; a number that does not fit is not left out.
  for (const size_t length : {8182u, 8183u, 8188u, 9000u}) {
    QnErrorHandler_DetailsInit();
    const HRESULT result = length == 8182 ? S_OK : E_FAIL;
    EXPECT_EQ(QnErrorHandler_DetailsAddString(1, (Text(length, 'x') + W("%d")).c_str(), 1234567), result);
    EXPECT_EQ(QnErrorHandler_DetailsAddString(1, Text(length + 7, 'x').c_str()),
              length == 8182 ? E_FAIL : result);
    EXPECT_EQ(QnErrorHandler_GetLastError(), SUCCEEDED(result));
  }
}

// Fills rooms of all sizes by `dump`, which has to write as many of the whole lines as fit; the first one in
// no less than `firstRoom`.
void CheckDump(int firstRoom, const std::vector<std::string>& lines,
               const std::function<int(char*, int)>& dump) {
  for (int size = 0; size < 400; ++size) {
    std::string expected;
    for (const std::string& line : lines) {
      const int room = size - static_cast<int>(expected.size());
      if (room < (expected.empty() ? firstRoom : 50) || room <= static_cast<int>(line.size())) break;
      expected += line;
    }
    std::string text(500, '#');
    ASSERT_EQ(dump(text.data(), size), static_cast<int>(expected.size())) << size;
    ASSERT_TRUE(size == 0 || text.c_str() == expected) << text;
    ASSERT_EQ(text.find_first_not_of('#', static_cast<size_t>(size)), text.npos);
  }
}

TEST(ErrorDump, WritesWholeLines) {
  const auto dump = [](auto function, auto* items, int count) {
    return [=](char* text, int size) { return function(text, size, items, count); };
  };
  const unsigned char bytes[] = {0, 0x1F, 0x20, 'a', 0x7E, 0x7F, 0x80, 0xFF, 'b', 'c', 'd', 'e'};
  const DWORD words[] = {1, 0xABCDEF01, 2, 3, 4}, *const kNowhere = nullptr;
  CheckDump(50,
            {Printed(" %016lX: 00 1F 20 61 7E 7F 80 FF .. a~...\r\n", bytes),
             Printed(" %016lX: 62 63 64                bcd     \r\n", bytes + 8)},
            dump(QnErrorHandler_DumpHex, bytes, 11));
  CheckDump(50,
            {Printed(" %016lX: 00000001 ABCDEF01 00000002 00000003 \r\n", words),
             Printed(" %016lX: 00000004 \r\n", words + 4)},
            dump(QnErrorHandler_DumpHexDWords, words, 5));
  CheckDump(50, {" 0000000000000000: .. ..                   ..      \r\n"},
            dump(QnErrorHandler_DumpHex, kNowhere, 2));
  CheckDump(50, {" 0000000000000000: ........ \r\n"}, dump(QnErrorHandler_DumpHexDWords, kNowhere, 1));
}

TEST_F(ErrorHandler, ExceptionsAreDescribedAndShown) {
  const auto code = reinterpret_cast<uintptr_t>(&QnErrorHandler_GetLastError);
  auto* const address = reinterpret_cast<void*>(code);
  const auto module = reinterpret_cast<uintptr_t>(ModuleFromAddress(address));
  EXCEPTION_RECORD exception = {EXCEPTION_ACCESS_VIOLATION, 0, nullptr, address, 2, {1, 0xABC}};
  EXCEPTION_POINTERS pointers = {&exception, nullptr};
  const std::string first =
      Printed("Exception 0xC0000005 (access violation) WRITE:0x0000000000000ABC IP:0x%016lX\r\n", code);
  const std::string second = Printed("In Module 'test_settings' at Address 0x%016lX", module) +
                             Printed(" + 0x%016lX\r\n", code - module);
  const std::string third = " ID=0x" + Printed("%lX Stack=\r\n", GetCurrentThreadId());
  CheckDump(0, {first, second, "Thread: %s" + third}, [&](char* text, int size) {
    return QnErrorHandler_DumpExceptionRecord(text, size, "%s", &pointers, size % 2 ? 0 : 35);
  });
  EXPECT_EQ(QnErrorHandler_ExceptionFilter(&pointers, "\xC3\xA4\xE4\xF0\x9F\x8E\xB5%s\xC3"), 1);
  exception = {EXCEPTION_DATATYPE_MISALIGNMENT, 0, nullptr, nullptr, 0, {}};
  EXPECT_EQ(QnErrorHandler_ExceptionFilter(&pointers, nullptr), 0);
  EXPECT_EQ(boxes,
            std::vector<std::string>{"C030 0 0 An error occurred during the current operation.\n\nAn "
                                     "Exception has occurred.\r\n<Details>\r\n"
                                     "100% Editor\r\n" +
                                     first + second + "Thread: \xC3\xA4\xC3\xA4\xF0\x9F\x8E\xB5%s\xC3\x83" +
                                     third + "\r\n\r\n</Details>"});
}

}  // namespace
