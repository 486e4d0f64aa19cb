#include "core/core_api.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

CLS_VelmorApi& api() { return CLS_VelmorApi::GetInstance(); }

// Clears a 4095-byte buffer and formats into it; a longer text is cut to
// 4094 characters plus the terminator.
struct LogText {
    char text[CORE_LOG_TEXT_SIZE];
    LogText(const char* fmt, va_list ap)
    {
        memset(text, 0, sizeof(text));
        vsnprintf(text, sizeof(text), fmt ? fmt : "", ap);
    }
};

}  // namespace

#define VELMOR_OP(pub, ret, name, params, args, fail) \
    ret pub params { return api().inner_##name args; }
#define VELMOR_LOGOP(...)
#include "core/velmor_ops.inc"
#undef VELMOR_OP
#undef VELMOR_LOGOP

// Formats the variadic tail of the enclosing function into `var`.
#define CORE_FORMAT(var, fmt)   \
    va_list ap_;                \
    va_start(ap_, fmt);         \
    LogText var(fmt, ap_);      \
    va_end(ap_)

bool core_log_enabled(int level)
{
    int first = 0;
    int second = 0;
    core_log_get_level(&first, &second);
    return (first != 0 && first >= level) || (second != 0 && second >= level);
}

void core_log_debug(const char* fmt, ...)
{
    if (!core_log_enabled(LOG_LEVEL_DEBUG)) {
        return;
    }
    CORE_FORMAT(t, fmt);
    api().inner_sdk_log_debug(t.text);
}

void core_log_msg(const char* fmt, ...)
{
    if (!core_log_enabled(LOG_LEVEL_MSG)) {
        return;
    }
    CORE_FORMAT(t, fmt);
    api().inner_sdk_log_msg(t.text);
}

void core_log_buf_msg(const char* fmt, ...)
{
    if (!core_log_enabled(LOG_LEVEL_MSG)) {
        return;
    }
    CORE_FORMAT(t, fmt);
    api().inner_sdk_log_buf_msg(t.text);
}

void core_log_buf_msg_always(const char* fmt, ...)
{
    CORE_FORMAT(t, fmt);
    api().inner_sdk_log_buf_msg(t.text);
}

void core_log_level_msg(int level, const char* fmt, ...)
{
    if (!core_log_enabled(LOG_LEVEL_MSG)) {
        return;
    }
    CORE_FORMAT(t, fmt);
    api().inner_log_msg(level, t.text);
}

void core_log_level_err(int level, const char* fmt, ...)
{
    CORE_FORMAT(t, fmt);
    api().inner_log_err(level, t.text);
}

void core_log_level_debug(int level, const char* fmt, ...)
{
    if (!core_log_enabled(level)) {
        return;
    }
    CORE_FORMAT(t, fmt);
    api().inner_log_debug(level, t.text);
}

void core_log_buf_msg_unlock(const char* fmt, ...)
{
    CORE_FORMAT(t, fmt);
    api().inner_sdk_log_buf_msg_unlock(t.text);
}

int core_log_buf_quit_unlock(const char* fmt, ...)
{
    CORE_FORMAT(t, fmt);
    return api().inner_sdk_log_buf_quit_unlock(t.text);
}

void core_err_buf_msg_unlock(const char* fmt, ...)
{
    CORE_FORMAT(t, fmt);
    api().inner_sdk_err_buf_msg_unlock(t.text);
}

void core_err_buf_quit_unlock(const char* fmt, ...)
{
    CORE_FORMAT(t, fmt);
    api().inner_sdk_err_buf_quit_unlock(t.text);
}

void core_log_error_at_v(const char* file, const char* func, int line, const char* fmt, va_list ap)
{
    core_log_buf_lock();
    core_log_buf_date();
    core_log_buf_msg("file: %s, func:%s, line: %d ", file, func, line);
    LogText t(fmt, ap);
    api().inner_sdk_err_buf_msg_unlock(t.text);
}

void core_log_error_at(const char* file, const char* func, int line, const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    core_log_error_at_v(file, func, line, fmt, ap);
    va_end(ap);
}
