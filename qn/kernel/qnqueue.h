// Message queues: intrusive rings of elements that the client owns, between any number of producers and
// consumers that can wait. The element is the first part of the client's record, so nothing is ever
// allocated.
//
//   struct Order { tQNQELM element; int what; };
//
//   tQNQHEAD queue = {};
//   QnQueueInitialize(&queue);
//   QnQueueInsert(&queue, &order->element);                                        // a producer
//   auto* next = reinterpret_cast<Order*>(QnQueueRemove(&queue, INFINITE));         // a consumer
//   QnQueueDelete(&queue);                                                          // consumers get null
//
// Threads: all functions may be called by any thread at any time, but for QnQueueInitialize of a head that is
// not live, or beside a QnQueueDelete. Predicates run inside the queue's recursive lock: they may use the
// queue and may not wait. One that takes the element that it looks at out of the queue, also by emptying it,
// ends the walk without a hit.
//
// Misuse (a null head or element, a head that was never initialised) does nothing and gives null or 0.
#pragma once

#include "qn/platform/sync.h"
#include "qn/platform/wait.h"

// An element. Both links are null while it is in no queue; every removal clears them.
typedef struct tQNQELM {
  struct tQNQELM* next;  // the next element, or the head at the end
  struct tQNQELM* prev;  // the previous element, or the head at the front
} tQNQELM;

// The head, zero-filled before its first use. Its links are those of the ring: `next` is the first element
// and `prev` the last, or both the head itself.
typedef struct tQNQHEAD : tQNQELM {
  CRITICAL_SECTION lock;
  HANDLE event;  // manual-reset, signalled while there are elements; null when there is no live queue
} tQNQHEAD;
static_assert(sizeof(tQNQELM) == 16 && sizeof(tQNQHEAD) == 64 && std::is_trivial_v<tQNQHEAD>);

// Flags of QnQueueRemoveEx; the low 16 bits are a wake mask, QS_*.
constexpr DWORD QNQUEUE_WAIT_ALL = 0x10000;         // MWMO_WAITALL
constexpr DWORD QNQUEUE_ALERTABLE = 0x20000;        // MWMO_ALERTABLE
constexpr DWORD QNQUEUE_INPUT_AVAILABLE = 0x40000;  // MWMO_INPUTAVAILABLE
constexpr DWORD QNQUEUE_PUMP = 0x80000;             // let sent messages and alerts in, and go on waiting

// Nonzero for a hit.
typedef LONG (*QNQUEUEMATCH)(tQNQELM* element, ULONGLONG parameter);

extern "C" {

// Makes the lock and the event of a head that has none; a live queue keeps them. Either way the queue is
// empty afterwards and its event unsignalled. 1, or 0 if the event could not be made.
QN_API BOOL QnQueueInitialize(tQNQHEAD* head);

// Ends a queue: all that wait for it return null. Elements that are still linked are not told, their links
// stay. The head must stay until the waits have returned; it can be initialised again once they have.
QN_API void QnQueueDelete(tQNQHEAD* head);

// Empties a queue without touching its elements and signals the event: waits end and find nothing. It stays
// signalled until the next removal that empties the queue.
QN_API void QnQueueFlush(tQNQHEAD* head);

// Insert an element that is in no queue, at the tail or at the front. Only the insertion into an empty queue
// signals the event.
QN_API void QnQueueInsert(tQNQHEAD* head, tQNQELM* element);
QN_API void QnQueueInsertHead(tQNQHEAD* head, tQNQELM* element);

// Insert an element directly before the first hit of a walk from the front or from the back; without a hit at
// the tail. Both go before the hit: they differ only in the hit that they find. With a null element there is
// just the walk.
QN_API void QnQueueInsertEx(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter, tQNQELM* element);
QN_API void QnQueueInsertExRev(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter, tQNQELM* element);

// Take the first element out, waiting up to `timeout` milliseconds for one (INFINITE: without end). Null if
// the queue stays empty, is deleted, or another consumer was faster than a wait that has ended. Alertable:
// alerts of the thread and sent messages are let in meanwhile.
QN_API tQNQELM* QnQueueRemove(tQNQHEAD* head, DWORD timeout);
QN_API tQNQELM* QnQueueRemoveAlertable(tQNQHEAD* head, DWORD timeout);

// Takes the first element out, waiting for it, for handles and for input as MsgWaitForMultipleObjectsEx does.
//   handles, handleCount  handles that end the wait with null; at most 62. Null handles count as none
//   flags                 QNQUEUE_* and QS_*
//   waitResult            if not null, receives the result of the latest wait; as it was without one.
//                         0 is the queue's event, 1 to `handleCount` a handle, `handleCount` + 1 input
// With QNQUEUE_PUMP alerts and sent messages do not end the wait; anything else but the queue's event does.
QN_API tQNQELM* QnQueueRemoveEx(tQNQHEAD* head, const HANDLE* handles, DWORD handleCount, DWORD flags,
                                DWORD timeout, DWORD* waitResult);

// Takes the last element out, with one wait for it as QnQueueRemove.
QN_API tQNQELM* QnQueueRemoveTail(tQNQHEAD* head, DWORD timeout);

// Waits for the queue to have an element, and leaves it there: 1 if it has, else 0. Looks without the lock,
// so that another consumer may have it by now.
QN_API BOOL QnQueueWait(tQNQHEAD* head, DWORD timeout);

// The first hit from the front or, Rev, from the back; null for none.
QN_API tQNQELM* QnQueueFind(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter);
QN_API tQNQELM* QnQueueFindRev(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter);

// The same, and the hit is taken out.
QN_API tQNQELM* QnQueueFindAndRemove(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter);
QN_API tQNQELM* QnQueueFindAndRemoveRev(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter);

// The first hit from the front, which moves to the front or to the tail.
QN_API tQNQELM* QnQueueFindAndMoveToHead(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter);
QN_API tQNQELM* QnQueueFindAndMoveToTail(tQNQHEAD* head, QNQUEUEMATCH match, ULONGLONG parameter);

// Move an element to the front or to the tail: 1 if it moved, 0 if it is not in the queue or already there.
QN_API BOOL QnQueueMoveToHead(tQNQHEAD* head, tQNQELM* element);
QN_API BOOL QnQueueMoveToTail(tQNQHEAD* head, tQNQELM* element);

// 1 if the element is in this queue, else 0; without the lock if one of its links is null.
QN_API BOOL IsInQnQueue(tQNQHEAD* head, tQNQELM* element);
}
