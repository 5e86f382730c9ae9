#include "qn/settings/qnmetric.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

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
  EXPECT_EQ(QnGetMetricEx(own, 5, 0, 10, 99), 10);  // an empty key, not a missing one
  EXPECT_EQ(QnGetMetricEx(nullptr, 5, 0, 10, 99), 99);
  EXPECT_EQ(QnGetMetricBinaryEx(own, 5, data, 4, &size), 1);
  EXPECT_TRUE(size == 0 && data[3] == 0);
  EXPECT_EQ(QnGetMetricBinaryEx(nullptr, 5, data, 4, &size), QN_E_NOT_FOUND);
  EXPECT_EQ(QnGetMetricAny(own, 5, 4, data, 4, &size), 0);
  EXPECT_EQ(QnGetMetricAny(nullptr, 5, 4, data, 4, &size), E_UNEXPECTED);
  EXPECT_FALSE(std::filesystem::exists(folder_.Native("user")));

  std::vector<std::thread> threads;
  for (LONG id = 1; id <= 6; ++id) {
    threads.emplace_back([=] {
      EXPECT_TRUE(QnGetMetric(own, id) == 0 && QnSetMetric(own, -id, 10 * id) == 0);
      EXPECT_EQ(QnGetMetric(own, id), 10 * id);
    });
  }
  for (std::thread& thread : threads) thread.join();
  const WCHAR path[] = u"Software\\Marlow Creative Works\\Marlow Studio\\2026.0\\Metrics\\Kernel";
  QnMetric_OpenAppVersion(&metrics_, path, nullptr);
  EXPECT_EQ(QnGetMetricUsingName(metrics_, u"5", 0), 50);
  EXPECT_TRUE(QnSetMetricUsingName(own, u"x", 3) == 0 && QnGetMetricUsingName(own, u"x", 0) == 3);

  IStream* stream = nullptr;
  QnCreateStreamFromMemory(data, 4u, 4u, &stream, FALSE);
  stream->Seek({}, STREAM_SEEK_END, nullptr);
  for (const HQNMETRIC none : {own, HQNMETRIC{}}) {
    EXPECT_EQ(QnSetMetricBinary(none, 5, data, 4), E_FAIL);
    EXPECT_EQ(QnSetMetricStream(none, 5, stream), E_FAIL);
    EXPECT_EQ(QnSetMetricString(none, 5, u"x"), E_FAIL);
    EXPECT_EQ(QnSetMetricMultiString(none, 5, u"x\0", 3), E_FAIL);
    EXPECT_EQ(QnDeleteMetric(none, 5, 4) + QnDeleteMetricUsingName(none, u"5", 4), 2);
    HQNMETRIC sibling = own;
    EXPECT_EQ(QnMetric_OpenSubKey(&sibling, none, u"x"), E_FAIL);
    EXPECT_TRUE(QnMetric_Close(none) == 0 && QnMetric_CloseAndDeleteKey(none) == E_FAIL && !sibling);
  }
  stream->Release();
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
              {0x0003FFFF, u"App", nullptr, root + u"App\\Metrics"},
              {0, longest, nullptr, root + longest + u"\\Metrics"},
              {0, longest + u"n", nullptr, u""},
              {0, u"", u"Sub", u""},
              {0, u"\\", u"Sub", u""},
              {0x00100000, u"App", u"\\", u""}};
  for (const auto& row : rows) {
    const WCHAR* const name = row.application.c_str();
    HQNMETRIC handle = nullptr;
    EXPECT_EQ(SUCCEEDED(QnMetric_Open(&handle, name, row.version, row.subKey)), !row.path.empty());
    EXPECT_TRUE(handle->path == row.path && !handle->key == row.path.empty());
    EXPECT_EQ(QnSetMetric(handle, 1, 2), row.path.empty() ? E_FAIL : 0);
    QnMetric_Close(handle);
    EXPECT_EQ(SUCCEEDED(QnMetric_DeleteKey(name, row.version, row.subKey)), !row.path.empty());
    EXPECT_TRUE(row.path.empty() || !HasKey(kUser, row.path));
  }
  EXPECT_TRUE(FAILED(QnMetric_DeleteAll(u"", 0)) && FAILED(QnMetric_DeleteUserMetrics(nullptr, 0)));
  EXPECT_TRUE(HasKey(kUser, root + u"App\\1.0\\Metrics"));

  Open();
  HQNMETRIC sibling = nullptr;
  EXPECT_EQ(QnMetric_OpenSubKey(&sibling, metrics_, u"Other"), 0);
  EXPECT_EQ(Text(sibling->path), root + u"App\\1.0\\Metrics\\Other");
  EXPECT_EQ(QnMetric_CloseAndDeleteKey(sibling), 0);
  EXPECT_FALSE(HasKey(kUser, root + u"App\\1.0\\Metrics\\Other"));
  for (const WCHAR* path : {u"", u"\\"}) {
    EXPECT_EQ(QnMetric_OpenAppVersion(&sibling, path, nullptr), 0);
    QnMetric_CloseAndDeleteKey(sibling);
  }
  HKEY machine = nullptr;
  RegCreateKeyW(HKEY_LOCAL_MACHINE, (root + u"App\\1.0\\x").c_str(), &machine);
  EXPECT_TRUE(HasKey(kUser, metrics_->path));
  EXPECT_EQ(QnMetric_DeleteUserMetrics(u"App", 0x00100000), 0);
  EXPECT_TRUE(HasKey(HKEY_LOCAL_MACHINE, root + u"App\\1.0") && !HasKey(kUser, root + u"App\\1.0"));
  EXPECT_EQ(QnMetric_DeleteAll(u"App", 0x00100000), 0);
  EXPECT_FALSE(HasKey(HKEY_LOCAL_MACHINE, root + u"App\\1.0"));
  EXPECT_TRUE(QnSetMetric(metrics_, 1, 2) == E_FAIL && QnGetMetricEx(metrics_, 1, 0, 9, 10) == 9);
  EXPECT_EQ(QnSetMetricUsingName(metrics_, u"1", 2), MakeStatus(0x800703FA));
}

