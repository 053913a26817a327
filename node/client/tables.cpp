// tables.cpp - handle tables, and the library's entry points to them.
#include "client/tables.hpp"

#include "client/export.hpp"
#include "client/system.hpp"

#include <cstring>

namespace client {

namespace {

constexpr u32 table_none = 0xFFFFFFFF;
constexpr u32 index_mask = (1u << table_index_bits) - 1;
constexpr u32 generation_mask = 0xFFF;
constexpr u32 step = 1024; // entries per word of the summary

u32 handle_of(const handle_table &table, u32 index)
{
    return static_cast<u32>(table.entries[index].generation) << table_index_bits | (index + 1);
}

// The entry that a handle names, or null when it is not in use.
table_entry *entry_of(const handle_table &table, u32 handle)
{
    u32 index = (handle & index_mask) - 1;
    if (index >= table.size)
    {
        return nullptr;
    }
    table_entry *entry = &table.entries[index];
    return entry->used && entry->generation == handle >> table_index_bits ? entry : nullptr;
}

// Room for twice as many entries, at most for table_capacity. False: no memory, and nothing has changed.
bool table_grow(handle_table &table)
{
    u32 wanted = table.allocated == 0 ? step : table.allocated * 2;
    std::size_t entry_bytes = wanted * sizeof(table_entry);
    std::size_t word_bytes = wanted / 32 * sizeof(u32);
    std::size_t summary_bytes = wanted / step * sizeof(u32);
    // One piece of memory, the entries first.
    auto *memory = static_cast<unsigned char *>(sys_alloc(entry_bytes + word_bytes + summary_bytes));
    if (memory == nullptr)
    {
        return false;
    }
    auto *words = memory + entry_bytes;
    auto *summary = words + word_bytes;
    std::memset(words, 0, word_bytes + summary_bytes);
    if (table.allocated != 0)
    {
        std::memcpy(memory, table.entries, table.size * sizeof(table_entry));
        std::memcpy(words, table.used_words, table.allocated / 32 * sizeof(u32));
        std::memcpy(summary, table.summary, table.allocated / step * sizeof(u32));
        sys_free(table.entries);
    }
    table.entries = reinterpret_cast<table_entry *>(memory);
    table.used_words = reinterpret_cast<u32 *>(words);
    table.summary = reinterpret_cast<u32 *>(summary);
    table.allocated = wanted;
    return true;
}

// The longest free entry, out of the queue.
u32 take_free(handle_table &table)
{
    u32 index = table.free_first;
    table.free_first = table.entries[index].next_free;
    if (table.free_first == table_none)
    {
        table.free_last = table_none;
    }
    table.free_count--;
    return index;
}

} // namespace

void table_begin(handle_table &table)
{
    table = {};
    table.free_first = table_none;
    table.free_last = table_none;
}

void table_end(handle_table &table)
{
    sys_free(table.entries);
    table_begin(table);
}

u32 table_add(handle_table &table, void *record)
{
    u32 index;
    bool fresh = table.free_count < table_rest && table.size < table_capacity &&
                 (table.size < table.allocated || table_grow(table));
    if (fresh)
    {
        index = table.size++;
        table.entries[index].generation = 0;
    }
    else if (table.free_count != 0)
    {
        index = take_free(table);
    }
    else
    {
        return NB_NULL_HANDLE;
    }
    table_entry &entry = table.entries[index];
    entry.record = record;
    entry.used = true;
    table.used_words[index / 32] |= 1u << index % 32;
    table.summary[index / step] |= 1u << index / 32 % 32;
    table.used++;
    return handle_of(table, index);
}

void *table_find(const handle_table &table, u32 handle)
{
    const table_entry *entry = entry_of(table, handle);
    return entry == nullptr ? nullptr : entry->record;
}

u32 table_next(const handle_table &table, u32 handle)
{
    // The handle may have been released: only its place counts. Handle 0 begins at entry 0.
    u32 start = handle & index_mask;
    if (start >= table.size)
    {
        return NB_NULL_HANDLE;
    }
    u32 word = start / 32;
    u32 bits = table.used_words[word] & ~0u << start % 32;
    if (bits == 0)
    {
        // The next word with a used entry, found through the summary. Shifting by one twice: the word may be the last
        // of its group.
        u32 group = word / 32;
        u32 words = table.summary[group] & ~0u << word % 32 << 1;
        while (words == 0)
        {
            if (++group >= table.allocated / step)
            {
                return NB_NULL_HANDLE;
            }
            words = table.summary[group];
        }
        word = group * 32 + static_cast<u32>(__builtin_ctz(words));
        bits = table.used_words[word];
    }
    return handle_of(table, word * 32 + static_cast<u32>(__builtin_ctz(bits)));
}

void table_remove(handle_table &table, u32 handle)
{
    table_entry *entry = entry_of(table, handle);
    if (entry == nullptr)
    {
        return;
    }
    u32 index = static_cast<u32>(entry - table.entries);
    entry->used = false;
    entry->record = nullptr;
    entry->generation = static_cast<u16>((entry->generation + 1u) & generation_mask);
    entry->next_free = table_none;
    if (table.free_last == table_none)
    {
        table.free_first = index;
    }
    else
    {
        table.entries[table.free_last].next_free = index;
    }
    table.free_last = index;
    table.free_count++;
    table.used--;
    u32 word = index / 32;
    table.used_words[word] &= ~(1u << index % 32);
    if (table.used_words[word] == 0)
    {
        table.summary[index / step] &= ~(1u << word % 32);
    }
}

// ---- the library's tables: a table word is the handle of a table in the table of tables ----------------------------

namespace {

handle_table tables = {nullptr, nullptr, nullptr, 0, 0, 0, table_none, table_none, 0};

handle_table *table_of(u32 word)
{
    return static_cast<handle_table *>(table_find(tables, word));
}

} // namespace

void tables_release_all()
{
    for (u32 word = table_next(tables, NB_NULL_HANDLE); word != NB_NULL_HANDLE; word = table_next(tables, word))
    {
        handle_table *table = table_of(word);
        table_end(*table);
        sys_free(table);
    }
    table_end(tables);
}

} // namespace client

