/* file_transfer.h - what file_client and file_server share: the checksum, the form of the answer, and lines for people
 * to read. Plain C; used from one thread.
 *
 * The agreement of the two: the client sends the file as records of up to FILE_RECORD bytes and gives the turn; the
 * server answers with one record, FILE_ANSWER filled with the number of bytes and their checksum, and gives the turn
 * back; the client deallocates.
 */
#ifndef FILE_TRANSFER_H
#define FILE_TRANSFER_H

#include "cpic_names.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#define FILE_RECORD 32767 /* the most that one CMSEND takes */
#define FILE_ANSWER "BYTES=%llu CRC32=%08lX"

/* Continues a CRC-32 (the one of Ethernet and zip) over some bytes. Begin with 0. */
static unsigned long file_crc32(unsigned long crc, const unsigned char *data, size_t length)
{
    static unsigned long table[256];
    size_t i;

    if (table[1] == 0)
    {
        unsigned long n;

        for (n = 0; n < 256; ++n)
        {
            unsigned long value = n;
            int bit;

            for (bit = 0; bit < 8; ++bit)
                value = (value & 1) != 0 ? (value >> 1) ^ 0xEDB88320UL : value >> 1;
            table[n] = value;
        }
    }
    crc ^= 0xFFFFFFFFUL;
    for (i = 0; i < length; ++i)
        crc = table[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFUL;
}

/* Writes one line, in one piece, so that lines of the two programs on one terminal do not mix. On a terminal it takes
 * the place of a progress bar that stands in the line. */
static void file_line(const char *who, const char *format, ...)
{
    char line[400];
    int length = snprintf(line, sizeof line, "%s%s | ", isatty(1) ? "\r\033[K" : "", who);
    int size = (int)sizeof line - 1;
    va_list arguments;

    va_start(arguments, format);
    length += vsnprintf(line + length, (size_t)(size - length), format, arguments);
    va_end(arguments);
    if (length >= size)
        length = size - 1;
    line[length++] = '\n';
    if (write(1, line, (size_t)length) != length)
        _exit(1); /* nobody reads us any more */
}

/* Says how a call went: what was called, the return code by name, and either what it means or what to do. */
static void file_step(const char *who, const char *call, CM_RETURN_CODE rc, const char *meaning)
{
    const char *hint = cpic_rc_hint(rc), *remark = hint[0] != '\0' ? hint : meaning;

    if (strcmp(cpic_rc_name(rc), "an unlisted return code") == 0)
        file_line(who, "%-28s -> return code %ld   %s", call, (long)rc, remark);
    else
        file_line(who, "%-28s -> %s%s%s", call, cpic_rc_name(rc), remark[0] != '\0' ? "    " : "", remark);
}

#endif
