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

/* ---- how the prototypes are written ---------------------------------------------------------------------- */

#define CM_PTR *               /* every argument is an address */
#define CM_ENTRY extern void   /* a call has no result of its own */

/* ---- types ------------------------------------------------------------------------------------------------
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
typedef CM_INT32 XC_TP_NAME_TYPE;                   /* XC_APPLICATION_TP, XC_SNA_SERVICE_TP */

/* ---- sizes, in bytes ------------------------------------------------------------------------------------- */
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
#define CM_MAX_DATA_SIZE                     32767/* longest send, receive and conversion */
#define CM_SIDE_INFO_SIZE                    124  /* side-information entry */

/* ---- return codes ---------------------------------------------------------------------------------------- */
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

/* ---- conversation state ----  */
#define CM_RESET_STATE                       1
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

/* ---- conversation type ----  */
#define CM_BASIC_CONVERSATION                0
#define CM_MAPPED_CONVERSATION               1

/* ---- conversation security type ----  */
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

/* ---- data received ----  */
#define CM_NO_DATA_RECEIVED                  0
#define CM_DATA_RECEIVED                     1
#define CM_COMPLETE_DATA_RECEIVED            2
#define CM_INCOMPLETE_DATA_RECEIVED          3

/* ---- deallocate type ----  */
#define CM_DEALLOCATE_SYNC_LEVEL             0
#define CM_DEALLOCATE_FLUSH                  1
#define CM_DEALLOCATE_CONFIRM                2
#define CM_DEALLOCATE_ABEND                  3

/* ---- end type of CMTERM ----  */
#define CM_HARD                              0
#define CM_SOFT                              1

/* ---- error direction ----  */
#define CM_RECEIVE_ERROR                     0
#define CM_SEND_ERROR                        1

/* ---- fill ----  */
#define CM_FILL_LL                           0
#define CM_FILL_BUFFER                       1

/* ---- prepare-to-receive type ----  */
#define CM_PREP_TO_RECEIVE_SYNC_LEVEL        0
#define CM_PREP_TO_RECEIVE_FLUSH             1
#define CM_PREP_TO_RECEIVE_CONFIRM           2

/* ---- processing mode ----  */
#define CM_BLOCKING                          0
#define CM_NON_BLOCKING                      1

/* ---- receive type ----  */
#define CM_RECEIVE_AND_WAIT                  0
#define CM_RECEIVE_IMMEDIATE                 1

/* ---- request-to-send received ----  */
#define CM_REQ_TO_SEND_NOT_RECEIVED          0
#define CM_REQ_TO_SEND_RECEIVED              1

/* ---- return control ----  */
#define CM_WHEN_SESSION_ALLOCATED            0
#define CM_IMMEDIATE                         1

/* ---- send type ----  */
#define CM_BUFFER_DATA                       0
#define CM_SEND_AND_FLUSH                    1
#define CM_SEND_AND_CONFIRM                  2
#define CM_SEND_AND_PREP_TO_RECEIVE          3
#define CM_SEND_AND_DEALLOCATE               4

/* ---- status received ----  */
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

/* ---- sync level ----  */
#define CM_NONE                              0
#define CM_CONFIRM                           1
#define CM_SYNC_POINT                        2
#define CM_SYNC_POINT_NO_CONFIRM             3

/* ---- TP name type of a side-information entry ----  */
#define CM_APPLICATION_TP                    0
#define CM_SNA_SERVICE_TP                    1
#define XC_APPLICATION_TP                    CM_APPLICATION_TP
#define XC_SNA_SERVICE_TP                    CM_SNA_SERVICE_TP

/* ---- side-information entry of XCMSSI and XCMESI, 124 bytes ----------------------------------------------
 * ASCII names, padded with blanks. */
typedef struct side_info
{
    unsigned char sym_dest_name[CM_SDN_SIZE];                         /*   0 first character not a blank */
    unsigned char partner_LU_name[CM_PLN_SIZE];                       /*   8 alias, or network ID, period, LU name */
    unsigned char reserved[3];                                        /*  25 neither read nor written */
    XC_TP_NAME_TYPE TP_name_type;                                     /*  28 CM_APPLICATION_TP, CM_SNA_SERVICE_TP */
    unsigned char TP_name[CM_TPN_SIZE];                               /*  32 service TP: first byte is binary */
    unsigned char mode_name[CM_MN_SIZE];                              /*  96 */
    CM_CONVERSATION_SECURITY_TYPE conversation_security_type;         /* 104 none, same, program, program strong */
    unsigned char security_user_ID[8];                                /* 108 */
    unsigned char security_password[8];                               /* 116 never given back */
} SIDE_INFO;

/* A compiler that lays the entry out in another way stops here. */
typedef char cpic_side_info_is_124_bytes[sizeof(SIDE_INFO) == CM_SIDE_INFO_SIZE ? 1 : -1];
typedef char cpic_int32_is_4_bytes[sizeof(CM_INT32) == 4 ? 1 : -1];

/* ---- the calls ------------------------------------------------------------------------------------------- */

