// What the platform layer gives back when the library is unloaded.
#pragma once

namespace qn {

// End the threads of the library: in a fork's child those that it has started itself. What they do is left to
// the threads of others from then on, or not done.
void StopServing();
void EndRowThreads();

// These run last, when whoever links the library has run its destructors: other code that runs at the end of
// a process may still use handles and settings. What is asked for after them is made anew.

// Closes all handles that are still open, and with them their files, locks and mappings.
void ReleaseHandles();
// Ends the views that are still there, unless another thread may be working with them.
void ReleaseViews();
// Closes the settings; a connection that another thread is working with stays open.
void ReleaseRegistry();
void ReleaseCollation();

// To be called when the library is loaded. Keeps the libraries that this one stands on loaded for the rest of
// the process: they hold caches in memory that they do not give back when they are unloaded, so that each
// coming and going would cost it once more.
void PrepareUnload();

// Other threads may be about to use something when a process ends, which looks like unloading from here.
bool IsOnlyThread();

// True in a child that another thread's fork made of the process that loaded the library. What its unloading
// would take may be held for good by threads that the child does not have, and goes with the child anyway.
bool IsForkedCopy();

}  // namespace qn
