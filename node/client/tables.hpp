// tables.hpp - handle tables: records that are named by a 32-bit handle. The library's own tables (vtm_*) and those
// of the runtime (conversations, TPs, wait objects, requests to the broker) are the same thing.
//
// lock: held throughout.
#pragma once

#include "node_client.h"

namespace client {

// A handle is the entry's number plus one in the low 20 bits and the entry's generation above. The generation goes up
// with every release, and a released entry rests until 256 others have been released after it, or the table is full;
// so a handle comes back after a million uses of the table at the earliest.
inline constexpr u32 table_index_bits = 20;
inline constexpr u32 table_capacity = (1u << table_index_bits) - 1;
inline constexpr u32 table_rest = 256;

struct table_entry
{
    void *record;   // of a used entry
    u32 next_free;  // of a free entry: the next in the queue of free entries, table_none at its end
    u16 generation; // 0 to 4095
    bool used;
};

struct handle_table
{
    table_entry *entries;
    u32 *used_words;   // bit i: entry i is used
    u32 *summary;      // bit w: used_words[w] is not 0
    u32 size;          // entries that have been given out at least once
    u32 allocated;     // entries that there is memory for, a multiple of 1024
    u32 used;          // entries in use
    u32 free_first;    // queue of free entries, longest free first
    u32 free_last;
    u32 free_count;
};

void table_begin(handle_table &table);
void table_end(handle_table &table); // frees its memory; the records are not touched
u32 table_add(handle_table &table, void *record); // 0: no memory, or full
void *table_find(const handle_table &table, u32 handle);
u32 table_next(const handle_table &table, u32 handle); // as vtm_get_next_used()
void table_remove(handle_table &table, u32 handle);    // a handle not in use: nothing happens

// Ends every table that was made with vtm_table_init() and not terminated (tests, child of a fork).
void tables_release_all();

} // namespace client
