#pragma once
// Paces playback: each picture is shown when its timestamp is due, measured
// from the first picture against QueryPerformanceCounter, and window
// messages are handled while waiting. A picture whose timestamp does not
// move forward is given the previous one plus one frame interval.
//
// A late picture (due more than one frame interval ago, e.g. because
// decoding is slower than the stream) is still shown, never dropped, and
// counted in Late(); the schedule is not shifted, so a player that falls
// behind shows each later picture as soon as it can.
#include <cstdint>

class Pacer {
public:
    // `frameRate` gives the interval for timestamps that do not advance;
    // `fast` turns pacing off (every picture is due at once, none late).
    Pacer(double frameRate, bool fast);

    // Waits until the picture stamped `timestampMs` is due, calling
    // `pump(context)` for window messages; stops waiting early when it
    // returns false. Returns false when the picture is late.
    bool WaitUntilDue(int64_t timestampMs, bool (*pump)(void*), void* context);

    int Late() const { return m_late; }

    // Seconds on the same clock since the Pacer was made.
    double Elapsed() const;

private:
    int64_t Now() const;

    double m_intervalMs;
    bool m_fast;
    int64_t m_frequency = 1;
    int64_t m_created = 0;
    bool m_started = false;
    int64_t m_firstTick = 0;      // clock at the first picture
    int64_t m_firstStampMs = 0;   // its timestamp
    int64_t m_lastStampMs = 0;
    int m_late = 0;
};
