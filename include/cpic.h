/* cpic.h - the CPI-C calls: everything that a transaction program in C or C++ needs.
 *
 * Holds the types, constants and prototypes of the calls, each in lower case and in upper case (the same call under
 * two names), the side-information entry of XCMSSI and XCMESI, and the data that the library exports. Owns nothing;
 * included by transaction programs (also under the name cmc.h) and by the library itself. It includes no other header
 * and compiles as C89 and later and as C++11 and later.
 *
 * Every argument is passed by address, every call returns nothing: its outcome is the return code, the last argument.
 * Integers are signed and 32 bits wide. Names (destinations, LU names, modes, TP names, user IDs, passwords) are ASCII
 * without a terminating zero; the library converts them to EBCDIC itself. Data that is sent is never converted.
 */
#ifndef CPIC_H
#define CPIC_H

#if defined(__LP64__) || defined(_LP64) || (defined(__SIZEOF_POINTER__) && __SIZEOF_POINTER__ != 4)
#error "cpic.h: the CPI-C library is a 32-bit library. Compile and link this program with -m32."
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- how the prototypes are written -------------------------------------------------------------------------- */

#define CM_PTR *               /* every argument is an address */
#define CM_ENTRY extern void   /* a call has no result of its own */

/* ---- types ---------------------------------------------------------------------------------------------------
 * One name for each kind of argument. All integers are the same 32-bit type. */

typedef signed long int CM_INT32;
typedef CM_INT32 CM_BUFFER_SIZE;                    /* maximum buffer size of CMEMBS, bytes */
typedef CM_INT32 CM_CONTEXT_ID_LENGTH;              /* length of a context ID, bytes */
typedef CM_INT32 CM_CONTROL_INFORMATION_RECEIVED;   /* CM_REQ_TO_SEND_RECEIVED, CM_REQ_TO_SEND_NOT_RECEIVED */
typedef CM_INT32 CM_CONVERSATION_RETURN_CODE;       /* return code of a completed call, from CMWAIT */
typedef CM_INT32 CM_CONVERSATION_SECURITY_TYPE;     /* CM_SECURITY_NONE ... */
typedef CM_INT32 CM_CONVERSATION_STATE;             /* CM_INITIALIZE_STATE ... */
typedef CM_INT32 CM_CONVERSATION_TYPE;              /* CM_BASIC_CONVERSATION, CM_MAPPED_CONVERSATION */
typedef CM_INT32 CM_DATA_RECEIVED_TYPE;             /* CM_NO_DATA_RECEIVED ... */
typedef CM_INT32 CM_DEALLOCATE_TYPE;                /* CM_DEALLOCATE_SYNC_LEVEL ... */
typedef CM_INT32 CM_END_TYPE;                       /* CM_HARD, CM_SOFT */
typedef CM_INT32 CM_ENTRY_LENGTH;                   /* size of a side-information entry, bytes */
typedef CM_INT32 CM_ENTRY_NUMBER;                   /* entry number of XCMESI; not used */
typedef CM_INT32 CM_ERROR_DIRECTION;                /* CM_RECEIVE_ERROR, CM_SEND_ERROR */
typedef CM_INT32 CM_FILL;                           /* CM_FILL_LL, CM_FILL_BUFFER */
typedef CM_INT32 CM_LOG_DATA_LENGTH;                /* length of log data, bytes */
typedef CM_INT32 CM_LU_NAME_LENGTH;                 /* length of an LU name, characters */
typedef CM_INT32 CM_MAXIMUM_BUFFER_SIZE;            /* the same as CM_BUFFER_SIZE */
typedef CM_INT32 CM_MODE_NAME_LENGTH;               /* length of a mode name, characters */
typedef CM_INT32 CM_PARTNER_LU_NAME_LENGTH;         /* length of a partner LU name, characters */
typedef CM_INT32 CM_PREPARE_TO_RECEIVE_TYPE;        /* CM_PREP_TO_RECEIVE_SYNC_LEVEL ... */
typedef CM_INT32 CM_PROCESSING_MODE;                /* CM_BLOCKING, CM_NON_BLOCKING */
typedef CM_INT32 CM_RECEIVED_LENGTH;                /* bytes received */
typedef CM_INT32 CM_RECEIVE_TYPE;                   /* CM_RECEIVE_AND_WAIT, CM_RECEIVE_IMMEDIATE */
typedef CM_INT32 CM_REQUESTED_LENGTH;               /* most bytes to receive */
typedef CM_INT32 CM_REQUEST_TO_SEND_RECEIVED;       /* CM_REQ_TO_SEND_RECEIVED, CM_REQ_TO_SEND_NOT_RECEIVED */
typedef CM_INT32 CM_RETURN_CODE;                    /* CM_OK ... */
typedef CM_INT32 CM_RETURN_CONTROL;                 /* CM_WHEN_SESSION_ALLOCATED, CM_IMMEDIATE */
typedef CM_INT32 CM_SECURITY_PASSWORD_LENGTH;       /* length of a password, characters */
typedef CM_INT32 CM_SECURITY_USER_ID_LENGTH;        /* length of a user ID, characters */
typedef CM_INT32 CM_SEND_LENGTH;                    /* bytes to send */
typedef CM_INT32 CM_SEND_TYPE;                      /* CM_BUFFER_DATA ... */
typedef CM_INT32 CM_STATUS_RECEIVED;                /* CM_NO_STATUS_RECEIVED ... */
typedef CM_INT32 CM_STRING_LENGTH;                  /* length of a string to convert, bytes */
typedef CM_INT32 CM_SYNC_LEVEL;                     /* CM_NONE, CM_CONFIRM */
typedef CM_INT32 CM_TP_NAME_LENGTH;                 /* length of a TP name, characters */
typedef CM_INT32 CM_TP_NAME_TYPE;                   /* CM_APPLICATION_TP, CM_SNA_SERVICE_TP */

/* Names of the extension calls for the same kinds. */
typedef CM_CONVERSATION_SECURITY_TYPE XC_CONVERSATION_SECURITY_TYPE;
typedef CM_TP_NAME_TYPE XC_TP_NAME_TYPE;

/* ---- sizes, in bytes ----------------------------------------------------------------------------------------- */
#define CM_CID_SIZE                          8    /* conversation ID */
#define CM_CTX_SIZE                          8    /* context ID */
#define CM_SDN_SIZE                          8    /* symbolic destination name */
#define CM_PLN_SIZE                          17   /* partner LU name */
#define CM_MN_SIZE                           8    /* mode name */
#define CM_TPN_SIZE                          64   /* TP name */
#define CM_LLN_SIZE                          8    /* local LU alias */
#define CM_LLN_FIELD_SIZE                    9    /* what CMELLN writes: the alias and a zero */
#define CM_UID_SIZE                          10   /* user ID */
#define CM_PW_SIZE                           10   /* password */
#define CM_LD_SIZE                           512  /* longest log data of the standard */
#define CM_MAX_DATA_SIZE                     32767 /* longest send, receive and conversion */
#define CM_SIDE_INFO_SIZE                    124  /* side-information entry */

