// items.hpp - what the trace records of each call show; items.cpp has the tables.
#ifndef VCPIC_TRACE_ITEMS_HPP
#define VCPIC_TRACE_ITEMS_HPP

#include "cpicpriv.h"

// What a record is written from.
struct trace_source
{
    const CCCB *cccb;         // never null: blank when the call has no conversation
    const void *arguments[6]; // as the table in items.cpp lists them; null: the item is left out
};

// Writes the lines of a call's record below the header: of its request, or of its response. A number that is no call's
// writes nothing.
void print_items(int handle, u16 call, bool request, const trace_source &source);

#endif
