#include "qn/kernel/qnmemtoken.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <optional>
#include <string>

#include "qn/settings/qnstatus.h"
#include "tests/kernel/token_peer.h"

namespace {

using qn::ProcessAccess;
using qntest::Memory;
using qntest::Peer;
using qntest::Reply;
using qntest::Request;
using qntest::Work;

constexpr DWORD kWrite = FILE_MAP_WRITE;
constexpr DWORD kRead = FILE_MAP_READ;
constexpr uint32_t kSize = 300'000;

// A peer in a process of its own.
class Helper {
 public:
  explicit Helper(const char* user = nullptr) {
    int to[2], from[2];
    if (pipe2(to, O_CLOEXEC) != 0 || pipe2(from, O_CLOEXEC) != 0) std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, to[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, from[1], STDOUT_FILENO);
    std::string words[] = {TOKEN_HELPER, user ? user : ""};
    char* arguments[] = {words[0].data(), user ? words[1].data() : nullptr, nullptr};
    if (posix_spawn(&id_, TOKEN_HELPER, &actions, nullptr, arguments, environ) != 0) std::abort();
    posix_spawn_file_actions_destroy(&actions);
    close(to[0]);
    close(from[1]);
    to_ = to[1];
    from_ = from[0];
  }
  ~Helper() {
    close(to_);
    close(from_);
    if (id_ > 0) waitpid(id_, nullptr, 0);
  }
  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;

  Reply Do(const Request& request) {
    Reply reply = {};
    if (write(to_, &request, sizeof request) != sizeof request ||
        read(from_, &reply, sizeof reply) != sizeof reply) {
      ADD_FAILURE() << "the helper has gone";
    }
    return reply;
  }
  void Stop() {
    kill(id_, SIGSTOP);
    waitpid(id_, nullptr, WUNTRACED);
  }
  void Continue() { kill(id_, SIGCONT); }
  void Kill(bool isReaped = true) {
    kill(id_, SIGKILL);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(id_), &info, WEXITED | (isReaped ? 0 : WNOWAIT));
    if (isReaped) id_ = 0;
  }

 private:
  pid_t id_ = 0;
  int to_, from_;
};

// Lets `owner` have memory that `asker` opens, changes and gives back, and holds what both see against what
// the access, the kind of memory and the system's permission make of it.
template <class Owner, class Asker>
void Exchange(Owner& owner, Asker& asker) {
  for (const Memory memory : {Memory::kLow, Memory::kHigh, Memory::kMapping})
    for (const int direct : {0, 1})
      for (const DWORD access : {kWrite, kRead, kWrite | kRead, DWORD{0}})
        for (const auto allowed : {ProcessAccess::kFull, ProcessAccess::kSocket, ProcessAccess::kNone}) {
          SCOPED_TRACE(testing::Message() << "memory " << int(memory) << " direct " << direct << " access "
                                          << access << " allowed " << int(allowed));
          Request request = {.memory = memory, .size = kSize, .access = access, .direct = direct, .value = 1};
          const auto ask = [&](auto& peer, Work work) {
            request.work = work;
            return peer.Do(request);
          };
          const bool isMirrored = memory == Memory::kHigh && !direct;
          const bool isShared = memory == Memory::kMapping || isMirrored;
          const bool reads = access != kWrite, writes = access != kRead;
          ASSERT_EQ(ask(owner, Work::kMake).status, S_OK);
          const Reply given = ask(owner, Work::kWrap);
          ASSERT_EQ(given.status, S_OK);
          request.token = given.token;
          EXPECT_EQ(given.token.kind, DWORD{isShared});
          EXPECT_EQ(given.token.size, kSize);
          EXPECT_EQ(given.token.offset, isMirrored ? 0 : Peer::kOffset);

          request.allowed = allowed;
          const bool isReached = isShared ? allowed != ProcessAccess::kNone : allowed == ProcessAccess::kFull;
          const bool opens = isReached || (!isShared && !reads);
          const Reply opened = ask(asker, Work::kOpen);
          EXPECT_EQ(opened.status, opens ? S_OK : E_FAIL);
          EXPECT_EQ(opened.size, opens ? LONG{kSize} : -1);
          const bool showsData = opens && (reads || memory == Memory::kMapping);
          EXPECT_EQ(opened.first + opened.last, showsData ? 2 : 0);
          request.value = 2;
          if (opens && writes) ask(asker, Work::kPut);
          ask(asker, Work::kDispose);

          const HRESULT copied = isReached ? S_OK : E_ACCESSDENIED;
          EXPECT_EQ(ask(asker, Work::kCopyOut).status, copied);
          request.value = 3;
          request.size = 1;
          EXPECT_EQ(ask(asker, Work::kCopyIn).status, copied);
          request.allowed = ProcessAccess::kFull;
          ask(owner, Work::kUnwrap);
          const Reply seen = ask(owner, Work::kLook);
          const bool returns = isReached && (!isMirrored || writes);
          // A mirror that is only written starts with zeros, and comes back with what nobody has written.
          const int untouched = isMirrored && !reads ? 0 : 1;
          EXPECT_EQ(int(seen.first), returns ? 3 : untouched);
          EXPECT_EQ(int(seen.last), isReached && writes ? 2 : untouched);
          ask(owner, Work::kFree);
        }
}

