#pragma once
// Checks that refuse an argument or a state, and the rectangle helpers the
// render side uses to follow a window's client area.
#include <windows.h>

#include "core/core_api.h"

// The checked-return idiom: when `cond` holds, the error-log sequence with
// the position of the check (func and line given as constants) and
// `message`, then `return ret` from the calling function. The two value
// checks use their own names as the message.
#define QUILLON_CHECK_RETURN(cond, message, ret, func, line) \
    do {                                                     \
        if (cond) {                                          \
            QUILLON_LOG_ERROR(func, line, "%s", message);    \
            return ret;                                      \
        }                                                    \
    } while (0)

// A handle manager's check of an incoming handle: unknown ones get the
// error record at the caller's position and -1.
#define HANDLE_CHECK_RETURN(handle, func, line) \
    QUILLON_CHECK_RETURN(!IsHandleValid(handle), "IsHandleValid faild!", -1, func, line)

#define CHECK_EQUAL_RETURN(a, b, ret, func, line) \
    QUILLON_CHECK_RETURN((a) == (b), "CHECK_EQUAL_RETURN", ret, func, line)
#define CHECK_UNEQUAL_RETURN(a, b, ret, func, line) \
    QUILLON_CHECK_RETURN((a) != (b), "CHECK_UNEQUAL_RETURN", ret, func, line)

// 1 when left, top, right and bottom are all equal (positions included),
// else 0 with a report of the first coordinate that differs.
int IsEqualRectSize(const RECT& a, const RECT& b);
// 1 when all four coordinates are 0.
int IsRectZero(const RECT& r);
// Each coordinate rounded toward zero to an even number.
RECT MakeRectEven(const RECT& r);
// Shrinks *r around its centre to the aspect w : h. 0; -1 for a null r.
int FitRectToAspect(RECT* r, int w, int h);
