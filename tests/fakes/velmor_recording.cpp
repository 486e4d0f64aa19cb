// The recording core-services module (VelmorRecording.dll, staged as "Velmor.dll"): each call becomes a
// line "name", "name(text)" or "name[level](text)", read back through VelmorTest_TakeCalls;
// VelmorTest_SetLevels sets the levels the SDK's log gate reads. The buffer lock is the real module's.
#include <cstring>
#include <mutex>
#include <string>

#include "velmor/buffer_lock.h"

#define VELMOR_API extern "C" __declspec(dllexport)

namespace {

std::mutex g_callsLock;
std::string g_calls;
int g_levels[2] = {0, 0};

void Record(const char* name, const char* text = nullptr) {
    std::lock_guard<std::mutex> guard(g_callsLock);
    g_calls += name;
    if (text) g_calls += std::string("(") + text + ")";
    g_calls += '\n';
}

void RecordWithLevel(const char* name, int level, const char* text) {
    Record((std::string(name) + "[" + std::to_string(level) + "]").c_str(), text);
}

void RecordAndUnlock(const char* name, const char* text) {
    Record(name, text);
    velmor::BufferLock::Get().Unlock();
}

}  // namespace

VELMOR_API void sdk_log_get_level(int* first, int* second) {
    Record("sdk_log_get_level");
    if (first) *first = g_levels[0];
    if (second) *second = g_levels[1];
}
VELMOR_API void VelmorTest_SetLevels(int first, int second) {
    g_levels[0] = first;
    g_levels[1] = second;
}
VELMOR_API void sdk_log_set_level(int first, int second, int) {
    Record("sdk_log_set_level");
    VelmorTest_SetLevels(first, second);
}
VELMOR_API void sdk_log_buf_lock() {
    Record("sdk_log_buf_lock");
    velmor::BufferLock::Get().Lock();
}
VELMOR_API void sdk_log_buf_date() { Record("sdk_log_buf_date"); }
VELMOR_API void sdk_log_buf_msg(const char* text) { Record("sdk_log_buf_msg", text); }
VELMOR_API void sdk_log_buf_msg_unlock(const char* text) { RecordAndUnlock("sdk_log_buf_msg_unlock", text); }
VELMOR_API int sdk_log_buf_quit_unlock(const char* text) {
    RecordAndUnlock("sdk_log_buf_quit_unlock", text);
    return 0;
}
VELMOR_API void sdk_err_buf_msg_unlock(const char* text) { RecordAndUnlock("sdk_err_buf_msg_unlock", text); }
VELMOR_API void sdk_err_buf_quit_unlock(const char* text) { RecordAndUnlock("sdk_err_buf_quit_unlock", text); }
VELMOR_API void sdk_log_msg(const char* text) { Record("sdk_log_msg", text); }
VELMOR_API void sdk_log_debug(const char* text) { Record("sdk_log_debug", text); }
VELMOR_API void log_msg(int level, const char* text) { RecordWithLevel("log_msg", level, text); }
VELMOR_API void log_err(int level, const char* text) { RecordWithLevel("log_err", level, text); }
VELMOR_API void log_debug(int level, const char* text) { RecordWithLevel("log_debug", level, text); }

// Copies the recorded calls into buf and forgets them; returns the text's length (buf may be null to ask).
VELMOR_API int VelmorTest_TakeCalls(char* buf, int size) {
    std::lock_guard<std::mutex> guard(g_callsLock);
    const int len = static_cast<int>(g_calls.size());
    if (buf && size > len) {
        memcpy(buf, g_calls.c_str(), len + 1);
        g_calls.clear();
    }
    return len;
}
