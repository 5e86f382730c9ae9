// Hands mappings over by a socket, for processes that may not take them.
//
// A process that has made shared memory listens on an abstract address with its id and a number, since each
// copy of the library in it has an address of its own. Who connects sends a handle and gets the descriptor.
// Both sides look at who the other is, as the system tells it: the owner serves its own user and root, the
// other takes nothing but from the process that it meant, and of its own user or root.
#include <linux/futex.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>

#include "qn/platform/mapping_object_internal.h"
#include "qn/platform/thread_internal.h"
#include "qn/platform/unload_internal.h"

namespace qn {
namespace {

// The copies of the library in one process that can serve.
constexpr int kAddresses = 16;
// Of those that have not asked yet: one more takes the place of one of them, which may come again.
constexpr int kConnections = 32;
constexpr uint64_t kRefusal = 0;  // which is no handle
constexpr std::chrono::milliseconds kAnswerTime(1000);
// What a server whose listener others have closed takes to notice that.
constexpr int kLookMilliseconds = 500;
constexpr int kShortageMilliseconds = 10;
constexpr int kAgainMilliseconds = 2;  // between tries to get in
// What the end of the last mapping waits at most for the thread, which what it was sent may hold up.
constexpr time_t kEndSeconds = 1;

// A socket of the server. What hosts do with descriptors that they do not know may have made its number that
// of another file, which is left alone.
class OwnSocket {
 public:
  OwnSocket() = default;
  ~OwnSocket() { Take(); }
  OwnSocket(const OwnSocket&) = delete;
  OwnSocket& operator=(const OwnSocket&) = delete;

  void Set(qn::Descriptor socket) {
    Take();
    socket_ = std::move(socket);
    struct stat info = {};
    if (socket_) fstat(socket_.Get(), &info);
    device_ = info.st_dev;
    inode_ = info.st_ino;
  }

  qn::Descriptor Take() {
    if (Get() < 0) socket_.Release();
    return std::move(socket_);
  }

  // -1 if it is not there, or no longer.
  int Get() const {
    struct stat info;
    const bool isThere =
        socket_ && fstat(socket_.Get(), &info) == 0 && info.st_dev == device_ && info.st_ino == inode_;
    return isThere ? socket_.Get() : -1;
  }

