#include "qn/settings/qnmetric.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <thread>

#include "qn/kernel/qnstream.h"
#include "qn/settings/qnstatus.h"
#include "tests/support/support.h"

namespace {

using qntest::Bytes;
using Text = std::u16string;

const HKEY kUser = HKEY_CURRENT_USER;

pid_t Fork(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child == 0) body();
  if (child == 0) _exit(testing::Test::HasFailure());
  return child;
}

int Wait(pid_t child) {
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

bool HasKey(HKEY hive, const Text& path) {
  HKEY key = nullptr;
  return RegOpenKeyExW(hive, path.c_str(), 0, KEY_READ, &key) == 0 && RegCloseKey(key) == 0;
}

class MetricTest : public testing::Test {
 protected:
  MetricTest() {
    SetRegistryFile(kUser, folder_.Path("user").c_str());
    SetRegistryFile(HKEY_LOCAL_MACHINE, folder_.Path("machine").c_str());
  }
  ~MetricTest() override {
    QnMetric_Close(metrics_);
    for (const HKEY hive : {kUser, HKEY_LOCAL_MACHINE}) SetRegistryFile(hive, nullptr);
  }

  void Open() { EXPECT_EQ(QnMetric_Open(&metrics_, u"App", 0x00100000, u"Sub"), 0); }
  void Store(const WCHAR* name, DWORD type, const Bytes& data) {
    EXPECT_EQ(RegSetValueExW(metrics_->key, name, 0, type, data.data(), static_cast<DWORD>(data.size())), 0);
  }

  const qntest::ScratchFolder folder_;
  HQNMETRIC metrics_ = nullptr;
};

TEST_F(MetricTest, TheDefaultHandleReadsAndWritesNumbersAlone) {
  BYTE data[4] = {1, 2, 3, 4};
  DWORD size = 7;
  const HQNMETRIC own = QNMETRIC_DEFAULT;
  for (const HQNMETRIC handle : {own, HQNMETRIC{}}) {  // an empty key, and none
    EXPECT_EQ(QnGetMetricEx(handle, 5, 0, 10, 99), handle ? 10 : 99);
    EXPECT_EQ(QnGetMetricBinaryEx(handle, 5, data, 4, &size), handle ? 1 : QN_E_NOT_FOUND);
    EXPECT_TRUE(size == 0 && data[3] == 0);
    EXPECT_EQ(QnGetMetricAny(handle, 5, 4, data, 4, &size), handle ? 0 : E_UNEXPECTED);
    EXPECT_EQ(QnSetMetricBinary(handle, 5, data, 4), E_FAIL);
    EXPECT_TRUE(QnSetMetricString(handle, 5, u"") == E_FAIL && QnDeleteMetric(handle, 5, 4) == 1);
    EXPECT_EQ(QnMetric_OpenSubKey(&metrics_, handle, u"x"), E_FAIL);
    EXPECT_TRUE(QnMetric_Close(handle) == 0 && QnMetric_CloseAndDeleteKey(handle) == E_FAIL);
  }
  EXPECT_FALSE(std::filesystem::exists(folder_.Native("user")));
  std::vector<std::thread> threads;
  for (LONG id = 1; id <= 6; ++id)
    threads.emplace_back([=] {
      EXPECT_TRUE(QnGetMetric(own, id) == 0 && QnSetMetric(own, -id, id) == 0 && QnGetMetric(own, id) == id);
    });
  for (std::thread& thread : threads) thread.join();
  const WCHAR path[] = u"Software\\Marlow Creative Works\\Marlow Studio\\2026.0\\Metrics\\Kernel";
  QnMetric_OpenAppVersion(&metrics_, path, nullptr);
  EXPECT_EQ(QnGetMetricUsingName(metrics_, u"5", 0), 5);
}

TEST_F(MetricTest, PathsAndDeletion) {
  const Text root = u"Software\\Marlow Creative Works\\";
  const Text longest(260 - root.size() - 9, u'n');  // with "\Metrics" and a terminator
  const struct {
    DWORD version;
    Text application;
    const WCHAR* subKey;
    Text path;
  } rows[] = {{0x00100000, u"App", u"Sub", root + u"App\\1.0\\Metrics\\Sub"},
              {0x7EA30000, u"App", u"", root + u"App\\2026.3\\Metrics"},
              {0x0003FFFF, longest, nullptr, root + longest + u"\\Metrics"},
              {0, longest + u"n", nullptr, u""},
              {0, u"\\", u"Sub", u""},
              {0x00100000, u"App", u"\\", u""}};
  for (const auto& row : rows) {
    const WCHAR* const name = row.application.c_str();
    HQNMETRIC handle = nullptr;
    EXPECT_EQ(SUCCEEDED(QnMetric_Open(&handle, name, row.version, row.subKey)), !row.path.empty());
    EXPECT_EQ(handle->path, row.path);
    EXPECT_EQ(QnSetMetric(handle, 1, 2), row.path.empty() ? E_FAIL : 0);
    QnMetric_Close(handle);
    EXPECT_EQ(SUCCEEDED(QnMetric_DeleteKey(name, row.version, row.subKey)), !row.path.empty());
    EXPECT_TRUE(row.path.empty() || !HasKey(kUser, row.path));
  }
  EXPECT_TRUE(FAILED(QnMetric_DeleteAll(u"", 0)) && FAILED(QnMetric_DeleteUserMetrics(nullptr, 0)));
  Open();
  HQNMETRIC other = nullptr;
  EXPECT_EQ(QnMetric_OpenSubKey(&other, metrics_, u"Other"), 0);
  EXPECT_EQ(Text(other->path), root + u"App\\1.0\\Metrics\\Other");
  EXPECT_EQ(QnMetric_CloseAndDeleteKey(other), 0);
  EXPECT_FALSE(HasKey(kUser, root + u"App\\1.0\\Metrics\\Other"));
  QnMetric_OpenAppVersion(&other, u"\\", nullptr);
  QnMetric_CloseAndDeleteKey(other);
  EXPECT_TRUE(HasKey(kUser, metrics_->path));
  HKEY machine = nullptr;
  RegCreateKeyW(HKEY_LOCAL_MACHINE, (root + u"App\\1.0\\x").c_str(), &machine);
  EXPECT_EQ(QnMetric_DeleteUserMetrics(u"App", 0x00100000), 0);
  EXPECT_TRUE(HasKey(HKEY_LOCAL_MACHINE, root + u"App\\1.0") && !HasKey(kUser, root + u"App\\1.0"));
  EXPECT_EQ(QnMetric_DeleteAll(u"App", 0x00100000), 0);
  EXPECT_FALSE(HasKey(HKEY_LOCAL_MACHINE, root + u"App\\1.0"));
  EXPECT_EQ(QnSetMetricUsingName(metrics_, u"1", 2), MakeStatus(0x800703FA));
}

TEST_F(MetricTest, NamesAndNumbers) {
  Open();
  const WCHAR* const marked[] = {u"Z7", u"S7", u"Z7", u"B7", u"D7"};
  for (DWORD type = 0; type < 5; ++type) {
    WCHAR text[13];
    QnMetricGetName(-7, type, text);
    EXPECT_EQ(Text(text), marked[type]);
    for (const DWORD other : {1u, 0u}) {
      Store(type == 4 ? u"7" : marked[type], type + other, {1, 2, 3, 4});
      EXPECT_EQ(QnDoesMetricExist(metrics_, -7, type), static_cast<HRESULT>(other));
    }
    EXPECT_EQ(QnGetMetricEx(metrics_, 7, 0, 0, 5), type == 4 ? 0x04030201 : 5);
    for (const HRESULT status : {S_OK, E_FAIL}) EXPECT_EQ(QnDeleteMetric(metrics_, 7, type), status);
  }
  for (const LONG id : {INT32_MIN, INT32_MAX, 1})
    EXPECT_TRUE(QnSetMetric(metrics_, id, id) == 0 && QnGetMetric(metrics_, id) == id);
  const LONG rows[][4] = {{0, 0, 7, 1}, {-10, 0, 7, 0}, {200, 300, 7, 200}, {300, 50, 7, 50}};
  for (const auto& row : rows) EXPECT_EQ(QnGetMetricEx(metrics_, 1, row[0], row[1], row[2]), row[3]);
  Store(u"1", REG_DWORD, {1, 2});
  EXPECT_TRUE(QnGetMetric(metrics_, 1) == 0 && QnGetMetricBool(metrics_, 1, 6) == 1);
}

// Rooms have 0xEE behind them, which stays.
TEST_F(MetricTest, Texts) {
  Open();
  const struct {
    DWORD stored, room;  // bytes of "abcdefgh" without its terminator; characters
    const WCHAR* defaultText;
    BOOL emptyIsValue;
    int result;
    Text text;
  } rows[] = {{8, 6, nullptr, 0, 3, u"abcd"}, {8, 4, u"d", 0, 3, u"abc"}, {8, 3, u"def", 0, 2, u"de"},
              {7, 3, u"def", 0, 2, u"de"},    {2, 4, u"def", 1, 0, u"a"}, {2, 4, u"def", 0, 3, u"def"},
              {2, 4, nullptr, 0, 0, u""},     {0, 6, u"de", 1, 2, u"de"}, {2, 0, u"def", 1, 0, u""}};
  const auto* const bytes = reinterpret_cast<const uint8_t*>(u"abcdefgh");
  for (auto row : rows) {
    Store(u"S4", REG_SZ, Bytes(bytes, bytes + row.stored));
    Text room(row.room + 1, u'\xEEEE');
    EXPECT_EQ(QnGetMetricStringEx(metrics_, 4, room.data(), row.room, row.defaultText, row.emptyIsValue),
              row.result);
    row.text.resize(row.room);
    EXPECT_EQ(room, row.text + u'\xEEEE');
  }
  WCHAR text[8];
  EXPECT_EQ(QnSetMetricString(metrics_, 4, u"abc") | QnSetMetricMultiString(metrics_, 4, u"a\0bc\0", 6), 0);
  EXPECT_EQ(QnGetMetricStringEx(metrics_, 4, text, 4, nullptr, 0), 3);
  EXPECT_EQ(QnGetMetricMultiStringEx(metrics_, 4, text, 8, nullptr, 0), 5);
  EXPECT_EQ(Text(text, 8), Text(u"a\0bc\0\0\0", 8));
  EXPECT_EQ(QnGetMetricMultiStringEx(metrics_, 40, text, 3, u"ab", 0), 2);  // fills the room but for one
}

TEST_F(MetricTest, AnyAndBinary) {
  Open();
  constexpr HRESULT kSmall = QN_E_BUFFER_TOO_SMALL;
  const struct {
    DWORD type, room;
    Bytes stored;
    HRESULT result;
    DWORD size;
    Bytes after;  // the room
  } rows[] = {{3, 4, {1, 2, 3}, 0, 3, {1, 2, 3, 9}},
              {9, 4, {1, 2, 3}, QN_E_NOT_FOUND, 7, {1, 2, 3, 9}},
              {9, 2, {1, 2, 3}, kSmall, 3, {9, 9}},
              {1, 4, {1, 2}, 0, 2, {1, 2, 0, 0}},
              {1, 5, {1, 2, 3}, 0, 3, {1, 2, 3, 0, 0}},
              {1, 4, {1, 2, 3}, kSmall, 5, {1, 0, 0, 9}},
              {1, 2, {1, 2}, 0, 2, {1, 2}},
              {1, 4, {1, 2, 0, 0}, 0, 4, {1, 2, 0, 0}},
              {1, 4, {1, 2, 3, 0}, kSmall, 6, {1, 2, 0, 0}},
              {1, 0, {1, 2, 3, 4}, 0, 4, {}}};
  for (const auto& row : rows) {
    Store(u"7", row.type, row.stored);
    Bytes room(row.room, 9);
    DWORD size = 7;
    EXPECT_EQ(QnGetMetricAny(metrics_, 7, 9, row.room ? room.data() : nullptr, row.room, &size), row.result);
    EXPECT_EQ(size, row.size);
    EXPECT_EQ(room, row.after);
  }
  for (const DWORD type : {REG_BINARY, REG_SZ}) {
    Store(u"B8", type, {1, 2, 3});
    for (const DWORD count : {2u, 3u, 5u}) {
      const bool small = count < 3, good = !small && type == REG_BINARY;
      DWORD size = 7;
      Bytes room(count, 9), plain(count, 9), expected = good ? Bytes{1, 2, 3} : Bytes{};
      expected.resize(count);
      EXPECT_EQ(QnGetMetricBinaryEx(metrics_, 8, room.data(), count, &size), small ? kSmall : good ? 0 : 1);
      EXPECT_EQ(size, small || good ? 3u : 0u);
      EXPECT_EQ(QnGetMetricBinary(metrics_, 8, plain.data(), count), good ? 3u : 0u);
      EXPECT_TRUE(room == expected && plain == expected);
    }
  }
}

TEST_F(MetricTest, Streams) {
  Open();
  BYTE memory[3000], copy[3000];
  std::fill_n(memory, 3000, BYTE{5});
  constexpr std::array<DWORD, 3> rows[] = {
      {2048, 3000, 0}, {2048, 100, 0}, {2049, 3000, 0x80070057}, {0, 9, 0x8000FFFF}};
  for (const auto& [position, used, expected] : rows) {
    IStream *from, *to;
    QnCreateStreamFromMemory(memory, 3000u, used, &from, TRUE);
    QnCreateStreamFromMemory(copy, position ? position : 1, 0u, &to, FALSE);
    from->Seek({.QuadPart = position}, STREAM_SEEK_SET, nullptr);
    EXPECT_EQ(QnSetMetricStream(metrics_, 1, from), MakeStatus(expected));
    EXPECT_EQ(QnGetMetricStream(metrics_, 1, to), position ? 0 : E_UNEXPECTED);
    for (DWORD i = 0; i < position && expected == 0; ++i) ASSERT_EQ(copy[i], i < used ? 5 : 0);
    IQnProtectedStream* foreign = nullptr;
    QnProtectedStream_CreateFromStream(from, &foreign);
    EXPECT_EQ(QnSetMetricStream(metrics_, 1, foreign), position ? E_INVALIDARG : E_UNEXPECTED);
    EXPECT_EQ(foreign->Release() + from->Release() + to->Release(), 0u);
  }
}

// A killed writer, a full disk and two writers at once leave whole values.
TEST_F(MetricTest, ValuesAreOldOrNew) {
  Open();
  auto& reported = *static_cast<std::atomic<LONG>*>(
      mmap(nullptr, 64, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  for (int round = 0; round < 4; ++round) {
    reported = 0;
    const pid_t child = Fork([&] {
      for (LONG i = 1; QnSetMetric(metrics_, 1, i) == 0; reported = i++) continue;
    });
    const LONG last = 40 + static_cast<LONG>(qntest::Random()() % 50);
    while (reported < last && waitpid(child, nullptr, WNOHANG) == 0) usleep(100);
    kill(child, SIGKILL);
    Wait(child);
    const LONG number = QnGetMetric(metrics_, 1);
    EXPECT_TRUE(number == reported || number == reported + 1);
  }
  const Text old(20'000, u'o'), larger(300'000, u'n');
  EXPECT_EQ(QnSetMetricString(metrics_, 1, old.c_str()), 0);
  Text room(400'000, u' ');
  EXPECT_EQ(Wait(Fork([&] {
              signal(SIGXFSZ, SIG_IGN);
              const rlimit limit = {300'000, 300'000};
              setrlimit(RLIMIT_FSIZE, &limit);
              EXPECT_EQ(QnSetMetricString(metrics_, 1, larger.c_str()), E_FAIL);
            })),
            0);
  EXPECT_EQ(QnGetMetricStringEx(metrics_, 1, room.data(), 400'000, nullptr, 0), 20'000);
  const auto write = [&](LONG from) {
    for (LONG id = from; id < from + 50; ++id)
      EXPECT_TRUE(QnSetMetric(metrics_, id, id) == 0 && QnSetMetric(QNMETRIC_DEFAULT, id, id) == 0);
  };
  const pid_t child = Fork([&] { write(100); });
  write(150);
  EXPECT_EQ(Wait(child), 0);
  for (LONG id = 100; id < 200; ++id)
    EXPECT_TRUE(QnGetMetric(metrics_, id) == id && QnGetMetric(QNMETRIC_DEFAULT, id) == id);
}

}  // namespace
