// memory.cpp - the memory that the library above asks for.
#include "client/export.hpp"
#include "client/system.hpp"

using namespace client;

const char nba_blank_name[8] = {' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '};

CPICNODE_EXPORT void *nba_mm_alloc(u32 size, u16, const char *)
{
    return sys_alloc(size);
}

CPICNODE_EXPORT void nba_mm_free(void *memory)
{
    sys_free(memory);
}
