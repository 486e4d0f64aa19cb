#pragma once
// Helpers shared by the test executables: staged directories holding the
// modules under test, loading from them, capturing the C runtime's stderr,
// reading the calls recorded by the test variant of Velmor.dll
// (testkit/recording.h), and reading presented pixels back from the screen.
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "player/HostCalls.h"  // PumpMessages, SdkCallLock
#include "testkit/nv12.h"  // decoder-pool pictures, QUILLON_REQUIRE_NV12_SAMPLING
#include "testkit/recording.h"  // Calls, ErrorRecord, TakeVelmorCalls

namespace testkit {

// The entry `name` of `module` as a pointer of type Fn; null when absent.
template <typename Fn>
Fn Export(HMODULE module, const char* name)
{
    return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}

// The reference count of a COM object (one AddRef/Release pair).
inline ULONG RefCount(IUnknown* object)
{
    object->AddRef();
    return object->Release();
}

// Directory of the running test executable (the build's bin directory),
// with a trailing backslash. Every built module lies there.
std::string BinDir();

// File name of a loaded module.
std::string ModulePath(HMODULE module);

// A directory <bin>\..\stage\<name>\, emptied on construction, into which
// files from the bin directory (or a path relative to it) are copied,
// possibly under another name.
class StagedDir {
public:
    explicit StagedDir(const std::string& name);
    StagedDir& Add(const std::string& file, const std::string& as = "");
    StagedDir& Write(const std::string& file, const std::string& contents);
    const std::string& Path() const { return m_path; }
    HMODULE Load(const std::string& file) const;

private:
    std::string m_path;
};

// Collects what is written to file descriptor 2 while it is alive.
class StderrCapture {
public:
    StderrCapture();
    ~StderrCapture();
    std::string Take();  // everything written since construction or the last Take

private:
    int m_saved = -1;
    std::string m_file;
    size_t m_read = 0;
};

std::string ReadFile(const std::string& path);
std::vector<std::string> SplitLines(const std::string& text);
// How often `what` occurs in `text` (overlaps counted).
size_t Count(const std::string& text, const std::string& what);

// Handles the thread's pending window messages, so that no late repaint of
// a test window's background covers a picture presented after it.
using ::PumpMessages;

// A plain top-level window with a client area of w x h at screen (x, y),
// shown and painted black.
HWND CreateTestWindow(int x, int y, int w, int h, const char* title = "quillon test");

// The pixel at client coordinates of `window`, read from the screen.
COLORREF ClientPixel(HWND window, int x, int y);

// Polls ClientPixel until `accept` holds or about `timeoutMs` passed;
// returns the last pixel read. Presentation is asynchronous and takes
// seconds on a busy two-core machine.
COLORREF WaitForClientPixel(HWND window, int x, int y, const std::function<bool(COLORREF)>& accept,
                            int timeoutMs = 5000);

// True when every channel of `c` is within `tolerance` of (r, g, b).
bool Near(COLORREF c, int r, int g, int b, int tolerance);

// Private bytes of this process (GetProcessMemoryInfo's PrivateUsage).
size_t PrivateBytes();

// Runs `commandLine` with `directory` as its working directory, stdout and
// stderr both into a new file `directory`\runN.out; waits up to `timeoutMs` and kills it
// after that (exit code 99).
struct ProcessRun {
    DWORD exitCode = 0xFFFFFFFF;
    std::string output;
};
ProcessRun RunProcess(const std::string& directory, const std::string& commandLine, DWORD timeoutMs = 120000);

// The whole client area (w x h from its top-left corner) read from the
// screen in one go, row by row, each pixel as a COLORREF.
std::vector<COLORREF> CaptureClient(HWND window, int w, int h);

}  // namespace testkit