/* ---- return codes -------------------------------------------------------------------------------------------- */
#define CM_OK                                0
#define CM_ALLOCATE_FAILURE_NO_RETRY         1
#define CM_ALLOCATE_FAILURE_RETRY            2
#define CM_CONVERSATION_TYPE_MISMATCH        3
#define CM_PIP_NOT_SPECIFIED_CORRECTLY       5
#define CM_SECURITY_NOT_VALID                6
#define CM_SYNC_LEVEL_NOT_SUPPORTED_LU       7
#define CM_SYNC_LEVEL_NOT_SUPPORTED_PGM      8
#define CM_TPN_NOT_RECOGNISED                9
#define CM_TP_NOT_AVAILABLE_NO_RETRY         10
#define CM_TP_NOT_AVAILABLE_RETRY            11
#define CM_DEALLOCATED_ABEND                 17
#define CM_DEALLOCATED_NORMAL                18
#define CM_PARAMETER_ERROR                   19
#define CM_PRODUCT_SPECIFIC_ERROR            20
#define CM_PROGRAM_ERROR_NO_TRUNC            21
#define CM_PROGRAM_ERROR_PURGING             22
#define CM_PROGRAM_ERROR_TRUNC               23
#define CM_PROGRAM_PARAMETER_CHECK           24
#define CM_PROGRAM_STATE_CHECK               25
#define CM_RESOURCE_FAILURE_NO_RETRY         26
#define CM_RESOURCE_FAILURE_RETRY            27
#define CM_UNSUCCESSFUL                      28
#define CM_DEALLOCATED_ABEND_SVC             30
#define CM_DEALLOCATED_ABEND_TIMER           31
#define CM_SVC_ERROR_NO_TRUNC                32
#define CM_SVC_ERROR_PURGING                 33
#define CM_SVC_ERROR_TRUNC                   34
#define CM_OPERATION_INCOMPLETE              35
#define CM_SYSTEM_EVENT                      36
#define CM_OPERATION_NOT_ACCEPTED            37
#define CM_CONVERSATION_ENDING               38
#define CM_SEND_RCV_MODE_NOT_SUPPORTED       39
#define CM_BUFFER_TOO_SMALL                  40
#define CM_EXP_DATA_NOT_SUPPORTED            41
#define CM_DEALLOC_CONFIRM_REJECT            42
#define CM_ALLOCATION_ERROR                  43
#define CM_RETRY_LIMIT_EXCEEDED              44
#define CM_NO_SECONDARY_INFORMATION          45
#define CM_SECURITY_NOT_SUPPORTED            46
#define CM_SECURITY_MUTUAL_FAILED            47
#define CM_CALL_NOT_SUPPORTED                48
#define CM_PARM_VALUE_NOT_SUPPORTED          49
#define CM_TAKE_BACKOUT                      100
#define CM_DEALLOCATED_ABEND_BO              130
#define CM_DEALLOCATED_ABEND_SVC_BO          131
#define CM_DEALLOCATED_ABEND_TIMER_BO        132
#define CM_RESOURCE_FAIL_NO_RETRY_BO         133
#define CM_RESOURCE_FAILURE_RETRY_BO         134
#define CM_DEALLOCATED_NORMAL_BO             135
#define CM_CONV_DEALLOC_AFTER_SYNCPT         136
#define CM_INCLUDE_PARTNER_REJECT_BO         137

/* Other customary spellings of return codes. */
#define CM_SYNC_LVL_NOT_SUPPORTED_LU         CM_SYNC_LEVEL_NOT_SUPPORTED_LU
#define CM_SYNC_LVL_NOT_SUPPORTED_PGM        CM_SYNC_LEVEL_NOT_SUPPORTED_PGM
#define CM_TPN_NOT_RECOGNIZED                CM_TPN_NOT_RECOGNISED
#define CM_TP_NOT_RECOGNIZED                 CM_TPN_NOT_RECOGNISED
#define CM_RESOURCE_FAILURE_NO_RETRY_BO      CM_RESOURCE_FAIL_NO_RETRY_BO

/* ---- conversation state -------------------------------------------------------------------------------------- */
#define CM_INITIALIZE_STATE                  2
#define CM_SEND_STATE                        3
#define CM_RECEIVE_STATE                     4
#define CM_SEND_PENDING_STATE                5
#define CM_CONFIRM_STATE                     6
#define CM_CONFIRM_SEND_STATE                7
#define CM_CONFIRM_DEALLOCATE_STATE          8
#define CM_DEFER_RECEIVE_STATE               9
#define CM_DEFER_DEALLOCATE_STATE            10
#define CM_SYNC_POINT_STATE                  11
#define CM_SYNC_POINT_SEND_STATE             12
#define CM_SYNC_POINT_DEALLOCATE_STATE       13
#define CM_INITIALIZE_INCOMING_STATE         14
#define CM_SEND_ONLY_STATE                   15
#define CM_RECEIVE_ONLY_STATE                16
#define CM_SEND_RECEIVE_STATE                17
#define CM_PREPARED_STATE                    18

/* ---- conversation type --------------------------------------------------------------------------------------- */
#define CM_BASIC_CONVERSATION                0
#define CM_MAPPED_CONVERSATION               1

/* ---- conversation security type ------------------------------------------------------------------------------ */
#define CM_SECURITY_NONE                     0
#define CM_SECURITY_SAME                     1
#define CM_SECURITY_PROGRAM                  2
#define CM_SECURITY_DISTRIBUTED              3
#define CM_SECURITY_MUTUAL                   4
#define CM_SECURITY_PROGRAM_STRONG           5
#define XC_SECURITY_NONE                     CM_SECURITY_NONE
#define XC_SECURITY_SAME                     CM_SECURITY_SAME
#define XC_SECURITY_PROGRAM                  CM_SECURITY_PROGRAM
#define XC_SECURITY_PROGRAM_STRONG           CM_SECURITY_PROGRAM_STRONG

/* ---- data received ------------------------------------------------------------------------------------------- */
#define CM_NO_DATA_RECEIVED                  0
#define CM_DATA_RECEIVED                     1
#define CM_COMPLETE_DATA_RECEIVED            2
#define CM_INCOMPLETE_DATA_RECEIVED          3

/* ---- deallocate type ----------------------------------------------------------------------------------------- */
#define CM_DEALLOCATE_SYNC_LEVEL             0
#define CM_DEALLOCATE_FLUSH                  1
#define CM_DEALLOCATE_CONFIRM                2
#define CM_DEALLOCATE_ABEND                  3

/* ---- end type of CMTERM -------------------------------------------------------------------------------------- */
#define CM_HARD                              0
#define CM_SOFT                              1

/* ---- error direction ----------------------------------------------------------------------------------------- */
#define CM_RECEIVE_ERROR                     0
#define CM_SEND_ERROR                        1

/* ---- fill ---------------------------------------------------------------------------------------------------- */
#define CM_FILL_LL                           0
#define CM_FILL_BUFFER                       1

/* ---- prepare-to-receive type --------------------------------------------------------------------------------- */
#define CM_PREP_TO_RECEIVE_SYNC_LEVEL        0
#define CM_PREP_TO_RECEIVE_FLUSH             1
#define CM_PREP_TO_RECEIVE_CONFIRM           2

/* ---- processing mode ----------------------------------------------------------------------------------------- */
#define CM_BLOCKING                          0
#define CM_NON_BLOCKING                      1

/* ---- receive type -------------------------------------------------------------------------------------------- */
#define CM_RECEIVE_AND_WAIT                  0
#define CM_RECEIVE_IMMEDIATE                 1

/* ---- request-to-send received -------------------------------------------------------------------------------- */
#define CM_REQ_TO_SEND_NOT_RECEIVED          0
#define CM_REQ_TO_SEND_RECEIVED              1
#define CM_NO_CONTROL_INFO_RECEIVED          CM_REQ_TO_SEND_NOT_RECEIVED /* the newer name of the same */

/* ---- return control ------------------------------------------------------------------------------------------ */
#define CM_WHEN_SESSION_ALLOCATED            0
#define CM_IMMEDIATE                         1

/* ---- send type ----------------------------------------------------------------------------------------------- */
#define CM_BUFFER_DATA                       0
#define CM_SEND_AND_FLUSH                    1
#define CM_SEND_AND_CONFIRM                  2
#define CM_SEND_AND_PREP_TO_RECEIVE          3
#define CM_SEND_AND_DEALLOCATE               4

/* ---- status received ----------------------------------------------------------------------------------------- */
#define CM_NO_STATUS_RECEIVED                0
#define CM_SEND_RECEIVED                     1
#define CM_CONFIRM_RECEIVED                  2
#define CM_CONFIRM_SEND_RECEIVED             3
#define CM_CONFIRM_DEALLOC_RECEIVED          4
#define CM_TAKE_COMMIT                       5
#define CM_TAKE_COMMIT_SEND                  6
#define CM_TAKE_COMMIT_DEALLOCATE            7
#define CM_TAKE_COMMIT_DATA_OK               8
#define CM_TAKE_COMMIT_SEND_DATA_OK          9
#define CM_TAKE_COMMIT_DEALLOC_DATA_OK       10
#define CM_PREPARE_OK                        11
#define CM_JOIN_TRANSACTION                  12

/* ---- sync level ---------------------------------------------------------------------------------------------- */
#define CM_NONE                              0
#define CM_CONFIRM                           1
#define CM_SYNC_POINT                        2
#define CM_SYNC_POINT_NO_CONFIRM             3

/* ---- TP name type of a side-information entry ---------------------------------------------------------------- */
#define CM_APPLICATION_TP                    0
#define CM_SNA_SERVICE_TP                    1
#define XC_APPLICATION_TP                    CM_APPLICATION_TP
#define XC_SNA_SERVICE_TP                    CM_SNA_SERVICE_TP

/* ---- side-information entry of XCMSSI and XCMESI, 124 bytes --------------------------------------------------
 * ASCII names, padded with blanks. */
