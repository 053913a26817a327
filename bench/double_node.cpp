// double_node.cpp - see double_node.hpp. What a program defines wins over the library that defines it too.
#include "double_node.hpp"
#include "node_verbs.h"

#include <pthread.h>

namespace bench {

unsigned long verbs = 0;

} // namespace bench

namespace {

pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
u32 conversations = 0;

// Every verb succeeds; the two that make something give it an identifier.
u16 complete(VERB_RECORD *verb)
{
    ++bench::verbs;
    if (verb->opcode == NAP_TP_STARTED)
        verb->tp_started.tp_id[0] = 1;
    else if (verb->opcode == NAP_M_ALLOCATE)
        verb->header.conv_id = ++conversations;
    return 0;
}

} // namespace

extern "C" {

u16 vpm_lock(void)
{
    pthread_mutex_lock(&mutex);
    return 1;
}

void vpm_unlock(u16)
{
    pthread_mutex_unlock(&mutex);
}

u16 appc_c_version(u16, void *record)
{
    return complete(static_cast<VERB_RECORD *>(record));
}

u16 appc_c_async_version(u16, void *record, appc_completion *, u32)
{
    return complete(static_cast<VERB_RECORD *>(record));
}

void vpm_init_path_user(u32, u32, path_callback *, u32, u32 *path_user)
{
    *path_user = 1;
}

void vpm_terminate_path_user(u32)
{
}

void nba_pd_print_audit(u32, u32, const char *, ...)
{
}
}
