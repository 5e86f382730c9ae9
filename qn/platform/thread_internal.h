// Threads of the library's own.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <initializer_list>

namespace qn {

// Starts a thread, to be joined by the caller; false without. The host's signals are for the host's threads,
// but for those of an instruction that fails, which come to the thread that failed or end the process.
inline bool StartThread(pthread_t* thread, void* (*run)(void*), void* argument) {
  sigset_t blocked, before;
  sigfillset(&blocked);
  for (const int failure : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGSYS}) sigdelset(&blocked, failure);
  // A new thread has the signal mask of its creator, whatever that one blocks.
  pthread_sigmask(SIG_SETMASK, &blocked, &before);
  const int error = pthread_create(thread, nullptr, run, argument);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return error == 0;
}

}  // namespace qn
