// A host whose effect runs in a helper process. One thread makes audio and passes it through a queue to
// another, which has the helper work on it in shared memory: only numbers go through the pipe. A helper that
// dies is replaced, and no block is lost.
//
//   example_helper_process [--blocks N] [--die-after N]
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <thread>

#include "qn/kernel/qnmemtoken.h"
#include "qn/kernel/qnqueue.h"
#include "qn/platform/file.h"
#include "qn/platform/process.h"
#include "qn/settings/qnerror.h"

namespace {

constexpr uint32_t kBlocks = 4;
constexpr uint32_t kSamples = 4096 * 2;  // of a block, stereo
constexpr uint32_t kRate = 48'000;
constexpr float kGain = 0.5f;
constexpr int kHelpers = 3;  // that may die before the host gives up

// What lies in the shared memory of a block. The helper changes nothing that the host wrote: so the host can
// give the same block to the next helper.
struct Audio {
  float in[kSamples];
  float out[kSamples];
};

struct Block {
  tQNQELM element;  // first, so that an element is its block
  uint32_t number;
};

struct Answer {
  HRESULT status;
  float peak;
};

bool ReadAll(int from, void* data, size_t size) {
  for (auto* at = static_cast<char*>(data); size > 0;) {
    const ssize_t got = read(from, at, size);
    if (got <= 0) return false;
    at += got;
    size -= static_cast<size_t>(got);
  }
  return true;
}

// The helper: standard input gives the tokens of all blocks, then the numbers of those to work on.
int RunHelper(int dieAfter) {
  std::deque<CMappingOfQnMemoryToken> blocks;
  HRESULT status = S_OK;
  for (uint32_t i = 0; i < kBlocks; ++i) {
    _qnmemorytoken token;
    if (!ReadAll(STDIN_FILENO, &token, sizeof token)) return 1;
    blocks.emplace_back(token, FILE_MAP_READ | FILE_MAP_WRITE);
    if (!blocks.back().Pointer() || token.size < sizeof(Audio)) status = E_FAIL;
  }
  for (uint32_t number; ReadAll(STDIN_FILENO, &number, sizeof number) && number < kBlocks;) {
    if (dieAfter-- == 0) abort();
    Answer answer = {status, 0};
    if (SUCCEEDED(status)) {
      auto* const audio = static_cast<Audio*>(blocks[number].Pointer());
      for (uint32_t i = 0; i < kSamples; ++i) {
        audio->out[i] = audio->in[i] * kGain;
        answer.peak = std::max(answer.peak, std::fabs(audio->out[i]));
      }
    }
    if (write(STDOUT_FILENO, &answer, sizeof answer) != sizeof answer) return 1;
  }
  return 0;
}

class Helper {
 public:
  // Starts this program again, as a helper that knows the blocks.
  Helper(const _qnmemorytoken (&tokens)[kBlocks], int dieAfter) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0) return;
    to_ = in[1];
    if (pipe2(out, O_CLOEXEC) == 0) {
      from_ = out[0];
      posix_spawn_file_actions_t actions;
      posix_spawn_file_actions_init(&actions);
      posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
      posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
      std::string words[] = {"helper", "--helper", std::to_string(dieAfter)};
      char* arguments[] = {words[0].data(), words[1].data(), words[2].data(), nullptr};
      if (posix_spawn(&id_, "/proc/self/exe", &actions, nullptr, arguments, environ) != 0) id_ = -1;
      posix_spawn_file_actions_destroy(&actions);
      close(out[1]);
    }
    close(in[0]);
    isReady_ = id_ > 0 && write(to_, tokens, sizeof tokens) == sizeof tokens;
  }
  ~Helper() {
    close(to_);  // at which it ends
    close(from_);
    if (id_ > 0) waitpid(id_, nullptr, 0);
  }
  Helper(const Helper&) = delete;
  Helper& operator=(const Helper&) = delete;

  // False when the helper has died.
  bool Work(uint32_t number, Answer* answer) {
    return isReady_ && write(to_, &number, sizeof number) == sizeof number &&
           ReadAll(from_, answer, sizeof *answer);
  }

 private:
  pid_t id_ = -1;
  int to_ = -1, from_ = -1;
  bool isReady_ = false;
};

