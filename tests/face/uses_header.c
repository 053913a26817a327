/* uses_header.c - a program that uses the header that the command line includes before it; compiled in every language
 * standard by the header tests. Including a header twice must do no harm. */
#include "cpic.h"
#include "cmc.h"

int main(void);

int main(void)
{
    unsigned char conversation[CM_CID_SIZE], destination[CM_SDN_SIZE];
    CM_SEND_LENGTH length = 0;
    CM_REQUEST_TO_SEND_RECEIVED request_to_send;
    CM_RETURN_CODE rc;
    SIDE_INFO entry;
    CM_ENTRY_LENGTH entry_length = sizeof(SIDE_INFO);

    cminit(conversation, destination, &rc);
    CMSEND(conversation, destination, &length, &request_to_send, &rc);
    entry.TP_name_type = CM_APPLICATION_TP;
    xcmssi(destination, &entry, &entry_length, &rc);
    return rc == CM_OK ? 0 : 1;
}
