#pragma once
// What every host of the SDK here shares, the sample programs and the tests
// that act as hosts alike: the thread's window-message pump, and the lock a
// host holds around SDK calls. The SDK's handle managers keep their sets
// without a lock, so creating, initialising and releasing objects must not
// overlap any other call: those take the lock exclusively, everything else
// (showing, configuring, decoding) shared, so it runs concurrently.
#include <windows.h>

inline void PumpMessages()
{
    MSG msg;
    while (PeekMessageA(&msg, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&msg);
        DispatchMessageA(&msg);
    }
}

class SdkCallLock {
public:
    template <class F>
    auto Exclusive(F f)
    {
        return Locked(f, AcquireSRWLockExclusive, ReleaseSRWLockExclusive);
    }
    template <class F>
    auto Shared(F f)
    {
        return Locked(f, AcquireSRWLockShared, ReleaseSRWLockShared);
    }

private:
    template <class F>
    auto Locked(F f, void(WINAPI* acquire)(PSRWLOCK), void(WINAPI* release)(PSRWLOCK))
    {
        acquire(&m_lock);
        auto r = f();
        release(&m_lock);
        return r;
    }

    SRWLOCK m_lock = SRWLOCK_INIT;
};