CM_ENTRY cmacci(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMACCI(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmaccp(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMACCP(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmallc(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMALLC(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmcanc(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCANC(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmcfm(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCFM(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmcfmd(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCFMD(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmchck(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCHCK(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmcnvi(unsigned char CM_PTR string, CM_STRING_LENGTH CM_PTR string_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCNVI(unsigned char CM_PTR string, CM_STRING_LENGTH CM_PTR string_length,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmcnvo(unsigned char CM_PTR string, CM_STRING_LENGTH CM_PTR string_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMCNVO(unsigned char CM_PTR string, CM_STRING_LENGTH CM_PTR string_length,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmdeal(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMDEAL(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmecs(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_STATE CM_PTR conversation_state,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMECS(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_STATE CM_PTR conversation_state,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmecst(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMECST(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmecsu(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMECSU(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmect(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_TYPE CM_PTR conversation_type,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMECT(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_TYPE CM_PTR conversation_type,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmectx(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR context_ID,
                CM_CONTEXT_ID_LENGTH CM_PTR context_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMECTX(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR context_ID,
                CM_CONTEXT_ID_LENGTH CM_PTR context_ID_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmelln(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR local_LU_name,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMELLN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR local_LU_name,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmembs(CM_MAXIMUM_BUFFER_SIZE CM_PTR maximum_buffer_size, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMEMBS(CM_MAXIMUM_BUFFER_SIZE CM_PTR maximum_buffer_size, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmemn(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR mode_name,
               CM_MODE_NAME_LENGTH CM_PTR mode_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMEMN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR mode_name,
               CM_MODE_NAME_LENGTH CM_PTR mode_name_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmepln(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR partner_LU_name,
                CM_PARTNER_LU_NAME_LENGTH CM_PTR partner_LU_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMEPLN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR partner_LU_name,
                CM_PARTNER_LU_NAME_LENGTH CM_PTR partner_LU_name_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmesl(unsigned char CM_PTR conversation_ID, CM_SYNC_LEVEL CM_PTR sync_level,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMESL(unsigned char CM_PTR conversation_ID, CM_SYNC_LEVEL CM_PTR sync_level,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmesui(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMESUI(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmetpn(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR TP_name,
                CM_TP_NAME_LENGTH CM_PTR TP_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMETPN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR TP_name,
                CM_TP_NAME_LENGTH CM_PTR TP_name_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmflus(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMFLUS(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cminic(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMINIC(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cminit(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR sym_dest_name,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMINIT(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR sym_dest_name,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmptr(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMPTR(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmrcv(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR buffer,
               CM_REQUESTED_LENGTH CM_PTR requested_length, CM_DATA_RECEIVED_TYPE CM_PTR data_received,
               CM_RECEIVED_LENGTH CM_PTR received_length, CM_STATUS_RECEIVED CM_PTR status_received,
               CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMRCV(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR buffer,
               CM_REQUESTED_LENGTH CM_PTR requested_length, CM_DATA_RECEIVED_TYPE CM_PTR data_received,
               CM_RECEIVED_LENGTH CM_PTR received_length, CM_STATUS_RECEIVED CM_PTR status_received,
               CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmrltp(unsigned char CM_PTR TP_name, CM_TP_NAME_LENGTH CM_PTR TP_name_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMRLTP(unsigned char CM_PTR TP_name, CM_TP_NAME_LENGTH CM_PTR TP_name_length,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmrts(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMRTS(unsigned char CM_PTR conversation_ID, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmscsp(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_password,
                CM_SECURITY_PASSWORD_LENGTH CM_PTR security_password_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSCSP(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_password,
                CM_SECURITY_PASSWORD_LENGTH CM_PTR security_password_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmscst(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSCST(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmscsu(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSCSU(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsct(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_TYPE CM_PTR conversation_type,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSCT(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_TYPE CM_PTR conversation_type,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsctx(unsigned char CM_PTR context_ID, CM_CONTEXT_ID_LENGTH CM_PTR context_ID_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSCTX(unsigned char CM_PTR context_ID, CM_CONTEXT_ID_LENGTH CM_PTR context_ID_length,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsdt(unsigned char CM_PTR conversation_ID, CM_DEALLOCATE_TYPE CM_PTR deallocate_type,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSDT(unsigned char CM_PTR conversation_ID, CM_DEALLOCATE_TYPE CM_PTR deallocate_type,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsed(unsigned char CM_PTR conversation_ID, CM_ERROR_DIRECTION CM_PTR error_direction,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSED(unsigned char CM_PTR conversation_ID, CM_ERROR_DIRECTION CM_PTR error_direction,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsend(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR buffer,
                CM_SEND_LENGTH CM_PTR send_length, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSEND(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR buffer,
                CM_SEND_LENGTH CM_PTR send_length, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmserr(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSERR(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsf(unsigned char CM_PTR conversation_ID, CM_FILL CM_PTR fill, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSF(unsigned char CM_PTR conversation_ID, CM_FILL CM_PTR fill, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsld(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR log_data,
               CM_LOG_DATA_LENGTH CM_PTR log_data_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSLD(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR log_data,
               CM_LOG_DATA_LENGTH CM_PTR log_data_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmslln(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR local_LU_name,
                CM_LU_NAME_LENGTH CM_PTR local_LU_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSLLN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR local_LU_name,
                CM_LU_NAME_LENGTH CM_PTR local_LU_name_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsltp(unsigned char CM_PTR TP_name, CM_TP_NAME_LENGTH CM_PTR TP_name_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSLTP(unsigned char CM_PTR TP_name, CM_TP_NAME_LENGTH CM_PTR TP_name_length,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsmn(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR mode_name,
               CM_MODE_NAME_LENGTH CM_PTR mode_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSMN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR mode_name,
               CM_MODE_NAME_LENGTH CM_PTR mode_name_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmspln(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR partner_LU_name,
                CM_PARTNER_LU_NAME_LENGTH CM_PTR partner_LU_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSPLN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR partner_LU_name,
                CM_PARTNER_LU_NAME_LENGTH CM_PTR partner_LU_name_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmspm(unsigned char CM_PTR conversation_ID, CM_PROCESSING_MODE CM_PTR processing_mode,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSPM(unsigned char CM_PTR conversation_ID, CM_PROCESSING_MODE CM_PTR processing_mode,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsptr(unsigned char CM_PTR conversation_ID, CM_PREPARE_TO_RECEIVE_TYPE CM_PTR prepare_to_receive_type,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSPTR(unsigned char CM_PTR conversation_ID, CM_PREPARE_TO_RECEIVE_TYPE CM_PTR prepare_to_receive_type,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsrc(unsigned char CM_PTR conversation_ID, CM_RETURN_CONTROL CM_PTR return_control,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSRC(unsigned char CM_PTR conversation_ID, CM_RETURN_CONTROL CM_PTR return_control,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsrt(unsigned char CM_PTR conversation_ID, CM_RECEIVE_TYPE CM_PTR receive_type,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSRT(unsigned char CM_PTR conversation_ID, CM_RECEIVE_TYPE CM_PTR receive_type,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmssl(unsigned char CM_PTR conversation_ID, CM_SYNC_LEVEL CM_PTR sync_level,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSSL(unsigned char CM_PTR conversation_ID, CM_SYNC_LEVEL CM_PTR sync_level,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmsst(unsigned char CM_PTR conversation_ID, CM_SEND_TYPE CM_PTR send_type,
               CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSST(unsigned char CM_PTR conversation_ID, CM_SEND_TYPE CM_PTR send_type,
               CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmstpn(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR TP_name,
                CM_TP_NAME_LENGTH CM_PTR TP_name_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMSTPN(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR TP_name,
                CM_TP_NAME_LENGTH CM_PTR TP_name_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmterm(CM_END_TYPE CM_PTR end_type, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMTERM(CM_END_TYPE CM_PTR end_type, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmtrts(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMTRTS(unsigned char CM_PTR conversation_ID, CM_REQUEST_TO_SEND_RECEIVED CM_PTR request_to_send_received,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY cmwait(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_RETURN_CODE CM_PTR conversation_return_code,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY CMWAIT(unsigned char CM_PTR conversation_ID, CM_CONVERSATION_RETURN_CODE CM_PTR conversation_return_code,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY xcecst(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCECST(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY xcecsu(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCECSU(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY xcmdsi(unsigned char CM_PTR key_lock, unsigned char CM_PTR sym_dest_name,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCMDSI(unsigned char CM_PTR key_lock, unsigned char CM_PTR sym_dest_name,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY xcmesi(CM_ENTRY_NUMBER CM_PTR entry_number, unsigned char CM_PTR sym_dest_name,
                SIDE_INFO CM_PTR side_info_entry, CM_ENTRY_LENGTH CM_PTR side_info_entry_length,
                CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCMESI(CM_ENTRY_NUMBER CM_PTR entry_number, unsigned char CM_PTR sym_dest_name,
                SIDE_INFO CM_PTR side_info_entry, CM_ENTRY_LENGTH CM_PTR side_info_entry_length,
                CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY xcmssi(unsigned char CM_PTR key_lock, SIDE_INFO CM_PTR side_info_entry,
                CM_ENTRY_LENGTH CM_PTR side_info_entry_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCMSSI(unsigned char CM_PTR key_lock, SIDE_INFO CM_PTR side_info_entry,
                CM_ENTRY_LENGTH CM_PTR side_info_entry_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY xcscsp(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_password,
                CM_SECURITY_PASSWORD_LENGTH CM_PTR security_password_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCSCSP(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_password,
                CM_SECURITY_PASSWORD_LENGTH CM_PTR security_password_length, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY xcscst(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCSCST(unsigned char CM_PTR conversation_ID,
                CM_CONVERSATION_SECURITY_TYPE CM_PTR conversation_security_type, CM_RETURN_CODE CM_PTR return_code);

CM_ENTRY xcscsu(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);
CM_ENTRY XCSCSU(unsigned char CM_PTR conversation_ID, unsigned char CM_PTR security_user_ID,
                CM_SECURITY_USER_ID_LENGTH CM_PTR security_user_ID_length, CM_RETURN_CODE CM_PTR return_code);

/* ---- data the library exports ----------------------------------------------------------------------------
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
