/* node_verbs.h - the verb records that travel between the CPI-C library and a node client library: APPC verbs, local
 * TP name verbs, node operator verbs. node_client.h declares the entry points that take them.
 *
 * All of it holds for 32 bits and natural alignment; every offset is asserted below. Integers are in native,
 * little-endian order, but for the two return codes, which the node stores in network order.
 */
#ifndef NODE_VERBS_H
#define NODE_VERBS_H

#include "node_client.h"

#include <stddef.h>

typedef unsigned char u8;

#ifdef __cplusplus
#define CPIC_ASSERT(condition) static_assert(condition, #condition)
#else
#define CPIC_ASSERT(condition) _Static_assert(condition, #condition)
#endif
#define CPIC_AT(type, field, offset) CPIC_ASSERT(offsetof(type, field) == (offset))
#define CPIC_SIZE(type, size) CPIC_ASSERT(sizeof(type) == (size))

CPIC_SIZE(void *, 4);

#define CPIC_VERB_SIZE 200 /* the verb record of a conversation */

/* ---- verb records --------------------------------------------------------------------------------------- */

/* Opcodes. */
#define NAP_B_ALLOCATE 0x0001 /* operation extension 0 */
#define NAP_M_ALLOCATE 0x0001 /* operation extension 1 */
#define NAP_CONFIRM 0x0003
#define NAP_CONFIRMED 0x0004
#define NAP_DEALLOCATE 0x0005
#define NAP_FLUSH 0x0006
#define NAP_GET_STATE 0x0009
#define NAP_PREPARE_TO_RECEIVE 0x000A
#define NAP_RECEIVE_AND_WAIT 0x000B
#define NAP_RECEIVE_IMMEDIATE 0x000C
#define NAP_REQUEST_TO_SEND 0x000E
#define NAP_SEND_DATA 0x000F
#define NAP_SEND_ERROR 0x0010
#define NAP_TEST_RTS 0x0012
#define NAP_TP_ENDED 0x0013
#define NAP_TP_STARTED 0x0014
#define NAP_CANCEL_CONVERSATION 0x0072
#define NAP_RECEIVE_ALLOCATE_CPIC 0xF100
#define NAP_DEFINE_LOCAL_TP_NAME 0xF101 /* stored as the bytes 01 F1 */
#define NAP_DELETE_LOCAL_TP_NAME 0xF102 /* stored as the bytes 02 F1 */

/* Header of every verb of a conversation. */
typedef struct verb_header
{
    u16 opcode;         /*  0 */
    u8 opext;           /*  2 conversation type: 0 basic, 1 mapped */
    u8 allocating;      /*  3 1 in the verbs that make a conversation */
    u16 primary_rc;     /*  4 out, network order; 0 success */
    u16 reserved;       /*  6 */
    u32 secondary_rc;   /*  8 out, network order */
    u8 tp_id[8];        /* 12 */
    u32 conv_id;        /* 20 the node's conversation identifier */
} VERB_HEADER;          /* 24 */

typedef struct verb_tp_started
{
    u16 opcode;
    u8 opext;
    u8 allocating;
    u16 primary_rc;
    u16 reserved;
    u32 secondary_rc;
    u8 lu_alias[8];     /* 12 in: wanted, all zero: the node's choice; out: the one used */
    u8 tp_id[8];        /* 20 out */
    u8 tp_name[64];     /* 28 in: local TP name */
} VERB_TP_STARTED;

typedef struct verb_tp_ended
{
    u16 opcode;
    u8 opext;
    u8 allocating;
    u16 primary_rc;
    u16 reserved;
    u32 secondary_rc;
    u8 tp_id[8];        /* 12 */
    u8 type;            /* 20 0 soft, 1 hard: conversations still open are ended abnormally */
} VERB_TP_ENDED;

typedef struct verb_allocate
{
    VERB_HEADER header;      /*   0 conv_id is an output */
    u8 reserved24;           /*  24 0 */
    u8 sync_level;           /*  25 */
    u8 reserved26[2];        /*  26 */
    u8 return_control;       /*  28 */
    u8 reserved29[11];       /*  29 */
    u8 plu_alias[8];         /*  40 first byte 0: fqplu_name says who */
    u8 mode_name[8];         /*  48 */
    u8 tp_name[64];          /*  56 */
    u8 security;             /* 120 */
    u8 reserved121[11];      /* 121 */
    u8 password[10];         /* 132 not with security type same */
    u8 user_id[10];          /* 142 */
    u32 reserved152;         /* 152 0 */
    u8 reserved156[5];       /* 156 */
    u8 fqplu_name[17];       /* 161 */
} VERB_ALLOCATE;

