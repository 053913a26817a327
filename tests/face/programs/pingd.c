/*****************************************************************************
 * pingd.c - the server of a ping pair: accepts one conversation and sends
 * every record back until the client deallocates. The client is ping.c.
 *****************************************************************************/
#include <stdio.h>
#include <stdlib.h>
#include <cpic.h>

#define MAX_SIZE 32767

static unsigned char buffer[MAX_SIZE];

int main(void)
{
    unsigned char                conversation_ID[CM_CID_SIZE];
    CM_REQUESTED_LENGTH          requested_length = MAX_SIZE;
    CM_RECEIVED_LENGTH           received_length;
    CM_DATA_RECEIVED_TYPE        data_received;
    CM_STATUS_RECEIVED           status_received;
    CM_CONTROL_INFORMATION_RECEIVED  rts_received;
    CM_RETURN_CODE               cm_rc;
    CM_INT32                     record = 0;

    CMACCP(conversation_ID, &cm_rc);
    if (cm_rc != CM_OK)
    {
        fprintf(stderr, "pingd: CMACCP failed, return code %ld\n", cm_rc);
        return EXIT_FAILURE;
    }

    for (;;)
    {
        CMRCV(conversation_ID, buffer, &requested_length, &data_received,
              &received_length, &status_received, &rts_received, &cm_rc);
        if (cm_rc == CM_DEALLOCATED_NORMAL)
            return EXIT_SUCCESS;
        if (cm_rc != CM_OK)
        {
            fprintf(stderr, "pingd: CMRCV failed, return code %ld\n", cm_rc);
            return EXIT_FAILURE;
        }
        if (data_received == CM_COMPLETE_DATA_RECEIVED)
            record = received_length;
        if (status_received == CM_SEND_RECEIVED)
        {
            CMSEND(conversation_ID, buffer, &record, &rts_received, &cm_rc);
            if (cm_rc != CM_OK)
            {
                fprintf(stderr, "pingd: CMSEND failed, return code %ld\n", cm_rc);
                return EXIT_FAILURE;
            }
        }
    }
}
