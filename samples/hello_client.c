/* hello_client.c - starts a conversation with the partner that the symbolic destination HELLO names, sends a greeting,
 * receives the answer, ends the conversation. Its partner is hello_server.c; samples/node.toml defines HELLO. */
#include <cpic.h>

#include <stdio.h>
#include <stdlib.h>

#define CODE(code, hint) {code, #code, hint}
static const struct
{
    CM_RETURN_CODE code;
    const char *name, *hint;
} codes[] = {
    CODE(CM_OK, ""),
    CODE(CM_PROGRAM_PARAMETER_CHECK, "does the node run with samples/node.toml?"),
    CODE(CM_PARAMETER_ERROR, "the node does not know the partner LU or the mode of this destination"),
    CODE(CM_TPN_NOT_RECOGNISED, "nobody serves that TP name: start hello_server first"),
    CODE(CM_TP_NOT_AVAILABLE_RETRY, "hello_server is busy or gone: start it again, then this"),
    CODE(CM_PRODUCT_SPECIFIC_ERROR, "is the node running? See problem.log in its directory"),
    CODE(CM_RESOURCE_FAILURE_RETRY, "the partner or the node is gone: start again"),
    CODE(CM_DEALLOCATED_ABEND, "the partner broke the conversation off"),
    CODE(CM_DEALLOCATED_NORMAL, "the partner has ended the conversation already"),
};

/* Says how a call went. Anything but CM_OK ends the program. */
static void check(const char *call, CM_RETURN_CODE rc)
{
    size_t i = 0, count = sizeof codes / sizeof codes[0];

    while (i < count && codes[i].code != rc)
        ++i;
    if (i == count)
        printf("client: %s -> return code %ld: see cpic.h\n", call, (long)rc);
    else
        printf("client: %s -> %s%s%s\n", call, codes[i].name, i > 0 ? ": " : "", codes[i].hint);
    if (rc != CM_OK)
        exit(1);
}

int main(void)
{
    unsigned char conversation[CM_CID_SIZE], destination[] = "HELLO   "; /* eight characters, padded with blanks */
    unsigned char greeting[] = "Hello, server. This is the client.", buffer[1000];
    CM_INT32 greeting_length = sizeof greeting - 1;
    CM_INT32 room = sizeof buffer, length, data, status, request_to_send;
    CM_RETURN_CODE rc;

    setvbuf(stdout, NULL, _IOLBF, 0);

    cminit(conversation, destination, &rc);
    check("CMINIT(HELLO)", rc);
    cmallc(conversation, &rc);
    check("CMALLC", rc);
    cmsend(conversation, greeting, &greeting_length, &request_to_send, &rc);
    check("CMSEND", rc);

    /* A receive in send state sends what is buffered, gives the turn to the server, and waits for its answer. */
    do
    {
        cmrcv(conversation, buffer, &room, &data, &length, &status, &request_to_send, &rc);
        check("CMRCV", rc);
        if (data != CM_NO_DATA_RECEIVED)
            printf("client: received \"%.*s\"\n", (int)length, (char *)buffer);
    } while (status != CM_SEND_RECEIVED);

    /* The turn is back; this ends the conversation on both sides. */
    cmdeal(conversation, &rc);
    check("CMDEAL", rc);
    return 0;
}