TEST(MemoryToken, PassesBetweenProcessesBothWays) {
  Peer here;
  Helper there;
  const Request count = {.work = Work::kCount};
  std::vector<ptrdiff_t> before;
  for (int round = 0; round < 2; ++round) {
    Exchange(here, there);
    Exchange(there, here);
    const Reply mine = here.Do(count), others = there.Do(count);
    const std::vector now = {mine.descriptors, mine.threads, others.descriptors, others.threads};
    if (round == 1) {
      EXPECT_EQ(now, before) << "something stays behind";
    }
    before = now;
  }
}

TEST(MemoryToken, OfTheOwnProcessIsTheMemoryItself) {
  char bytes[] = "0123456789", copy[16] = {};
  _qnmemorytoken token = {-1, reinterpret_cast<uintptr_t>(bytes), 4, 10, 3, 7, GetCurrentProcessId()};
  CMappingOfQnMemoryToken mapping(token, 0);
  void* pointer = nullptr;
  EXPECT_EQ(mapping.GetPointer(&pointer), S_OK);
  EXPECT_EQ(pointer, bytes + 3);
  EXPECT_EQ(mapping.GetPointer(nullptr), E_POINTER);
  EXPECT_EQ(mapping.DataSize(), 4);
  EXPECT_EQ(mapping.mapped | mapping.copied | mapping.failed | mapping.writeBack, 0);
  mapping.Dispose();
  EXPECT_EQ(mapping.GetPointer(&pointer), E_FAIL);
  EXPECT_TRUE(!pointer && mapping.DataSize() == -1 && mapping.duplicate == INVALID_HANDLE_VALUE);

  using Mapping = CMappingOfQnMemoryToken;
  EXPECT_EQ(Mapping::CopyData(nullptr, token, 0), E_POINTER);
  EXPECT_EQ(Mapping::CopyData(copy, token, 3), QN_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(Mapping::CopyData(copy, token, -1), QN_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(Mapping::CopyData(copy, token, 16), S_OK);
  EXPECT_STREQ(copy, "3456");
  EXPECT_EQ(Mapping::CopyData(token, nullptr, -1), E_POINTER);
  EXPECT_EQ(Mapping::CopyData(token, "abcde", 5), QN_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(Mapping::CopyData(token, "abcde", -1), E_INVALIDARG);
  EXPECT_EQ(Mapping::CopyData(token, "abcde", 2), S_OK);
  EXPECT_STREQ(bytes, "012ab56789");

  // A mirror that is copied as members goes once.
  token.kind = QNMEMORYTOKEN_PROCESS;
  _qnmemorytoken given = {};
  {
    COutOfProcessMemoryToken first(token, 0, 0), second(first);
    ASSERT_EQ(second.GetMemoryToken(given), S_OK);
    std::memcpy(reinterpret_cast<void*>(given.address), "WXYZ", 4);
  }
  EXPECT_STREQ(bytes, "012WXYZ789");
}

TEST(MemoryToken, TokensThatLieAreRefused) {
  Helper owner;
  Request request = {.work = Work::kMake, .memory = Memory::kMapping, .size = kSize};
  owner.Do(request);
  request.work = Work::kWrap;
  const _qnmemorytoken shared = owner.Do(request).token;
  constexpr uint64_t kMost = UINT64_MAX;
  const struct {
    int64_t handle;
    uint64_t address;
    uint32_t size;
    uint64_t offset;
    uint32_t kind, process;
    DWORD access;
  } rows[] = {
      {shared.handle, 0, kSize, Peer::kOffset + 1, 1, shared.processId, kRead},
      {shared.handle, 0, kSize, kMost - 5, 1, shared.processId, kRead},
      {shared.handle, 0, 0, kMost, 1, shared.processId, kRead},
      {shared.handle, 0, 0xFFFFFFFF, 0, 1, shared.processId, kWrite},
      {shared.handle + 1, 0, 1, 0, 1, shared.processId, kRead},
      {shared.handle + 4, 0, 1, 0, 1, shared.processId, kRead},
      {-1, 0, 1, 0, 1, shared.processId, kRead},
      {0, 0, 1, 0, 1, shared.processId, kRead},
      {shared.handle, shared.address, 1, 0, 2, shared.processId, kRead},
      {0, kMost - 3, 2, 2, 0, shared.processId, kWrite},
      {0, shared.address, 0xFFFFFFFF, kMost - 5, 0, shared.processId, kRead},
      {0, shared.address, 1 << 26, 0, 0, shared.processId, kRead},
      {0, 0, 1, 0, 0, shared.processId, kRead},
      {0, kMost - 3, 1, 100, 0, GetCurrentProcessId(), kRead},
      {shared.handle, shared.address, 1, 0, 0, 0, kRead},
      {shared.handle, shared.address, 1, 0, 1, 0xFFFFFFFF, kRead},
      {shared.handle, shared.address, 1, 0, 1, 0x7FFFFFFF, kRead},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    const _qnmemorytoken token = {row.handle, row.address, row.size,   row.size,
                                  row.offset, row.kind,    row.process};
    const CMappingOfQnMemoryToken mapping(token, row.access);
    EXPECT_EQ(mapping.Pointer(), nullptr);
    char byte = 0;
    if (row.size == 1) {
      EXPECT_LT(CMappingOfQnMemoryToken::CopyData(&byte, token, 1), 0);
    }
    if (row.size == 1 || row.kind == QNMEMORYTOKEN_MAPPING) {
      EXPECT_LT(CMappingOfQnMemoryToken::CopyData(token, &byte, row.size > 0), 0);
    }
  }
  // No mapping has 0 bytes, so there is no mirror of them.
  _qnmemorytoken token = {0, kMost / 4, 0, 0, 0, 0, GetCurrentProcessId()}, kept = token;
  EXPECT_EQ(COutOfProcessMemoryToken(token, 0, 0).GetMemoryToken(token), E_FAIL);
  EXPECT_EQ(std::memcmp(&token, &kept, sizeof token), 0);
  EXPECT_EQ(COutOfProcessMemoryToken(token, 0, 1).GetMemoryToken(token), S_OK);
}

TEST(MemoryToken, OfClosedHandlesAndDeadOrStoppedOwnersFails) {
  for (const Memory memory : {Memory::kHigh, Memory::kMapping})
    for (const int step : {0, 1, 2, 3, 4}) {
      SCOPED_TRACE(testing::Message() << "memory " << int(memory) << " step " << step);
      Helper owner;
      Peer asker;
      Request request = {.memory = memory, .size = kSize, .access = 0, .direct = 1, .value = 1};
      const auto ask = [&](auto& peer, Work work) {
        request.work = work;
        return peer.Do(request);
      };
      ask(owner, Work::kMake);
      request.token = ask(owner, Work::kWrap).token;
      const bool isShared = memory == Memory::kMapping;
      if (step == 0) {  // dies before the opening
        owner.Kill(isShared);
        EXPECT_EQ(ask(asker, Work::kOpen).status, E_FAIL);
        EXPECT_EQ(ask(asker, Work::kCopyOut).status, E_FAIL);
        request.access = kWrite;
        EXPECT_EQ(ask(asker, Work::kOpen).status, isShared ? E_FAIL : S_OK);
      } else if (step == 1) {  // dies while it is open
        ASSERT_EQ(ask(asker, Work::kOpen).status, S_OK);
        owner.Kill(isShared);
        ask(asker, Work::kPut);
      } else if (step == 2 && isShared) {
        EXPECT_EQ(ask(owner, Work::kCloseHandle).status, S_OK);
        for (const auto allowed : {ProcessAccess::kFull, ProcessAccess::kSocket}) {
          request.allowed = allowed;
          EXPECT_EQ(ask(asker, Work::kOpen).status, E_FAIL);
          // With the last mapping the socket goes, and with it whoever knows that the handle is none.
          EXPECT_EQ(ask(asker, Work::kCopyOut).status,
                    allowed == ProcessAccess::kFull ? E_HANDLE : E_ACCESSDENIED);
        }
      } else if (step == 3 && isShared) {
        owner.Stop();
        request.allowed = ProcessAccess::kSocket;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(ask(asker, Work::kCopyOut).status, QN_E_BUSY);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
        owner.Continue();
        EXPECT_EQ(ask(asker, Work::kCopyOut).status, S_OK);
      } else if (step == 4 && geteuid() == 0) {  // another user asks
        Helper nobody("65534");
        Peer root;
        ask(root, Work::kMake);
        request.token = ask(root, Work::kWrap).token;
        EXPECT_EQ(ask(nobody, Work::kOpen).status, E_FAIL);
        EXPECT_EQ(ask(nobody, Work::kCopyOut).status, E_ACCESSDENIED);
        EXPECT_EQ(ask(nobody, Work::kCopyIn).status, E_ACCESSDENIED);
        EXPECT_EQ(int(ask(root, Work::kLook).first), 1);
        ask(root, Work::kUnwrap);
        ask(root, Work::kFree);
      }
      request.allowed = ProcessAccess::kFull;
      if (step == 0 || step == 1) ask(asker, Work::kDispose);
    }
}

TEST(MemoryToken, GoesUpToAllBytesOfItsSize) {
  Helper owner;
  Peer asker;
  for (const uint32_t size : {0u, 1u << 30, 0xFFFFFFFFu}) {
    Request request = {.memory = Memory::kMapping, .size = size, .access = kRead | kWrite, .value = 1};
    const auto ask = [&](auto& peer, Work work) {
      request.work = work;
      return peer.Do(request);
    };
    ask(owner, Work::kMake);
    request.token = ask(owner, Work::kWrap).token;
    const Reply opened = ask(asker, Work::kOpen);
    EXPECT_EQ(opened.status, S_OK);
    EXPECT_EQ(static_cast<uint32_t>(opened.size), size);
    EXPECT_EQ(opened.first + opened.last, size ? 2 : 0);
    request.value = 2;
    ask(asker, Work::kPut);
    EXPECT_EQ(int(ask(owner, Work::kLook).last), size ? 2 : 0);
    ask(asker, Work::kDispose);
    request.size = 1;
    EXPECT_EQ(ask(asker, Work::kCopyIn).status, size ? S_OK : QN_E_BUFFER_TOO_SMALL);
    ask(owner, Work::kFree);
  }
}

}  // namespace
