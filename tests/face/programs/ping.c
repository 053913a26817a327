/*****************************************************************************
 * ping.c - the client of a ping pair. Sends a record of the given size and
 * waits for it to come back, as many times as the caller wishes, and reports
 * the elapsed time. The partner is pingd.c.
 *
 * usage: ping destination [size [count]]
 *
 * Portable CPI-C: upper-case calls, mapped conversation, side information.
 *****************************************************************************/
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <cpic.h>

#define MAX_SIZE 32767

static unsigned char    buffer[MAX_SIZE];
static unsigned char    conversation_ID[CM_CID_SIZE];
static unsigned char    sym_dest_name[CM_SDN_SIZE + 1];

static void give_up(const char *call, CM_RETURN_CODE rc)
{
    fprintf(stderr, "ping: %s failed, return code %ld\n", call, rc);
    exit(EXIT_FAILURE);
}

int main(int argc, char *argv[])
{
    CM_INT32                     size = 100;
    CM_INT32                     count = 10;
    CM_INT32                     done;
    CM_SEND_LENGTH               send_length;
    CM_REQUESTED_LENGTH          requested_length = MAX_SIZE;
    CM_RECEIVED_LENGTH           received_length, total;
    CM_DATA_RECEIVED_TYPE        data_received;
    CM_STATUS_RECEIVED           status_received;
    CM_REQUEST_TO_SEND_RECEIVED  rts_received;
    CM_SEND_TYPE                 send_type = CM_SEND_AND_PREP_TO_RECEIVE;
    CM_PREPARE_TO_RECEIVE_TYPE   ptr_type = CM_PREP_TO_RECEIVE_FLUSH;
    CM_DEALLOCATE_TYPE           deallocate_type = CM_DEALLOCATE_FLUSH;
    CM_RETURN_CODE               cm_rc;
    clock_t                      start;

    if (argc < 2)
    {
        fprintf(stderr, "usage: ping destination [size [count]]\n");
        return EXIT_FAILURE;
    }
    if (argc > 2)
        size = atol(argv[2]);
    if (argc > 3)
        count = atol(argv[3]);
    if (size < 1 || size > MAX_SIZE || count < 1)
    {
        fprintf(stderr, "ping: size 1 to %d, count 1 or more\n", MAX_SIZE);
        return EXIT_FAILURE;
    }

    sprintf((char *)sym_dest_name, "%-8.8s", argv[1]);
    memset(buffer, 'p', (size_t)size);

    CMINIT(conversation_ID, sym_dest_name, &cm_rc);
    if (cm_rc != CM_OK)
        give_up("CMINIT", cm_rc);
    CMSPTR(conversation_ID, &ptr_type, &cm_rc);
    if (cm_rc != CM_OK)
        give_up("CMSPTR", cm_rc);
    CMSST(conversation_ID, &send_type, &cm_rc);
    if (cm_rc != CM_OK)
        give_up("CMSST", cm_rc);
    CMALLC(conversation_ID, &cm_rc);
    if (cm_rc != CM_OK)
        give_up("CMALLC", cm_rc);

    start = clock();
    for (done = 0; done < count; done++)
    {
        send_length = size;
        CMSEND(conversation_ID, buffer, &send_length, &rts_received, &cm_rc);
        if (cm_rc != CM_OK)
            give_up("CMSEND", cm_rc);

        total = 0;
        do
        {
            CMRCV(conversation_ID, buffer, &requested_length, &data_received,
                  &received_length, &status_received, &rts_received, &cm_rc);
            if (cm_rc != CM_OK)
                give_up("CMRCV", cm_rc);
            if (data_received != CM_NO_DATA_RECEIVED)
                total += received_length;
        } while (status_received != CM_SEND_RECEIVED);

        if (total != size)
        {
            fprintf(stderr, "ping: sent %ld bytes, %ld came back\n", size, total);
            return EXIT_FAILURE;
        }
    }
    printf("%ld round trips of %ld bytes, %.3f s of processor time\n", count, size,
           (double)(clock() - start) / CLOCKS_PER_SEC);

    CMSDT(conversation_ID, &deallocate_type, &cm_rc);
    CMDEAL(conversation_ID, &cm_rc);
    if (cm_rc != CM_OK)
        give_up("CMDEAL", cm_rc);
    return EXIT_SUCCESS;
}
