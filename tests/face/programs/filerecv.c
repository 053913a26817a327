/*-------------------------------------------------------------------------
 * filerecv.c - receives a file from filesend.c on a basic conversation and
 * confirms it.
 *
 * usage: filerecv TP-name output-file
 *-------------------------------------------------------------------------*/
#include <stdio.h>
#include <string.h>

#include "cmc.h"

static unsigned char record[32767];

int main(int argc, char **argv)
{
    unsigned char          cid[CM_CID_SIZE];
    CM_TP_NAME_LENGTH      name_length;
    CM_REQUESTED_LENGTH    room = sizeof record;
    CM_RECEIVED_LENGTH     length;
    CM_CONVERSATION_TYPE   type;
    CM_SYNC_LEVEL          level;
    CM_FILL                fill = CM_FILL_LL;
    CM_DATA_RECEIVED_TYPE  data;
    CM_STATUS_RECEIVED     status;
    CM_REQUEST_TO_SEND_RECEIVED rts;
    CM_RETURN_CODE         rc;
    FILE                  *file;
    int                    first = 1;

    if (argc != 3)
    {
        fprintf(stderr, "usage: filerecv TP-name output-file\n");
        return 2;
    }
    file = fopen(argv[2], "wb");
    if (file == NULL)
    {
        perror(argv[2]);
        return 2;
    }
    name_length = (CM_TP_NAME_LENGTH)strlen(argv[1]);
    cmsltp((unsigned char CM_PTR)argv[1], &name_length, &rc);
    if (rc == CM_OK)
        cmaccp(cid, &rc);
    if (rc != CM_OK)
    {
        fprintf(stderr, "filerecv: no conversation, return code %ld\n", (long)rc);
        return 1;
    }
    cmect(cid, &type, &rc);
    cmesl(cid, &level, &rc);
    if (type != CM_BASIC_CONVERSATION || level != CM_CONFIRM)
    {
        fprintf(stderr, "filerecv: the sender speaks another protocol\n");
        return 1;
    }
    cmsf(cid, &fill, &rc);

    for (;;)
    {
        cmrcv(cid, record, &room, &data, &length, &status, &rts, &rc);
        if (rc != CM_OK)
        {
            fprintf(stderr, "filerecv: cmrcv returned %ld\n", (long)rc);
            return 1;
        }
        if (data == CM_COMPLETE_DATA_RECEIVED && length >= 2)
        {
            if (first)
                printf("receiving %.*s\n", (int)length - 2, (char *)record + 2);
            else if (fwrite(record + 2, 1, (size_t)length - 2, file) != (size_t)length - 2)
            {
                perror(argv[2]);
                cmserr(cid, &rts, &rc);
                return 1;
            }
            first = 0;
        }
        if (status == CM_CONFIRM_RECEIVED)
        {
            if (fflush(file) != 0)
                cmserr(cid, &rts, &rc);
            else
                cmcfmd(cid, &rc);
        }
        else if (status == CM_CONFIRM_DEALLOC_RECEIVED)
        {
            cmcfmd(cid, &rc);
            return fclose(file) == 0 && rc == CM_OK ? 0 : 1;
        }
    }
}
