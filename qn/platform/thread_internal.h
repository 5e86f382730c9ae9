// Threads of the library's own.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <initializer_list>

namespace qn {

// Starts a thread, to be joined by the caller; false without. The host's signals are for the host's threads:
// it has all of them blocked, until it takes the faults.
inline bool StartThread(pthread_t* thread, void* (*run)(void*), void* argument) {
  sigset_t all, before;
  sigfillset(&all);
  // A new thread has the signal mask of its creator.
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const int error = pthread_create(thread, nullptr, run, argument);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return error == 0;
}

// To be called first by such a thread. Its failing instructions are to be heard of, by the filters and by
// sandboxes that answer for calls which they refuse; while they are blocked they end the process.
inline void TakeFaults() {
  sigset_t faults;
  sigemptyset(&faults);
  for (const int fault : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGTRAP, SIGSYS}) sigaddset(&faults, fault);
  pthread_sigmask(SIG_UNBLOCK, &faults, nullptr);
}

}  // namespace qn
