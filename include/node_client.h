/* node_client.h - what the CPI-C library asks of the node client library.
 *
 * Every declaration that the library and a node client library share stands here and nowhere else, so that the
 * library, the local node and every test double agree. The header is C and C++; all functions have C linkage and
 * the 32-bit C calling convention.
 *
 * The lock: vpm_lock() is the one lock of the process. A line "lock: held" means that the caller holds it; the
 * library holds it for the whole of every CPI-C call. Completion routines and the path callback run with it held.
 *
 * Byte order: primary and secondary return codes stand in a verb record in network byte order. As machine words on
 * this little-endian platform they therefore look turned round: the bytes 00 03 are the word 0x0300.
 */
#ifndef NODE_CLIENT_H
#define NODE_CLIENT_H

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned short u16;
typedef unsigned int u32;

/* No handle: a table word, table entry, wait object or path user that does not exist. */
#define NB_NULL_HANDLE 0u

/* ---- verbs ---------------------------------------------------------------------------------------------- */

/* Version passed with every verb. */
#define NAP_VERSION 2

/* Results of appc_c_async_version(); every other result says that the verb is complete already. */
#define NAP_IN_PROGRESS 0x17F0 /* accepted: the completion routine will be called */
#define NAP_NO_CALLBACK 0x18F0 /* the completion routine will not be called */

/* Completion routine of a verb. record: the verb record as it was issued; the two middle words are not used;
 * user_word: as given when the verb was issued. lock: held. */
typedef void appc_completion(void *record, u32 unused1, u32 unused2, u32 user_word);

/* For both ways of issuing a verb: the record stays the node's until the verb is complete. Ending a TP completes the
 * verbs of its conversations first.
 *
 * Issues a verb and returns when it is complete; the return codes are in the record, the result is not used.
 * lock: held; given up and taken back while the verb has to wait. */
u16 appc_c_version(u16 version, void *record);

/* Issues a verb. With a null routine it always completes before the return (the lock is given up while it waits).
 * With a routine the answer is NAP_IN_PROGRESS (routine is called once, later), NAP_NO_CALLBACK (routine is never
 * called), or anything else (complete; routine is not called). lock: held. */
u16 appc_c_async_version(u16 version, void *record, appc_completion *routine, u32 user_word);

/* Issues a node operator verb, synchronously. target_handle: 0 to open the node, then the handle which that gave.
 * buffer: the record buffer of a query, null where the verb has none. lock: held. */
u16 nof_version(u16 version, u32 target_handle, void *verb, void *buffer);

/* ---- lock, waiting, path -------------------------------------------------------------------------------- */

/* Takes the process-wide lock, which is not recursive; the token is given back to vpm_unlock(). */
u16 vpm_lock(void);
void vpm_unlock(u16 token);

/* A wait object, or 0 when there is none to be had. lock: held. */
u32 vpm_allocate_wait_object(void);
void vpm_release_wait_object(u32 wait_object);

/* Gives the lock up, sleeps, takes the lock back. 0: woken. Other: timed out or failed. timeout_ms: -1 is no limit.
 * A wake-up that came while nobody slept is kept, and the next sleep returns at once; 0 is never returned without a
 * wake-up. lock: held. */
int vpm_sleep(u32 wait_object, int timeout_ms);

/* Wakes every sleeper of the object. lock: held. */
void vpm_wakeup(u32 wait_object);

/* Delivers the events that are due. lock: not held. */
void vpm_asm_event_fd(void);

#define PATH_EVENT_FAILURE 0x8001 /* code of a path_event: the path to the node is lost */

struct path_event
{
    u16 code;   /* in: PATH_EVENT_FAILURE; other codes are ignored */
    u16 result; /* out: set by the callback */
};

/* lock: held, and no call of the library is under way in any thread, not even one that waits with the lock given up:
 * the library frees every record it has. */
typedef u32 path_callback(u32 user_word, struct path_event *event);

/* Registers a path user; *path_user stays 0 on failure. lock: held. */
void vpm_init_path_user(u32 unused1, u32 unused2, path_callback *callback, u32 user_word, u32 *path_user);
void vpm_terminate_path_user(u32 path_user);

/* ---- handle tables (lock: held throughout) -------------------------------------------------------------- */

/* Makes a table of records; *table stays 0 on failure. */
void vtm_table_init(u32 *table, u32 zero);

/* Ends a table and clears *table; the records are not touched. */
void vtm_table_terminate(u32 *table);

/* The new entry's handle, or 0 when the table is full. */
u32 vtm_get_free_entry(u32 table, void *record);

/* The record, or null for a handle that is not in use. */
void *vtm_get_pointer(u32 table, u32 handle);

/* The first used entry for handle 0, else the next used entry after it in table order; 0 at the end, and always 0
 * for a table word that is 0. The handle given may have been released already. */
u32 vtm_get_next_used(u32 table, u32 handle);

/* A released handle is not given out again at once: a stale conversation ID must not reach a new record. */
void vtm_release_entry(u32 table, u32 handle);

/* ---- memory, logs, assertions --------------------------------------------------------------------------- */

/* size in bytes; null when there is no memory; the contents are undefined. type and name only label the memory. */
void *nba_mm_alloc(u32 size, u16 type, const char *name);
void nba_mm_free(void *memory);

/* Eight ASCII blanks (no terminating zero): the name of every allocation of the library. */
extern const char nba_blank_name[8];

/* Problem and audit log records. The format names the data that follow, one item per blank-separated word; the
 * empty string means none:
 *   x   u32 holding a 16-bit value, shown in hexadecimal
 *   lx  u32, shown in hexadecimal
 *   l   u32, shown as a signed decimal
 *   ba  const void *, then u32 length: bytes
 *   ca  const void *, then u32 length: ASCII characters
 *   es  const void *, then u32 length: EBCDIC characters */
void nba_pd_print_problem(u32 code, u32 detail, const char *format, ...);
void nba_pd_print_audit(u32 code, u32 detail, const char *format, ...);

/* Reports a failed check and returns. */
void v0_assert(const char *source, int line, const char *expression);

/* ---- trace ---------------------------------------------------------------------------------------------- */

/* The node's trace-control block, 16 bytes. */
extern unsigned char *ptrc;
#define PTRC_SIZE 16
#define PTRC_API_BYTE 0 /* byte and bit: API trace is on */
#define PTRC_API_BIT 0x20
#define PTRC_AUDIT_BYTE 8 /* byte and bit: audit records are suppressed */
#define PTRC_AUDIT_BIT 0x02

struct trc_api_state
{
    unsigned char initialised; /* set by the library once it has called sepuapi_init() */
    int handle;                /* the open trace file, -1: none */
};
extern struct trc_api_state trc_api;

/* Prepares API tracing, once per process. */
void sepuapi_init(unsigned char *control);

/* Serialise the writers of the trace file; state->handle is current between the two. */
void trc_lock_file(struct trc_api_state *state);
void trc_unlock_file(struct trc_api_state *state);

/* One record: a separator, text lines, hex dumps. tag: component tag, "CPIC ". */
void com_trc_sep(int handle, const char *tag);
void com_trc_line(int handle, const char *tag, const char *text);
void com_trc_dump(int handle, const char *tag, const void *address, u32 length);

#ifdef __cplusplus
}
#endif

#endif
