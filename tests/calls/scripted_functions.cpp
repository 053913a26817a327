/* scripted_functions.cpp - the functions of node_client.h, as the scripted node has them. */
#include "scripted_state.hpp"

#include <cstdarg>

using namespace scripted;

extern "C"
{

const char nba_blank_name[8] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};
unsigned char *ptrc = scripted::control_block;
struct trc_api_state trc_api = {0, 3};

u16 appc_c_version(u16 version, void *record)
{
    expect_held("appc_c_version");
    Verb &verb = record_verb(Entry::synchronous, version, record, nullptr, 0);
    complete(verb);
    return 0;
}

u16 appc_c_async_version(u16 version, void *record, appc_completion *routine, u32 user_word)
{
    expect_held("appc_c_async_version");
    Verb &verb = record_verb(Entry::asynchronous, version, record, routine, user_word);
    if (verb.answer.when == Answer::later && routine != nullptr)
    {
        verb.pending = true;
        return NAP_IN_PROGRESS;
    }
    complete(verb);
    /* A context that nobody waits for: the library frees its record on 0x18F0, the routine in every other case. */
    if (verb.opcode == NAP_TP_ENDED && routine != nullptr)
    {
        return NAP_NO_CALLBACK;
    }
    return verb.answer.when == Answer::no_callback ? NAP_NO_CALLBACK : 1;
}

u16 nof_version(u16 version, u32 target_handle, void *record, void *buffer)
{
    expect_held("nof_version");
    Verb &verb = record_verb(Entry::operator_verb, version, record, nullptr, 0);
    verb.target_handle = target_handle;
    verb.buffer = buffer;
    if (verb.opcode == NOF_QUERY_SIDE_INFO && verb.answer.primary == 0)
    {
        const Bytes name = verb.bytes_at(30, 8);
        const auto found = node.side_info.find(std::string(name.begin(), name.end()));
        if (found == node.side_info.end())
        {
            verb.answer = fails(0x0200, 0x58100000);
        }
        else if (buffer != nullptr)
        {
            memcpy(buffer, &found->second, sizeof(found->second));
        }
    }
    complete(verb);
    return 0;
}

u16 vpm_lock(void)
{
    EXPECT_FALSE(node.held) << "vpm_lock: the lock is not recursive";
    node.held = true;
    node.lock_calls++;
    node.token = static_cast<u16>(node.token * 5u + 0x1235u);
    return node.token;
}

void vpm_unlock(u16 token)
{
    expect_held("vpm_unlock");
    EXPECT_EQ(node.token, token) << "vpm_unlock: token of vpm_lock";
    node.held = false;
}

u32 vpm_allocate_wait_object(void)
{
    expect_held("vpm_allocate_wait_object");
    if (node.wait_object.hits())
    {
        return 0;
    }
    const u32 object = 0x3000 + ++wait_objects_made;
    node.wait_objects[object] = false;
    return object;
}

void vpm_release_wait_object(u32 wait_object)
{
    expect_held("vpm_release_wait_object");
    EXPECT_EQ(1u, node.wait_objects.erase(wait_object)) << "released a wait object that does not exist";
}

int vpm_sleep(u32 wait_object, int timeout_ms)
{
    expect_held("vpm_sleep");
    node.sleeps.emplace_back(wait_object, timeout_ms);
    if (node.wait_objects.count(wait_object) == 0)
    {
        EXPECT_EQ(0, library_started) << "sleeps on a wait object that does not exist";
        return 1; /* released at a path failure: nothing will ever wake it */
    }
    const u16 token = node.token; /* the sleeper's again when it wakes, whoever had the lock meanwhile */
    node.held = false;
    int result = 0;
    if (!node.sleeps_do.empty())
    {
        const auto action = node.sleeps_do.front();
        node.sleeps_do.pop_front();
        result = action(wait_object);
    }
    else
    {
        /* The node at work meanwhile: verbs complete one by one, the oldest first, until one wakes the sleeper. */
        for (size_t i = 0; i < node.verbs.size() && !node.wait_objects[wait_object]; i++)
        {
            if (node.verbs[i].pending)
            {
                node.deliver(node.verbs[i]);
            }
        }
        if (!node.wait_objects[wait_object])
        {
            fprintf(stderr, "vpm_sleep: nothing is left that could wake the sleeper\n");
            abort();
        }
    }
    if (result == 0)
    {
        node.wait_objects[wait_object] = false;
    }
    if (library_started == 0)
    {
        node.wait_objects.erase(wait_object);
    }
    node.held = true;
    node.token = token;
    return result;
}

void vpm_wakeup(u32 wait_object)
{
    expect_held("vpm_wakeup");
    EXPECT_EQ(1u, node.wait_objects.count(wait_object)) << "wakes a wait object that does not exist";
    node.wait_objects[wait_object] = true;
    node.wakes.push_back(wait_object);
}

void vpm_asm_event_fd(void)
{
    EXPECT_FALSE(node.held) << "vpm_asm_event_fd called with the lock held";
    node.event_fd_calls++;
    if (node.deliver_on_event_fd)
    {
        node.deliver_all();
    }
}

void vpm_init_path_user(u32 unused1, u32 unused2, path_callback *callback, u32 user_word, u32 *path_user)
{
    expect_held("vpm_init_path_user");
    EXPECT_EQ(0u, unused1);
    EXPECT_EQ(0u, unused2);
    if (node.path_user.hits())
    {
        return;
    }
    node.path_routine = callback;
    node.path_word = user_word;
    *path_user = 0x9001;
    node.path_users.push_back(*path_user);
}

void vpm_terminate_path_user(u32 path_user)
{
    expect_held("vpm_terminate_path_user");
    ASSERT_EQ(1u, node.path_users.size()) << "not registered for path events";
    EXPECT_EQ(node.path_users[0], path_user);
    node.path_users.clear();
}