typedef struct verb_receive_allocate
{
    u16 opcode;
    u8 opext;
    u8 allocating;
    u16 primary_rc;
    u16 reserved;
    u32 secondary_rc;
    u8 tp_name[64];          /*  12 out: the name that the partner asked for */
    u8 tp_id[8];             /*  76 out */
    u32 conv_id;             /*  84 in: CCCB handle; out: the node's conversation identifier */
    u8 sync_level;           /*  88 out */
    u8 conv_type;            /*  89 out */
    u8 user_id[10];          /*  90 out */
    u8 lu_alias[8];          /* 100 out, ASCII */
    u8 reserved108[8];       /* 108 */
    u8 mode_name[8];         /* 116 out, EBCDIC */
    u8 reserved124[8];       /* 124 */
    u8 fqplu_name[17];       /* 132 out, EBCDIC */
    u8 reserved149[43];      /* 149 */
    u16 tp_name_count;       /* 192 in */
    u16 reserved194;         /* 194 */
    u8 *tp_name_list;        /* 196 in: that many names of 64 bytes, EBCDIC */
} VERB_RECEIVE_ALLOCATE;

typedef struct verb_rts_received /* CONFIRM, and the output of SEND_DATA and SEND_ERROR */
{
    VERB_HEADER header;
    u8 rts_received;         /* 24 out */
} VERB_RTS_RECEIVED;

typedef struct verb_deallocate
{
    VERB_HEADER header;
    u8 reserved24;           /* 24 */
    u8 dealloc_type;         /* 25 0 sync level, 1 flush, 2 abend, 5 abend of a mapped conversation */
    u16 log_length;          /* 26 */
    u8 *log_data;            /* 28 */
} VERB_DEALLOCATE;

typedef struct verb_get_state
{
    VERB_HEADER header;
    u8 conv_state;           /* 24 out */
} VERB_GET_STATE;

typedef struct verb_prepare_to_receive
{
    VERB_HEADER header;
    u8 ptr_type;             /* 24 0 sync level, 1 flush */
} VERB_PREPARE_TO_RECEIVE;

typedef struct verb_receive
{
    VERB_HEADER header;
    u16 what_received;       /* 24 out */
    u8 status_with_data;     /* 26 1: status may come back together with data */
    u8 fill;                 /* 27 0 buffer, 1 LL */
    u8 rts_received;         /* 28 out */
    u8 reserved29;           /* 29 */
    u16 max_length;          /* 30 */
    u16 length;              /* 32 out */
    u16 reserved34;          /* 34 */
    u8 *buffer;              /* 36 */
} VERB_RECEIVE;

typedef struct verb_send_data
{
    VERB_HEADER header;
    u8 rts_received;         /* 24 out */
    u8 reserved25;           /* 25 */
    u16 length;              /* 26 */
    const u8 *buffer;        /* 28 not copied */
    u8 type;                 /* 32 send type byte */
} VERB_SEND_DATA;

typedef struct verb_send_error
{
    VERB_HEADER header;
    u8 rts_received;         /* 24 out */
    u8 err_type;             /* 25 0 program, 1 service */
    u8 err_dir;              /* 26 0 receive error, 1 send error */
    u8 reserved27;           /* 27 */
    u16 log_length;          /* 28 basic conversations only */
    u16 reserved30;          /* 30 */
    u8 *log_data;            /* 32 */
} VERB_SEND_ERROR;

/* Local TP name verbs, 76 bytes. */
typedef struct verb_local_tp_name
{
    u16 opcode;
    u16 reserved2;
    u16 primary_rc;          /*  4 */
    u16 reserved6;
    u32 secondary_rc;        /*  8 */
    u8 tp_name[64];          /* 12 EBCDIC */
} VERB_LOCAL_TP_NAME;

typedef union verb_record
{
    u8 bytes[CPIC_VERB_SIZE];
    u16 opcode;
    VERB_HEADER header;
    VERB_TP_STARTED tp_started;
    VERB_TP_ENDED tp_ended;
    VERB_ALLOCATE alloc;
    union
    {
        VERB_RECEIVE_ALLOCATE rcv_alloc;
    } rcvallcp;
    VERB_RTS_RECEIVED confirm;
    VERB_DEALLOCATE dealloc;
    VERB_GET_STATE get_state;
    VERB_PREPARE_TO_RECEIVE prepare;
    VERB_RECEIVE receive;
    VERB_SEND_DATA send;
    VERB_SEND_ERROR send_error;
} VERB_RECORD;