typedef struct side_info
{
    unsigned char sym_dest_name[CM_SDN_SIZE];                         /*   0 first character not a blank */
    unsigned char partner_LU_name[CM_PLN_SIZE];                       /*   8 alias, or network ID, period, LU name */
    unsigned char reserved[3];                                        /*  25 neither read nor written */
    CM_TP_NAME_TYPE TP_name_type;                                     /*  28 CM_APPLICATION_TP, CM_SNA_SERVICE_TP */
    unsigned char TP_name[CM_TPN_SIZE];                               /*  32 service TP: first byte is binary */
    unsigned char mode_name[CM_MN_SIZE];                              /*  96 */
    CM_CONVERSATION_SECURITY_TYPE conversation_security_type;         /* 104 none, same, program, program strong */
    unsigned char security_user_ID[8];                                /* 108 */
    unsigned char security_password[8];                               /* 116 never given back */
} SIDE_INFO;

/* A compiler that lays the entry out in another way stops here. */
typedef char cpic_side_info_is_124_bytes[sizeof(SIDE_INFO) == CM_SIDE_INFO_SIZE ? 1 : -1];
typedef char cpic_int32_is_4_bytes[sizeof(CM_INT32) == 4 ? 1 : -1];

/* ---- the calls -------------------------------------------------------------------------------------------
 * Above each: what it does, its arguments (in or out, units or size, meaning), its return codes with their causes, and
 * the states in which it may be issued. Outputs other than the return code are left untouched when the library itself
 * refuses a call, unless the call says otherwise. Every call may return CM_OPERATION_INCOMPLETE only on a
 * conversation that CMSPM has made non-blocking.
 *
 * Three groups of return codes come from the partner or the node and mean the same in every call:
 *
 *   allocation errors; the conversation is over, it never reached the partner program
 *     CM_ALLOCATE_FAILURE_NO_RETRY     no session with the partner can be had, and trying again does not help
 *     CM_ALLOCATE_FAILURE_RETRY        no session with the partner can be had just now
 *     CM_CONVERSATION_TYPE_MISMATCH    the partner program does not take this conversation type
 *     CM_SECURITY_NOT_VALID            the partner's node refuses the user ID or the password
 *     CM_SYNC_LEVEL_NOT_SUPPORTED_PGM  the partner program does not take this sync level
 *     CM_TPN_NOT_RECOGNISED            nobody serves the TP name at the partner's node
 *     CM_TP_NOT_AVAILABLE_NO_RETRY     the partner program cannot be started, and trying again does not help
 *     CM_TP_NOT_AVAILABLE_RETRY        the partner program cannot be started just now
 *
 *   conversation failures; the conversation is over
 *     CM_DEALLOCATED_ABEND             the partner program ended the conversation abnormally
 *     CM_DEALLOCATED_ABEND_SVC         basic conversation: the partner's system services ended it abnormally
 *     CM_DEALLOCATED_ABEND_TIMER       basic conversation: the same, because a time limit had passed
 *     CM_RESOURCE_FAILURE_NO_RETRY     the conversation was lost, and trying again does not help
 *     CM_RESOURCE_FAILURE_RETRY        the conversation was lost: the partner program, its node or the path to it
 *                                      is gone
 *
 *   purging errors; the conversation goes on, in Receive state
 *     CM_PROGRAM_ERROR_PURGING         the partner program issued CMSERR; what was on the way to it is lost, and it
 *                                      has the turn
 *     CM_SVC_ERROR_PURGING             basic conversation: the same from the partner's system services
 */

/* ---- Making, allocating and accepting conversations ---------------------------------------------------------- */

/* CMINIT - Initialize_Conversation: start a conversation from a symbolic destination name.
 *
 *   conversation_ID  out, 8 bytes: the new conversation; for every later call on it
 *   sym_dest_name    in, 8 characters, ASCII, padded with blanks: the symbolic destination; a first character of
 *                    blank means none
 *
 *   CM_OK                       the conversation exists, in Initialize state
 *   CM_PROGRAM_PARAMETER_CHECK  the destination is not defined, was deleted with XCMDSI, or the node could not be
 *                               asked for it
 *   CM_PRODUCT_SPECIFIC_ERROR   the library cannot start (is the node running?), or there is no memory
 *
 * State: the call makes the conversation. Afterwards it is in Initialize state. */
