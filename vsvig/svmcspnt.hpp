// svmcspnt.hpp - the formatted-print engine and the printing entry points that the library exports beside the calls.
//
// Nothing in the library uses them; they are there for programs that were linked against them. They keep no state and
// take no lock.
#ifndef VSVIG_SVMCSPNT_HPP
#define VSVIG_SVMCSPNT_HPP

#include <stdio.h>

#include "node_client.h"

#pragma GCC visibility push(default)
extern "C" {

// Writes text by a format into `out` and ends it with a zero. size: bytes of `out`, 0: no limit. The limit is kept only
// at the end of a conversion: once that brings the text to 19 bytes before `size`, a newline ends it. arguments: the
// first of consecutive 32-bit slots, one for each conversion and each "*". Returns the characters written, the
// terminating zero not counted. Misuse of a format is reported through v0_assert() and the work goes on.
int t_print_args(char *out, u32 size, const char *format, const u32 *arguments);

// t_print_args() without a limit, on the arguments that follow the format.
int t_sprintf(char *out, const char *format, ...);

// The C library's vsprintf() and vfprintf(), under names of their own; what they return.
int nb_sprintf(char *out, const char *format, ...) __attribute__((format(printf, 2, 3)));
int nb_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));
int nb_fprintf(FILE *stream, const char *format, ...) __attribute__((format(printf, 2, 3)));

} // extern "C"
#pragma GCC visibility pop

#endif
