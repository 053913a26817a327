/* reqserv.c : a request-reply server with several conversations at a time.
 *
 * It keeps one accept outstanding, non-blocking, and serves whichever
 * conversation CMWAIT reports. A request is a line; the reply is the same line
 * in capitals and the name of the client's LU. Ends after the given number of
 * conversations.
 *
 * usage: reqserv TP-name conversations
 */
#include <cpic.h>
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CLIENTS 16
#define LINE 1000

enum phase { UNUSED, ACCEPTING, RECEIVING };

struct client
{
    enum phase phase;
    unsigned char cid[CM_CID_SIZE];
    unsigned char line[LINE];
    CM_RECEIVED_LENGTH length;
    CM_INT32 request_length;
    CM_DATA_RECEIVED_TYPE data;
    CM_STATUS_RECEIVED status;
    CM_REQUEST_TO_SEND_RECEIVED rts;
};

static struct client clients[CLIENTS];
static int finished;

static void completed(struct client *c, CM_RETURN_CODE rc);

static void start_receive(struct client *c)
{
    static CM_REQUESTED_LENGTH room = LINE - 40;
    CM_RETURN_CODE rc;

    c->phase = RECEIVING;
    cmrcv(c->cid, c->line, &room, &c->data, &c->length, &c->status, &c->rts, &rc);
    if (rc != CM_OPERATION_INCOMPLETE)
        completed(c, rc);
}

static void start_accept(void)
{
    CM_PROCESSING_MODE mode = CM_NON_BLOCKING;
    CM_RETURN_CODE rc;
    struct client *c = clients;

    while (c->phase != UNUSED)
        if (++c == clients + CLIENTS)
            return;
    cminic(c->cid, &rc);
    if (rc == CM_OK)
        cmspm(c->cid, &mode, &rc);
    if (rc != CM_OK) {
        fprintf(stderr, "reqserv: cannot prepare, return code %ld\n", rc);
        exit(1);
    }
    c->phase = ACCEPTING;
    cmacci(c->cid, &rc);
    if (rc != CM_OPERATION_INCOMPLETE)
        completed(c, rc);
}

static void reply(struct client *c)
{
    CM_PROCESSING_MODE mode = CM_BLOCKING;
    CM_SEND_TYPE type = CM_SEND_AND_FLUSH;
    CM_PARTNER_LU_NAME_LENGTH lu_length;
    CM_SEND_LENGTH length = c->request_length;
    CM_RETURN_CODE rc;
    CM_INT32 i;

    for (i = 0; i < length; i++)
        c->line[i] = (unsigned char)toupper(c->line[i]);
    c->line[length++] = ' ';
    cmepln(c->cid, c->line + length, &lu_length, &rc);
    if (rc == CM_OK)
        length += lu_length;

    cmspm(c->cid, &mode, &rc);
    cmsst(c->cid, &type, &rc);
    cmsend(c->cid, c->line, &length, &c->rts, &rc);
    if (rc == CM_OK)
        cmptr(c->cid, &rc);
    mode = CM_NON_BLOCKING;
    cmspm(c->cid, &mode, &rc);
}

/* An accept or a receive of this client has completed. */
static void completed(struct client *c, CM_RETURN_CODE rc)
{
    if (c->phase == ACCEPTING) {
        if (rc != CM_OK) {
            fprintf(stderr, "reqserv: accept failed, return code %ld\n", rc);
            exit(1);
        }
        start_accept();
        start_receive(c);
        return;
    }
    if (rc == CM_OK) {
        if (c->data == CM_COMPLETE_DATA_RECEIVED)
            c->request_length = c->length;
        if (c->status == CM_SEND_RECEIVED)
            reply(c);
        start_receive(c);
        return;
    }
    if (rc != CM_DEALLOCATED_NORMAL)
        fprintf(stderr, "reqserv: a client was lost, return code %ld\n", rc);
    c->phase = UNUSED;
    finished++;
}

int main(int argc, char **argv)
{
    unsigned char cid[CM_CID_SIZE];
    CM_TP_NAME_LENGTH length;
    CM_CONVERSATION_RETURN_CODE conversation_rc;
    CM_RETURN_CODE rc;
    int wanted, i;

    if (argc != 3 || (wanted = atoi(argv[2])) < 1) {
        fprintf(stderr, "usage: reqserv TP-name conversations\n");
        return 2;
    }
    length = (CM_TP_NAME_LENGTH)strlen(argv[1]);
    cmsltp((unsigned char *)argv[1], &length, &rc);
    if (rc != CM_OK) {
        fprintf(stderr, "reqserv: cmsltp returned %ld\n", rc);
        return 1;
    }
    start_accept();
    while (finished < wanted) {
        cmwait(cid, &conversation_rc, &rc);
        if (rc != CM_OK) {
            fprintf(stderr, "reqserv: cmwait returned %ld\n", rc);
            return 1;
        }
        for (i = 0; i < CLIENTS; i++)
            if (clients[i].phase != UNUSED && memcmp(clients[i].cid, cid, CM_CID_SIZE) == 0) {
                completed(&clients[i], conversation_rc);
                break;
            }
    }
    return 0;
}
