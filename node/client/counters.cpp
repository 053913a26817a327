// counters.cpp - the table of counters in shared memory. Lock held throughout.
#include "client/counters.hpp"

#include "client/system.hpp"
#include "client/tables.hpp"

namespace client {

namespace {

wire::counter_table *table; // null: none

} // namespace

int counters_open()
{
    if (table != nullptr)
    {
        return -1;
    }
    int fd = sys_shared_memory("cpicnode counters", sizeof(wire::counter_table));
    if (fd < 0)
    {
        return -1;
    }
    table = static_cast<wire::counter_table *>(sys_map_shared(fd, sizeof(wire::counter_table)));
    if (table == nullptr)
    {
        sys_close(fd);
        return -1;
    }
    return fd;
}

void counters_close()
{
    if (table != nullptr)
    {
        sys_unmap_page(table, sizeof(wire::counter_table));
        table = nullptr;
    }
}

wire::conversation_counters *counters_slot(u32 conv_id)
{
    // The low bits of an identifier number the entries from 1 on, and few are used at once: they name the slot too.
    u32 index = (conv_id & ((1u << table_index_bits) - 1)) - 1;
    if (table == nullptr || index >= wire::counter_slots)
    {
        return nullptr;
    }
    if (table->used <= index)
    {
        table->used = index + 1;
    }
    return &table->slots[index];
}

} // namespace client
