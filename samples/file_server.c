/* file_server.c - accepts one conversation, receives a file, answers with the number of bytes and their checksum.
 *
 *     file_server [--tp-name NAME] [--save FILE]
 *
 * The TP name that it serves is NAME, said to the node with CMSLTP; without --tp-name it is the one of the environment
 * variable APPCTPN, which the library reads by itself. --save keeps what was received in FILE. The partner is
 * file_client.c. Exit code: 0 when the conversation went as agreed; 1 when anything went wrong, said on the way; 2 for
 * wrong arguments.
 */
#define _POSIX_C_SOURCE 200809L /* fileno, fstat, isatty */

#include "file_transfer.h"

#include <errno.h>
#include <stdlib.h>

#define WHO "server"

/* One step of the conversation. Any code but CM_OK ends the program: the node then tells the partner. */
static void must(const char *call, CM_RETURN_CODE rc, const char *meaning)
{
    file_step(WHO, call, rc, meaning);
    if (rc != CM_OK)
        exit(1);
}

/* One receive into a buffer of FILE_RECORD bytes. */
struct received
{
    CM_DATA_RECEIVED_TYPE data;
    CM_RECEIVED_LENGTH length;
    CM_STATUS_RECEIVED status;
    CM_RETURN_CODE rc;
};

static struct received receive(unsigned char *conversation, unsigned char *buffer)
{
    CM_REQUESTED_LENGTH room = FILE_RECORD;
    CM_REQUEST_TO_SEND_RECEIVED request_to_send;
    struct received result;

    cmrcv(conversation, buffer, &room, &result.data, &result.length, &result.status, &request_to_send, &result.rc);
    return result;
}

int main(int argc, char **argv)
{
    static unsigned char buffer[FILE_RECORD];
    unsigned char conversation[CM_CID_SIZE];
    const char *name = NULL, *save = NULL, *from_environment = getenv("APPCTPN");
    unsigned long long bytes = 0, records = 0;
    unsigned long crc = 0;
    char text[100];
    struct received got;
    CM_SEND_LENGTH length;
    CM_REQUEST_TO_SEND_RECEIVED request_to_send;
    CM_RETURN_CODE rc;
    FILE *file = NULL;
    int i;

    for (i = 1; i + 1 < argc; i += 2)
    {
        if (strcmp(argv[i], "--tp-name") == 0)
            name = argv[i + 1];
        else if (strcmp(argv[i], "--save") == 0)
            save = argv[i + 1];
        else
            break;
    }
    if (i != argc)
    {
        fprintf(stderr, "usage: file_server [--tp-name NAME] [--save FILE]\n"
                        "Serves the TP name NAME, else that of the environment variable APPCTPN.\n");
        return 2;
    }
    if (save != NULL && (file = fopen(save, "wb")) == NULL)
    {
        fprintf(stderr, "file_server: cannot write %s: %s\n", save, strerror(errno));
        return 1;
    }

    if (name != NULL)
    {
        length = (CM_SEND_LENGTH)strlen(name);
        snprintf(text, sizeof text, "CMSLTP(%.64s)", name);
        cmsltp((unsigned char *)name, &length, &rc);
        must(text, rc, "the node knows the TP name that we serve");
    }
    else
        file_line(WHO, "serves the TP name of APPCTPN: %s",
                  from_environment != NULL ? from_environment : "(not set: the default name)");
    cmaccp(conversation, &rc);
    must("CMACCP", rc, "a conversation has come");

    do
    {
        got = receive(conversation, buffer);
        if (records == 0 || got.rc != CM_OK)
            must("CMRCV", got.rc, got.data != CM_NO_DATA_RECEIVED ? "the first record" : "no data");
        if (got.data != CM_NO_DATA_RECEIVED)
        {
            ++records;
            bytes += (unsigned long long)got.length;
            crc = file_crc32(crc, buffer, (size_t)got.length);
            if (file != NULL && fwrite(buffer, 1, (size_t)got.length, file) != (size_t)got.length)
            {
                file_line(WHO, "writing %s failed: %s", save, strerror(errno));
                return 1;
            }
        }
    } while (got.status != CM_SEND_RECEIVED);
    file_line(WHO, "received %llu bytes in %llu %s, CRC-32 %08lX; it is our turn to send", bytes, records,
              records == 1 ? "record" : "records", crc);
    if (file != NULL && fclose(file) != 0)
    {
        file_line(WHO, "writing %s failed: %s", save, strerror(errno));
        return 1;
    }

    length = snprintf(text, sizeof text, FILE_ANSWER, bytes, crc);
    cmsend(conversation, (unsigned char *)text, &length, &request_to_send, &rc);
    must("CMSEND", rc, text);
    got = receive(conversation, buffer);
    if (got.rc == CM_DEALLOCATED_NORMAL)
    {
        file_step(WHO, "CMRCV", got.rc, "gave the turn back, and the client has deallocated");
        return 0;
    }
    must("CMRCV", got.rc, "the client goes on sending: that was not agreed");
    return 1;
}
