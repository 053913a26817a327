// set_values.cpp - the Set calls of characteristics that are numbers. Each is one line of rules over one body; the
// state rule is in the call's row. Values are compared as unsigned numbers, so that a negative one is out of range.
#include "core/frame.hpp"

// Stores a value of 0 to `highest` unless the call's own cross-check forbids it.
static CM_INT32 set_value(u32 *field, CM_INT32 value, u32 highest, bool forbidden = false)
{
    if (static_cast<u32>(value) > highest || forbidden)
    {
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    *field = static_cast<u32>(value);
    return CM_OK;
}

// Send, prepare-to-receive and deallocate types all have their confirm variant at 2, which needs sync level confirm.
static constexpr CM_INT32 confirm_variant = 2;
static_assert(CM_SEND_AND_CONFIRM == confirm_variant && CM_PREP_TO_RECEIVE_CONFIRM == confirm_variant &&
              CM_DEALLOCATE_CONFIRM == confirm_variant);

static bool confirms_without_level(const CCCB *cccb, CM_INT32 value)
{
    return value == confirm_variant && cccb->ulSyncLevel == CM_NONE;
}

void cmsct(unsigned char *conversation_ID, CM_CONVERSATION_TYPE *conversation_type, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSCT>(call, return_code, conversation_ID, conversation_type))
    {
        CCCB *cccb = call.cccb;
        const bool basic_only = cccb->ulFill == CM_FILL_BUFFER || cccb->usLogDataLen != 0;
        *return_code = set_value(&cccb->ulConversationType, *conversation_type, CM_MAPPED_CONVERSATION,
                                 *conversation_type == CM_MAPPED_CONVERSATION && basic_only);
    }
    call_leave(call);
}

void cmsdt(unsigned char *conversation_ID, CM_DEALLOCATE_TYPE *deallocate_type, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSDT>(call, return_code, conversation_ID, deallocate_type))
    {
        *return_code = set_value(&call.cccb->ulDeallocateType, *deallocate_type, CM_DEALLOCATE_ABEND,
                                 confirms_without_level(call.cccb, *deallocate_type));
    }
    call_leave(call);
}

void cmsed(unsigned char *conversation_ID, CM_ERROR_DIRECTION *error_direction, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSED>(call, return_code, conversation_ID, error_direction))
    {
        *return_code = set_value(&call.cccb->ulErrorDirection, *error_direction, CM_SEND_ERROR);
    }
    call_leave(call);
}

void cmsf(unsigned char *conversation_ID, CM_FILL *fill, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSF>(call, return_code, conversation_ID, fill))
    {
        *return_code = set_value(&call.cccb->ulFill, *fill, CM_FILL_BUFFER,
                                 call.cccb->ulConversationType != CM_BASIC_CONVERSATION);
    }
    call_leave(call);
}

void cmsptr(unsigned char *conversation_ID, CM_PREPARE_TO_RECEIVE_TYPE *prepare_to_receive_type,
            CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSPTR>(call, return_code, conversation_ID, prepare_to_receive_type))
    {
        *return_code = set_value(&call.cccb->ulPrepareToReceiveType, *prepare_to_receive_type,
                                 CM_PREP_TO_RECEIVE_CONFIRM,
                                 confirms_without_level(call.cccb, *prepare_to_receive_type));
    }
    call_leave(call);
}

void cmsrt(unsigned char *conversation_ID, CM_RECEIVE_TYPE *receive_type, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSRT>(call, return_code, conversation_ID, receive_type))
    {
        *return_code = set_value(&call.cccb->ulReceiveType, *receive_type, CM_RECEIVE_IMMEDIATE);
    }
    call_leave(call);
}

void cmsrc(unsigned char *conversation_ID, CM_RETURN_CONTROL *return_control, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSRC>(call, return_code, conversation_ID, return_control))
    {
        *return_code = set_value(&call.cccb->ulReturnControl, *return_control, CM_IMMEDIATE);
    }
    call_leave(call);
}

void cmsst(unsigned char *conversation_ID, CM_SEND_TYPE *send_type, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSST>(call, return_code, conversation_ID, send_type))
    {
        *return_code = set_value(&call.cccb->ulSendType, *send_type, CM_SEND_AND_DEALLOCATE,
                                 confirms_without_level(call.cccb, *send_type));
    }
    call_leave(call);
}

void cmssl(unsigned char *conversation_ID, CM_SYNC_LEVEL *sync_level, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMSSL>(call, return_code, conversation_ID, sync_level))
    {
        CCCB *cccb = call.cccb;
        const bool confirms = cccb->ulSendType == confirm_variant || cccb->ulDeallocateType == confirm_variant ||
                              cccb->ulPrepareToReceiveType == confirm_variant;
        *return_code = set_value(&cccb->ulSyncLevel, *sync_level, CM_CONFIRM, *sync_level == CM_NONE && confirms);
    }
    call_leave(call);
}
