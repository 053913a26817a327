/* cpicpriv.h - the records of the CPI-C library: the global control block, the conversation control block, the
 * stored side-information entry, the local TP name.
 *
 * Private: transaction programs include cpic.h. The layouts are fixed (tests, traces and dumps read them), every size
 * and offset is asserted below, and all of it holds for 32 bits and natural alignment.
 */
#ifndef CPICPRIV_H
#define CPICPRIV_H

#include "node_verbs.h"

#define CPIC_TP_ID_SIZE 8       /* TP identifier = context ID */
#define CPIC_LU_ALIAS_SIZE 8    /* ASCII, padded with 0x20; all zero: not set */
#define CPIC_SYM_DEST_SIZE 8    /* ASCII, padded with 0x20 */
#define CPIC_TP_NAME_SIZE 64    /* EBCDIC, padded with 0x40 */
#define CPIC_MODE_NAME_SIZE 8   /* EBCDIC, padded with 0x40 */
#define CPIC_PLU_NAME_SIZE 17   /* alias in ASCII, or network-qualified name in EBCDIC */
#define CPIC_USER_ID_SIZE 10    /* EBCDIC, padded with 0x40 */
#define CPIC_CONV_ID_SIZE 8     /* CCCB handle, then four zero bytes */
#define CPIC_MAX_DATA 32767     /* longest send, receive and conversion */

#define ASCII_BLANK 0x20
#define EBCDIC_BLANK 0x40
#define EBCDIC_PERIOD 0x4B

/* Memory types passed to nba_mm_alloc(). */
#define MM_TYPE_RECORD 770
#define MM_TYPE_VERB 514

/* ---- stored side-information entry, 148 bytes ------------------------------------------------------------
 * One symbolic destination as the library keeps it: in the cache, and in every CCCB, so that a look-up can copy an
 * entry over a conversation's in one move. */
typedef struct side_info_entry
{
    u8 SymDestName[CPIC_SYM_DEST_SIZE];      /*   0 ASCII */
    u8 PartnerLUName[CPIC_PLU_NAME_SIZE];    /*   8 alias: ASCII; network-qualified: EBCDIC with 0x4B as period */
    u8 Reserved1[3];                         /*  25 */
    u32 ulTPNameFlag;                        /*  28 TP name type: 0 CM_APPLICATION_TP, 1 CM_SNA_SERVICE_TP */
    u8 TPName[CPIC_TP_NAME_SIZE];            /*  32 partner TP name, EBCDIC */
    u8 SideInfoLUAlias[CPIC_LU_ALIAS_SIZE];  /*  96 local LU alias, ASCII; all zero: none named */
    u8 ModeName[CPIC_MODE_NAME_SIZE];        /* 104 EBCDIC */
    u32 ulSecurityType;                      /* 112 0 none, 1 same, 2 program, 3 distributed, 4 mutual, 5 strong */
    u8 SecurityUserId[CPIC_USER_ID_SIZE];    /* 116 EBCDIC */
    u8 SecurityPassword[CPIC_USER_ID_SIZE];  /* 126 EBCDIC; its length is not kept */
    u16 usPartnerLUQualified;                /* 136 1: PartnerLUName is network-qualified */
    u16 usPartnerNetIdLen;                   /* 138 characters before the period */
    u16 usPartnerLUNameLen;                  /* 140 */
    u16 usModeNameLen;                       /* 142 */
    u16 usSecurityUserIdLen;                 /* 144 */
    u16 Reserved2;                           /* 146 */
} SIDE_INFO_ENTRY;                           /* 148 */

/* Cache record of SideInfoTable. usDefined 0 is a deletion marker: the name must not be found, even though the node
 * still defines it. */
typedef struct side_info_record
{
    u16 usDefined;
    SIDE_INFO_ENTRY Entry;
} SIDE_INFO_RECORD;

/* Record of LocTPNameTable. */
typedef struct loc_tp_name
{
    u16 usLength;                 /* significant bytes of Name */
    u8 Name[CPIC_TP_NAME_SIZE];   /* EBCDIC */
} LOC_TP_NAME;

/* ---- conversation control block, 492 bytes --------------------------------------------------------------
 * One per conversation. ConvTable holds the only pointer to it; it owns its two log-data records. */
