/* cmc.h - the CPI-C calls under the header name that other systems use; the same as cpic.h. */
#ifndef CMC_H
#define CMC_H

#include "cpic.h"

#endif
