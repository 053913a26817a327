// nof.cpp - node operator verbs: open the node, query side information, close. A query gives the lock up while it waits
// for the broker, like any other verb that waits.
#include "client/export.hpp"
#include "client/link.hpp"
#include "client/tp.hpp"

#include <cstring>

namespace client {

namespace {

// The one target there is: this node.
constexpr u32 this_node = 1;

static_assert(sizeof(wire::side_info::record) == NOF_RECORD_SIZE);

void query(NOF_QUERY_SIDE_INFO_VERB *verb, u8 *buffer)
{
    if (buffer == nullptr || verb->buffer_length < NOF_RECORD_SIZE)
    {
        runtime_set_rc(verb, wire::rc_parameter_check, wire::rc_bad_length);
        return;
    }
    wire::query_side_info question = {};
    std::memcpy(question.sym_dest_name, verb->sym_dest_name, sizeof question.sym_dest_name);
    wire::side_info answer;
    if (link_call(question.head, sizeof question, wire::message_kind::query_side_info, &answer, sizeof answer,
                  wire::message_kind::side_info) != called::answered)
    {
        set_rc_no_path(verb);
        return;
    }
    if (answer.status.primary == wire::rc_ok)
    {
        std::memcpy(buffer, answer.record, NOF_RECORD_SIZE);
    }
    // The record may hold a password.
    std::memset(answer.record, 0, sizeof answer.record);
    asm volatile("" : : "r"(answer.record) : "memory");
    runtime_set_rc(verb, answer.status.primary, answer.status.secondary);
}

} // namespace

} // namespace client

using namespace client;

CPICNODE_EXPORT u16 nof_version(u16, u32 target_handle, void *verb, void *buffer)
{
    u16 opcode;
    std::memcpy(&opcode, verb, sizeof opcode);
    if (opcode == NOF_OPEN)
    {
        auto *open = static_cast<NOF_OPEN_VERB *>(verb);
        open->target_handle = broker.fd >= 0 ? this_node : NB_NULL_HANDLE;
        if (broker.fd >= 0)
        {
            runtime_set_rc(verb, wire::rc_ok, 0);
        }
        else
        {
            set_rc_no_path(verb);
        }
    }
    else if (opcode != NOF_QUERY_SIDE_INFO && opcode != NOF_CLOSE)
    {
        runtime_set_rc(verb, wire::rc_invalid_verb, 0);
    }
    else if (target_handle != this_node)
    {
        runtime_set_rc(verb, wire::rc_parameter_check, 0);
    }
    else if (opcode == NOF_CLOSE)
    {
        runtime_set_rc(verb, wire::rc_ok, 0);
    }
    else
    {
        query(static_cast<NOF_QUERY_SIDE_INFO_VERB *>(verb), static_cast<u8 *>(buffer));
    }
    if (broker.broken)
    {
        path_lost();
    }
    return 0;
}