typedef struct cccb
{
    VERB_RECORD vcb;                 /*   0 the conversation's current verb; cleared before each */
    u32 CCCBhandle;                  /* 200 its own entry in ConvTable; first half of the conversation ID */
    u16 usConversationEnded;         /* 204 1: over; freed as soon as nothing is pending */
    SIDE_INFO_ENTRY SideInfo;        /* 208 names, mode, security */
    u8 LocalLUName[8];               /* 356 local LU alias in use; all zero: not set */
    u32 ulAppcConvId;                /* 364 the node's conversation identifier; 0 before allocation or accept */
    u32 ulConversationType;          /* 368 0 basic, 1 mapped */
    u32 ulDeallocateType;            /* 372 */
    u32 ulErrorDirection;            /* 376 */
    u32 ulFill;                      /* 380 */
    u32 ulPrepareToReceiveType;      /* 384 */
    u32 ulReceiveType;               /* 388 */
    u32 ulReturnControl;             /* 392 */
    u32 ulSendType;                  /* 396 */
    u32 ulSyncLevel;                 /* 400 */
    u16 usLogDataLen;                /* 404 bytes of LogData, its 8-byte header included; 0: none */
    u8 *LogData;                     /* 408 owned */
    u16 DeallcLogDataLength;         /* 412 nonzero while a deallocation with log data is chained to a send */
    u8 *DeallcLogData;               /* 416 owned: private copy for that deallocation */
    u16 usDeallocPending;            /* 420 the partner asked to confirm its deallocation */
    u16 usConfirmPending;            /* 422 the partner asked for confirmation */
    u16 usVerbsPending;              /* 424 verbs issued and not completed */
    u16 usProcessingMode;            /* 426 0 blocking, else non-blocking */
    u16 usInitialized;               /* 428 1: made by CMINIT; 0: made for an incoming conversation */
    u16 usCancelPending;             /* 430 cancelled while its allocation was outstanding */
    u8 TpId[8];                      /* 432 the context that owns the conversation; all zero: none yet */
    u16 usCompletionPending;         /* 440 a completion is posted and counted in NumVerbsWaiting */
    u32 ulLocTPNameHandle;           /* 444 the LocTPNameTable entry that an incoming conversation matched */
    u16 usTraceCallNo;               /* 448 pending-call record: call number for the response trace record */
    u8 *pSavedConvId;                /* 452 SavedConvId, or null */
    u32 ulPendingRc;                 /* 456 CPI-C return code, written by the completion routine */
    void *pOut1;                     /* 460 the caller's outputs, filled by the completion routine */
    void *pOut2;                     /* 464 */
    void *pOut3;                     /* 468 */
    void *pOut4;                     /* 472 */
    void *pOut5;                     /* 476 */
    u8 SavedConvId[8];               /* 480 copy of the caller's conversation ID */
    u16 usAllocContextFlag;          /* 488 the pending CMALLC started the context of TpId */
    u16 usCallsInside;               /* 490 calls that use the record while the node may have given the lock up */
} CCCB;                              /* 492 */

/* ---- global control block, 128 bytes -------------------------------------------------------------------- */
typedef struct gcb
{
    u8 CurrentTpId[8];               /*   0 current context; all zero: none */
    u8 ContextLUAlias[8];            /*   8 LU alias of the current context */
    u8 LUAlias[8];                   /*  16 default local LU alias (APPCLLU); all zero: none */
    u8 TPName[64];                   /*  24 local TP name, EBCDIC */
    u32 NumVerbsWaiting;             /*  88 conversations whose usCompletionPending is 1 */
    u32 ulAsyncVerbsOutstanding;     /*  92 verbs accepted for later completion and not completed */
    u32 WaitObject;                  /*  96 CMWAIT sleeps on it, completions wake it */
    u32 NumLocTPNames;               /* 100 entries of LocTPNameTable */
    u32 LocTPNameTable;              /* 104 */
    u32 ConvTable;                   /* 108 every CCCB */
    u32 SideInfoTable;               /* 112 cached side information */
    u32 ulPathUser;                  /* 116 registration for path events; 0: none */
    u16 usTPNameLen;                 /* 120 significant bytes of TPName */
    u16 usLocTPNameFlag;             /* 122 1: an accept has added TPName to LocTPNameTable */
    u16 usTPNameFromEnv;             /* 124 1: TPName is a plain name from APPCTPN */
} GCB;                               /* 128 */