/* Node operator verbs. */
#define NOF_OPEN 0xF004
#define NOF_CLOSE 0xF005
#define NOF_QUERY_SIDE_INFO 0x2121
#define NOF_RECORD_SIZE 212 /* a side-information record of the node */

typedef struct nof_open
{
    u16 opcode;              /*   0 */
    u16 reserved2;
    u16 primary_rc;          /*   4 */
    u16 reserved6;
    u32 secondary_rc;        /*   8 */
    u8 mode;                 /*  12 2 */
    u8 reserved13[211];
    u32 target_handle;       /* 224 out */
    u32 reserved228;
} NOF_OPEN_VERB;             /* 232 */

typedef struct nof_query_side_info
{
    u16 opcode;              /*  0 */
    u8 reserved2;
    u8 format;               /*  3 1 */
    u16 primary_rc;          /*  4 */
    u16 reserved6;
    u32 secondary_rc;        /*  8 */
    u8 *buffer;              /* 12 */
    u32 buffer_length;       /* 16 bytes */
    u32 reserved20;
    u16 record_count;        /* 24 1 */
    u16 reserved26;
    u8 list_option;          /* 28 4 */
    u8 reserved29;
    u8 sym_dest_name[8];     /* 30 ASCII */
    u16 reserved38;
} NOF_QUERY_SIDE_INFO_VERB;  /* 40 */

typedef struct nof_close
{
    u16 opcode;
    u16 reserved2;
    u16 primary_rc;
    u16 reserved6;
    u32 secondary_rc;
} NOF_CLOSE_VERB;            /* 12 */

/* A side-information record of the node; every text ASCII, padded with blanks. */
typedef struct nof_side_info
{
    u8 reserved0[2];
    u8 sym_dest_name[8];     /*   2 */
    u8 reserved10[50];
    u8 partner_lu_name[17];  /*  60 an alias, or network-qualified with a period */
    u8 reserved77[3];
    u32 tp_name_type;        /*  80 */
    u8 tp_name[64];          /*  84 */
    u8 mode_name[8];         /* 148 */
    u32 security_type;       /* 156 */
    u8 user_id[10];          /* 160 */
    u8 password[10];         /* 170 */
    u8 local_lu_alias[8];    /* 180 */
    u8 reserved188[24];
} NOF_SIDE_INFO;             /* 212 */

