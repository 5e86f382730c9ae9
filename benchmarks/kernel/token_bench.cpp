// 64 MiB from this process to another one, by tokens and by what a programmer would take instead. The other
// process is a fork that does what a byte in a pipe says and answers with a byte; a round includes both.
//
//   view        the data is copied into a shared mapping and out of the other's view, which stays open;
//               memcpy is both copies in one process, through plain memory
//   open_view   the same with a view that the other opens and disposes of each time
//   copy        the other copies plain memory of this process, once
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

#include "qn/kernel/qnmemtoken.h"
#include "qn/platform/file.h"
#include "qn/platform/process.h"

namespace {

constexpr uint32_t kSize = 64 << 20;

struct Request {
  char work;
  _qnmemorytoken token;
};

bool Receive(int from, char* data, size_t size) {
  while (size > 0) {
    const ssize_t got = read(from, data, size);
    if (got <= 0) return false;
    data += got;
    size -= static_cast<size_t>(got);
  }
  return true;
}
bool Send(int to, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t put = write(to, data, size);
    if (put <= 0) return false;
    data += put;
    size -= static_cast<size_t>(put);
  }
  return true;
}

class Helper {
 public:
  Helper() {
    if (pipe2(requests_, O_CLOEXEC) != 0 || pipe2(answers_, O_CLOEXEC) != 0 || pipe2(pipe_, O_CLOEXEC) != 0 ||
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, socket_) != 0) {
      return;
    }
    fcntl(pipe_[1], F_SETPIPE_SZ, 1 << 20);
    id_ = fork();
    if (id_ == 0) Serve();
  }
  ~Helper() {
    if (id_ > 0) kill(id_, SIGKILL);
  }
  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;

  bool Do(char work, const _qnmemorytoken& token, const char* sent = nullptr) {
    const Request request = {work, token};
    char answer = 0;
    if (id_ <= 0 || write(requests_[1], &request, sizeof request) != sizeof request) return false;
    if (sent && !Send(work == 'p' ? pipe_[1] : socket_[1], sent, kSize)) return false;
    return read(answers_[0], &answer, 1) == 1 && answer == 1;
  }

 private:
  [[noreturn]] void Serve() {
    close(requests_[1]);  // reading ends with the other process
    std::vector<char> block(kSize);
    std::unique_ptr<CMappingOfQnMemoryToken> kept;
    for (Request request; Receive(requests_[0], reinterpret_cast<char*>(&request), sizeof request);) {
      char answer = 0;
      switch (request.work) {
        case 'v':
          if (!kept) kept = std::make_unique<CMappingOfQnMemoryToken>(request.token, FILE_MAP_READ);
          answer = CopyOut(*kept, block.data());
          break;
        case 'o':
          answer = CopyOut(CMappingOfQnMemoryToken(request.token, FILE_MAP_READ), block.data());
          break;
        case 'c':
          answer = CMappingOfQnMemoryToken::CopyData(block.data(), request.token, kSize) == S_OK;
          break;
        default:
          answer = Receive(request.work == 'p' ? pipe_[0] : socket_[0], block.data(), kSize);
      }
      if (write(answers_[1], &answer, 1) != 1) break;
    }
    _exit(0);
  }

  static bool CopyOut(const CMappingOfQnMemoryToken& mapping, char* block) {
    if (!mapping.Pointer()) return false;
    std::memcpy(block, mapping.Pointer(), kSize);
    return true;
  }

  int requests_[2], answers_[2], pipe_[2], socket_[2];
  pid_t id_ = -1;
};

struct Blocks {
  std::vector<char> source = std::vector<char>(kSize, 1), middle = source, target = source;
  Helper helper;  // forked before there is a mapping, or a thread
  const HANDLE mapping = CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, kSize, nullptr);
  void* const view = MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, 0);
  const _qnmemorytoken shared = {static_cast<int64_t>(reinterpret_cast<uintptr_t>(mapping)),
                                 reinterpret_cast<uintptr_t>(view),
                                 kSize,
                                 kSize,
                                 0,
                                 QNMEMORYTOKEN_MAPPING,
                                 GetCurrentProcessId()};
  const _qnmemorytoken plain = {0,
                                reinterpret_cast<uintptr_t>(source.data()),
                                kSize,
                                kSize,
                                0,
                                QNMEMORYTOKEN_PROCESS,
                                GetCurrentProcessId()};

  ~Blocks() {
    UnmapViewOfFile(view);
    CloseHandle(mapping);
  }
};

Blocks& GetBlocks() {
  static Blocks blocks;
  return blocks;
}

template <typename Work>
void Add(const char* name, Work work) {
  const auto run = [=](benchmark::State& state) {
    Blocks& blocks = GetBlocks();
    if (!work(blocks)) return state.SkipWithError("not possible here");
    for (auto _ : state) {
      if (!work(blocks)) return state.SkipWithError("failed");
      benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kSize);
  };
  benchmark::RegisterBenchmark(name, run)->UseRealTime()->Unit(benchmark::kMillisecond);
}

bool CopyTwice(Blocks& blocks) {
  std::memcpy(blocks.middle.data(), blocks.source.data(), kSize);
  benchmark::ClobberMemory();
  std::memcpy(blocks.target.data(), blocks.middle.data(), kSize);
  return true;
}

[[maybe_unused]] const bool g_registered = [] {
  Add("token/view/ours", [](Blocks& blocks) {
    std::memcpy(blocks.view, blocks.source.data(), kSize);
    return blocks.helper.Do('v', blocks.shared);
  });
  Add("token/view/memcpy", CopyTwice);
  Add("token/open_view/ours", [](Blocks& blocks) {
    std::memcpy(blocks.view, blocks.source.data(), kSize);
    return blocks.helper.Do('o', blocks.shared);
  });
  Add("token/open_view/memcpy", CopyTwice);
  Add("token/copy/ours", [](Blocks& blocks) { return blocks.helper.Do('c', blocks.plain); });
  Add("token/copy/memcpy", [](Blocks& blocks) {
    std::memcpy(blocks.target.data(), blocks.source.data(), kSize);
    return true;
  });
  Add("token/copy/pipe",
      [](Blocks& blocks) { return blocks.helper.Do('p', blocks.plain, blocks.source.data()); });
  Add("token/copy/socket",
      [](Blocks& blocks) { return blocks.helper.Do('s', blocks.plain, blocks.source.data()); });
  return true;
}();

}  // namespace