 private:
  qn::Descriptor socket_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

struct Server {
  pthread_t thread = {};
  std::atomic<uint32_t> isEnding = 0;  // a futex, for a thread without a listener
  bool isAwaited = false;
  bool isLate = false;
  uint64_t stop = 0;  // the latest one that waited for it
  OwnSocket listener;
  OwnSocket connections[kConnections];  // the thread's own
  unsigned replaced = 0;
  Server* older = nullptr;
};

// Under the lock the server's thread does nothing that could wait, since what it receives comes from anybody:
// to close that may take its time. A mapping ends under it too, and never on that thread, which would have to
// wait for itself.
constinit std::mutex g_mutex;
constinit SharedMapping* g_served = nullptr;
constinit Server* g_servers = nullptr;  // all but the first are ending
constinit uint64_t g_stops = 0;
constinit std::atomic<pid_t> g_process = 0;  // whose threads they are

// A fork's child has no thread: it closes its copies, which would keep the names taken, and forgets the rest.
void ForgetServers() {
  while (g_servers) delete std::exchange(g_servers, g_servers->older);
}
[[maybe_unused]] const int g_forkHandlers = pthread_atfork([] { g_mutex.lock(); }, [] { g_mutex.unlock(); },
                                                           [] {
                                                             ForgetServers();
                                                             g_mutex.unlock();
                                                           });

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
  return qn::Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

bool PeerOf(int connection, ucred* peer) {
  socklen_t size = sizeof *peer;
  return getsockopt(connection, SOL_SOCKET, SO_PEERCRED, peer, &size) == 0;
}

// Questions bring no descriptors. Systems that know the option refuse to send them, others have them closed.
void RefuseDescriptors(int socket) {
#ifndef SO_PASSRIGHTS
  constexpr int SO_PASSRIGHTS = 83;
#endif
  const int no = 0;
  setsockopt(socket, SOL_SOCKET, SO_PASSRIGHTS, &no, sizeof no);
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

// False with errno: EAGAIN nothing has come yet, EPIPE nothing will, EMFILE no descriptor was left for what
// came. Nothing is kept of a message that is not as Send makes it.
bool Receive(int connection, uint64_t* value, qn::Descriptor* descriptor) {
  Message message;
  message.header.msg_control = message.control;
  message.header.msg_controllen = CMSG_LEN(sizeof(int));  // the space has room for two
  const ssize_t got = recvmsg(connection, &message.header, MSG_CMSG_CLOEXEC);
  if (got < 0) return false;
  qn::Descriptor received;
  const cmsghdr* const rights = CMSG_FIRSTHDR(&message.header);
  if (rights && rights->cmsg_level == SOL_SOCKET && rights->cmsg_type == SCM_RIGHTS &&
      rights->cmsg_len == CMSG_LEN(sizeof(int))) {
    int number = -1;
    std::memcpy(&number, CMSG_DATA(rights), sizeof number);
    received = qn::Descriptor(number);
  }
  const int flags = message.header.msg_flags;
  const int fault = (flags & MSG_CTRUNC) && !received ? EMFILE : EPROTO;
  errno = got == 0 ? EPIPE : fault;
  if ((flags & (MSG_TRUNC | MSG_CTRUNC)) || got != sizeof message.value) return false;
  *value = message.value;
  *descriptor = std::move(received);
  return true;
}

qn::Descriptor Listen() {
  qn::Descriptor made = OpenSocket();
  bool isBound = false;
  for (int number = 0; made && !isBound && number < kAddresses; ++number) {
    const Address address(getpid(), number);
    isBound = bind(made.Get(), address.Get(), address.length) == 0;
  }
  if (!isBound) return qn::Descriptor();
  RefuseDescriptors(made.Get());
  return listen(made.Get(), 64) == 0 ? std::move(made) : qn::Descriptor();
}

// Answers if the question has come; true when nothing more is to be done for the one that asks.
bool Serve(int connection) {
  uint64_t value = 0;
  qn::Descriptor unasked;
  if (!Receive(connection, &value, &unasked)) return errno != EAGAIN;
  const std::lock_guard guard(g_mutex);
  const SharedMapping* mapping = g_served;
  while (mapping && reinterpret_cast<uintptr_t>(mapping->served.handle) != value)
    mapping = mapping->served.next;
  Send(connection, value, mapping ? mapping->Descriptor() : -1);
  return true;
}

enum class Accepted { kOne, kLater, kNoMore };

// What comes of the events of the listener. kLater: the system refuses it for now. kNoMore: it is none any
// more.
Accepted Accept(Server* server, int listener, int events) {
  if (events & ~POLLIN) return Accepted::kNoMore;
  qn::Descriptor connection, replaced;
  const std::lock_guard guard(g_mutex);  // so that a fork finds what comes in its place
  if (server->listener.Get() != listener) return Accepted::kOne;
  connection = qn::Descriptor(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!connection) {
    if (errno == EBADF || errno == EINVAL || errno == ENOTSOCK) return Accepted::kNoMore;
    return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED ? Accepted::kOne : Accepted::kLater;
  }
  RefuseDescriptors(connection.Get());
  ucred peer;
  if (!PeerOf(connection.Get(), &peer) || (peer.uid != 0 && peer.uid != geteuid())) {
    Send(connection.Get(), kRefusal, -1);
    return Accepted::kOne;
  }
  OwnSocket* place = std::find_if(std::begin(server->connections), std::end(server->connections),
                                  [](const OwnSocket& each) { return each.Get() < 0; });
  if (place == std::end(server->connections)) {
    place = &server->connections[server->replaced++ % kConnections];
    replaced = place->Take();
  }
  place->Set(std::move(connection));
  return Accepted::kOne;
}

// A listener for one that others have shut or closed.
void Renew(Server* server, int gone) {
  qn::Descriptor shut;
  {
    const std::lock_guard guard(g_mutex);
    // A new one may have its number by now.
    pollfd look = {gone, POLLRDHUP, 0};
    const bool isShut = poll(&look, 1, 0) > 0;
    if (isShut && server->listener.Get() == gone) shut = server->listener.Take();
  }
  shut = qn::Descriptor();
  const std::lock_guard guard(g_mutex);
  if (!server->isEnding && server->listener.Get() < 0) server->listener.Set(Listen());
}

// Also waits where the system has no room to look at as many.
void Wait(pollfd* waited, nfds_t count, int milliseconds) {
  if (poll(waited, count, milliseconds) < 0 && errno != EINTR) {
    for (nfds_t i = 0; i < count; ++i) waited[i].revents = 0;
    poll(nullptr, 0, std::min(milliseconds, kShortageMilliseconds));
  }
}

int ListenerOf(const Server& server) {
  const std::lock_guard guard(g_mutex);
  return server.listener.Get();
}

void* Run(void* argument) {
  TakeFaults();
  Server* const server = static_cast<Server*>(argument);
  Accepted accepted = Accepted::kOne;
  int listener = -1;
  while (server->isEnding == 0) {
    if (accepted == Accepted::kNoMore) Renew(server, listener);
    for (OwnSocket& connection : server->connections) {
      const int open = connection.Get();
      if (open >= 0 && Serve(open)) connection.Set(qn::Descriptor());
    }
    const bool isLater = accepted == Accepted::kLater;
    listener = ListenerOf(*server);
    pollfd waited[1 + kConnections] = {{isLater ? -1 : listener, POLLIN | POLLRDHUP, 0}};
    nfds_t count = 1;
    for (const OwnSocket& connection : server->connections) {
      if (const int open = connection.Get(); open >= 0) waited[count++] = {open, POLLIN, 0};
    }
    // A listener that others close wakes nobody, so nothing waits for good.
    if (listener < 0 && count == 1) {
      const timespec look = {0, kLookMilliseconds * 1'000'000};
      syscall(SYS_futex, &server->isEnding, FUTEX_WAIT_PRIVATE, 0, &look, nullptr, 0);
    } else {
      Wait(waited, count, isLater || listener < 0 ? kShortageMilliseconds : kLookMilliseconds);
    }
    accepted = Accepted::kOne;
    if (const int still = ListenerOf(*server); still < 0) {
      accepted = Accepted::kNoMore;
      listener = -1;  // a new one may get the same number
    } else if (still == listener && waited[0].revents) {
      accepted = Accept(server, listener, waited[0].revents);
    }
  }
  for (OwnSocket& connection : server->connections) connection.Set(qn::Descriptor());
  qn::Descriptor last;
  const std::lock_guard guard(g_mutex);
  last = server->listener.Take();
  return nullptr;
}

// Without a socket the thread keeps trying to get one.
void Start() {
  Server* const server = new (std::nothrow) Server;
  if (!server) return;
  server->listener.Set(Listen());
  if (!StartThread(&server->thread, Run, server)) return delete server;
  server->older = std::exchange(g_servers, server);
}

bool IsServing() {
  return g_servers && !g_servers->isEnding;
}

enum class Ending { kUnserved, kAlways };

// For a thread that sleeps without a listener.
void Wake(Server* server) {
  syscall(SYS_futex, &server->isEnding, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

// A server that is ending, that nobody else waits for and that this stop has not waited for. One that serves
// is to end first, if nothing is left to serve or always.
Server* TakeEnding(Ending which, uint64_t stop) {
  const std::lock_guard guard(g_mutex);
  if (IsServing() && (which == Ending::kAlways || !g_served)) {
    g_servers->isEnding = 1;
    shutdown(g_servers->listener.Get(), SHUT_RDWR);
    Wake(g_servers);
  }
  Server* server = g_servers;
  while (server && (!server->isEnding || server->isAwaited || server->stop == stop)) server = server->older;
  if (!server) return nullptr;
  server->isAwaited = true;
  server->stop = stop;
  return server;
}

uint64_t NextStop() {
  const std::lock_guard guard(g_mutex);
  return ++g_stops;
}

// Waits for the servers that are ending. What has been late once is not waited for but by kAlways.
void Stop(Ending which) {
  if (g_process != getpid()) return;
  const uint64_t stop = NextStop();
  while (Server* const server = TakeEnding(which, stop)) {
    timespec end = {};  // long ago
    if (!server->isLate) clock_gettime(CLOCK_REALTIME, &end);
    end.tv_sec += kEndSeconds;
    const timespec* const limit = which == Ending::kAlways ? nullptr : &end;
    server->isLate = pthread_timedjoin_np(server->thread, nullptr, limit) != 0;
    const std::lock_guard guard(g_mutex);
    server->isAwaited = false;
    if (server->isLate) continue;
    Server** link = &g_servers;
    while (*link != server) link = &(*link)->older;
    *link = server->older;
    delete server;
  }
}

// Asks at one address. kLate: the answer has to be waited for, or without a connection the server's queue is
// full, as that of a process that is stopped is at some time. kNone with errno.
//
// What the question itself fails with is heard with the answer.
Answer Ask(const Address& address, pid_t process, uint64_t value, qn::Descriptor* connection) {
  qn::Descriptor made = OpenSocket();
  if (!made) return Answer::kNone;
  if (connect(made.Get(), address.Get(), address.length) != 0) {
    return errno == EAGAIN ? Answer::kLate : Answer::kNone;
  }
  ucred peer;
  const uid_t user = geteuid();
  // An owner that began as root and is another user now still listens as root.
  if (!PeerOf(made.Get(), &peer) || peer.pid != process || (user != 0 && peer.uid != user && peer.uid != 0)) {
    errno = EACCES;
    return Answer::kNone;
  }
  Send(made.Get(), value, -1);
  *connection = std::move(made);
  return Answer::kLate;
}

// A connection that the server had to give up for others is closed: one asks again.
Answer Hear(qn::Descriptor* connection, uint64_t value, qn::Descriptor* found) {
  uint64_t answered = 0;
  qn::Descriptor received;
  if (!Receive(connection->Get(), &answered, &received)) {
    if (errno == EPIPE) *connection = qn::Descriptor();
    // A reset is told before what came until then.
    const bool isLate = errno == EAGAIN || errno == EPIPE || errno == ECONNRESET;
    return isLate ? Answer::kLate : Answer::kNone;
  }
  errno = EPROTO;
  if (answered != value) return Answer::kNone;
  if (!received) return Answer::kUnknown;
  *found = std::move(received);
  return Answer::kFound;
}

}  // namespace

void BeginServing(SharedMapping* mapping, HANDLE handle) {
  const std::lock_guard guard(g_mutex);
  // A child that no handler told of its fork.
  if (g_process.exchange(getpid()) != getpid()) ForgetServers();
  mapping->served = {handle, g_served, &g_served};
  if (g_served) g_served->served.link = &mapping->served.next;
  g_served = mapping;
  if (!IsServing()) {
    Start();
  } else if (g_servers->listener.Get() < 0) {
    g_servers->listener.Set(Listen());
    Wake(g_servers);
  }
}

bool IsServed(const SharedMapping& mapping) {
  const std::lock_guard guard(g_mutex);
  return mapping.served.link != nullptr;
}

void EndServing(SharedMapping* mapping) {
  {
    const std::lock_guard guard(g_mutex);
    const auto& [handle, next, link] = mapping->served;
    if (!link) return;
    *link = next;
    if (next) next->served.link = link;
  }
  Stop(Ending::kUnserved);
}

void StopServing() {
  Stop(Ending::kAlways);
}

Answer AskForMapping(pid_t process, HANDLE handle, Descriptor* found) {
  const uint64_t value = reinterpret_cast<uintptr_t>(handle);
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + kAnswerTime;
  Descriptor connections[kAddresses];
  Answer answers[kAddresses];
  std::fill(std::begin(answers), std::end(answers), Answer::kLate);
  int error = EACCES;
  // All addresses at once: anybody may have taken one of them, and keep whoever asks there waiting.
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    int timeout = static_cast<int>(std::max<int64_t>(left, 0));
    bool isLate = false;
    pollfd waited[kAddresses];
    nfds_t count = 0;
    for (int i = 0; i < kAddresses; ++i) {
      if (answers[i] != Answer::kLate) continue;
      answers[i] = connections[i] ? Hear(&connections[i], value, found)
                                  : Ask(Address(process, i), process, value, &connections[i]);
      if (answers[i] == Answer::kFound) return Answer::kFound;
      if (answers[i] == Answer::kNone && IsShortage(errno)) error = errno;
      if (answers[i] != Answer::kLate) continue;
      isLate = true;
      if (connections[i]) {
        waited[count++] = {connections[i].Get(), POLLIN, 0};
      } else {
        timeout = std::min(timeout, kAgainMilliseconds);
      }
    }
    if (!isLate || left <= 0) break;
    Wait(waited, count, timeout);
  }
  errno = error;
  const Answer best = *std::max_element(std::begin(answers), std::end(answers));
  // Who knows the handle may be the one that could not be asked.
  return best == Answer::kUnknown && IsShortage(error) ? Answer::kNone : best;
}

}  // namespace qn
