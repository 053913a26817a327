/* file_client.c - sends a file to the partner that a symbolic destination names, asks it how many bytes of which
 * checksum it has received, and compares.
 *
 *     file_client FILE [DESTINATION]
 *
 * DESTINATION is FILES when it is not given; samples/node.toml defines it. The partner is file_server.c. Exit code: 0
 * when the partner has received exactly what was sent; 1 when anything went wrong, said on the way; 2 for wrong
 * arguments.
 */
#define _POSIX_C_SOURCE 200809L /* fileno, fstat, isatty */

#include "file_transfer.h"

#include <errno.h>
#include <stdlib.h>
#include <sys/stat.h>

#define WHO "client"
#define BAR_WIDTH 40
#define BAR_FROM (4L * 1024 * 1024) /* bytes: smaller files are sent before anyone could look */

/* One step of the conversation. Any code but CM_OK ends the program: the node then tells the partner. */
static void must(const char *call, CM_RETURN_CODE rc, const char *meaning)
{
    file_step(WHO, call, rc, meaning);
    if (rc != CM_OK)
        exit(1);
}

/* Draws the progress bar over the line that it stands in. */
static void draw_bar(unsigned long long sent, unsigned long long size)
{
    char bar[BAR_WIDTH + 1], line[120];
    int filled = size == 0 ? BAR_WIDTH : (int)(sent * BAR_WIDTH / size);
    int length;

    if (filled > BAR_WIDTH) /* the file has grown since it was measured */
        filled = BAR_WIDTH;
    memset(bar, '.', BAR_WIDTH);
    memset(bar, '#', (size_t)filled);
    bar[BAR_WIDTH] = '\0';
    length = snprintf(line, sizeof line, "\r\033[K" WHO " | [%s] %llu of %llu MB", bar, sent / 1000000, size / 1000000);
    if (write(1, line, (size_t)length) != length)
        exit(1);
}

/* Sends the whole file. *crc: the checksum of what was sent. Returns the number of bytes. */
static unsigned long long send_file(unsigned char *conversation, FILE *file, unsigned long *crc)
{
    static unsigned char buffer[FILE_RECORD];
    char text[80];
    struct stat status;
    unsigned long long sent = 0, size = 0, sends = 0;
    int with_bar = 0, percent = -1;

    if (fstat(fileno(file), &status) == 0 && S_ISREG(status.st_mode))
        size = (unsigned long long)status.st_size;
    with_bar = isatty(1) && size >= BAR_FROM;
    *crc = 0;
    for (;;)
    {
        CM_SEND_LENGTH length = (CM_SEND_LENGTH)fread(buffer, 1, sizeof buffer, file);
        CM_REQUEST_TO_SEND_RECEIVED request_to_send;
        CM_RETURN_CODE rc;

        if (length == 0)
            break;
        cmsend(conversation, buffer, &length, &request_to_send, &rc);
        *crc = file_crc32(*crc, buffer, (size_t)length);
        sent += (unsigned long long)length;
        ++sends;
        if (sends == 1 || rc != CM_OK)
        {
            snprintf(text, sizeof text, "CMSEND %ld bytes", (long)length);
            must(text, rc, "the first record");
        }
        if (with_bar && (int)(sent * 100 / size) != percent)
        {
            percent = (int)(sent * 100 / size);
            draw_bar(sent, size);
        }
    }
    if (ferror(file))
    {
        file_line(WHO, "reading the file failed: %s", strerror(errno));
        exit(1);
    }
    if (sends == 0)
        file_line(WHO, "the file is empty: nothing to send");
    if (sends > 1)
    {
        snprintf(text, sizeof text, "CMSEND %llu times more", sends - 1);
        file_step(WHO, text, CM_OK, "");
    }
    file_line(WHO, "sent %llu bytes, CRC-32 %08lX", sent, *crc);
    return sent;
}

/* Gives the turn and receives the answer, until the turn is back. answer: FILE_RECORD bytes and one for a zero. */
static void receive_answer(unsigned char *conversation, char *answer)
{
    CM_REQUESTED_LENGTH room = FILE_RECORD;
    CM_DATA_RECEIVED_TYPE data;
    CM_RECEIVED_LENGTH length;
    CM_STATUS_RECEIVED status;
    CM_REQUEST_TO_SEND_RECEIVED request_to_send;
    CM_RETURN_CODE rc;
    static unsigned char buffer[FILE_RECORD];

    answer[0] = '\0';
    do
    {
        cmrcv(conversation, buffer, &room, &data, &length, &status, &request_to_send, &rc);
        must("CMRCV", rc, data != CM_NO_DATA_RECEIVED ? "gave the turn, here is the answer" : "the turn is back");
        if (data != CM_NO_DATA_RECEIVED)
        {
            memcpy(answer, buffer, (size_t)length);
            answer[length] = '\0';
        }
    } while (status != CM_SEND_RECEIVED);
}

int main(int argc, char **argv)
{
    static char answer[FILE_RECORD + 1];
    unsigned char conversation[CM_CID_SIZE], destination[CM_SDN_SIZE];
    const char *name = argc > 2 ? argv[2] : "FILES";
    char expected[80], call[40];
    unsigned long long sent;
    unsigned long crc;
    struct stat status;
    CM_RETURN_CODE rc;
    FILE *file;

    if (argc < 2 || argc > 3 || strlen(name) > CM_SDN_SIZE)
    {
        fprintf(stderr, "usage: file_client FILE [DESTINATION]\n"
                        "Sends FILE to the partner that DESTINATION (FILES; at most 8 characters) names.\n");
        return 2;
    }
    file = fopen(argv[1], "rb");
    if (file == NULL || fstat(fileno(file), &status) != 0)
    {
        fprintf(stderr, "file_client: cannot read %s: %s\n", argv[1], strerror(errno));
        return 1;
    }
    if (S_ISDIR(status.st_mode))
    {
        fprintf(stderr, "file_client: %s is a directory; name a file\n", argv[1]);
        return 1;
    }

    memset(destination, ' ', sizeof destination);
    memcpy(destination, name, strlen(name));
    cminit(conversation, destination, &rc);
    snprintf(call, sizeof call, "CMINIT(%s)", name);
    must(call, rc, "a conversation, filled from the node's side information");
    cmallc(conversation, &rc);
    must("CMALLC", rc, "allocated to the partner");
    sent = send_file(conversation, file, &crc);
    fclose(file);
    receive_answer(conversation, answer);
    cmdeal(conversation, &rc);
    must("CMDEAL", rc, "the conversation is over on both sides");

    snprintf(expected, sizeof expected, FILE_ANSWER, sent, crc);
    if (strcmp(answer, expected) != 0)
    {
        file_line(WHO, "NOT the same: the server answered \"%.80s\", sent was \"%s\"", answer, expected);
        return 1;
    }
    file_line(WHO, "the server has received exactly what was sent: %s", answer);
    return 0;
}
