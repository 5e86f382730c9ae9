// Work on the rows of an image by several processors.
#pragma once

#include <atomic>
#include <cstddef>

namespace qn {

using RowWork = void (*)(const void* context, size_t first, size_t end);

// Calls work(context, first, end) for parts of the rows 0 to `rows` that together are all of them, on as many
// threads as the calling one has processors, but on one for each `least` rows at most. The calling thread is
// one of them; the others take its arithmetic modes, block the signals of the host, and wait for the next
// image until the library is unloaded. Several threads may call at once. Without other threads, as in a
// process that could start none, the work takes longer, no more. The work neither throws nor forks.
//
// Not by OpenMP: its threads would outlive the library, and be missing in a process that was forked.
void ForRows(size_t rows, size_t least, RowWork work, const void* context);

template <class Work>
void ForRows(size_t rows, size_t least, const Work& work) {
  const auto call = [](const void* context, size_t first, size_t end) {
    (*static_cast<const Work*>(context))(first, end);
  };
  ForRows(rows, least, call, &work);
}

// The number of threads, whatever the processors and `least`; 0, the default, lets those decide. For tests.
extern std::atomic<size_t> g_rowThreads;

}  // namespace qn
