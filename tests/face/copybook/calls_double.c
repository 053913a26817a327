/* calls_double.c - stands in for the library under client.cob: checks every argument byte by byte and answers with
 * fixed results. COBOL run-times are as wide as the machine, so this is compiled without cpic.h and its 32-bit rule; the
 * integers are 32 bits wide all the same. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CHECK(condition) check(condition, #condition, __LINE__)

static const char conversation[] = "\1\2\3\4\0\0\0";

static void check(int holds, const char *what, int line)
{
    if (!holds)
    {
        printf("calls_double.c:%d: %s\n", line, what);
        exit(1);
    }
}

static int32_t integer_at(const unsigned char *record, int offset)
{
    int32_t value;

    memcpy(&value, record + offset, sizeof value);
    return value;
}

void XCMSSI(const char *key, const unsigned char *entry, const int32_t *length, int32_t *rc)
{
    (void)key;
    CHECK(*length == 124);
    CHECK(memcmp(entry, "BRANCH1 NETA.LUB         ", 25) == 0);
    CHECK(integer_at(entry, 28) == 1);
    CHECK(memcmp(entry + 32, "SERVER          ", 16) == 0);
    CHECK(memcmp(entry + 96, "#INTER  ", 8) == 0);
    CHECK(integer_at(entry, 104) == 2);
    CHECK(memcmp(entry + 108, "CLERK   SECRET  ", 16) == 0);
    *rc = 0;
}

void CMINIT(char *id, const char *destination, int32_t *rc)
{
    CHECK((uintptr_t)rc % 4 == 0);
    CHECK(memcmp(destination, "BRANCH1 ", 8) == 0);
    memcpy(id, conversation, 8);
    *rc = 0;
}

void CMSST(const char *id, const int32_t *send_type, int32_t *rc)
{
    CHECK(memcmp(id, conversation, 8) == 0);
    CHECK(*send_type == 3);
    *rc = 0;
}

void CMSEND(const char *id, const char *buffer, const int32_t *length, int32_t *request_to_send, int32_t *rc)
{
    CHECK(memcmp(id, conversation, 8) == 0);
    CHECK(*length == 12 && memcmp(buffer, "GOOD MORNING", 12) == 0);
    *request_to_send = 1;
    *rc = 0;
}

void CMRCV(const char *id, char *buffer, const int32_t *room, int32_t *data, int32_t *length, int32_t *status,
           int32_t *request_to_send, int32_t *rc)
{
    CHECK(memcmp(id, conversation, 8) == 0);
    CHECK(*room == 100);
    memcpy(buffer, "WELCOME", 7);
    *data = 2;
    *length = 7;
    *status = 4;
    *request_to_send = 0;
    *rc = 18;
}
