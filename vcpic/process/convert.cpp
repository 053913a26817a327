// convert.cpp - CMCNVI and CMCNVO: the widest conversion table for the program's own use.
#include "core/frame.hpp"

// Converts in place. The comparison is signed: a negative length is accepted and converts nothing.
static CM_INT32 convert(conversion_direction direction, u8 *string, CM_INT32 length)
{
    if (length > CPIC_MAX_DATA)
    {
        return CM_PROGRAM_PARAMETER_CHECK;
    }
    const short converted = static_cast<short>(length < 0 ? 0 : length); // very negative ones do not fit a short
    SCC_convert_string(direction, SET_AE640_EX, converted, string, string);
    return CM_OK;
}

void cmcnvi(unsigned char *string, CM_STRING_LENGTH *string_length, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMCNVI>(call, return_code, nullptr, string, string_length))
    {
        *return_code = convert(EBCDIC_TO_ASCII, string, *string_length);
    }
    call_leave(call, string, string_length);
}

void cmcnvo(unsigned char *string, CM_STRING_LENGTH *string_length, CM_RETURN_CODE *return_code)
{
    call_frame call;
    if (call_enter<CALL_CMCNVO>(call, return_code, nullptr, string, string_length))
    {
        *return_code = convert(ASCII_TO_EBCDIC, string, *string_length);
    }
    call_leave(call, string, string_length);
}
