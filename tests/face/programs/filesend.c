/*-------------------------------------------------------------------------
 * filesend.c - sends a file to filerecv.c on a basic conversation and has
 * the receiver confirm that it has it.
 *
 * Each logical record is a two-byte length, high byte first, that counts
 * itself, and up to 4,000 bytes of the file. The first record holds the
 * file's name.
 *
 * usage: filesend destination partner-LU TP-name file
 *-------------------------------------------------------------------------*/
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "cmc.h"

#define RECORD_DATA 4000

static unsigned char record[RECORD_DATA + 2];

static int failed(const char *call, CM_RETURN_CODE rc)
{
    if (rc == CM_OK)
        return 0;
    fprintf(stderr, "filesend: %s returned %ld", call, (long)rc);
    switch (rc)
    {
    case CM_PROGRAM_PARAMETER_CHECK:    fprintf(stderr, " (parameter check)"); break;
    case CM_PROGRAM_STATE_CHECK:        fprintf(stderr, " (state check)"); break;
    case CM_ALLOCATE_FAILURE_NO_RETRY:
    case CM_ALLOCATE_FAILURE_RETRY:     fprintf(stderr, " (no session)"); break;
    case CM_TPN_NOT_RECOGNIZED:         fprintf(stderr, " (no such program)"); break;
    case CM_SYNC_LVL_NOT_SUPPORTED_PGM: fprintf(stderr, " (receiver cannot confirm)"); break;
    case CM_PROGRAM_ERROR_PURGING:      fprintf(stderr, " (receiver rejects the file)"); break;
    case CM_DEALLOCATED_ABEND:
    case CM_DEALLOCATED_ABEND_SVC:
    case CM_DEALLOCATED_ABEND_TIMER:    fprintf(stderr, " (receiver gave up)"); break;
    case CM_RESOURCE_FAILURE_NO_RETRY:
    case CM_RESOURCE_FAILURE_RETRY:     fprintf(stderr, " (connection lost)"); break;
    default:                            break;
    }
    fprintf(stderr, "\n");
    return 1;
}

/* Puts the length in front of count bytes of data and sends the record. */
static int send_record(unsigned char *cid, size_t count)
{
    CM_INT32       length = (CM_INT32)count + 2;
    CM_INT32       rts;
    CM_RETURN_CODE rc;

    record[0] = (unsigned char)(length >> 8);
    record[1] = (unsigned char)(length & 0xFF);
    cmsend(cid, record, &length, &rts, &rc);
    return failed("cmsend", rc);
}

int main(int argc, char **argv)
{
    unsigned char      cid[CM_CID_SIZE];
    unsigned char      destination[CM_SDN_SIZE];
    CM_INT32           value, length, rts;
    CM_RETURN_CODE     rc;
    FILE              *file;
    size_t             count;

    if (argc != 5 || strlen(argv[1]) > CM_SDN_SIZE || strlen(argv[2]) > CM_PLN_SIZE
        || strlen(argv[3]) > CM_TPN_SIZE || strlen(argv[4]) > RECORD_DATA)
    {
        fprintf(stderr, "usage: filesend destination partner-LU TP-name file\n");
        return 2;
    }
    file = fopen(argv[4], "rb");
    if (file == NULL)
    {
        perror(argv[4]);
        return 2;
    }

    /* "-" is no destination: partner and TP name say it all. */
    memset(destination, ' ', sizeof destination);
    if (strcmp(argv[1], "-") != 0)
        memcpy(destination, argv[1], strlen(argv[1]));

    cminit(cid, destination, &rc);
    if (failed("cminit", rc))
        return 1;
    value = CM_BASIC_CONVERSATION;
    cmsct(cid, &value, &rc);
    if (failed("cmsct", rc))
        return 1;
    value = CM_CONFIRM;
    cmssl(cid, &value, &rc);
    if (failed("cmssl", rc))
        return 1;
    value = CM_SECURITY_NONE;
    xcscst(cid, &value, &rc);
    if (failed("xcscst", rc))
        return 1;
    length = (CM_INT32)strlen(argv[2]);
    cmspln(cid, (unsigned char *)argv[2], &length, &rc);
    if (failed("cmspln", rc))
        return 1;
    length = (CM_INT32)strlen(argv[3]);
    cmstpn(cid, (unsigned char *)argv[3], &length, &rc);
    if (failed("cmstpn", rc))
        return 1;
    cmallc(cid, &rc);
    if (failed("cmallc", rc))
        return 1;

    memcpy(record + 2, argv[4], strlen(argv[4]));
    if (send_record(cid, strlen(argv[4])))
        return 1;
    while ((count = fread(record + 2, 1, RECORD_DATA, file)) > 0)
    {
        if (send_record(cid, count))
            return 1;
    }
    if (ferror(file))
    {
        static const char why[] = "FILE CANNOT BE READ";

        perror(argv[4]);
        length = (CM_INT32)(sizeof why - 1);
        cmsld(cid, (unsigned char *)why, &length, &rc);
        value = CM_DEALLOCATE_ABEND;
        cmsdt(cid, &value, &rc);
        cmdeal(cid, &rc);
        return 1;
    }
    fclose(file);

    /* The receiver confirms the file, then the end. */
    cmcfm(cid, &rts, &rc);
    if (failed("cmcfm", rc))
        return 1;
    value = CM_DEALLOCATE_SYNC_LEVEL;
    cmsdt(cid, &value, &rc);
    cmdeal(cid, &rc);
    if (failed("cmdeal", rc))
        return 1;
    printf("%s sent\n", argv[4]);
    return 0;
}