TEST_F(MetricTest, NamesAndNumbers) {
  Open();
  const WCHAR* const marked[] = {u"Z7", u"S7", u"Z7", u"B7", u"D7"};
  for (DWORD type = 0; type < 5; ++type) {
    const Text name = type == 4 ? u"7" : marked[type];
    WCHAR text[13];
    QnMetricGetName(-7, type, text);
    EXPECT_EQ(Text(text), marked[type]);
    EXPECT_EQ(QnDoesMetricExist(metrics_, 7, type), 1);
    Store(name.c_str(), type + 1, {1, 2, 3, 4});
    EXPECT_EQ(QnDoesMetricExist(metrics_, 7, type), 1);
    Store(name.c_str(), type, {1, 2, 3, 4});
    EXPECT_EQ(QnDoesMetricExist(metrics_, -7, type), 0);
    EXPECT_EQ(QnGetMetricEx(metrics_, 7, 0, 0, 5), type == 4 ? 0x04030201 : 5);
    EXPECT_EQ(QnDeleteMetric(metrics_, 7, type), 0);
    EXPECT_EQ(QnDeleteMetric(metrics_, 7, type), E_FAIL);
  }
  for (const LONG id : {INT32_MIN, INT32_MAX}) EXPECT_EQ(QnSetMetric(metrics_, id, id), 0);
  EXPECT_TRUE(QnGetMetric(metrics_, INT32_MIN) == INT32_MIN &&
              QnGetMetric(metrics_, -INT32_MAX) == INT32_MAX);
  QnSetMetric(metrics_, 1, 100);
  const LONG rows[][4] = {{0, 0, 7, 100}, {0, 10, 7, 10}, {200, 300, 7, 200}, {300, 50, 7, 50}};
  for (const auto& row : rows) EXPECT_EQ(QnGetMetricEx(metrics_, 1, row[0], row[1], row[2]), row[3]);
  Store(u"1", REG_DWORD, {1, 2});
  EXPECT_TRUE(QnGetMetric(metrics_, 1) == 0 && QnGetMetricBool(metrics_, 1, 6) == 1);
}

