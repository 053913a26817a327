// trace.cpp - writes the records of the call trace. Called by the call frame and by completions, with the process-wide
// lock held; takes the trace file's lock for each record. Tracing never changes what a call does, and reports nothing.
#include "trace/trace.hpp"

#include "trace/items.hpp"
#include "trace/print.hpp"

// Shown for calls without a conversation, so that their characteristics read as the names of zero.
static const CCCB no_conversation = {};

void seputrcp(u16 kind, u16 call, const CCCB *cccb, const void *a1, const void *a2, const void *a3, const void *a4,
              const void *a5, const void *a6)
{
    if (trc_api.initialised == 0)
    {
        trace_prepare();
    }
    if (!trace_on())
    {
        return;
    }
    trc_lock_file(&trc_api);
    if (trc_api.handle == -1)
    {
        // The node keeps no lock on a file that is not open: there is nothing to unlock.
        return;
    }
    seputrcp_d(kind, call, cccb, a1, a2, a3, a4, a5, a6, trc_api.handle);
    trc_unlock_file(&trc_api);
}

void seputrcp_d(u16 kind, u16 call, const CCCB *cccb, const void *a1, const void *a2, const void *a3, const void *a4,
                const void *a5, const void *a6, int handle)
{
    const trace_source source = {cccb != nullptr ? cccb : &no_conversation, {a1, a2, a3, a4, a5, a6}};
    const bool request = kind == TRACE_REQUEST;

    print_separator(handle);
    if (request)
    {
        print_request_header(handle, call);
    }
    else
    {
        print_response_header(handle, call, kind != TRACE_RESPONSE, a1);
    }
    print_items(handle, call, request, source);
}