CPIC_SIZE(SIDE_INFO_ENTRY, 148);
CPIC_AT(SIDE_INFO_ENTRY, PartnerLUName, 8);
CPIC_AT(SIDE_INFO_ENTRY, ulTPNameFlag, 28);
CPIC_AT(SIDE_INFO_ENTRY, TPName, 32);
CPIC_AT(SIDE_INFO_ENTRY, SideInfoLUAlias, 96);
CPIC_AT(SIDE_INFO_ENTRY, ModeName, 104);
CPIC_AT(SIDE_INFO_ENTRY, ulSecurityType, 112);
CPIC_AT(SIDE_INFO_ENTRY, SecurityUserId, 116);
CPIC_AT(SIDE_INFO_ENTRY, SecurityPassword, 126);
CPIC_AT(SIDE_INFO_ENTRY, usPartnerLUQualified, 136);
CPIC_AT(SIDE_INFO_ENTRY, usPartnerNetIdLen, 138);
CPIC_AT(SIDE_INFO_ENTRY, usPartnerLUNameLen, 140);
CPIC_AT(SIDE_INFO_ENTRY, usModeNameLen, 142);
CPIC_AT(SIDE_INFO_ENTRY, usSecurityUserIdLen, 144);
CPIC_AT(SIDE_INFO_ENTRY, Reserved2, 146);
CPIC_SIZE(SIDE_INFO_RECORD, 152);
CPIC_AT(SIDE_INFO_RECORD, Entry, 4);
CPIC_SIZE(LOC_TP_NAME, 66);
CPIC_AT(LOC_TP_NAME, Name, 2);

CPIC_SIZE(CCCB, 492);
CPIC_AT(CCCB, CCCBhandle, 200);
CPIC_AT(CCCB, usConversationEnded, 204);
CPIC_AT(CCCB, SideInfo, 208);
CPIC_AT(CCCB, LocalLUName, 356);
CPIC_AT(CCCB, ulAppcConvId, 364);
CPIC_AT(CCCB, ulConversationType, 368);
CPIC_AT(CCCB, ulDeallocateType, 372);
CPIC_AT(CCCB, ulErrorDirection, 376);
CPIC_AT(CCCB, ulFill, 380);
CPIC_AT(CCCB, ulPrepareToReceiveType, 384);
CPIC_AT(CCCB, ulReceiveType, 388);
CPIC_AT(CCCB, ulReturnControl, 392);
CPIC_AT(CCCB, ulSendType, 396);
CPIC_AT(CCCB, ulSyncLevel, 400);
CPIC_AT(CCCB, usLogDataLen, 404);
CPIC_AT(CCCB, LogData, 408);
CPIC_AT(CCCB, DeallcLogDataLength, 412);
CPIC_AT(CCCB, DeallcLogData, 416);
CPIC_AT(CCCB, usDeallocPending, 420);
CPIC_AT(CCCB, usConfirmPending, 422);
CPIC_AT(CCCB, usVerbsPending, 424);
CPIC_AT(CCCB, usProcessingMode, 426);
CPIC_AT(CCCB, usInitialized, 428);
CPIC_AT(CCCB, usCancelPending, 430);
CPIC_AT(CCCB, TpId, 432);
CPIC_AT(CCCB, usCompletionPending, 440);
CPIC_AT(CCCB, ulLocTPNameHandle, 444);
CPIC_AT(CCCB, usTraceCallNo, 448);
CPIC_AT(CCCB, pSavedConvId, 452);
CPIC_AT(CCCB, ulPendingRc, 456);
CPIC_AT(CCCB, pOut1, 460);
CPIC_AT(CCCB, pOut5, 476);
CPIC_AT(CCCB, SavedConvId, 480);
CPIC_AT(CCCB, usAllocContextFlag, 488);
CPIC_AT(CCCB, usCallsInside, 490);

CPIC_SIZE(GCB, 128);
CPIC_AT(GCB, ContextLUAlias, 8);
CPIC_AT(GCB, LUAlias, 16);
CPIC_AT(GCB, TPName, 24);
CPIC_AT(GCB, NumVerbsWaiting, 88);
CPIC_AT(GCB, ulAsyncVerbsOutstanding, 92);
CPIC_AT(GCB, WaitObject, 96);
CPIC_AT(GCB, NumLocTPNames, 100);
CPIC_AT(GCB, LocTPNameTable, 104);
CPIC_AT(GCB, ConvTable, 108);
CPIC_AT(GCB, SideInfoTable, 112);
CPIC_AT(GCB, ulPathUser, 116);
CPIC_AT(GCB, usTPNameLen, 120);
CPIC_AT(GCB, usLocTPNameFlag, 122);
CPIC_AT(GCB, usTPNameFromEnv, 124);

#endif