// Rooms have 0xEE behind them, which stays.
TEST_F(MetricTest, Texts) {
  Open();
  const struct {
    DWORD stored;  // bytes of "abcdefgh" that are stored, without a terminator of their own
    DWORD room;
    const WCHAR* defaultText;
    BOOL emptyIsValue;
    int result;
    Text text, multiText;
  } rows[] = {{8, 6, nullptr, 0, 3, u"abcd", u"abcd"}, {8, 4, u"d", 0, 3, u"abc", u"ab"},
              {8, 3, u"def", 0, 2, u"de", u"d"},       {7, 4, u"d", 0, 2, u"abc", u"ab"},
              {3, 4, u"d", 0, 0, u"ab", u"ab"},        {2, 4, u"def", 1, 0, u"a", u"a"},
              {2, 4, u"def", 0, 3, u"def", u"de"},     {2, 4, nullptr, 0, 0, u"", u""},
              {0, 6, u"def", 1, 3, u"def", u"def"},    {2, 0, u"def", 1, 0, u"", u""}};
  for (const auto& row : rows) {
    for (const DWORD type : {REG_SZ, REG_MULTI_SZ}) {
      const bool multi = type == REG_MULTI_SZ;
      const auto* const bytes = reinterpret_cast<const uint8_t*>(u"abcdefgh");
      Store(multi ? u"Z4" : u"S4", type, Bytes(bytes, bytes + row.stored));
      Text room(row.room + 1, u'\xEEEE');
      const auto read = multi ? QnGetMetricMultiStringEx : QnGetMetricStringEx;
      const int result =
          read(metrics_, 4, row.room ? room.data() : nullptr, row.room, row.defaultText, row.emptyIsValue);
      Text expected = multi ? row.multiText : row.text;
      const bool isDefault = row.defaultText && expected == Text(row.defaultText).substr(0, expected.size());
      EXPECT_EQ(result, isDefault ? static_cast<int>(expected.size()) : row.result);
      if (row.stored % 2 && row.room > 3) room[row.stored / 2] = expected[row.stored / 2];
      expected.resize(row.room);
      EXPECT_EQ(room, expected + u'\xEEEE');
    }
  }
  WCHAR text[8];
  EXPECT_EQ(QnSetMetricString(metrics_, 4, u"abc") | QnSetMetricString(metrics_, 5, nullptr), 0);
  EXPECT_EQ(QnSetMetricMultiString(metrics_, 4, u"a\0bc\0", 6), 0);
  EXPECT_EQ(QnGetMetricStringEx(metrics_, 4, text, 4, nullptr, 0), 3);
  EXPECT_EQ(QnGetMetricStringEx(metrics_, 5, text, 4, u"d", 1), 0);
  EXPECT_EQ(QnGetMetricMultiStringEx(metrics_, 4, text, 8, nullptr, 0), 5);
  EXPECT_EQ(Text(text, 8), Text(u"a\0bc\0\0\0", 8));
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
  const Bytes stored = {1, 2, 3};
  DWORD size = 0;
  EXPECT_EQ(QnSetMetricBinary(metrics_, 8, stored.data(), 3), 0);
  for (const DWORD type : {REG_BINARY, REG_SZ}) {
    Store(u"B8", type, stored);
    for (const DWORD count : {2u, 3u, 5u}) {
      Bytes room(count, 9), plain(count, 9), expected = type == REG_BINARY && count > 2 ? stored : Bytes();
      const auto read = static_cast<DWORD>(expected.size());
      expected.resize(count);
      EXPECT_EQ(QnGetMetricBinaryEx(metrics_, 8, room.data(), count, &size), count < 3 ? kSmall
                                                                             : read    ? 0
                                                                                       : 1);
      EXPECT_EQ(size, count < 3 ? 3 : read);
      EXPECT_EQ(QnGetMetricBinary(metrics_, 8, plain.data(), count), read);
      EXPECT_TRUE(room == expected && plain == expected);
    }
  }
  EXPECT_EQ(QnGetMetricBinaryEx(metrics_, 8, nullptr, 9, nullptr), E_INVALIDARG);
}

TEST_F(MetricTest, Streams) {
  Open();
  BYTE memory[3000], copy[3000] = {};
  for (size_t i = 0; i < sizeof memory; ++i) memory[i] = static_cast<BYTE>(i % 251 + 1);
  // The data end at `used`, where the stream is not read beyond.
  for (const auto& [position, used, capacity, expected] :
       std::initializer_list<std::array<DWORD, 4>>{{2048, 3000, 2048, 0},
                                                   {2048, 100, 2048, 0},
                                                   {2049, 3000, 2048, 0x80070057},
                                                   {0, 9, 9, 0x8000FFFF}}) {
    IStream *from, *to;
    QnCreateStreamFromMemory(memory, DWORD{sizeof memory}, used, &from, TRUE);
    QnCreateStreamFromMemory(copy, capacity, 0u, &to, FALSE);
    from->Seek({.QuadPart = position}, STREAM_SEEK_SET, nullptr);
    EXPECT_EQ(QnSetMetricStream(metrics_, 1, from), MakeStatus(expected));
    if (expected == 0) {
      EXPECT_EQ(QnGetMetricStream(metrics_, 1, to), 0);
      for (DWORD i = 0; i < position; ++i) ASSERT_EQ(copy[i], i < used ? memory[i] : 0);
      EXPECT_EQ(QnGetMetricStream(metrics_, 2, to), E_UNEXPECTED);
      IQnProtectedStream* foreign = nullptr;
      QnProtectedStream_CreateFromStream(from, &foreign);
      EXPECT_EQ(QnSetMetricStream(metrics_, 1, foreign), E_INVALIDARG);
      foreign->Release();
    }
    EXPECT_EQ(from->Release() + to->Release(), 0u);
  }
  IStream* small = nullptr;
  QnCreateStreamFromMemory(copy, 2047u, 0u, &small, FALSE);
  EXPECT_EQ(QnGetMetricStream(metrics_, 1, small), E_UNEXPECTED);
  small->Release();
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
