/* reqclient.c : the client of reqserv.c. Sends each argument as a request and
 * prints the replies.
 *
 * usage: reqclient TP-name request...
 */
#include <cpic.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char **argv)
{
    static const char blank[CM_SDN_SIZE + 1] = "        ";
    unsigned char key[8] = { 0 }, name[] = "REQSERV ", cid[CM_CID_SIZE], line[1000];
    SIDE_INFO side_info;
    CM_ENTRY_LENGTH entry_length = sizeof(SIDE_INFO);
    CM_REQUESTED_LENGTH room = sizeof line;
    CM_SEND_LENGTH length;
    CM_DATA_RECEIVED_TYPE data;
    CM_STATUS_RECEIVED status;
    CM_REQUEST_TO_SEND_RECEIVED rts;
    CM_RETURN_CODE rc;
    int i;

    if (argc < 3 || strlen(argv[1]) > CM_TPN_SIZE) {
        fprintf(stderr, "usage: reqclient TP-name request...\n");
        return 2;
    }

    /* The server is described by the program itself. */
    memset(&side_info, ' ', sizeof side_info);
    memcpy(side_info.sym_dest_name, name, CM_SDN_SIZE);
    memcpy(side_info.partner_LU_name, "LOCALLU", 7);
    memcpy(side_info.TP_name, argv[1], strlen(argv[1]));
    memcpy(side_info.mode_name, "#INTER", 6);
    side_info.TP_name_type = XC_APPLICATION_TP;
    side_info.conversation_security_type = XC_SECURITY_NONE;
    memcpy(side_info.security_user_ID, blank, 8);
    memcpy(side_info.security_password, blank, 8);
    xcmssi(key, &side_info, &entry_length, &rc);
    if (rc == CM_OK)
        cminit(cid, name, &rc);
    if (rc == CM_OK)
        cmallc(cid, &rc);
    if (rc != CM_OK) {
        fprintf(stderr, "reqclient: no conversation, return code %ld\n", rc);
        return 1;
    }
    for (i = 2; i < argc; i++) {
        length = (CM_SEND_LENGTH)strlen(argv[i]);
        cmsend(cid, (unsigned char *)argv[i], &length, &rts, &rc);
        if (rc != CM_OK) {
            fprintf(stderr, "reqclient: cmsend returned %ld\n", rc);
            return 1;
        }
        do {
            cmrcv(cid, line, &room, &data, &length, &status, &rts, &rc);
            if (rc != CM_OK) {
                fprintf(stderr, "reqclient: cmrcv returned %ld\n", rc);
                return 1;
            }
            if (data != CM_NO_DATA_RECEIVED)
                printf("%.*s\n", (int)length, (char *)line);
        } while (status != CM_SEND_RECEIVED);
    }
    cmdeal(cid, &rc);
    return rc == CM_OK ? 0 : 1;
}
