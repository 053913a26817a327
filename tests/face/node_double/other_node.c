/* other_node.c - a second node client library, as small as can be: it says which verb it was handed and lets every one
 * succeed. It shows that the library runs over any library with the functions of node_client.h. One thread, no partner,
 * nothing is logged. */
#include "node_client.h"
#include "node_verbs.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define ENTRIES 100

static void *records[ENTRIES]; /* all tables share them; handle 1 is entry 0 */
static unsigned char control[PTRC_SIZE];
unsigned char *ptrc = control;
struct trc_api_state trc_api = {0, -1};
const char nba_blank_name[8] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};

u16 appc_c_version(u16 version, void *record)
{
    unsigned char *verb = record;
    u16 opcode;

    (void)version;
    memcpy(&opcode, verb, sizeof opcode);
    printf("other node: verb %04X\n", opcode);
    memset(verb + 4, 0, 2);
    memset(verb + 8, 0, 4);
    if (opcode == 0x0014)
        memcpy(verb + 20, "OTHERTP1", 8);
    if (opcode == 0x0001)
        verb[20] = 1;
    return 0;
}

u16 appc_c_async_version(u16 version, void *record, appc_completion *routine, u32 user_word)
{
    (void)routine;
    (void)user_word;
    return appc_c_version(version, record);
}

u16 nof_version(u16 version, u32 target_handle, void *verb, void *buffer)
{
    (void)version;
    (void)target_handle;
    (void)verb;
    (void)buffer;
    return 0;
}

u16 vpm_lock(void) { return 0; }
void vpm_unlock(u16 token) { (void)token; }
u32 vpm_allocate_wait_object(void) { return 1; }
void vpm_release_wait_object(u32 wait_object) { (void)wait_object; }
int vpm_sleep(u32 wait_object, int timeout_ms) { return (void)wait_object, (void)timeout_ms, 1; }
void vpm_wakeup(u32 wait_object) { (void)wait_object; }
void vpm_asm_event_fd(void) {}

void vpm_init_path_user(u32 unused1, u32 unused2, path_callback *callback, u32 user_word, u32 *path_user)
{
    (void)unused1;
    (void)unused2;
    (void)callback;
    (void)user_word;
    *path_user = 1;
}

void vpm_terminate_path_user(u32 path_user) { (void)path_user; }

void vtm_table_init(u32 *table, u32 zero)
{
    static u32 tables;

    (void)zero;
    *table = ++tables;
}

void vtm_table_terminate(u32 *table) { *table = 0; }

u32 vtm_get_free_entry(u32 table, void *record)
{
    static u32 used;

    (void)table;
    if (used == ENTRIES)
        return 0;
    records[used++] = record;
    return used;
}

void *vtm_get_pointer(u32 table, u32 handle)
{
    (void)table;
    return handle >= 1 && handle <= ENTRIES ? records[handle - 1] : NULL;
}

u32 vtm_get_next_used(u32 table, u32 handle)
{
    (void)table;
    while (handle < ENTRIES && !records[handle])
        ++handle;
    return handle < ENTRIES ? handle + 1 : 0;
}

void vtm_release_entry(u32 table, u32 handle)
{
    (void)table;
    records[handle - 1] = NULL;
}

void *nba_mm_alloc(u32 size, u16 type, const char *name) { return (void)type, (void)name, malloc(size); }
void nba_mm_free(void *memory) { free(memory); }

void nba_pd_print_problem(u32 code, u32 detail, const char *format, ...) { (void)code, (void)detail, (void)format; }
void nba_pd_print_audit(u32 code, u32 detail, const char *format, ...) { (void)code, (void)detail, (void)format; }
void v0_assert(const char *source, int line, const char *expression) { printf("%s:%d: %s\n", source, line, expression); }

void sepuapi_init(unsigned char *given) { (void)given; }
void trc_lock_file(struct trc_api_state *state) { (void)state; }
void trc_unlock_file(struct trc_api_state *state) { (void)state; }
void com_trc_sep(int handle, const char *tag) { (void)handle, (void)tag; }
void com_trc_line(int handle, const char *tag, const char *text) { (void)handle, (void)tag, (void)text; }
void com_trc_dump(int handle, const char *tag, const void *address, u32 length)
{
    (void)handle, (void)tag, (void)address, (void)length;
}