void vtm_table_init(u32 *table, u32 zero)
{
    expect_held("vtm_table_init");
    EXPECT_EQ(0u, zero);
    if (node.table_init.hits())
    {
        return;
    }
    tables_made++;
    *table = 0x7AB10000 + tables_made;
    node.tables[*table].open = true;
    node.tables[*table].last = tables_made << 20;
}

void vtm_table_terminate(u32 *table)
{
    expect_held("vtm_table_terminate");
    ASSERT_TRUE(node.tables.count(*table) != 0 && node.tables[*table].open) << "terminates a table that is not there";
    node.tables[*table] = Table();
    *table = 0;
}

u32 vtm_get_free_entry(u32 table, void *record)
{
    expect_held("vtm_get_free_entry");
    EXPECT_TRUE(node.tables.count(table) != 0 && node.tables[table].open) << "entry of a table that is not there";
    if (node.table_entry.hits())
    {
        return 0;
    }
    Table &t = node.tables[table];
    t.last++;
    t.entries[t.last] = record;
    return t.last;
}

void *vtm_get_pointer(u32 table, u32 handle)
{
    expect_held("vtm_get_pointer");
    const auto t = node.tables.find(table);
    if (t == node.tables.end() || t->second.entries.count(handle) == 0)
    {
        return nullptr;
    }
    return t->second.entries[handle];
}

u32 vtm_get_next_used(u32 table, u32 handle)
{
    expect_held("vtm_get_next_used");
    const auto t = node.tables.find(table);
    if (table == 0 || t == node.tables.end())
    {
        return 0;
    }
    const auto entry = t->second.entries.upper_bound(handle);
    return entry == t->second.entries.end() ? 0 : entry->first;
}

void vtm_release_entry(u32 table, u32 handle)
{
    expect_held("vtm_release_entry");
    ASSERT_TRUE(node.tables.count(table) != 0) << "releases an entry of a table that is not there";
    EXPECT_EQ(1u, node.tables[table].entries.erase(handle)) << "releases an entry that is not in use";
}

void *nba_mm_alloc(u32 size, u16 type, const char *name)
{
    expect_held("nba_mm_alloc");
    EXPECT_EQ(nba_blank_name, name) << "every allocation of the library has the blank name";
    if (node.allocation.hits())
    {
        return nullptr;
    }
    u8 *raw = static_cast<u8 *>(malloc(size + 2 * guard_size));
    memset(raw, guard_byte, size + 2 * guard_size);
    memset(raw + guard_size, fresh_byte, size);
    node.memory[raw + guard_size] = {size, type};
    return raw + guard_size;
}

/* The memory stays with the test until its end, so that a late write is noticed. Null is taken as free() takes it: the
 * library hands it on only after a check has failed on it. */
void nba_mm_free(void *memory)
{
    expect_held("nba_mm_free");
    if (memory == nullptr)
    {
        return;
    }
    const auto block = node.memory.find(memory);
    ASSERT_TRUE(block != node.memory.end()) << "frees memory that is not allocated";
    check_guards(memory, block->second.size);
    for (const auto &table : node.tables)
    {
        for (const auto &entry : table.second.entries)
        {
            EXPECT_NE(entry.second, memory) << "frees a record that a table entry still points at";
        }
    }
    memset(memory, dead_byte, block->second.size);
    freed[memory] = Bytes(block->second.size, dead_byte);
    node.memory.erase(block);
}

static Log read_log(bool audit, u32 code, u32 detail, const char *format, va_list arguments)
{
    Log log = {audit, code, detail, format, {}};
    const std::string items = log.format + " ";
    size_t start = 0;
    for (size_t i = 0; i < items.size(); i++)
    {
        if (items[i] != ' ')
        {
            continue;
        }
        const std::string item = items.substr(start, i - start);
        start = i + 1;
        if (item == "x" || item == "lx" || item == "l")
        {
            log.items.emplace_back(va_arg(arguments, u32), Bytes());
        }
        else if (item == "ba" || item == "ca" || item == "es")
        {
            const u8 *p = va_arg(arguments, const u8 *);
            const u32 length = va_arg(arguments, u32);
            log.items.emplace_back(length, Bytes(p, p + length));
        }
        else
        {
            EXPECT_EQ("", item) << "unknown item in a log format";
        }
    }
    return log;
}

void nba_pd_print_problem(u32 code, u32 detail, const char *format, ...)
{
    expect_held("nba_pd_print_problem");
    va_list arguments;
    va_start(arguments, format);
    node.problems.push_back(read_log(false, code, detail, format, arguments));
    va_end(arguments);
}

void nba_pd_print_audit(u32 code, u32 detail, const char *format, ...)
{
    expect_held("nba_pd_print_audit");
    va_list arguments;
    va_start(arguments, format);
    node.audits.push_back(read_log(true, code, detail, format, arguments));
    va_end(arguments);
}

void v0_assert(const char *source, int line, const char *expression)
{
    expect_held("v0_assert");
    EXPECT_NE(nullptr, source);
    EXPECT_LT(0, line);
    node.assertions.push_back(expression);
}

void sepuapi_init(unsigned char *)
{
}

void trc_lock_file(struct trc_api_state *)
{
}

void trc_unlock_file(struct trc_api_state *)
{
}

void com_trc_sep(int, const char *tag)
{
    node.trace.emplace_back("sep", tag);
}

void com_trc_line(int, const char *, const char *text)
{
    node.trace.emplace_back("line", text);
}

void com_trc_dump(int, const char *, const void *address, u32 length)
{
    node.trace.emplace_back("dump", hex(address, length));
}

} /* extern "C" */
