/* conversation.c - one conversation from beginning to end, for whatever node is below. */
#include <cpic.h>

#include <stdio.h>

int main(void)
{
    unsigned char conversation[CM_CID_SIZE], destination[] = "        ", data[] = "hello";
    CM_SEND_LENGTH length = 5;
    CM_REQUEST_TO_SEND_RECEIVED request_to_send;
    CM_RETURN_CODE rc;

    cminit(conversation, destination, &rc);
    if (rc == CM_OK)
        cmallc(conversation, &rc);
    if (rc == CM_OK)
        cmsend(conversation, data, &length, &request_to_send, &rc);
    if (rc == CM_OK)
        cmdeal(conversation, &rc);
    printf("return code %ld\n", rc);
    return rc == CM_OK ? 0 : 1;
}
