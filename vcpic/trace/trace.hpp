// trace.hpp - the call trace: one record when a call is entered, one when it returns or completes later.
//
// The file, its switch and its lock belong to the node; what goes into a record is decided here. items.cpp holds what
// each call's records show and, in one table, which arguments every call passes; print.cpp writes the single items;
// names.cpp holds the names of values. Everything runs with the process-wide lock held, allocates nothing and changes
// nothing of a call: a record that cannot be written is dropped silently.
#ifndef VCPIC_TRACE_TRACE_HPP
#define VCPIC_TRACE_TRACE_HPP

#include "cpicpriv.h"

// Kinds of record. Every other kind is written as an asynchronous response; the calls of this library pass these two,
// also for completions.
enum trace_kind : u16
{
    TRACE_REQUEST = 1,
    TRACE_RESPONSE = 2,
};

#pragma GCC visibility push(default)
extern "C" {

// Writes one record of a call, when API trace is on and a trace file is open. Prepares the trace when this process has
// not done so yet, even with the trace off. call: call number, 0 to 62. cccb: the conversation; null: a blank one is
// shown. a1..a6: the call's arguments as items.cpp lists them; a null pointer leaves its item out of the record.
void seputrcp(u16 kind, u16 call, const CCCB *cccb, const void *a1, const void *a2, const void *a3, const void *a4,
              const void *a5, const void *a6);

// Writes one record to the trace file `handle`, whose lock is held.
void seputrcp_d(u16 kind, u16 call, const CCCB *cccb, const void *a1, const void *a2, const void *a3, const void *a4,
                const void *a5, const void *a6, int handle);

} // extern "C"
#pragma GCC visibility pop

// True when API trace is on: the test that a call pays for the trace on its way out. On its way in it also looks
// whether the trace has been prepared.
inline bool trace_on()
{
    return (ptrc[PTRC_API_BYTE] & PTRC_API_BIT) != 0;
}

// Prepares API tracing; to be called while trc_api.initialised is 0, whether the trace is on or off.
inline void trace_prepare()
{
    sepuapi_init(ptrc);
    trc_api.initialised = 1;
}

#endif
