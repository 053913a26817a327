// version.cpp - the version stamps. Service tools find them in the library's file by the what-marker.
#include "core/core.hpp"

#define WHAT_MARKER "@(#)]"
#define LIBRARY_LINE "V7.1.1.1 Kelvra Linux CPI-C Library Routines (32 bit)\n"
#define BUILD_STAMP "(: 24/05/02 09:45:40 AM)\n"

#pragma GCC visibility push(default)
extern "C" {
extern char ocpic_verstring[255], ocpic_verstring1[255], ocpic_verstring1_tvt[255], ocpic_dummy[512];
const char *ocpic_verstamp(void);
const char *ocpic_verstamp_tvt(void);

char ocpic_verstring[255] = WHAT_MARKER LIBRARY_LINE WHAT_MARKER "            " BUILD_STAMP WHAT_MARKER;
char ocpic_verstring1[255] = LIBRARY_LINE;
char ocpic_verstring1_tvt[255] = "V7.1.1.1 Kelvra Linux CPI-C Library %1\n";
char ocpic_dummy[512]; // reserved, not used

const char *ocpic_verstamp(void)
{
    return ocpic_verstring1;
}

const char *ocpic_verstamp_tvt(void)
{
    return ocpic_verstring1_tvt;
}
}
#pragma GCC visibility pop
