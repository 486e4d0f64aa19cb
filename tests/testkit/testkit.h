#pragma once
// Helpers shared by the test executables: staged module directories, stderr
// capture, the recording Velmor.dll's calls, pixels read back from the screen.
#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "player/HostCalls.h"   // PumpMessages, SdkCallLock
#include "player/Screenshot.h"  // RgbImage
#include "testkit/nv12.h"       // decoder-pool pictures, QUILLON_REQUIRE_NV12_SAMPLING
#include "testkit/recording.h"  // Calls, ErrorRecord, TakeVelmorCalls

namespace testkit {

// The entry `name` of `module` as a pointer of type Fn; null when absent.
template <typename Fn>
Fn Export(HMODULE module, const char* name) {
    return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name))) : nullptr;
}

// The reference count of a COM object (one AddRef/Release pair).
inline ULONG RefCount(IUnknown* object) {
    object->AddRef();
    return object->Release();
}

// The bin directory (of the running executable and every built module), with a trailing backslash.
std::string BinDir();
std::string ModulePath(HMODULE module);

// <bin>\..\stage\<name>\, emptied on construction; Add copies a bin file (or a path relative to bin) into it.
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

// What is written to file descriptor 2 while it is alive.
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

// Handles pending window messages, so that no late repaint covers a picture presented after it.
using ::PumpMessages;

// A shown, black top-level window with a client area of w x h at screen (x, y).
HWND CreateTestWindow(int x, int y, int w, int h, const char* title = "quillon test");

// The pixel at client coordinates of `window`, read from the screen.
COLORREF ClientPixel(HWND window, int x, int y);

// Polls ClientPixel until `accept` holds or about `timeoutMs` passed (presenting takes seconds on
// a busy machine); returns the last pixel read.
COLORREF WaitForClientPixel(HWND window, int x, int y, const std::function<bool(COLORREF)>& accept,
                            int timeoutMs = 5000);

// True when every channel of `c` is within `tolerance` of (r, g, b).
bool Near(COLORREF c, int r, int g, int b, int tolerance);

// Private bytes of this process (GetProcessMemoryInfo's PrivateUsage).
size_t PrivateBytes();

// Runs `commandLine` in `directory`, stdout and stderr into `directory`\runN.out; kills it
// after `timeoutMs` (exit code 99). A program Wine fails to start is started again, twice at most.
struct ProcessRun {
    DWORD exitCode = 0xFFFFFFFF;
    std::string output;
};
ProcessRun RunProcess(const std::string& directory, const std::string& commandLine, DWORD timeoutMs = 120000);

// The client area (w x h from its top-left corner) read from the screen in one go, row by row.
std::vector<COLORREF> CaptureClient(HWND window, int w, int h);

// Reads back what the player's WriteImage writes: a 24-bit BMP, or a PNG of
// 8-bit RGB in stored (uncompressed) deflate blocks. False for anything else.
bool ReadImage(const std::string& path, RgbImage& image);

}  // namespace testkit
