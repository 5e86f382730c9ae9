#include "qn/kernel/qnmemtoken.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "qn/settings/qnstatus.h"
#include "tests/kernel/token_peer.h"

namespace {

using qn::ProcessAccess;
using qntest::Memory;
using qntest::Peer;
using qntest::Reply;
using qntest::Request;
using qntest::Work;
using Mapping = CMappingOfQnMemoryToken;

constexpr DWORD kWrite = FILE_MAP_WRITE;
constexpr DWORD kRead = FILE_MAP_READ;
constexpr uint32_t kSize = 300'000;

// A peer in a process of its own.
class Helper {
 public:
  explicit Helper(const char* user = "0") {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
    id = fork();
    if (id == 0) {
      dup2(ends[1], STDIN_FILENO);
      execl(TOKEN_HELPER, TOKEN_HELPER, user, nullptr);
      _exit(1);
    }
    close(ends[1]);
    socket_ = ends[0];
  }
  ~Helper() {
    close(socket_);
    waitpid(id, nullptr, 0);
  }
  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;

  Reply Do(const Request& request) {
    Reply reply;
    EXPECT_EQ(send(socket_, &request, sizeof request, MSG_NOSIGNAL), ssize_t{sizeof request});
    EXPECT_EQ(recv(socket_, &reply, sizeof reply, 0), ssize_t{sizeof reply});
    return reply;
  }

  pid_t id;

