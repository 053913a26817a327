// names.hpp - the names of calls and values that the trace writes.
#ifndef VCPIC_TRACE_NAMES_HPP
#define VCPIC_TRACE_NAMES_HPP

#include "cpicpriv.h"

// The names of one kind of value: the CPI-C value is the index. A value found in the table is written with "CM_" before
// its name, also where the table holds no more than a "***UNKNOWN ..." text; a value beyond the table is written as the
// fallback alone. Readers of traces tell the two apart by that.
struct name_table
{
    const char *const *names;
    u32 count;
    const char *fallback;
};

// Call names by call number; the fallback stands for every number above 62. The one table without the prefix.
extern const name_table cpicvb;

extern const name_table cpicct;      // conversation type
extern const name_table cpicdt;      // deallocate type
extern const name_table cpiced;      // error direction
extern const name_table cpicsl;      // sync level
extern const name_table cpicft;      // fill
extern const name_table cpicptr;     // prepare-to-receive type
extern const name_table cpicrt;      // receive type
extern const name_table cpicst;      // send type
extern const name_table cpicrcon;    // return control
extern const name_table cpiccst;     // conversation security type
extern const name_table cpictp;      // TP name type
extern const name_table cpicrtsr;    // request-to-send received
extern const name_table cpicdr;      // data received
extern const name_table cpicsr;      // status received
extern const name_table cpiccs;      // conversation state
extern const name_table cpicpm;      // processing mode
extern const name_table cpicet;      // end type
extern const name_table cpicrc;      // return code of a call
extern const name_table cpicrc_wait; // return code that CMWAIT collected: the same names, known up to 37 only

// Size of a buffer for the name of a value, its prefix and the terminating zero.
inline constexpr u32 NAME_SIZE = 50;

// Writes the name of a value, prefixed or the fallback, zero-terminated.
void name_value(char (&name)[NAME_SIZE], const name_table &table, u32 value);

// The name of a call, or the fallback.
const char *name_call(u16 call);

#endif
