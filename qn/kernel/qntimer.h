// The process's clock: milliseconds and microseconds since the library was attached, or since an origin of
// the caller's.
//
// Before attach the readers work on the millisecond tick count; from attach on they work on the
// high-resolution counter, if the system has one. In the tick source all arithmetic has 32 bits and wraps as
// the tick count does. Readers take no lock and may be called from any thread. An origin belongs to one
// thread.
#pragma once

#include "qn/platform/types.h"

extern "C" {

// Time since attach; before attach, since the tick count's zero.
QN_API LONGLONG QnGetMillisec();
QN_API LONGLONG QnGetMicrosec();

// Time since `*origin`, a value that a delta function has stored. 0 for a null origin.
QN_API LONGLONG QnGetMillisecEx(const LONGLONG* origin);
QN_API LONGLONG QnGetMicrosecEx(const LONGLONG* origin);

// The same, and `*origin` moves to now, so that calls in a row measure spans without a gap. One call on any
// value gives an origin to start from. 0 for a null origin.
QN_API LONGLONG QnDeltaMillisecEx(LONGLONG* origin);
QN_API LONGLONG QnDeltaMicrosecEx(LONGLONG* origin);

// Does nothing; old clients call it.
QN_API void QnTimer_LateInitialize();
}
