/* The header as callers compile it, C99 and C++11 with -pedantic-errors: its
 * codes are usable in #if and keep the numbers that callers act on. */
#include "linkward.h"

#if LINKWARD_OK != 0 || LINKWARD_ERR_ARGUMENT != -1 ||                         \
    LINKWARD_ERR_TOO_SMALL != -2 || LINKWARD_ERR_SERVICE != -3 ||              \
    LINKWARD_ERR_NO_RESULTS != -4 || LINKWARD_VERDICT_LEVEL_0 != 0 ||          \
    LINKWARD_VERDICT_LEVEL_50 != 1 || LINKWARD_VERDICT_DEFAULT != 2 ||         \
    LINKWARD_VERDICT_LEVEL_60_SUB_10 != 3 ||                                   \
    LINKWARD_VERDICT_LEVEL_60_SUB_20 != 4 || LINKWARD_VERDICT_LEVEL_70 != 5 || \
    LINKWARD_VERDICT_SSC_FIRST != 6 || LINKWARD_VERDICT_SSC_SECOND != 7 ||     \
    LINKWARD_VERDICT_BNET_INFO != 8
#error "a return or verdict code changed its number"
#endif