// Memory that the helper can reach, too. Where it may not look into this process, the library hands the
// memory over through a socket: for that no more is to be done than to stay alive.
class SharedBlocks {
 public:
  SharedBlocks() {
    for (uint32_t i = 0; i < kBlocks; ++i) {
      mappings_[i] =
          CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(Audio), nullptr);
      audio[i] = static_cast<Audio*>(
          MapViewOfFile(mappings_[i], FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, sizeof(Audio)));
      isReady = isReady && audio[i];
      tokens[i] = {.handle = static_cast<int64_t>(reinterpret_cast<uintptr_t>(mappings_[i])),
                   .address = reinterpret_cast<uintptr_t>(audio[i]),
                   .size = sizeof(Audio),
                   .capacity = sizeof(Audio),
                   .offset = 0,
                   .kind = QNMEMORYTOKEN_MAPPING,
                   .processId = GetCurrentProcessId()};
    }
  }
  ~SharedBlocks() {
    for (uint32_t i = 0; i < kBlocks; ++i) {
      if (audio[i]) UnmapViewOfFile(audio[i]);
      if (mappings_[i]) CloseHandle(mappings_[i]);
    }
  }
  SharedBlocks(const SharedBlocks&) = delete;
  SharedBlocks& operator=(const SharedBlocks&) = delete;

  bool isReady = true;
  Audio* audio[kBlocks];
  _qnmemorytoken tokens[kBlocks];

 private:
  HANDLE mappings_[kBlocks];
};

// Takes empty blocks, fills them with a sine of 440 Hz and full scale, and passes them on.
void MakeAudio(tQNQHEAD* empty, tQNQHEAD* filled, const SharedBlocks& shared, long count) {
  uint64_t frame = 0;
  for (long i = 0; i < count; ++i) {
    auto* const block = reinterpret_cast<Block*>(QnQueueRemove(empty, INFINITE));
    if (!block) return;  // the queue has been deleted
    float* const in = shared.audio[block->number]->in;
    for (uint32_t k = 0; k < kSamples; k += 2, ++frame) {
      in[k] = in[k + 1] =
          static_cast<float>(std::sin(static_cast<double>(frame % kRate) * 6.283185307179586 * 440 / kRate));
    }
    QnQueueInsert(filled, &block->element);
  }
}

int Fail(const char* what, HRESULT status) {
  std::fprintf(stderr, "%s: 0x%08X\n", what, static_cast<unsigned>(status));
  return 1;
}

int RunHost(long count, int dieAfter) {
  const SharedBlocks shared;
  if (!shared.isReady) return Fail("no shared memory", QnErrorHandler_TranslateWin32Error(GetLastError()));
  tQNQHEAD empty = {}, filled = {};
  if (!QnQueueInitialize(&empty) || !QnQueueInitialize(&filled)) return Fail("no queue", E_OUTOFMEMORY);
  Block blocks[kBlocks] = {};
  for (uint32_t i = 0; i < kBlocks; ++i) {
    blocks[i].number = i;
    QnQueueInsert(&empty, &blocks[i].element);
  }

  const auto start = std::chrono::steady_clock::now();
  std::thread maker(MakeAudio, &empty, &filled, std::cref(shared), count);
  std::deque<Helper> helpers;
  helpers.emplace_back(shared.tokens, dieAfter);
  HRESULT status = S_OK;
  float peak = 0;
  for (long i = 0; i < count && SUCCEEDED(status); ++i) {
    auto* const block = reinterpret_cast<Block*>(QnQueueRemove(&filled, INFINITE));
    Answer answer = {E_FAIL, 0};
    while (!helpers.back().Work(block->number, &answer) && helpers.size() <= kHelpers) {
      std::fprintf(stderr, "the helper has died in block %ld; another one takes over\n", i);
      helpers.emplace_back(shared.tokens, -1);
    }
    status = answer.status;
    peak = std::max(peak, answer.peak);
    // shared.audio[block->number]->out is what a host would play or write now.
    QnQueueInsert(&empty, &block->element);
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  QnQueueDelete(&empty);  // and with it ends the maker's wait
  maker.join();
  QnQueueDelete(&filled);
  if (FAILED(status)) return Fail("the helper cannot work", status);
  const double frames = static_cast<double>(count) * kSamples / 2;
  std::printf("%ld blocks, peak %.3f, %.0f MB/s, %.0f times as fast as they play\n", count, double{peak},
              frames * 2 * sizeof(float) / seconds.count() / 1e6, frames / kRate / seconds.count());
  return 0;
}

}  // namespace

int main(int count, char** words) {
  if (count == 3 && std::strcmp(words[1], "--helper") == 0) return RunHelper(std::atoi(words[2]));
  long blocks = 5000, dieAfter = -1;
  for (int i = 1; i < count; i += 2) {
    const std::string word = words[i];
    long* const value = word == "--blocks" ? &blocks : word == "--die-after" ? &dieAfter : nullptr;
    char* end = nullptr;
    if (value && i + 1 < count) *value = std::strtol(words[i + 1], &end, 10);
    if (end && end != words[i + 1] && *end == 0 && *value >= 0) continue;
    const bool isHelp = word == "--help" || word == "-h";
    std::fprintf(isHelp ? stdout : stderr,
                 "usage: %s [--blocks N] [--die-after N]\n"
                 "Halves N blocks (5000) of audio in a helper process, which may die after some of them.\n",
                 words[0]);
    return isHelp ? 0 : 2;
  }
  signal(SIGPIPE, SIG_IGN);  // a helper that dies is told by what write gives
  return RunHost(blocks, static_cast<int>(dieAfter));
}
