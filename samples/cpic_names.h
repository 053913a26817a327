/* cpic_names.h - CPI-C return codes for human readers: the name of a code, and what to do about it.
 *
 * For the samples, and for any program that wants to say more than a number. Only constants of cpic.h are used; the
 * two functions read constant tables and may be called from any thread.
 */
#ifndef CPIC_NAMES_H
#define CPIC_NAMES_H

#include <cpic.h>

#include <stddef.h>

struct cpic_name
{
    CM_RETURN_CODE code;
    const char *name;
    const char *hint; /* what to look at; empty for a code that is no trouble */
};

static const struct cpic_name *cpic_find_name(CM_RETURN_CODE code)
{
    static const struct cpic_name names[] = {
        {CM_OK, "CM_OK", ""},
        {CM_ALLOCATE_FAILURE_NO_RETRY, "CM_ALLOCATE_FAILURE_NO_RETRY", "no session can be had: look at the node's configuration"},
        {CM_ALLOCATE_FAILURE_RETRY, "CM_ALLOCATE_FAILURE_RETRY", "no session is free just now: try again"},
        {CM_CONVERSATION_TYPE_MISMATCH, "CM_CONVERSATION_TYPE_MISMATCH", "the partner does not accept this conversation type"},
        {CM_SECURITY_NOT_VALID, "CM_SECURITY_NOT_VALID", "the partner's node refused user or password"},
        {CM_SYNC_LEVEL_NOT_SUPPORTED_PGM, "CM_SYNC_LEVEL_NOT_SUPPORTED_PGM", "the partner does not accept this sync level"},
        {CM_TPN_NOT_RECOGNISED, "CM_TPN_NOT_RECOGNISED", "no program accepts that TP name: is the server running?"},
        {CM_TP_NOT_AVAILABLE_NO_RETRY, "CM_TP_NOT_AVAILABLE_NO_RETRY", "the partner program cannot be started"},
        {CM_TP_NOT_AVAILABLE_RETRY, "CM_TP_NOT_AVAILABLE_RETRY", "the partner program is busy or gone: try again"},
        {CM_DEALLOCATED_ABEND, "CM_DEALLOCATED_ABEND", "the partner program broke the conversation off"},
        {CM_DEALLOCATED_NORMAL, "CM_DEALLOCATED_NORMAL", ""},
        {CM_PARAMETER_ERROR, "CM_PARAMETER_ERROR", "a name is not known to the node: partner LU or mode"},
        {CM_PRODUCT_SPECIFIC_ERROR, "CM_PRODUCT_SPECIFIC_ERROR", "see problem.log in the node's directory"},
        {CM_PROGRAM_ERROR_NO_TRUNC, "CM_PROGRAM_ERROR_NO_TRUNC", "the partner reported an error"},
        {CM_PROGRAM_ERROR_PURGING, "CM_PROGRAM_ERROR_PURGING", "the partner reported an error in what it received"},
        {CM_PROGRAM_ERROR_TRUNC, "CM_PROGRAM_ERROR_TRUNC", "the partner broke off a record"},
        {CM_PROGRAM_PARAMETER_CHECK, "CM_PROGRAM_PARAMETER_CHECK",
         "an argument is wrong: for CMINIT, is the destination in the node's side information?"},
        {CM_PROGRAM_STATE_CHECK, "CM_PROGRAM_STATE_CHECK", "the call is not allowed in the conversation's state"},
        {CM_RESOURCE_FAILURE_NO_RETRY, "CM_RESOURCE_FAILURE_NO_RETRY", "the conversation was lost"},
        {CM_RESOURCE_FAILURE_RETRY, "CM_RESOURCE_FAILURE_RETRY", "the partner or the node is gone: start again"},
        {CM_UNSUCCESSFUL, "CM_UNSUCCESSFUL", "nothing there yet"},
        {CM_OPERATION_INCOMPLETE, "CM_OPERATION_INCOMPLETE", ""},
        {CM_OPERATION_NOT_ACCEPTED, "CM_OPERATION_NOT_ACCEPTED", "an earlier call on this conversation is not finished"},
    };
    size_t i;

    for (i = 0; i < sizeof names / sizeof names[0]; ++i)
        if (names[i].code == code)
            return &names[i];
    return NULL;
}

/* "CM_OK"; a code that the table does not hold is "an unlisted return code". */
static const char *cpic_rc_name(CM_RETURN_CODE code)
{
    const struct cpic_name *name = cpic_find_name(code);

    return name ? name->name : "an unlisted return code";
}

/* What to do about a return code; never null. */
static const char *cpic_rc_hint(CM_RETURN_CODE code)
{
    const struct cpic_name *name = cpic_find_name(code);

    return name ? name->hint : "see the return codes in cpic.h";
}

#endif