CPIC_SIZE(VERB_HEADER, 24);
CPIC_AT(VERB_HEADER, opext, 2);
CPIC_AT(VERB_HEADER, allocating, 3);
CPIC_AT(VERB_HEADER, primary_rc, 4);
CPIC_AT(VERB_HEADER, secondary_rc, 8);
CPIC_AT(VERB_HEADER, tp_id, 12);
CPIC_AT(VERB_HEADER, conv_id, 20);
CPIC_AT(VERB_TP_STARTED, lu_alias, 12);
CPIC_AT(VERB_TP_STARTED, tp_id, 20);
CPIC_AT(VERB_TP_STARTED, tp_name, 28);
CPIC_AT(VERB_TP_ENDED, tp_id, 12);
CPIC_AT(VERB_TP_ENDED, type, 20);
CPIC_AT(VERB_ALLOCATE, sync_level, 25);
CPIC_AT(VERB_ALLOCATE, return_control, 28);
CPIC_AT(VERB_ALLOCATE, plu_alias, 40);
CPIC_AT(VERB_ALLOCATE, mode_name, 48);
CPIC_AT(VERB_ALLOCATE, tp_name, 56);
CPIC_AT(VERB_ALLOCATE, security, 120);
CPIC_AT(VERB_ALLOCATE, password, 132);
CPIC_AT(VERB_ALLOCATE, user_id, 142);
CPIC_AT(VERB_ALLOCATE, reserved152, 152);
CPIC_AT(VERB_ALLOCATE, fqplu_name, 161);
CPIC_AT(VERB_RECEIVE_ALLOCATE, tp_name, 12);
CPIC_AT(VERB_RECEIVE_ALLOCATE, tp_id, 76);
CPIC_AT(VERB_RECEIVE_ALLOCATE, conv_id, 84);
CPIC_AT(VERB_RECEIVE_ALLOCATE, sync_level, 88);
CPIC_AT(VERB_RECEIVE_ALLOCATE, conv_type, 89);
CPIC_AT(VERB_RECEIVE_ALLOCATE, user_id, 90);
CPIC_AT(VERB_RECEIVE_ALLOCATE, lu_alias, 100);
CPIC_AT(VERB_RECEIVE_ALLOCATE, mode_name, 116);
CPIC_AT(VERB_RECEIVE_ALLOCATE, fqplu_name, 132);
CPIC_AT(VERB_RECEIVE_ALLOCATE, tp_name_count, 192);
CPIC_AT(VERB_RECEIVE_ALLOCATE, tp_name_list, 196);
CPIC_SIZE(VERB_RECEIVE_ALLOCATE, 200);
CPIC_AT(VERB_RTS_RECEIVED, rts_received, 24);
CPIC_AT(VERB_DEALLOCATE, dealloc_type, 25);
CPIC_AT(VERB_DEALLOCATE, log_length, 26);
CPIC_AT(VERB_DEALLOCATE, log_data, 28);
CPIC_AT(VERB_GET_STATE, conv_state, 24);
CPIC_AT(VERB_PREPARE_TO_RECEIVE, ptr_type, 24);
CPIC_AT(VERB_RECEIVE, what_received, 24);
CPIC_AT(VERB_RECEIVE, status_with_data, 26);
CPIC_AT(VERB_RECEIVE, fill, 27);
CPIC_AT(VERB_RECEIVE, rts_received, 28);
CPIC_AT(VERB_RECEIVE, max_length, 30);
CPIC_AT(VERB_RECEIVE, length, 32);
CPIC_AT(VERB_RECEIVE, buffer, 36);
CPIC_AT(VERB_SEND_DATA, rts_received, 24);
CPIC_AT(VERB_SEND_DATA, length, 26);
CPIC_AT(VERB_SEND_DATA, buffer, 28);
CPIC_AT(VERB_SEND_DATA, type, 32);
CPIC_AT(VERB_SEND_ERROR, rts_received, 24);
CPIC_AT(VERB_SEND_ERROR, err_type, 25);
CPIC_AT(VERB_SEND_ERROR, err_dir, 26);
CPIC_AT(VERB_SEND_ERROR, log_length, 28);
CPIC_AT(VERB_SEND_ERROR, log_data, 32);
CPIC_SIZE(VERB_LOCAL_TP_NAME, 76);
CPIC_AT(VERB_LOCAL_TP_NAME, primary_rc, 4);
CPIC_AT(VERB_LOCAL_TP_NAME, tp_name, 12);
CPIC_SIZE(VERB_RECORD, CPIC_VERB_SIZE);
CPIC_SIZE(NOF_OPEN_VERB, 232);
CPIC_AT(NOF_OPEN_VERB, primary_rc, 4);
CPIC_AT(NOF_OPEN_VERB, mode, 12);
CPIC_AT(NOF_OPEN_VERB, target_handle, 224);
CPIC_SIZE(NOF_QUERY_SIDE_INFO_VERB, 40);
CPIC_AT(NOF_QUERY_SIDE_INFO_VERB, format, 3);
CPIC_AT(NOF_QUERY_SIDE_INFO_VERB, primary_rc, 4);
CPIC_AT(NOF_QUERY_SIDE_INFO_VERB, secondary_rc, 8);
CPIC_AT(NOF_QUERY_SIDE_INFO_VERB, buffer, 12);
CPIC_AT(NOF_QUERY_SIDE_INFO_VERB, buffer_length, 16);
CPIC_AT(NOF_QUERY_SIDE_INFO_VERB, record_count, 24);
CPIC_AT(NOF_QUERY_SIDE_INFO_VERB, list_option, 28);
CPIC_AT(NOF_QUERY_SIDE_INFO_VERB, sym_dest_name, 30);
CPIC_SIZE(NOF_CLOSE_VERB, 12);
CPIC_SIZE(NOF_SIDE_INFO, NOF_RECORD_SIZE);
CPIC_AT(NOF_SIDE_INFO, sym_dest_name, 2);
CPIC_AT(NOF_SIDE_INFO, partner_lu_name, 60);
CPIC_AT(NOF_SIDE_INFO, tp_name_type, 80);
CPIC_AT(NOF_SIDE_INFO, tp_name, 84);
CPIC_AT(NOF_SIDE_INFO, mode_name, 148);
CPIC_AT(NOF_SIDE_INFO, security_type, 156);
CPIC_AT(NOF_SIDE_INFO, user_id, 160);
CPIC_AT(NOF_SIDE_INFO, password, 170);
CPIC_AT(NOF_SIDE_INFO, local_lu_alias, 180);

#endif