 private:
  int socket_;
};

template <class Any>
Reply Ask(Any& peer, Work work, Request* request) {
  request->work = work;
  return peer.Do(*request);
}

// Lets `owner` have memory that `asker` opens, changes and gives back, and holds what both see against what
// the access, the kind of memory and the system's permission make of it.
template <class Owner, class Asker>
void Exchange(Owner& owner, Asker& asker) {
  for (int i = 0; i < 3 * 2 * 4 * 3; ++i) {
    const auto memory = static_cast<Memory>(i % 3);
    const auto allowed = static_cast<ProcessAccess>(i / 3 % 3);
    const DWORD access = static_cast<DWORD>(i) / 9 % 4 * 2;
    const int direct = i / 36;
    SCOPED_TRACE(testing::Message() << "memory " << int(memory) << " allowed " << int(allowed) << " access "
                                    << access << " direct " << direct);
    const bool isMirrored = memory == Memory::kHigh && !direct;
    const bool isShared = memory == Memory::kMapping || isMirrored;
    const bool reads = access != kWrite, writes = access != kRead;
    const bool isReached = isShared ? allowed != ProcessAccess::kNone : allowed == ProcessAccess::kFull;
    const bool opens = isReached || (!isShared && !reads);

    Request request = {.memory = memory, .size = kSize, .access = access, .direct = direct, .value = 1};
    const Reply given = Ask(owner, Work::kMake, &request);
    ASSERT_EQ(given.status, S_OK);
    EXPECT_EQ(given.token.kind, DWORD{isShared});
    EXPECT_EQ(given.token.offset, isMirrored ? 0 : Peer::kOffset);
    EXPECT_EQ(given.token.capacity, kSize);
    request.token = given.token;
    request.allowed = allowed;
    request.value = writes || !isShared ? 2 : 0;  // into a copy that is its own in any case
    const Reply used = Ask(asker, Work::kUse, &request);
    EXPECT_EQ(used.status, opens ? S_OK : E_FAIL);
    EXPECT_EQ(used.size, opens ? LONG{kSize} : -1);
    EXPECT_EQ(used.ends, opens && (reads || memory == Memory::kMapping) ? 11 : 0);
    request.value = 0;
    const Reply seen = Ask(asker, Work::kCopyOut, &request);
    EXPECT_EQ(seen.status, isReached ? S_OK : E_ACCESSDENIED);
    EXPECT_EQ(seen.ends, isReached ? 11 * (writes ? 2 : 1) : 0);
    request.value = 3;
    EXPECT_EQ(Ask(asker, Work::kCopyIn, &request).status, isReached ? S_OK : E_ACCESSDENIED);
    request.allowed = ProcessAccess::kFull;
    // A mirror that is only written starts with zeros, and comes back with what nobody has written.
    const int untouched = isMirrored && !reads ? 0 : 1;
    const int left = isReached && (!isMirrored || writes) ? 3 : untouched;
    EXPECT_EQ(Ask(owner, Work::kUnwrap, &request).ends, 11 * left);
    Ask(owner, Work::kFree, &request);
  }
}

TEST(MemoryToken, PassesBetweenProcessesBothWays) {
  Peer here;
  Helper there;
  Request request;
  ptrdiff_t before = 0;
  for (int round = 0; round < 2; ++round) {
    Exchange(here, there);
    Exchange(there, here);
    ptrdiff_t now = PTRDIFF_MAX;
    for (int tries = 0; tries < 20; ++tries) {  // threads that have ended are listed for a moment
      now = std::min(
          now, Ask(here, Work::kNone, &request).resources + Ask(there, Work::kNone, &request).resources);
      usleep(1000);
    }
    EXPECT_TRUE(round == 0 || now == before) << "something stays behind";
    before = now;
  }
}

TEST(MemoryToken, OfTheOwnProcessIsTheMemoryItself) {
  char bytes[] = "0123456789", copy[16] = {};
  _qnmemorytoken token = {
      -1, reinterpret_cast<uintptr_t>(bytes) + 8, 4, 2, uint64_t{} - 5, 7, GetCurrentProcessId()};
  Mapping mapping(token, 0);
  void* pointer = nullptr;
  EXPECT_TRUE(mapping.GetPointer(&pointer) == S_OK && pointer == bytes + 3 && mapping.DataSize() == 4);
  EXPECT_EQ(mapping.GetPointer(nullptr), E_POINTER);
  EXPECT_EQ(mapping.mapped | mapping.copied | mapping.failed | mapping.writeBack, 0);
  mapping.Close();
  EXPECT_TRUE(mapping.GetPointer(&pointer) == E_FAIL && !pointer && mapping.DataSize() == -1);

  EXPECT_EQ(Mapping::CopyData(nullptr, token, 0), E_POINTER);
  for (const LONG size : {3, -1}) EXPECT_EQ(Mapping::CopyData(copy, token, size), QN_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(Mapping::CopyData(copy, token, 16), S_OK);
  EXPECT_STREQ(copy, "3456");
  EXPECT_EQ(Mapping::CopyData(token, nullptr, -1), E_POINTER);
  EXPECT_EQ(Mapping::CopyData(token, "abcde", 5), QN_E_BUFFER_TOO_SMALL);
  EXPECT_EQ(Mapping::CopyData(token, "abcde", -1), E_INVALIDARG);
  EXPECT_EQ(Mapping::CopyData(token, "abcde", 2), S_OK);
  EXPECT_STREQ(bytes, "012ab56789");

  token.kind = QNMEMORYTOKEN_PROCESS;
  {
    // A mirror that is copied as members goes once.
    const COutOfProcessMemoryToken first(token, 0, 0), second(first);
    COutOfProcessMemoryToken third(token, 0, 1);
    third = second;
    _qnmemorytoken given;
    ASSERT_TRUE(third.GetMemoryToken(given) == S_OK && given.kind == QNMEMORYTOKEN_MAPPING);
    std::memcpy(reinterpret_cast<void*>(given.address), "WXYZ", 4);
  }
  EXPECT_STREQ(bytes, "012WXYZ789");
  // No mapping has 0 bytes, so there is no mirror of them: it shows what wants one.
  token.size = 0;
  for (const uint64_t place : {UINT64_MAX, uint64_t{1} << 32, uint64_t{0xFFFFFFFF}, uint64_t{0}}) {
    token.address = place - token.offset;
    const HRESULT status = place <= UINT32_MAX ? S_OK : E_FAIL;
    EXPECT_EQ(COutOfProcessMemoryToken(token, 0, 0).GetMemoryToken(token), status);
    EXPECT_EQ(COutOfProcessMemoryToken(token, 0, 1).GetMemoryToken(token), S_OK);
  }
}

TEST(MemoryToken, TokensThatLieAreRefused) {
  Helper owner, other;
  Request request = {.memory = Memory::kMapping, .size = kSize};
  const _qnmemorytoken good = Ask(owner, Work::kMake, &request).token;
  const auto handle = good.handle;
  const uint64_t base = good.address;
  constexpr uint64_t kMost = UINT64_MAX;
  const uint32_t id = good.processId;
  const _qnmemorytoken lies[] = {
      {handle, 0, kSize, 0, Peer::kOffset + 1, 1, id},
      {handle, 0, kSize, 0, kMost - 5, 1, id},
      {handle, 0, 0xFFFFFFFF, 0, 0, 1, id},
      {handle + 4, 0, 1, 0, 0, 1, id},
      {handle, 0, 1, 0, 0, 1, static_cast<uint32_t>(other.id)},
      {-1, 0, 1, 0, 0, 1, id},
      {handle, base, 1, 0, 0, 2, id},
      {0, kMost - 3, 2, 0, 2, 0, id},
      {0, base, 0xFFFFFFFF, 0, kMost - 5, 0, id},
      {0, base, 1 << 26, 0, 0, 0, id},
      {0, 0, 1, 0, 0, 0, id},
      {handle, base, 1, 0, 0, 0, 0},
  };
  for (const _qnmemorytoken& lie : lies) {
    SCOPED_TRACE(&lie - lies);
    char byte = 0;
    EXPECT_EQ(Mapping(lie, kRead).Pointer(), nullptr);
    EXPECT_TRUE(lie.size != 1 || Mapping::CopyData(&byte, lie, 1) < 0);
    EXPECT_TRUE((lie.size != 1 && lie.kind == 0) || Mapping::CopyData(lie, &byte, lie.size > 0) < 0);
  }
}

TEST(MemoryToken, OfClosedHandlesAndDeadOrStoppedOwnersFails) {
  Peer asker;
  for (const Memory memory : {Memory::kHigh, Memory::kMapping}) {
    Helper owner;
    Request request = {.memory = memory, .size = kSize, .direct = 1, .value = 1};
    request.token = Ask(owner, Work::kMake, &request).token;
    Mapping open(request.token, kRead | kWrite);
    if (memory == Memory::kMapping) {
      request.allowed = ProcessAccess::kSocket;
      kill(owner.id, SIGSTOP);
      waitpid(owner.id, nullptr, WUNTRACED);
      EXPECT_EQ(Ask(asker, Work::kCopyOut, &request).status, QN_E_BUSY);
      kill(owner.id, SIGCONT);
      EXPECT_EQ(Ask(asker, Work::kCopyOut, &request).status, S_OK);
      Ask(owner, Work::kCloseHandle, &request);
      EXPECT_EQ(Ask(asker, Work::kUse, &request).status, E_FAIL);
      request.allowed = ProcessAccess::kFull;
      EXPECT_EQ(Ask(asker, Work::kCopyOut, &request).status, E_HANDLE);
    }
    kill(owner.id, SIGKILL);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(owner.id), &info, WEXITED | WNOWAIT);
    EXPECT_EQ(Ask(asker, Work::kUse, &request).status, E_FAIL);
    EXPECT_EQ(Ask(asker, Work::kCopyOut, &request).status, E_FAIL);
    request.access = kWrite;
    EXPECT_EQ(Ask(asker, Work::kUse, &request).status, memory == Memory::kMapping ? E_FAIL : S_OK);
    Mapping share({-1, 0, 0, 0, 0, 2, 0}, 0);
    share = open;  // of which one gives back what both have
    open.failed = 1;
    EXPECT_EQ(static_cast<char*>(share.Pointer())[kSize - 1], 1);
  }
  if (geteuid() != 0) GTEST_SKIP() << "only root can be another user";
  // Who has changed the user is not looked into by others, the own user's included: a mapping still comes
  // over.
  Helper nobody("65534"), other("65534");
  Request request = {.memory = Memory::kMapping, .size = kSize, .value = 1};
  request.token = Ask(asker, Work::kMake, &request).token;
  EXPECT_EQ(Ask(nobody, Work::kCopyOut, &request).status, E_ACCESSDENIED);
  Ask(asker, Work::kFree, &request);
  request.token = Ask(other, Work::kMake, &request).token;
  EXPECT_EQ(Ask(nobody, Work::kCopyOut, &request).status, S_OK);
}

// What they have written into shared memory is there, what into a copy is lost.
TEST(MemoryToken, OutlivesAskersThatDie) {
  Peer owner;
  for (const int direct : {0, 1}) {
    Request request = {.memory = Memory::kHigh, .size = kSize, .direct = direct, .value = 1};
    request.token = Ask(owner, Work::kMake, &request).token;
    Helper asker;
    request.value = 2;
    EXPECT_EQ(Ask(asker, Work::kOpen, &request).ends, 11);
    kill(asker.id, SIGKILL);
    EXPECT_EQ(Ask(owner, Work::kUnwrap, &request).ends, direct ? 11 : 22);
    Ask(owner, Work::kFree, &request);
  }
}

TEST(MemoryToken, GoesUpToAllBytesOfItsSize) {
  Helper owner;
  Peer asker;
  for (const uint32_t size : {0u, 1u << 30, 0xFFFFFFFFu}) {
    Request request = {.memory = Memory::kMapping, .size = size, .value = 1};
    request.token = Ask(owner, Work::kMake, &request).token;
    request.value = 2;
    const Reply used = Ask(asker, Work::kUse, &request);
    EXPECT_TRUE(used.status == S_OK && static_cast<uint32_t>(used.size) == size);
    EXPECT_EQ(used.ends, size ? 11 : 0);
    EXPECT_EQ(Ask(owner, Work::kUnwrap, &request).ends, size ? 22 : 0);
    Ask(owner, Work::kFree, &request);
  }
}

}  // namespace
