// Hands mappings over by a socket, for processes that may not take them.
//
// A process that has made shared memory listens on an abstract address with its id and a number, since each
// copy of the library in it has an address of its own. Who connects sends a handle and gets the descriptor.
// Both sides look at who the other is, as the system tells it: the owner serves its own user and root, the
// other takes nothing but from the process that it meant and, unless it is root, of its own user.
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>

#include "qn/platform/mapping_object_internal.h"

namespace qn {
namespace {

// The copies of the library in one process that can serve.
constexpr int kAddresses = 16;
constexpr int kAnswerMilliseconds = 1000;
constexpr int kRequestMilliseconds = 200;

struct Server {
  pthread_t thread;
  int listener;
};

// A mapping ends under the lock, and never on the server's thread: that one would have to wait for itself.
constinit std::mutex g_mutex;
constinit SharedMapping* g_served = nullptr;
constinit std::optional<Server> g_server;
constinit pid_t g_process = 0;  // whose the server is: a fork's child has a copy of all this, but no thread

// A fork's child finds the lock free.
[[maybe_unused]] const int g_forkHandlers =
    pthread_atfork([] { g_mutex.lock(); }, [] { g_mutex.unlock(); }, [] { g_mutex.unlock(); });

struct Address {
  sockaddr_un name = {};
  socklen_t length;

  Address(pid_t process, int number) {
    name.sun_family = AF_UNIX;
    // The leading zero byte keeps the name out of the file system.
    const int count = std::snprintf(name.sun_path + 1, sizeof name.sun_path - 1, "qnkernel-mapping/%d/%d",
                                    static_cast<int>(process), number);
    length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + static_cast<size_t>(count));
  }
  const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&name); }
};

qn::Descriptor OpenSocket() {
  return qn::Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
}

bool PeerOf(int connection, ucred* peer) {
  socklen_t size = sizeof *peer;
  return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, peer, &size) == 0;
}

// A message of one value with at most one descriptor.
struct Message {
  uint64_t value = 0;
  iovec part = {&value, sizeof value};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr header = {};

  Message() {
    header.msg_iov = &part;
    header.msg_iovlen = 1;
  }
};

bool Send(int connection, uint64_t value, int descriptor) {
  Message message;
  message.value = value;
  if (descriptor >= 0) {
    message.header.msg_control = message.control;
    message.header.msg_controllen = sizeof message.control;
    cmsghdr* const rights = CMSG_FIRSTHDR(&message.header);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(rights), &descriptor, sizeof descriptor);
  }
  return sendmsg(connection, &message.header, MSG_NOSIGNAL | MSG_DONTWAIT) == sizeof message.value;
}

