#pragma once
// The record buffer lock of Velmor.dll: process-wide and recursive. A record
// is built between sdk_log_buf_lock and one of the *_unlock calls, so the
// parts of one record stay together across threads; an unlock without a
// lock held by the calling thread does nothing.
#include <windows.h>

namespace velmor {

class BufferLock {
public:
    static BufferLock& Get()
    {
        static BufferLock lock;
        return lock;
    }

    void Lock()
    {
        EnterCriticalSection(&m_lock);
        ++t_depth;
    }

    void Unlock()
    {
        if (t_depth > 0) {
            --t_depth;
            LeaveCriticalSection(&m_lock);
        }
    }

private:
    BufferLock() { InitializeCriticalSection(&m_lock); }

    CRITICAL_SECTION m_lock;
    static inline thread_local int t_depth = 0;
};

}  // namespace velmor