CM_ENTRY cminit(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR sym_dest_name,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMINIT(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR sym_dest_name,
                CM_RETURN_CODE CM_PTR return_code);

/* CMINIC - Initialize_For_Incoming: make a conversation that is to be accepted later.
 *
 *   conversation_ID  out, 8 bytes: the new conversation, for CMACCI
 *
 *   CM_OK                      the conversation exists, in Initialize-Incoming state
 *   CM_PRODUCT_SPECIFIC_ERROR  the library cannot start (is the node running?), or there is no memory
 *
 * State: the call makes the conversation. Afterwards it is in Initialize-Incoming state. */
CM_ENTRY cminic(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMINIC(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

/* CMALLC - Allocate: allocate a conversation with the partner.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *
 *   CM_OK                         the conversation is allocated, in Send state
 *   CM_PROGRAM_PARAMETER_CHECK    the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK        the conversation is not in Initialize state
 *   CM_OPERATION_NOT_ACCEPTED     an earlier call on this conversation is not complete
 *   CM_PARAMETER_ERROR            the node does not know the partner LU or the mode
 *   CM_UNSUCCESSFUL               with CM_IMMEDIATE (see CMSRC): no session is free
 *   CM_RESOURCE_FAILURE_NO_RETRY  the path to the partner or the node was lost, and trying again does not help
 *   CM_RESOURCE_FAILURE_RETRY     the path to the partner or the node was lost
 *   CM_OPERATION_INCOMPLETE       non-blocking: the call goes on, CMWAIT collects its result; the outputs are
 *                                 stored when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR     the local LU alias is not known, the node is not there, CMCANC cancelled the
 *                                 allocation while it was outstanding, or the node failed in another way that has
 *                                 no code of its own
 *   and the allocation errors, see above
 *
 * State: Initialize. Afterwards Send. */
CM_ENTRY cmallc(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMALLC(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

/* CMACCP - Accept_Conversation: accept the next incoming conversation.
 *
 *   conversation_ID  out, 8 bytes: the accepted conversation
 *
 *   CM_OK                      a conversation was accepted; it is in Receive state
 *   CM_PROGRAM_STATE_CHECK     the program has no local TP name to accept under
 *   CM_PRODUCT_SPECIFIC_ERROR  the library cannot start, the program's TP name cannot be registered with the node,
 *                              the path to the node was lost, or there is no memory
 *
 * State: the call makes the conversation. Afterwards it is in Receive state. */
CM_ENTRY cmaccp(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMACCP(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

/* CMACCI - Accept_Incoming: accept an incoming conversation into one made by CMINIC.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIC gave it
 *
 *   CM_OK                       a conversation was accepted; it is in Receive state
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize-Incoming state, or the program has no local
 *                               TP name to accept under
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *   CM_OPERATION_INCOMPLETE     non-blocking: the call goes on, CMWAIT collects its result; the outputs are stored
 *                               when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR   the program's TP name cannot be registered with the node, the path to the node was
 *                               lost, the accept was cancelled, or there is no memory
 *
 * State: Initialize-Incoming. Afterwards Receive. */
CM_ENTRY cmacci(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMACCI(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

/* CMSLTP - Specify_Local_TP_Name: add a TP name to accept under.
 *
 *   TP_name         in, TP_name_length characters, ASCII: the name
 *   TP_name_length  in, integer: 1 to 64
 *
 *   CM_OK                       the program accepts conversations for the name
 *   CM_PROGRAM_PARAMETER_CHECK  the length is not 1 to 64, or a character is not allowed
 *   CM_PRODUCT_SPECIFIC_ERROR   the library cannot start, the node refuses the name, or there is no memory
 *
 * State: any; the call does not depend on one conversation. */
CM_ENTRY cmsltp(unsigned char CM_PTR TP_name, CM_TP_NAME_LENGTH CM_PTR TP_name_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSLTP(unsigned char CM_PTR TP_name, CM_TP_NAME_LENGTH CM_PTR TP_name_length,
                CM_RETURN_CODE CM_PTR return_code);

/* CMRLTP - Release_Local_TP_Name: take a TP name back.
 *
 *   TP_name         in, TP_name_length characters, ASCII: the name
 *   TP_name_length  in, integer: 1 to 64
 *
 *   CM_OK                       the name is no longer accepted
 *   CM_PROGRAM_PARAMETER_CHECK  the length is not 1 to 64, or the name is not one of this program's
 *   CM_PRODUCT_SPECIFIC_ERROR   the node refuses; the name stays
 *
 * State: any; the call does not depend on one conversation. */
CM_ENTRY cmrltp(unsigned char CM_PTR TP_name, CM_TP_NAME_LENGTH CM_PTR TP_name_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMRLTP(unsigned char CM_PTR TP_name, CM_TP_NAME_LENGTH CM_PTR TP_name_length,
                CM_RETURN_CODE CM_PTR return_code);


/* ---- Data, confirmation, turn and end ------------------------------------------------------------------------ */

/* CMSEND - Send_Data: send data to the partner.
 *
 *   conversation_ID           in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   buffer                    in, send_length bytes: the data, sent as it is, never converted
 *   send_length               in, integer: bytes to send, 0 to 32767
 *   request_to_send_received  out, integer: CM_REQ_TO_SEND_RECEIVED when the partner has asked for the turn, else
 *                             CM_REQ_TO_SEND_NOT_RECEIVED
 *
 *   CM_OK                       the data is in the send buffer or on its way, and the send type's further work is
 *                               done
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, send_length is negative or above 32767, or, on a
 *                               basic conversation, a logical record begins with a length that cannot be
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Send or Send-Pending state, or, on a basic conversation,
 *                               the logical record is not complete where it must be
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *   CM_OPERATION_INCOMPLETE     non-blocking: the call goes on, CMWAIT collects its result; the outputs are stored
 *                               when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR   there is no memory for a copy of the log data, or the node failed in a way that has
 *                               no code of its own
 *   and the allocation errors, the conversation failures and the purging errors, see above
 *
 * State: Send, Send-Pending. Afterwards Send, or the state that the send type leads to: Receive after
 *   CM_SEND_AND_PREP_TO_RECEIVE, the end after CM_SEND_AND_DEALLOCATE. */
CM_ENTRY cmsend(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR buffer,
                CM_SEND_LENGTH CM_PTR send_length, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSEND(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR buffer,
                CM_SEND_LENGTH CM_PTR send_length, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);

/* CMFLUS - Flush: send the buffered data now.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *
 *   CM_OK                       the send buffer is empty
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation is not allocated or accepted yet, or is in a state that does not
 *                               allow the call
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *   CM_OPERATION_INCOMPLETE     non-blocking: the call goes on, CMWAIT collects its result; the outputs are stored
 *                               when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR   the node failed in a way that has no code of its own; the problem log tells more
 *   and the allocation errors, the conversation failures and the purging errors, see above
 *
 * State: Send, Send-Pending. Afterwards Send. */
CM_ENTRY cmflus(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMFLUS(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

/* CMRCV - Receive: receive data and status from the partner.
 *
 *   conversation_ID           in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   buffer                    out, requested_length bytes: where the data goes, as the partner sent it
 *   requested_length          in, integer: most bytes to receive, 0 to 32767
 *   data_received             out, integer: CM_NO_DATA_RECEIVED, CM_DATA_RECEIVED, CM_COMPLETE_DATA_RECEIVED or
 *                             CM_INCOMPLETE_DATA_RECEIVED
 *   received_length           out, integer: bytes received
 *   status_received           out, integer: CM_NO_STATUS_RECEIVED, CM_SEND_RECEIVED, CM_CONFIRM_RECEIVED,
 *                             CM_CONFIRM_SEND_RECEIVED or CM_CONFIRM_DEALLOC_RECEIVED
 *   request_to_send_received  out, integer: CM_REQ_TO_SEND_RECEIVED when the partner has asked for the turn, else
 *                             CM_REQ_TO_SEND_NOT_RECEIVED
 *
 *   CM_OK                       look at data_received and status_received
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or requested_length is negative or above 32767
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in a state to receive
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *   CM_UNSUCCESSFUL             CM_RECEIVE_IMMEDIATE: there is nothing to receive yet
 *   CM_DEALLOCATED_NORMAL       the partner deallocated the conversation; it is over
 *   CM_PROGRAM_ERROR_NO_TRUNC   the partner issued CMSERR in Send state; no record was cut off
 *   CM_PROGRAM_ERROR_TRUNC      basic conversation: the partner issued CMSERR in the middle of a logical record,
 *                               which stays incomplete
 *   CM_SVC_ERROR_NO_TRUNC       basic conversation: CMSERR of the partner's system services; no record was cut off
 *   CM_SVC_ERROR_TRUNC          basic conversation: the same in the middle of a logical record
 *   CM_OPERATION_INCOMPLETE     non-blocking: the call goes on, CMWAIT collects its result; the outputs are stored
 *                               when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR   the node failed in a way that has no code of its own; the problem log tells more
 *   and the purging errors, the allocation errors and the conversation failures, see above
 *
 * State: Receive; with CM_RECEIVE_AND_WAIT also Send and Send-Pending, where it first sends what is buffered and
 *   gives the turn to the partner. Afterwards the state that status_received tells. */
CM_ENTRY cmrcv(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR buffer,
               CM_REQUESTED_LENGTH CM_PTR requested_length, CM_DATA_RECEIVED_TYPE CM_PTR data_received,
               CM_RECEIVED_LENGTH CM_PTR received_length, CM_STATUS_RECEIVED CM_PTR status_received,
               CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMRCV(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR buffer,
               CM_REQUESTED_LENGTH CM_PTR requested_length, CM_DATA_RECEIVED_TYPE CM_PTR data_received,
               CM_RECEIVED_LENGTH CM_PTR received_length, CM_STATUS_RECEIVED CM_PTR status_received,
               CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received, CM_RETURN_CODE CM_PTR return_code);

/* CMCFM - Confirm: ask the partner for a confirmation and wait for it.
 *
 *   conversation_ID           in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   request_to_send_received  out, integer: CM_REQ_TO_SEND_RECEIVED when the partner has asked for the turn, else
 *                             CM_REQ_TO_SEND_NOT_RECEIVED
 *
 *   CM_OK                       the partner confirmed with CMCFMD
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the sync level is CM_NONE
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Send or Send-Pending state, or, on a basic conversation,
 *                               a logical record is not complete
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *   CM_OPERATION_INCOMPLETE     non-blocking: the call goes on, CMWAIT collects its result; the outputs are stored
 *                               when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR   the node failed in a way that has no code of its own; the problem log tells more
 *   and the allocation errors, the conversation failures and the purging errors, see above
 *
 * State: Send, Send-Pending; sync level CM_CONFIRM. Afterwards Send. */
CM_ENTRY cmcfm(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCFM(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
               CM_RETURN_CODE CM_PTR return_code);

/* CMCFMD - Confirmed: confirm what the partner asked to confirm.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *
 *   CM_OK                         the partner has its confirmation
 *   CM_PROGRAM_PARAMETER_CHECK    the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK        the conversation is not allocated or accepted yet, or is in a state that does not
 *                                 allow the call
 *   CM_OPERATION_NOT_ACCEPTED     an earlier call on this conversation is not complete
 *   CM_RESOURCE_FAILURE_NO_RETRY  the conversation was lost, and trying again does not help
 *   CM_RESOURCE_FAILURE_RETRY     the conversation was lost
 *   CM_OPERATION_INCOMPLETE       non-blocking: the call goes on, CMWAIT collects its result; the outputs are
 *                                 stored when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR     the node failed in a way that has no code of its own; the problem log tells more
 *
 * State: Confirm, Confirm-Send, Confirm-Deallocate. Afterwards Receive, Send, or the end of the conversation. */
CM_ENTRY cmcfmd(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCFMD(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

/* CMPTR - Prepare_To_Receive: give the turn to the partner.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *
 *   CM_OK                       the turn is the partner's
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Send or Send-Pending state, or, on a basic conversation,
 *                               a logical record is not complete
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *   CM_OPERATION_INCOMPLETE     non-blocking: the call goes on, CMWAIT collects its result; the outputs are stored
 *                               when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR   the node failed in a way that has no code of its own; the problem log tells more
 *   and the allocation errors, the conversation failures and the purging errors, see above
 *
 * State: Send, Send-Pending. Afterwards Receive. */
CM_ENTRY cmptr(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMPTR(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

/* CMSERR - Send_Error: tell the partner of an error.
 *
 *   conversation_ID           in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   request_to_send_received  out, integer: CM_REQ_TO_SEND_RECEIVED when the partner has asked for the turn, else
 *                             CM_REQ_TO_SEND_NOT_RECEIVED
 *
 *   CM_OK                       the error is reported and the turn is here
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation is not allocated or accepted yet, or is in a state that does not
 *                               allow the call
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *   CM_DEALLOCATED_NORMAL       the partner deallocated the conversation before it heard of the error; it is over
 *   CM_PROGRAM_ERROR_PURGING    both sides reported an error at the same time and the partner's came first
 *   CM_SVC_ERROR_PURGING        basic conversation: the same from the partner's system services
 *   CM_OPERATION_INCOMPLETE     non-blocking: the call goes on, CMWAIT collects its result; the outputs are stored
 *                               when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR   the log data is lost, or the node failed in a way that has no code of its own
 *   and the allocation errors and the conversation failures, see above
 *
 * State: Send, Receive, Send-Pending, Confirm, Confirm-Send, Confirm-Deallocate. Afterwards Send. */
CM_ENTRY cmserr(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSERR(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);

/* CMRTS - Request_To_Send: ask the partner for the turn.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *
 *   CM_OK                         the request is on its way
 *   CM_PROGRAM_PARAMETER_CHECK    the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK        the conversation is not allocated or accepted yet, or is in a state that does not
 *                                 allow the call
 *   CM_OPERATION_NOT_ACCEPTED     an earlier call on this conversation is not complete
 *   CM_RESOURCE_FAILURE_NO_RETRY  the conversation was lost, and trying again does not help
 *   CM_RESOURCE_FAILURE_RETRY     the conversation was lost
 *   CM_OPERATION_INCOMPLETE       non-blocking: the call goes on, CMWAIT collects its result; the outputs are
 *                                 stored when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR     the node failed in a way that has no code of its own; the problem log tells more
 *
 * State: Receive, Confirm, Confirm-Send, Confirm-Deallocate. The state stays. */
CM_ENTRY cmrts(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMRTS(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

/* CMTRTS - Test_Request_To_Send_Received: has the partner asked for the turn.
 *
 *   conversation_ID           in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   request_to_send_received  out, integer: CM_REQ_TO_SEND_RECEIVED or CM_REQ_TO_SEND_NOT_RECEIVED
 *
 *   CM_OK                       request_to_send_received tells; or the node refused the question (see NOTES)
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation is not allocated or accepted yet, or a confirmation that CMRCV
 *                               reported is not answered
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *
 * State: Send, Receive, Send-Pending. The state stays. */
CM_ENTRY cmtrts(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMTRTS(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);

/* CMDEAL - Deallocate: end a conversation.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *
 *   CM_OK                       the conversation is over and its ID no longer known
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      not allocated or accepted yet (except from Initialize state with
 *                               CM_DEALLOCATE_ABEND), or not in Send or Send-Pending state (except with
 *                               CM_DEALLOCATE_ABEND)
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *   CM_OPERATION_INCOMPLETE     non-blocking: the call goes on, CMWAIT collects its result; the outputs are stored
 *                               when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR   the log data is lost, or the node failed in a way that has no code of its own
 *   and the allocation errors, the conversation failures and the purging errors, see above
 *
 * State: Send, Send-Pending; with CM_DEALLOCATE_ABEND every state but Initialize-Incoming. Afterwards the
 *   conversation does not exist. */
CM_ENTRY cmdeal(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMDEAL(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);


/* ---- Setting characteristics --------------------------------------------------------------------------------- */

/* CMSCT - Set_Conversation_Type: choose basic or mapped.
 *
 *   conversation_ID    in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   conversation_type  in, integer: CM_BASIC_CONVERSATION or CM_MAPPED_CONVERSATION
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the type is none, or CM_MAPPED_CONVERSATION
 *                               while CM_FILL_BUFFER or log data is set
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state: it is allocated already, or was made
 *                               for an incoming one
 *
 * State: Initialize. */
CM_ENTRY cmsct(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_TYPE CM_PTR conversation_type,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSCT(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_TYPE CM_PTR conversation_type,
               CM_RETURN_CODE CM_PTR return_code);

/* CMSDT - Set_Deallocate_Type: choose how CMDEAL ends the conversation.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   deallocate_type  in, integer: CM_DEALLOCATE_SYNC_LEVEL, CM_DEALLOCATE_FLUSH, CM_DEALLOCATE_CONFIRM or
 *                    CM_DEALLOCATE_ABEND
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the type is none, or CM_DEALLOCATE_CONFIRM
 *                               with sync level CM_NONE
 *
 * State: every state, also before allocation. */
CM_ENTRY cmsdt(unsigned char CM_PTR conversation_ID, CM_DEALLOCATE_TYPE CM_PTR deallocate_type,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSDT(unsigned char CM_PTR conversation_ID, CM_DEALLOCATE_TYPE CM_PTR deallocate_type,
               CM_RETURN_CODE CM_PTR return_code);

/* CMSED - Set_Error_Direction: say where the error was that CMSERR will report.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   error_direction  in, integer: CM_RECEIVE_ERROR or CM_SEND_ERROR
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the direction is none
 *
 * State: every state, also before allocation. */
CM_ENTRY cmsed(unsigned char CM_PTR conversation_ID, CM_ERROR_DIRECTION CM_PTR error_direction,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSED(unsigned char CM_PTR conversation_ID, CM_ERROR_DIRECTION CM_PTR error_direction,
               CM_RETURN_CODE CM_PTR return_code);

/* CMSF - Set_Fill: receive by logical records or by buffers.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   fill             in, integer: CM_FILL_LL or CM_FILL_BUFFER
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the fill is none, or the conversation is not
 *                               basic
 *
 * State: every state, also before allocation. */
CM_ENTRY cmsf(unsigned char CM_PTR conversation_ID, CM_FILL CM_PTR fill, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSF(unsigned char CM_PTR conversation_ID, CM_FILL CM_PTR fill, CM_RETURN_CODE CM_PTR return_code);

/* CMSLD - Set_Log_Data: set the text that goes with an error.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   log_data         in, log_data_length characters, ASCII: the text
 *   log_data_length  in, integer: 0 to 512
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the length is not 0 to 512, or the
 *                               conversation is not basic
 *   CM_PRODUCT_SPECIFIC_ERROR   there is no memory; the old text stays
 *
 * State: every state, also before allocation. */
CM_ENTRY cmsld(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR log_data,
               CM_LOG_DATA_LENGTH CM_PTR log_data_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSLD(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR log_data,
               CM_LOG_DATA_LENGTH CM_PTR log_data_length, CM_RETURN_CODE CM_PTR return_code);

/* CMSLLN - Set_Local_LU_Name: set the local LU alias.
 *
 *   conversation_ID       in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   local_LU_name         in, local_LU_name_length characters, ASCII: the alias of a local LU
 *   local_LU_name_length  in, integer: 0 to 8
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the length is not 0 to 8
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state: it is allocated already, or was made
 *                               for an incoming one
 *
 * Only the low 16 bits of the length are checked, but all of it is copied: a wrong length such as 65544 damages
 * memory.
 *
 * State: Initialize. */
CM_ENTRY cmslln(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR local_LU_name,
                CM_LU_NAME_LENGTH CM_PTR local_LU_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSLLN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR local_LU_name,
                CM_LU_NAME_LENGTH CM_PTR local_LU_name_length, CM_RETURN_CODE CM_PTR return_code);

/* CMSMN - Set_Mode_Name: set the mode name.
 *
 *   conversation_ID   in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   mode_name         in, mode_name_length characters, ASCII: the mode
 *   mode_name_length  in, integer: 0 to 8
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the length is not 0 to 8
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state: it is allocated already, or was made
 *                               for an incoming one
 *
 * State: Initialize. */
CM_ENTRY cmsmn(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR mode_name,
               CM_MODE_NAME_LENGTH CM_PTR mode_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSMN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR mode_name,
               CM_MODE_NAME_LENGTH CM_PTR mode_name_length, CM_RETURN_CODE CM_PTR return_code);

/* CMSPLN - Set_Partner_LU_Name: set the partner LU name.
 *
 *   conversation_ID         in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   partner_LU_name         in, partner_LU_name_length characters, ASCII: an alias, or network ID, period and LU
 *                           name
 *   partner_LU_name_length  in, integer: 1 to 17
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the length is not 1 to 17
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state: it is allocated already, or was made
 *                               for an incoming one
 *
 * Only the low 16 bits of the length are checked, but all of it is copied: a wrong length such as 65544 damages
 * memory.
 *
 * State: Initialize. */
CM_ENTRY cmspln(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR partner_LU_name,
                CM_PARTNER_LU_NAME_LENGTH CM_PTR partner_LU_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSPLN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR partner_LU_name,
                CM_PARTNER_LU_NAME_LENGTH CM_PTR partner_LU_name_length, CM_RETURN_CODE CM_PTR return_code);

/* CMSPTR - Set_Prepare_To_Receive_Type: choose how CMPTR gives the turn.
 *
 *   conversation_ID          in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   prepare_to_receive_type  in, integer: CM_PREP_TO_RECEIVE_SYNC_LEVEL, CM_PREP_TO_RECEIVE_FLUSH or
 *                            CM_PREP_TO_RECEIVE_CONFIRM
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the type is none, or
 *                               CM_PREP_TO_RECEIVE_CONFIRM with sync level CM_NONE
 *
 * State: every state, also before allocation. */
CM_ENTRY cmsptr(unsigned char CM_PTR conversation_ID, CM_PREPARE_TO_RECEIVE_TYPE CM_PTR prepare_to_receive_type,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSPTR(unsigned char CM_PTR conversation_ID, CM_PREPARE_TO_RECEIVE_TYPE CM_PTR prepare_to_receive_type,
                CM_RETURN_CODE CM_PTR return_code);

/* CMSRC - Set_Return_Control: let CMALLC wait for a session or not.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   return_control   in, integer: CM_WHEN_SESSION_ALLOCATED or CM_IMMEDIATE
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the value is none
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state: it is allocated already, or was made
 *                               for an incoming one
 *
 * State: Initialize. */
CM_ENTRY cmsrc(unsigned char CM_PTR conversation_ID, CM_RETURN_CONTROL CM_PTR return_control,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSRC(unsigned char CM_PTR conversation_ID, CM_RETURN_CONTROL CM_PTR return_control,
               CM_RETURN_CODE CM_PTR return_code);

/* CMSRT - Set_Receive_Type: let CMRCV wait or not.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   receive_type     in, integer: CM_RECEIVE_AND_WAIT or CM_RECEIVE_IMMEDIATE
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the type is none
 *
 * State: every state, also before allocation. */
CM_ENTRY cmsrt(unsigned char CM_PTR conversation_ID, CM_RECEIVE_TYPE CM_PTR receive_type,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSRT(unsigned char CM_PTR conversation_ID, CM_RECEIVE_TYPE CM_PTR receive_type,
               CM_RETURN_CODE CM_PTR return_code);

/* CMSSL - Set_Sync_Level: allow confirmations or not.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   sync_level       in, integer: CM_NONE or CM_CONFIRM
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the level is none or is not supported
 *                               (CM_SYNC_POINT is not), or it is CM_NONE while the send, prepare-to-receive or
 *                               deallocate type is the one with a confirmation
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state: it is allocated already, or was made
 *                               for an incoming one
 *
 * State: Initialize. */
CM_ENTRY cmssl(unsigned char CM_PTR conversation_ID, CM_SYNC_LEVEL CM_PTR sync_level,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSSL(unsigned char CM_PTR conversation_ID, CM_SYNC_LEVEL CM_PTR sync_level,
               CM_RETURN_CODE CM_PTR return_code);

/* CMSST - Set_Send_Type: choose what CMSEND does besides sending.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   send_type        in, integer: CM_BUFFER_DATA, CM_SEND_AND_FLUSH, CM_SEND_AND_CONFIRM,
 *                    CM_SEND_AND_PREP_TO_RECEIVE or CM_SEND_AND_DEALLOCATE
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the type is none, or CM_SEND_AND_CONFIRM with
 *                               sync level CM_NONE
 *
 * State: every state, also before allocation. */
CM_ENTRY cmsst(unsigned char CM_PTR conversation_ID, CM_SEND_TYPE CM_PTR send_type,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSST(unsigned char CM_PTR conversation_ID, CM_SEND_TYPE CM_PTR send_type,
               CM_RETURN_CODE CM_PTR return_code);

/* CMSTPN - Set_TP_Name: set the partner TP name.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   TP_name          in, TP_name_length characters, ASCII: the partner's TP name
 *   TP_name_length   in, integer: 1 to 64
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the length is not 1 to 64
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state: it is allocated already, or was made
 *                               for an incoming one
 *
 * State: Initialize. */
CM_ENTRY cmstpn(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR TP_name,
                CM_TP_NAME_LENGTH CM_PTR TP_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSTPN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR TP_name,
                CM_TP_NAME_LENGTH CM_PTR TP_name_length, CM_RETURN_CODE CM_PTR return_code);


/* ---- Extracting characteristics ------------------------------------------------------------------------------ */

/* CMECS - Extract_Conversation_State: get the state of a conversation.
 *
 *   conversation_ID     in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   conversation_state  out, integer: CM_INITIALIZE_STATE, CM_SEND_STATE, CM_RECEIVE_STATE, CM_SEND_PENDING_STATE,
 *                       CM_CONFIRM_STATE, CM_CONFIRM_SEND_STATE, CM_CONFIRM_DEALLOCATE_STATE or
 *                       CM_INITIALIZE_INCOMING_STATE
 *
 *   CM_OK                       the state is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *   CM_OPERATION_INCOMPLETE     non-blocking: the call goes on, CMWAIT collects its result; the outputs are stored
 *                               when it completes
 *   CM_PRODUCT_SPECIFIC_ERROR   the node could not tell the state, or told one that is not known
 *
 * State: every state, also before allocation. */
CM_ENTRY cmecs(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_STATE CM_PTR conversation_state,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMECS(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_STATE CM_PTR conversation_state,
               CM_RETURN_CODE CM_PTR return_code);

/* CMECT - Extract_Conversation_Type: get the conversation type.
 *
 *   conversation_ID    in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   conversation_type  out, integer: CM_BASIC_CONVERSATION or CM_MAPPED_CONVERSATION
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation was made by CMINIC and nothing has been accepted yet
 *
 * State: every state but Initialize-Incoming. */
CM_ENTRY cmect(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_TYPE CM_PTR conversation_type,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMECT(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_TYPE CM_PTR conversation_type,
               CM_RETURN_CODE CM_PTR return_code);

/* CMELLN - Extract_Local_LU_Name: get the local LU alias.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   local_LU_name    out, 9 bytes: the alias in ASCII, padded with blanks to 8 characters, and a zero byte
 *
 *   CM_OK                       the alias is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      no local LU is set, or the conversation was made by CMINIC and nothing has been
 *                               accepted yet
 *
 * State: every state but Initialize-Incoming. */
CM_ENTRY cmelln(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR local_LU_name,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMELLN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR local_LU_name,
                CM_RETURN_CODE CM_PTR return_code);

/* CMEMBS - Extract_Maximum_Buffer_Size: get the longest send and receive.
 *
 *   maximum_buffer_size  out, integer: always 32767
 *
 *   CM_OK  always
 *
 * State: any; the call does not depend on a conversation. */
CM_ENTRY cmembs(CM_MAXIMUM_BUFFER_SIZE CM_PTR maximum_buffer_size, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMEMBS(CM_MAXIMUM_BUFFER_SIZE CM_PTR maximum_buffer_size, CM_RETURN_CODE CM_PTR return_code);

/* CMEMN - Extract_Mode_Name: get the mode name.
 *
 *   conversation_ID   in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   mode_name         out, 8 bytes: the name in ASCII, without a terminating zero
 *   mode_name_length  out, integer: characters of the name, 0 to 8
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation was made by CMINIC and nothing has been accepted yet
 *
 * State: every state but Initialize-Incoming. */
CM_ENTRY cmemn(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR mode_name,
               CM_MODE_NAME_LENGTH CM_PTR mode_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMEMN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR mode_name,
               CM_MODE_NAME_LENGTH CM_PTR mode_name_length, CM_RETURN_CODE CM_PTR return_code);

/* CMEPLN - Extract_Partner_LU_Name: get the partner LU name.
 *
 *   conversation_ID         in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   partner_LU_name         out, 17 bytes: the alias or the network-qualified name in ASCII, without a terminating
 *                           zero
 *   partner_LU_name_length  out, integer: characters of the name, 0 to 17
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation was made by CMINIC and nothing has been accepted yet
 *
 * State: every state but Initialize-Incoming. */
CM_ENTRY cmepln(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR partner_LU_name,
                CM_PARTNER_LU_NAME_LENGTH CM_PTR partner_LU_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMEPLN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR partner_LU_name,
                CM_PARTNER_LU_NAME_LENGTH CM_PTR partner_LU_name_length, CM_RETURN_CODE CM_PTR return_code);

/* CMESL - Extract_Sync_Level: get the sync level.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   sync_level       out, integer: CM_NONE or CM_CONFIRM
 *
 *   CM_OK                       the value is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation was made by CMINIC and nothing has been accepted yet
 *
 * State: every state but Initialize-Incoming. */
CM_ENTRY cmesl(unsigned char CM_PTR conversation_ID, CM_SYNC_LEVEL CM_PTR sync_level,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMESL(unsigned char CM_PTR conversation_ID, CM_SYNC_LEVEL CM_PTR sync_level,
               CM_RETURN_CODE CM_PTR return_code);

/* CMETPN - Extract_TP_Name: get the TP name of a conversation.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   TP_name          out, 64 bytes: the name in ASCII, without padding and without a terminating zero
 *   TP_name_length   out, integer: characters of the name, 0 to 64
 *
 *   CM_OK                       the name is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation was made by CMINIC and nothing has been accepted yet
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *
 * State: every state but Initialize-Incoming. */
CM_ENTRY cmetpn(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR TP_name,
                CM_TP_NAME_LENGTH CM_PTR TP_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMETPN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR TP_name,
                CM_TP_NAME_LENGTH CM_PTR TP_name_length, CM_RETURN_CODE CM_PTR return_code);


/* ---- Conversation security. Each call exists under its older and its newer name ------------------------------ */

/* CMSCST - Set_Conversation_Security_Type: choose the security of an allocation.
 *
 *   conversation_ID             in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   conversation_security_type  in, integer: CM_SECURITY_NONE, CM_SECURITY_SAME, CM_SECURITY_PROGRAM or
 *                               CM_SECURITY_PROGRAM_STRONG
 *
 *   CM_OK                       the type is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the type is none or is not supported
 *                               (CM_SECURITY_DISTRIBUTED and CM_SECURITY_MUTUAL are not)
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state: it is allocated already, or was made
 *                               for an incoming one
 *
 * State: Initialize. */
CM_ENTRY cmscst(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSCST(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);

/* XCSCST - Set_Conversation_Security_Type: choose the security of an allocation.
 *
 *   conversation_ID             in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   conversation_security_type  in, integer: CM_SECURITY_NONE, CM_SECURITY_SAME, CM_SECURITY_PROGRAM or
 *                               CM_SECURITY_PROGRAM_STRONG
 *
 *   CM_OK                       the type is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the type is none or is not supported
 *                               (CM_SECURITY_DISTRIBUTED and CM_SECURITY_MUTUAL are not)
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state: it is allocated already, or was made
 *                               for an incoming one
 *
 * State: Initialize. */
CM_ENTRY xcscst(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCSCST(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);

/* CMSCSU - Set_Conversation_Security_User_ID: set the user ID of an allocation.
 *
 *   conversation_ID          in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   security_user_ID         in, security_user_ID_length characters, ASCII: the user ID
 *   security_user_ID_length  in, integer: 1 to 10
 *
 *   CM_OK                       the user ID is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the length is not 1 to 10
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state, or its security type is
 *                               CM_SECURITY_NONE
 *
 * State: Initialize. */
CM_ENTRY cmscsu(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSCSU(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);

/* XCSCSU - Set_Conversation_Security_User_ID: set the user ID of an allocation.
 *
 *   conversation_ID          in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   security_user_ID         in, security_user_ID_length characters, ASCII: the user ID
 *   security_user_ID_length  in, integer: 1 to 10
 *
 *   CM_OK                       the user ID is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the length is not 1 to 10
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state, or its security type is
 *                               CM_SECURITY_NONE
 *
 * State: Initialize. */
CM_ENTRY xcscsu(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCSCSU(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);

/* CMSCSP - Set_Conversation_Security_Password: set the password of an allocation.
 *
 *   conversation_ID           in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   security_password         in, security_password_length characters, ASCII: the password
 *   security_password_length  in, integer: 1 to 10
 *
 *   CM_OK                       the password is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the length is not 1 to 10
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state, or its security type is neither
 *                               CM_SECURITY_PROGRAM nor CM_SECURITY_PROGRAM_STRONG
 *
 * State: Initialize. */
CM_ENTRY cmscsp(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_password,
                CM_SECURITY_PASSWORD_LENGTH CM_PTR security_password_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSCSP(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_password,
                CM_SECURITY_PASSWORD_LENGTH CM_PTR security_password_length, CM_RETURN_CODE CM_PTR return_code);

/* XCSCSP - Set_Conversation_Security_Password: set the password of an allocation.
 *
 *   conversation_ID           in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   security_password         in, security_password_length characters, ASCII: the password
 *   security_password_length  in, integer: 1 to 10
 *
 *   CM_OK                       the password is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or the length is not 1 to 10
 *   CM_PROGRAM_STATE_CHECK      the conversation is not in Initialize state, or its security type is neither
 *                               CM_SECURITY_PROGRAM nor CM_SECURITY_PROGRAM_STRONG
 *
 * State: Initialize. */
CM_ENTRY xcscsp(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_password,
                CM_SECURITY_PASSWORD_LENGTH CM_PTR security_password_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCSCSP(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_password,
                CM_SECURITY_PASSWORD_LENGTH CM_PTR security_password_length, CM_RETURN_CODE CM_PTR return_code);

/* CMECST - Extract_Conversation_Security_Type: get the security type.
 *
 *   conversation_ID             in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   conversation_security_type  out, integer: CM_SECURITY_NONE, CM_SECURITY_SAME, CM_SECURITY_PROGRAM or
 *                               CM_SECURITY_PROGRAM_STRONG
 *
 *   CM_OK                       the type is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *
 * State: every state, also before allocation. */
CM_ENTRY cmecst(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMECST(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);

/* XCECST - Extract_Conversation_Security_Type: get the security type.
 *
 *   conversation_ID             in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   conversation_security_type  out, integer: CM_SECURITY_NONE, CM_SECURITY_SAME, CM_SECURITY_PROGRAM or
 *                               CM_SECURITY_PROGRAM_STRONG
 *
 *   CM_OK                       the type is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *
 * State: every state, also before allocation. */
CM_ENTRY xcecst(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCECST(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);

/* CMECSU - Extract_Security_User_ID: get the user ID.
 *
 *   conversation_ID          in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   security_user_ID         out, 8 bytes: the user ID in ASCII, without a terminating zero
 *   security_user_ID_length  out, integer: length of the user ID as stored, 0 to 10
 *
 *   CM_OK                       the user ID is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation was made by CMINIC and nothing has been accepted yet
 *
 * State: every state but Initialize-Incoming. */
CM_ENTRY cmecsu(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMECSU(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);

/* XCECSU - Extract_Security_User_ID: get the user ID.
 *
 *   conversation_ID          in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   security_user_ID         out, 8 bytes: the user ID in ASCII, without a terminating zero
 *   security_user_ID_length  out, integer: length of the user ID as stored, 0 to 10
 *
 *   CM_OK                       the user ID is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation was made by CMINIC and nothing has been accepted yet
 *
 * State: every state but Initialize-Incoming. */
CM_ENTRY xcecsu(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCECSU(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);

/* CMESUI - Extract_Security_User_ID: get the user ID.
 *
 *   conversation_ID          in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   security_user_ID         out, 10 bytes: the user ID in ASCII, without a terminating zero
 *   security_user_ID_length  out, integer: length of the user ID as stored, 0 to 10
 *
 *   CM_OK                       the user ID is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation was made by CMINIC and nothing has been accepted yet
 *
 * State: every state but Initialize-Incoming. */
CM_ENTRY cmesui(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMESUI(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);


/* ---- Non-blocking processing, contexts, the end -------------------------------------------------------------- */

/* CMSPM - Set_Processing_Mode: make a conversation blocking or non-blocking.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   processing_mode  in, integer: CM_BLOCKING or CM_NON_BLOCKING
 *
 *   CM_OK                       the mode holds for the calls that follow
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known, or processing_mode is no mode
 *   CM_OPERATION_NOT_ACCEPTED   an earlier call on this conversation is not complete
 *
 * State: every state, also before allocation. */
CM_ENTRY cmspm(unsigned char CM_PTR conversation_ID, CM_PROCESSING_MODE CM_PTR processing_mode,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSPM(unsigned char CM_PTR conversation_ID, CM_PROCESSING_MODE CM_PTR processing_mode,
               CM_RETURN_CODE CM_PTR return_code);

/* CMWAIT - Wait_For_Conversation: wait for the completion of a non-blocking call.
 *
 *   conversation_ID           out, 8 bytes: the conversation whose call has completed
 *   conversation_return_code  out, integer: the return code of that call
 *
 *   CM_OK                   a completion was collected
 *   CM_PROGRAM_STATE_CHECK  no completion waits and no call is outstanding
 *
 * State: any; the call does not depend on one conversation. */
CM_ENTRY cmwait(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_RETURN_CODE CM_PTR conversation_return_code,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMWAIT(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_RETURN_CODE CM_PTR conversation_return_code,
                CM_RETURN_CODE CM_PTR return_code);

/* CMCHCK - Check_For_Completion: has a non-blocking call completed.
 *
 *   conversation_ID  out, 8 bytes: the conversation that CMWAIT would return
 *
 *   CM_OK                   a completion waits; CMWAIT collects it without waiting
 *   CM_UNSUCCESSFUL         none yet, but calls are outstanding
 *   CM_PROGRAM_STATE_CHECK  none, and no call is outstanding
 *
 * State: any; the call does not depend on one conversation. */
CM_ENTRY cmchck(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCHCK(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

/* CMCANC - Cancel_Conversation: break a conversation off at once.
 *
 *   conversation_ID  in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *
 *   CM_OK                       the conversation is over
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PRODUCT_SPECIFIC_ERROR   no wait object or memory, or the node failed in a way that has no code of its own
 *   CM_RESOURCE_FAILURE_RETRY   the conversation was lost already
 *
 * State: every state, also while a call is pending. */
CM_ENTRY cmcanc(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCANC(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

/* CMECTX - Extract_Conversation_Context: get the context of a conversation.
 *
 *   conversation_ID    in, 8 bytes: the conversation, as CMINIT, CMINIC, CMACCP or CMWAIT gave it
 *   context_ID         out, 8 bytes: the context
 *   context_ID_length  out, integer: always 8
 *
 *   CM_OK                       the context is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the conversation ID is not known: never made, or the conversation is over
 *   CM_PROGRAM_STATE_CHECK      the conversation is not allocated or accepted yet
 *
 * State: every state but Initialize and Initialize-Incoming. */
CM_ENTRY cmectx(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR context_ID,
                CM_CONTEXT_ID_LENGTH CM_PTR context_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMECTX(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR context_ID,
                CM_CONTEXT_ID_LENGTH CM_PTR context_ID_length, CM_RETURN_CODE CM_PTR return_code);

/* CMSCTX - Set_Context: make a context current.
 *
 *   context_ID         in, 8 bytes: the context, as CMECTX gave it
 *   context_ID_length  in, integer: 8
 *
 *   CM_OK                       the context is current
 *   CM_PROGRAM_PARAMETER_CHECK  context_ID_length is not 8, or no conversation has the context
 *
 * State: any; the call does not depend on one conversation. */
CM_ENTRY cmsctx(unsigned char CM_PTR context_ID, CM_CONTEXT_ID_LENGTH CM_PTR context_ID_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSCTX(unsigned char CM_PTR context_ID, CM_CONTEXT_ID_LENGTH CM_PTR context_ID_length,
                CM_RETURN_CODE CM_PTR return_code);

/* CMTERM - Terminate: end the current context and its conversations.
 *
 *   end_type  in, integer: CM_HARD or CM_SOFT
 *
 *   CM_OK                      the context has ended, or there was none
 *   CM_PARAMETER_ERROR         end_type is neither CM_HARD nor CM_SOFT
 *   CM_PRODUCT_SPECIFIC_ERROR  the node refuses; context and conversations stay as they are
 *
 * State: any; the call does not depend on one conversation. */
CM_ENTRY cmterm(CM_END_TYPE CM_PTR end_type, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMTERM(CM_END_TYPE CM_PTR end_type, CM_RETURN_CODE CM_PTR return_code);


/* ---- Conversion of data between ASCII and EBCDIC ------------------------------------------------------------- */

/* CMCNVI - Convert_Incoming: convert data from EBCDIC to ASCII.
 *
 *   string         in and out, string_length bytes: what to convert; the result replaces it
 *   string_length  in, integer: bytes to convert, at most 32767
 *
 *   CM_OK                       converted
 *   CM_PROGRAM_PARAMETER_CHECK  string_length is above 32767; nothing was converted
 *
 * State: any; the call does not depend on a conversation. */
CM_ENTRY cmcnvi(unsigned char CM_PTR string, CM_STRING_LENGTH CM_PTR string_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCNVI(unsigned char CM_PTR string, CM_STRING_LENGTH CM_PTR string_length,
                CM_RETURN_CODE CM_PTR return_code);

/* CMCNVO - Convert_Outgoing: convert data from ASCII to EBCDIC.
 *
 *   string         in and out, string_length bytes: what to convert; the result replaces it
 *   string_length  in, integer: bytes to convert, at most 32767
 *
 *   CM_OK                       converted
 *   CM_PROGRAM_PARAMETER_CHECK  string_length is above 32767; nothing was converted
 *
 * State: any; the call does not depend on a conversation. */
CM_ENTRY cmcnvo(unsigned char CM_PTR string, CM_STRING_LENGTH CM_PTR string_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCNVO(unsigned char CM_PTR string, CM_STRING_LENGTH CM_PTR string_length,
                CM_RETURN_CODE CM_PTR return_code);


/* ---- Side information of this process ------------------------------------------------------------------------ */

/* XCMSSI - Set_CPIC_Side_Information: define a symbolic destination for this process.
 *
 *   key_lock                in, 8 bytes: not looked at
 *   side_info_entry         in, 124 bytes, SIDE_INFO: the entry; names in ASCII, padded with blanks
 *   side_info_entry_length  in, integer: 124
 *
 *   CM_OK                       the destination is defined
 *   CM_PROGRAM_PARAMETER_CHECK  the length is not 124, the name begins with a blank, or the TP name type or the
 *                               security type is not allowed
 *   CM_PRODUCT_SPECIFIC_ERROR   the library cannot start, or there is no memory
 *
 * State: any; the call does not depend on a conversation. */
CM_ENTRY xcmssi(unsigned char CM_PTR key_lock, SIDE_INFO CM_PTR side_info_entry,
                CM_ENTRY_LENGTH CM_PTR side_info_entry_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCMSSI(unsigned char CM_PTR key_lock, SIDE_INFO CM_PTR side_info_entry,
                CM_ENTRY_LENGTH CM_PTR side_info_entry_length, CM_RETURN_CODE CM_PTR return_code);

/* XCMESI - Extract_CPIC_Side_Information: look a symbolic destination up.
 *
 *   entry_number            in, integer: not looked at
 *   sym_dest_name           in, 8 characters, ASCII, padded with blanks: the destination
 *   side_info_entry         out, 124 bytes, SIDE_INFO: the entry
 *   side_info_entry_length  in, integer: 124
 *
 *   CM_OK                       the entry is stored
 *   CM_PROGRAM_PARAMETER_CHECK  the length is not 124, or the destination is not defined or deleted
 *   CM_PRODUCT_SPECIFIC_ERROR   the library cannot start, the node cannot be asked, or there is no memory
 *
 * State: any; the call does not depend on a conversation. */
CM_ENTRY xcmesi(CM_ENTRY_NUMBER CM_PTR entry_number, unsigned char CM_PTR sym_dest_name,
                SIDE_INFO CM_PTR side_info_entry, CM_ENTRY_LENGTH CM_PTR side_info_entry_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCMESI(CM_ENTRY_NUMBER CM_PTR entry_number, unsigned char CM_PTR sym_dest_name,
                SIDE_INFO CM_PTR side_info_entry, CM_ENTRY_LENGTH CM_PTR side_info_entry_length,
                CM_RETURN_CODE CM_PTR return_code);

/* XCMDSI - Delete_CPIC_Side_Information: delete a symbolic destination for this process.
 *
 *   key_lock       in, 8 bytes: not looked at
 *   sym_dest_name  in, 8 characters, ASCII, padded with blanks: the destination
 *
 *   CM_OK                       the destination is deleted for this process
 *   CM_PROGRAM_PARAMETER_CHECK  the destination is not defined, or deleted already
 *   CM_PRODUCT_SPECIFIC_ERROR   the library cannot start, the node cannot be asked, or there is no memory
 *
 * State: any; the call does not depend on a conversation. */
CM_ENTRY xcmdsi(unsigned char CM_PTR key_lock, unsigned char CM_PTR sym_dest_name,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCMDSI(unsigned char CM_PTR key_lock, unsigned char CM_PTR sym_dest_name,
                CM_RETURN_CODE CM_PTR return_code);

/* ---- data the library exports --------------------------------------------------------------------------------
 * For service tools and problem determination; a transaction program needs none of it. The control block is opaque
 * here. The library's lock guards pGCB's target, pEnv and fInitCPIC. */
struct gcb;
extern struct gcb CM_PTR pGCB;       /* the global control block */
extern const char *pEnv;             /* the environment variable read last; null when it was unset or empty */
extern unsigned short fInitCPIC;     /* 1: the library has started */

/* Character tables of 512 bytes: the first 256 turn ASCII into EBCDIC, the others EBCDIC into ASCII; 0 stands for a
 * character that is not in the table's repertoire. */
extern const unsigned char cpic_a[512];        /* upper-case letters, digits, #, $, @, blank */
extern const unsigned char cpic_ae[512];       /* letters, digits, #, $, @, period, blank */
extern const unsigned char cpic_ae640[512];    /* TP names */
extern const unsigned char cpic_ae640_ex[512]; /* CMCNVI and CMCNVO */

extern const char *ocpic_verstamp(void);       /* the version line, ending in a newline */
extern const char *ocpic_verstamp_tvt(void);   /* the product line */

#ifdef __cplusplus
}
#endif

#endif
