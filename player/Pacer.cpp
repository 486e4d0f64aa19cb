#include "player/Pacer.h"

#include <windows.h>

Pacer::Pacer(double frameRate, bool fast) : m_intervalMs(frameRate > 0 ? 1000.0 / frameRate : 40.0), m_fast(fast)
{
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    m_frequency = f.QuadPart > 0 ? f.QuadPart : 1;
    m_created = Now();
}

int64_t Pacer::Now() const
{
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return t.QuadPart;
}

double Pacer::Elapsed() const { return static_cast<double>(Now() - m_created) / m_frequency; }

bool Pacer::WaitUntilDue(int64_t timestampMs, bool (*pump)(void*), void* context)
{
    if (m_fast) return true;
    if (!m_started) {
        m_started = true;
        m_firstTick = Now();
        m_firstStampMs = m_lastStampMs = timestampMs;
        return true;
    }
    if (timestampMs <= m_lastStampMs) timestampMs = m_lastStampMs + static_cast<int64_t>(m_intervalMs + 0.5);
    m_lastStampMs = timestampMs;
    const double dueMs = static_cast<double>(timestampMs - m_firstStampMs);
    for (;;) {
        const double nowMs = static_cast<double>(Now() - m_firstTick) * 1000.0 / m_frequency;
        if (nowMs >= dueMs) {
            const bool late = nowMs > dueMs + m_intervalMs;
            m_late += late;
            return !late;
        }
        // Wake for window messages or when the picture is due (rounded up).
        const DWORD waitMs = static_cast<DWORD>(dueMs - nowMs) + 1;
        MsgWaitForMultipleObjects(0, nullptr, FALSE, waitMs, QS_ALLINPUT);
        if (pump && !pump(context)) return true;
    }
}
