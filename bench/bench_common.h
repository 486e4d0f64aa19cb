#pragma once
// Shared pieces of the benchmark programs: a frame-rate loop, the minimal
// hand-written Direct3D 11 baseline that every rendering figure is set
// against, a high-resolution clock, and a result table that prints itself
// and writes the same figures as JSON.
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "xop/Renderer.h"

namespace bench {

constexpr DWORD kRunMs = 3000;

// Seconds on the performance counter.
double Now();

// Calls `frame` (once to warm up, then) for about kRunMs; frames per second.
template <class F>
double FramesPerSecond(F frame, DWORD runMs = kRunMs)
{
    frame();
    int frames = 0;
    const double start = Now();
    double elapsed = 0;
    while ((elapsed = Now() - start) * 1000 < runMs) {
        frame();
        ++frames;
    }
    return frames / elapsed;
}

// Frames per second of each contender, measured in `rounds` turns that
// alternate between them (each turn sets its contender up, runs it for
// runMs / rounds, and tears it down), so that load from elsewhere on the
// machine falls on all of them alike. A contender takes its run time and
// returns its frames per second; the figures are means over the turns.
std::vector<double> Interleaved(const std::vector<std::function<double(DWORD)>>& contenders, int rounds = 3,
                                DWORD runMs = kRunMs);

// Baseline: three dynamic R8 planes uploaded with Map/WRITE_DISCARD, one quad
// drawn with the library's own I420 shader straight into the back buffer of
// a swap chain on `window`, Present(0, 0); frames per second.
double BaselineFps(HWND window, const xop::FrameImage& image, DWORD runMs = kRunMs);

// A named table of figures: one label and one number per column in each row.
class Table {
public:
    Table(std::string name, std::string labelColumn, std::vector<std::string> columns);
    void Row(const std::string& label, const std::vector<double>& values);
    // Prints the table to stdout and writes it as JSON to
    // <bin>\..\bench-results\<name>.json; returns that path.
    std::string Publish(int decimals = 1) const;

private:
    std::string m_name, m_labelColumn;
    std::vector<std::string> m_columns;
    std::vector<std::pair<std::string, std::vector<double>>> m_rows;
};

}  // namespace bench
