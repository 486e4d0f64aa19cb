// Velmor.dll: the core-services module shipped with the SDK for hosts that
// have none of their own. It implements the logging operations the SDK uses.
//
// A record is built between sdk_log_buf_lock and one of the *_unlock calls
// and written to the log file in one piece; the buffer lock is a process-wide
// recursive lock, so the parts of one record stay together across threads.
//
// Configuration, read once on first use (environment wins over the ini file):
//   Velmor.ini beside this DLL, section [log]:
//     level=200        first level: messages (200) on; 0 = off
//     debug_level=0    second level: 300 turns debug output on
//     file=Velmor.log  log file; relative paths are taken beside this DLL
//   VELMOR_LOG_LEVEL, VELMOR_DEBUG_LEVEL, VELMOR_LOG_FILE.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "buffer_lock.h"

#define VELMOR_API extern "C" __declspec(dllexport)

namespace {

struct Config {
    int first = 200;
    int second = 0;
    std::string file;
};

std::string module_dir()
{
    HMODULE self = nullptr;
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                       reinterpret_cast<LPCSTR>(&module_dir), &self);
    char path[MAX_PATH] = {0};
    GetModuleFileNameA(self, path, MAX_PATH);
    char* slash = strrchr(path, '\\');
    if (slash) {
        slash[1] = '\0';
    }
    return path;
}

Config load_config()
{
    Config c;
    const std::string dir = module_dir();
    const std::string ini = dir + "Velmor.ini";
    c.first = GetPrivateProfileIntA("log", "level", c.first, ini.c_str());
    c.second = GetPrivateProfileIntA("log", "debug_level", c.second, ini.c_str());
    char file[MAX_PATH] = {0};
    GetPrivateProfileStringA("log", "file", "Velmor.log", file, MAX_PATH, ini.c_str());
    c.file = file;
    if (const char* v = getenv("VELMOR_LOG_LEVEL")) c.first = atoi(v);
    if (const char* v = getenv("VELMOR_DEBUG_LEVEL")) c.second = atoi(v);
    if (const char* v = getenv("VELMOR_LOG_FILE")) c.file = v;
    const bool absolute = c.file.size() > 1 && (c.file[1] == ':' || c.file[0] == '\\' || c.file[0] == '/');
    if (!c.file.empty() && !absolute) {
        c.file = dir + c.file;
    }
    return c;
}

class Logger {
public:
    static Logger& Get()
    {
        static Logger logger;
        return logger;
    }

    void Lock() { velmor::BufferLock::Get().Lock(); }
    void Unlock() { velmor::BufferLock::Get().Unlock(); }

    void Append(const char* text) { m_record += text ? text : ""; }

    static std::string DateStamp()
    {
        SYSTEMTIME st;
        GetLocalTime(&st);
        char stamp[64];
        snprintf(stamp, sizeof(stamp), "[%04u-%02u-%02u %02u:%02u:%02u.%03u] ", st.wYear, st.wMonth, st.wDay,
                 st.wHour, st.wMinute, st.wSecond, st.wMilliseconds);
        return stamp;
    }

    void AppendDate() { m_record += DateStamp(); }

    // Ends the record built so far, writes it, and leaves the buffer lock.
    void FlushAndUnlock(const char* text)
    {
        Append(text);
        m_record += '\n';
        Write(m_record);
        m_record.clear();
        Unlock();
    }

    // A one-call record (date, tag, text), written whole under the lock.
    void Line(const char* tag, const char* text)
    {
        const std::string record = DateStamp() + tag + (text ? text : "") + "\n";
        Lock();
        Write(record);
        Unlock();
    }

    int m_first;
    int m_second;

private:
    Logger()
    {
        Config c = load_config();
        m_first = c.first;
        m_second = c.second;
        m_path = c.file;
    }

    void Write(const std::string& record)
    {
        if (m_path.empty()) {
            return;
        }
        if (!m_file) {
            m_file = fopen(m_path.c_str(), "ab");
        }
        if (m_file) {
            fwrite(record.data(), 1, record.size(), m_file);
            fflush(m_file);
        }
    }

    std::string m_record;
    std::string m_path;
    FILE* m_file = nullptr;
};


}  // namespace


VELMOR_API void sdk_log_get_level(int* first, int* second)
{
    Logger& log = Logger::Get();
    if (first) *first = log.m_first;
    if (second) *second = log.m_second;
}
VELMOR_API void sdk_log_set_level(int first, int second, int /*reserved*/)
{
    Logger::Get().m_first = first;
    Logger::Get().m_second = second;
}
VELMOR_API void sdk_log_buf_lock() { Logger::Get().Lock(); }
VELMOR_API void sdk_log_buf_date() { Logger::Get().AppendDate(); }
VELMOR_API void sdk_log_buf_msg(const char* text) { Logger::Get().Append(text); }
VELMOR_API void sdk_log_buf_msg_unlock(const char* text) { Logger::Get().FlushAndUnlock(text); }
VELMOR_API int sdk_log_buf_quit_unlock(const char* text) { Logger::Get().FlushAndUnlock(text); return 0; }
VELMOR_API void sdk_err_buf_msg_unlock(const char* text) { Logger::Get().FlushAndUnlock(text); }
VELMOR_API void sdk_err_buf_quit_unlock(const char* text) { Logger::Get().FlushAndUnlock(text); }
VELMOR_API void sdk_log_msg(const char* text) { Logger::Get().Line("", text); }
VELMOR_API void sdk_log_debug(const char* text) { Logger::Get().Line("[debug] ", text); }
VELMOR_API void log_msg(int level, const char* text)
{
    Logger& log = Logger::Get();
    if (log.m_first != 0 && log.m_first >= level) log.Line("", text);
}
VELMOR_API void log_err(int, const char* text) { Logger::Get().Line("[error] ", text); }
VELMOR_API void log_debug(int level, const char* text)
{
    Logger& log = Logger::Get();
    if (log.m_second != 0 && log.m_second >= level) log.Line("[debug] ", text);
}
