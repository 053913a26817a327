/* hello_server.c - accepts one conversation, prints the greeting that it receives, answers, and lets the client end
 * the conversation. The TP name it serves is HELLOSRV; samples/node.toml leads the destination HELLO there. */
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
    CODE(CM_PROGRAM_STATE_CHECK, "the call is not allowed in this state"),
    CODE(CM_PROGRAM_PARAMETER_CHECK, "an argument is wrong"),
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
        printf("server: %s -> return code %ld: see cpic.h\n", call, (long)rc);
    else
        printf("server: %s -> %s%s%s\n", call, codes[i].name, i > 0 ? ": " : "", codes[i].hint);
    if (rc != CM_OK)
        exit(1);
}

int main(void)
{
    unsigned char conversation[CM_CID_SIZE];
    unsigned char name[] = "HELLOSRV", answer[] = "Hello, client. This is the server.", buffer[1000];
    CM_INT32 name_length = sizeof name - 1, answer_length = sizeof answer - 1;
    CM_INT32 room = sizeof buffer, length, data, status, request_to_send;
    CM_RETURN_CODE rc;

    setvbuf(stdout, NULL, _IOLBF, 0);

    /* The node shall know that this program serves HELLOSRV; then wait for a client, for as long as it takes. */
    cmsltp(name, &name_length, &rc);
    check("CMSLTP(HELLOSRV)", rc);
    printf("server: waiting for a client\n");
    cmaccp(conversation, &rc);
    check("CMACCP", rc);

    /* Receive until the client gives the turn: only who has the turn may send. */
    do
    {
        cmrcv(conversation, buffer, &room, &data, &length, &status, &request_to_send, &rc);
        check("CMRCV", rc);
        if (data != CM_NO_DATA_RECEIVED)
            printf("server: received \"%.*s\"\n", (int)length, (char *)buffer);
    } while (status != CM_SEND_RECEIVED);

    cmsend(conversation, answer, &answer_length, &request_to_send, &rc);
    check("CMSEND", rc);

    /* A receive in send state gives the turn back. The client deallocates: that is what this receive then tells. */
    cmrcv(conversation, buffer, &room, &data, &length, &status, &request_to_send, &rc);
    if (rc != CM_DEALLOCATED_NORMAL)
    {
        check("CMRCV", rc);
        printf("server: more data than expected\n");
        return 1;
    }
    printf("server: CMRCV -> CM_DEALLOCATED_NORMAL: the client has ended the conversation\n");
    return 0;
}
