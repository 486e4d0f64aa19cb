#pragma once
// The public layer over the core-services binding: a core_ function per
// operation, and the log family with its level gate and 4095-byte formatting.
#include <cstdarg>

#include "core/CLS_VelmorApi.h"

enum { LOG_LEVEL_MSG = 200, LOG_LEVEL_DEBUG = 300 };
enum { CORE_LOG_TEXT_SIZE = 4095 };

#define VELMOR_OP(pub, ret, name, params, args, fail) ret pub params;
#define VELMOR_LOGOP(...)
#include "core/velmor_ops.inc"
#undef VELMOR_OP
#undef VELMOR_LOGOP

#if defined(__GNUC__)
#define CORE_PRINTF(fmt_index, first_arg) __attribute__((format(gnu_printf, fmt_index, first_arg)))
#else
#define CORE_PRINTF(fmt_index, first_arg)
#endif

// Open when either module level is non-zero and at least `level` (signed).
bool core_log_enabled(int level);

void core_log_debug(const char* fmt, ...) CORE_PRINTF(1, 2);
void core_log_msg(const char* fmt, ...) CORE_PRINTF(1, 2);
void core_log_buf_msg(const char* fmt, ...) CORE_PRINTF(1, 2);
void core_log_buf_msg_always(const char* fmt, ...) CORE_PRINTF(1, 2);
void core_log_level_msg(int level, const char* fmt, ...) CORE_PRINTF(2, 3);
void core_log_level_err(int level, const char* fmt, ...) CORE_PRINTF(2, 3);
void core_log_level_debug(int level, const char* fmt, ...) CORE_PRINTF(2, 3);
void core_log_buf_msg_unlock(const char* fmt, ...) CORE_PRINTF(1, 2);
int core_log_buf_quit_unlock(const char* fmt, ...) CORE_PRINTF(1, 2);
void core_err_buf_msg_unlock(const char* fmt, ...) CORE_PRINTF(1, 2);
void core_err_buf_quit_unlock(const char* fmt, ...) CORE_PRINTF(1, 2);

// The error-log sequence: lock, date, the position line
// "file: %s, func:%s, line: %d " (gated at 200), then the error text;
// core_log_error_at_v takes the text's arguments as a va_list.
void core_log_error_at(const char* file, const char* func, int line, const char* fmt, ...)
    CORE_PRINTF(4, 5);
void core_log_error_at_v(const char* file, const char* func, int line, const char* fmt, va_list ap);

// Error-log sequence from the calling source file, with the function name
// and line given as constants.
#define QUILLON_LOG_ERROR(func, line, ...) core_log_error_at(__FILE__, func, line, __VA_ARGS__)