bool Receive(int connection, uint64_t* value, qn::Descriptor* descriptor) {
  Message message;
  message.header.msg_control = message.control;
  message.header.msg_controllen = sizeof message.control;
  const ssize_t got = recvmsg(connection, &message.header, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
  if (got < 0) return false;
  const cmsghdr* const rights = CMSG_FIRSTHDR(&message.header);
  if (rights && rights->cmsg_level == SOL_SOCKET && rights->cmsg_type == SCM_RIGHTS &&
      rights->cmsg_len == CMSG_LEN(sizeof(int))) {
    int received = -1;
    std::memcpy(&received, CMSG_DATA(rights), sizeof received);
    *descriptor = qn::Descriptor(received);
  }
  *value = message.value;
  return got == sizeof message.value;
}

void Serve(int listener, int connection) {
  ucred peer;
  if (!PeerOf(connection, &peer) || (peer.uid != 0 && peer.uid != geteuid())) return;
  // Also ends when the listener is shut down.
  pollfd waited[] = {{connection, POLLIN, 0}, {listener, 0, 0}};
  if (poll(waited, 2, kRequestMilliseconds) <= 0 || waited[1].revents) return;
  uint64_t value = 0;
  qn::Descriptor unasked;
  if (!Receive(connection, &value, &unasked)) return;
  const std::lock_guard guard(g_mutex);
  const SharedMapping* mapping = g_served;
  while (mapping && reinterpret_cast<uintptr_t>(mapping->served.handle) != value)
    mapping = mapping->served.next;
  Send(connection, value, mapping ? mapping->Descriptor() : -1);
}

void* Run(void* argument) {
  const auto listener = static_cast<int>(reinterpret_cast<intptr_t>(argument));
  for (;;) {
    const qn::Descriptor connection(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (connection) {
      Serve(listener, connection.Get());
    } else if (errno == EINVAL || errno == EBADF || errno == ENOTSOCK) {
      return nullptr;  // shut down, or closed by a host that closes what it does not know
    } else if (errno != EINTR && errno != ECONNABORTED) {
      // No descriptor is left, perhaps: whoever waits may be served later.
      pollfd waited = {listener, 0, 0};
      poll(&waited, 1, 10);
    }
  }
}

std::optional<Server> Start() {
  qn::Descriptor listener = OpenSocket();
  bool isBound = false;
  for (int number = 0; listener && !isBound && number < kAddresses; ++number) {
    const Address address(getpid(), number);
    isBound = bind(listener.Get(), address.Get(), address.length) == 0;
  }
  if (!isBound || listen(listener.Get(), 64) != 0) return {};
  Server server = {};
  server.listener = listener.Get();
  // The host's signals are for the host's threads.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const int failure =
      pthread_create(&server.thread, nullptr, Run, reinterpret_cast<void*>(intptr_t{server.listener}));
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (failure) return {};
  listener.Release();
  return server;
}

// Takes the server out, under the lock, to be stopped outside of it: its thread may be waiting for it.
std::optional<Server> TakeServer() {
  return g_process == getpid() ? std::exchange(g_server, std::nullopt) : std::nullopt;
}

void Stop(const std::optional<Server>& server) {
  if (!server) return;
  // Shut down and not only closed, since a fork's child may hold the socket too.
  shutdown(server->listener, SHUT_RDWR);
  pthread_join(server->thread, nullptr);
  close(server->listener);
}

class Deadline {
 public:
  explicit Deadline(int milliseconds) : end_(Now() + milliseconds) {}
  int Left() const { return static_cast<int>(std::max<int64_t>(end_ - Now(), 0)); }

 private:
  static int64_t Now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
  }
  const int64_t end_;
};

bool Connect(int connection, const Address& address) {
  // An owner that is stopped has a full queue at some time.
  const timeval limit = {kAnswerMilliseconds / 1000, kAnswerMilliseconds % 1000 * 1000};
  setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  int result;
  do {
    result = connect(connection, address.Get(), address.length);
  } while (result != 0 && errno == EINTR);
  return result == 0;
}

Answer AskAt(const Address& address, pid_t process, uint64_t value, qn::Descriptor* found) {
  const qn::Descriptor connection = OpenSocket();
  if (!connection) return Answer::kNone;
  if (!Connect(connection.Get(), address)) return errno == EAGAIN ? Answer::kLate : Answer::kNone;
  ucred peer;
  const uid_t user = geteuid();
  if (!PeerOf(connection.Get(), &peer) || peer.pid != process || (user != 0 && peer.uid != user) ||
      !Send(connection.Get(), value, -1)) {
    errno = EACCES;
    return Answer::kNone;
  }
  const Deadline deadline(kAnswerMilliseconds);
  pollfd waited = {connection.Get(), POLLIN, 0};
  int ready;
  do {
    ready = poll(&waited, 1, deadline.Left());
  } while (ready < 0 && errno == EINTR);
  if (ready == 0) return Answer::kLate;
  uint64_t answered = 0;
  if (!Receive(connection.Get(), &answered, found) || answered != value) return Answer::kNone;
  return *found ? Answer::kFound : Answer::kUnknown;
}

}  // namespace

void BeginServing(SharedMapping* mapping, HANDLE handle) {
  const std::lock_guard guard(g_mutex);
  if (g_process != getpid()) {
    if (g_server) close(g_server->listener);
    g_server.reset();
    g_process = getpid();
  }
  mapping->served = {handle, g_served, &g_served};
  if (g_served) g_served->served.link = &mapping->served.next;
  g_served = mapping;
  if (!g_server) g_server = Start();
}

bool IsServed(const SharedMapping& mapping) {
  const std::lock_guard guard(g_mutex);
  return mapping.served.link != nullptr;
}

void EndServing(SharedMapping* mapping) {
  std::optional<Server> server;
  {
    const std::lock_guard guard(g_mutex);
    const auto& [handle, next, link] = mapping->served;
    if (!link) return;
    *link = next;
    if (next) next->served.link = link;
    if (!g_served) server = TakeServer();
  }
  Stop(server);
}

void StopServing() {
  std::optional<Server> server;
  {
    const std::lock_guard guard(g_mutex);
    server = TakeServer();
  }
  Stop(server);
}

Answer AskForMapping(pid_t process, HANDLE handle, Descriptor* found) {
  const uint64_t value = reinterpret_cast<uintptr_t>(handle);
  Answer best = Answer::kNone;
  int error = EACCES;
  for (int number = 0; number < kAddresses && best != Answer::kFound && best != Answer::kLate; ++number) {
    const Answer answer = AskAt(Address(process, number), process, value, found);
    if (answer != Answer::kNone) best = answer;
    if (answer == Answer::kNone && errno != ECONNREFUSED) error = errno;
  }
  errno = error;
  return best;
}

}  // namespace qn
