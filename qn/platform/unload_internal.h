// What the platform layer gives back when the library is unloaded.
#pragma once

namespace qn {

// These run last, when whoever links the library has run its destructors: other code that runs at the end of
// a process may still use handles and settings. What is asked for after them is made anew.

// Closes all handles that are still open, and with them their files, locks and mappings.
void ReleaseHandles();
// Closes the settings; a connection that another thread is working with stays open.
void ReleaseRegistry();
void ReleaseCollation();

// Keeps the libraries that this one stands on loaded for the rest of the process. They hold caches in memory
// that they do not give back when they are unloaded, so that each coming and going would cost it once more.
void KeepLibraries();

}  // namespace qn