using namespace client;

CPICNODE_EXPORT void vtm_table_init(u32 *table, u32)
{
    *table = NB_NULL_HANDLE;
    auto *made = static_cast<handle_table *>(sys_alloc(sizeof(handle_table)));
    if (made == nullptr)
    {
        return;
    }
    table_begin(*made);
    *table = table_add(tables, made);
    if (*table == NB_NULL_HANDLE)
    {
        sys_free(made);
    }
}

CPICNODE_EXPORT void vtm_table_terminate(u32 *table)
{
    handle_table *found = table_of(*table);
    if (found != nullptr)
    {
        table_end(*found);
        sys_free(found);
        table_remove(tables, *table);
    }
    *table = NB_NULL_HANDLE;
}

CPICNODE_EXPORT u32 vtm_get_free_entry(u32 table, void *record)
{
    handle_table *found = table_of(table);
    return found == nullptr ? NB_NULL_HANDLE : table_add(*found, record);
}

CPICNODE_EXPORT void *vtm_get_pointer(u32 table, u32 handle)
{
    const handle_table *found = table_of(table);
    return found == nullptr ? nullptr : table_find(*found, handle);
}

CPICNODE_EXPORT u32 vtm_get_next_used(u32 table, u32 handle)
{
    const handle_table *found = table_of(table);
    return found == nullptr ? NB_NULL_HANDLE : table_next(*found, handle);
}

CPICNODE_EXPORT void vtm_release_entry(u32 table, u32 handle)
{
    handle_table *found = table_of(table);
    if (found != nullptr)
    {
        table_remove(*found, handle);
    }
}
