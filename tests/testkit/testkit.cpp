#include "testkit/testkit.h"

#include "player/Screenshot.h"

#include <fcntl.h>
#include <psapi.h>
#include <io.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

namespace testkit {

std::string BinDir() {
    char path[MAX_PATH] = {0};
    GetModuleFileNameA(nullptr, path, MAX_PATH);
    std::string dir(path);
    return dir.substr(0, dir.find_last_of('\\') + 1);
}

std::string ModulePath(HMODULE module) {
    char path[MAX_PATH] = {0};
    GetModuleFileNameA(module, path, MAX_PATH);
    return path;
}

static void RemoveTree(const std::string& dir) {
    WIN32_FIND_DATAA fd;
    HANDLE h = FindFirstFileA((dir + "*").c_str(), &fd);
    if (h != INVALID_HANDLE_VALUE) {
        do {
            const std::string name = fd.cFileName;
            if (name == "." || name == "..") continue;
            const std::string full = dir + name;
            if (fd.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) RemoveTree(full + "\\");
            else DeleteFileA(full.c_str());
        } while (FindNextFileA(h, &fd));
        FindClose(h);
    }
    RemoveDirectoryA(dir.c_str());
}

static void MakeDirs(const std::string& dir) {
    for (size_t i = 3; i < dir.size(); ++i) {
        if (dir[i] == '\\') CreateDirectoryA(dir.substr(0, i).c_str(), nullptr);
    }
}

StagedDir::StagedDir(const std::string& name) {
    m_path = BinDir() + "..\\stage\\" + name + "\\";
    char full[MAX_PATH];
    GetFullPathNameA(m_path.c_str(), MAX_PATH, full, nullptr);
    m_path = full;
    RemoveTree(m_path);
    MakeDirs(m_path);
}

StagedDir& StagedDir::Add(const std::string& file, const std::string& as) {
    const std::string to = m_path + (as.empty() ? file : as);
    if (!CopyFileA((BinDir() + file).c_str(), to.c_str(), FALSE))
        fprintf(stdout, "testkit: cannot copy %s to %s\n", file.c_str(), to.c_str());
    return *this;
}

StagedDir& StagedDir::Write(const std::string& file, const std::string& contents) {
    std::ofstream(m_path + file, std::ios::binary) << contents;
    return *this;
}

HMODULE StagedDir::Load(const std::string& file) const { return LoadLibraryA((m_path + file).c_str()); }

StderrCapture::StderrCapture() {
    char dir[MAX_PATH], file[MAX_PATH];
    GetTempPathA(MAX_PATH, dir);
    GetTempFileNameA(dir, "err", 0, file);
    m_file = file;
    fflush(stderr);
    m_saved = _dup(2);
    int fd = _open(file, _O_WRONLY | _O_BINARY | _O_TRUNC);
    _dup2(fd, 2);
    _close(fd);
}

StderrCapture::~StderrCapture() {
    fflush(stderr);
    _dup2(m_saved, 2);
    _close(m_saved);
    DeleteFileA(m_file.c_str());
}

std::string StderrCapture::Take() {
    fflush(stderr);
    const std::string all = ReadFile(m_file);
    std::string fresh = all.substr(m_read < all.size() ? m_read : all.size());
    m_read = all.size();
    return fresh;
}

template <typename Fn>
static Fn VelmorExport(const char* name) {
    return Export<Fn>(GetModuleHandleA("Velmor.dll"), name);
}

static Calls ToCalls(const std::string& text) {
    const std::vector<std::string> lines = SplitLines(text);
    return Calls(lines.begin(), lines.end());
}

Calls ErrorRecord(const std::string& file, const std::string& func, int line, const std::string& message) {
    return ToCalls("sdk_log_buf_lock\nsdk_log_buf_date\nsdk_log_get_level\nsdk_log_buf_msg(file: " + file + ", func:" +
                   func + ", line: " + std::to_string(line) + " )\nsdk_err_buf_msg_unlock(" + message + ")\n");
}

Calls TakeVelmorCalls() {
    auto take = VelmorExport<int (*)(char*, int)>("VelmorTest_TakeCalls");
    if (!take) return {"<no recording Velmor.dll loaded>"};
    std::string text(take(nullptr, 0) + 1, '\0');
    take(&text[0], static_cast<int>(text.size()));
    return ToCalls(text.c_str());
}

void SetVelmorLevels(int first, int second) {
    auto set = VelmorExport<void (*)(int, int)>("VelmorTest_SetLevels");
    if (set) set(first, second);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

size_t Count(const std::string& text, const std::string& what) {
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
    return n;
}

HWND CreateTestWindow(int x, int y, int w, int h, const char* title) {
    static const ATOM cls = [] {
        WNDCLASSA wc = {};
        wc.lpfnWndProc = DefWindowProcA;
        wc.hInstance = GetModuleHandleA(nullptr);
        wc.hbrBackground = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
        wc.lpszClassName = "QuillonTestWindow";
        return RegisterClassA(&wc);
    }();
    RECT r = {0, 0, w, h};
    const DWORD style = WS_POPUP | WS_VISIBLE;
    AdjustWindowRect(&r, style, FALSE);
    HWND hwnd = CreateWindowA(MAKEINTATOM(cls), title, style, x, y, r.right - r.left, r.bottom - r.top, nullptr,
                              nullptr, GetModuleHandleA(nullptr), nullptr);
    ShowWindow(hwnd, SW_SHOW);
    UpdateWindow(hwnd);
    return hwnd;
}

COLORREF ClientPixel(HWND window, int x, int y) {
    PumpMessages();
    POINT p = {x, y};
    ClientToScreen(window, &p);
    HDC screen = GetDC(nullptr);
    HDC mem = CreateCompatibleDC(screen);
    HBITMAP bmp = CreateCompatibleBitmap(screen, 1, 1);
    HGDIOBJ old = SelectObject(mem, bmp);
    BitBlt(mem, 0, 0, 1, 1, screen, p.x, p.y, SRCCOPY);
    COLORREF c = GetPixel(mem, 0, 0);
    SelectObject(mem, old);
    DeleteObject(bmp);
    DeleteDC(mem);
    ReleaseDC(nullptr, screen);
    return c;
}

COLORREF WaitForClientPixel(HWND window, int x, int y, const std::function<bool(COLORREF)>& accept, int timeoutMs) {
    const DWORD start = GetTickCount();
    COLORREF c = ClientPixel(window, x, y);
    while (!accept(c) && GetTickCount() - start < static_cast<DWORD>(timeoutMs)) {
        Sleep(20);
        c = ClientPixel(window, x, y);
    }
    return c;
}

bool Near(COLORREF c, int r, int g, int b, int tolerance) {
    return abs(GetRValue(c) - r) <= tolerance && abs(GetGValue(c) - g) <= tolerance &&
           abs(GetBValue(c) - b) <= tolerance;
}

size_t PrivateBytes() {
    PROCESS_MEMORY_COUNTERS_EX counters = {};
    counters.cb = sizeof(counters);
    GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters), sizeof(counters));
    if (counters.PrivateUsage) return counters.PrivateUsage;
    // Wine leaves PrivateUsage zero: add up the committed private regions instead.
    size_t total = 0;
    MEMORY_BASIC_INFORMATION info;
    for (const char* at = nullptr; VirtualQuery(at, &info, sizeof(info)) == sizeof(info);
         at = static_cast<const char*>(info.BaseAddress) + info.RegionSize) {
        if (info.State == MEM_COMMIT && info.Type == MEM_PRIVATE) total += info.RegionSize;
    }
    return total;
}

ProcessRun RunProcess(const std::string& directory, const std::string& commandLine, DWORD timeoutMs) {
    ProcessRun run;
    // A file per run: under CTest Wine keeps an ended child's output handle open for a while.
    static int runs = 0;
    const std::string outPath = directory + "run" + std::to_string(++runs) + ".out";
    SECURITY_ATTRIBUTES sa = {sizeof(sa), nullptr, TRUE};
    HANDLE out = CreateFileA(outPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &sa, CREATE_ALWAYS, 0, nullptr);
    if (out == INVALID_HANDLE_VALUE) {  // never hand back an earlier run's output
        run.output = "RunProcess: cannot create " + outPath + " (error " + std::to_string(GetLastError()) + ")";
        return run;
    }
    STARTUPINFOA si = {};
    si.cb = sizeof(si);
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdOutput = out;
    si.hStdError = out;
    si.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION pi = {};
    // A player run in one CI run ended with no output and exit code 0xFFFFFFFF. Under Wine a crash
    // ends with its exception code and a killed process with 0, so that program never started.
    // A program that did not start is started again.
    BOOL started = FALSE;
    for (int attempt = 1; attempt <= 3 && !started; ++attempt) {
        std::string command = commandLine;
        started = CreateProcessA(nullptr, &command[0], nullptr, nullptr, TRUE, 0, nullptr, directory.c_str(), &si, &pi);
        if (!started) fprintf(stdout, "testkit: cannot start %s (error %lu, attempt %d)\n", commandLine.c_str(),
                              GetLastError(), attempt);
    }
    if (started) {
        if (WaitForSingleObject(pi.hProcess, timeoutMs) != WAIT_OBJECT_0) TerminateProcess(pi.hProcess, 99);
        GetExitCodeProcess(pi.hProcess, &run.exitCode);
        CloseHandle(pi.hProcess);
        CloseHandle(pi.hThread);
    }
    CloseHandle(out);
    run.output = started ? ReadFile(outPath) : "testkit: " + commandLine + " never started";
    DeleteFileA(outPath.c_str());
    return run;
}

std::vector<COLORREF> CaptureClient(HWND window, int w, int h) {
    PumpMessages();
    RgbImage image;  // the player's screen capture
    std::vector<COLORREF> pixels(static_cast<size_t>(w) * h, 0);
    if (!::CaptureClient(window, image)) return pixels;
    for (int y = 0; y < h && y < image.height; ++y) {
        for (int x = 0; x < w && x < image.width; ++x) {
            const uint8_t* p = &image.rgb[(static_cast<size_t>(y) * image.width + x) * 3];
            pixels[static_cast<size_t>(y) * w + x] = RGB(p[0], p[1], p[2]);
        }
    }
    return pixels;
}

static uint32_t Get32(const std::string& s, size_t at, bool bigEndian) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= uint32_t(static_cast<unsigned char>(s[at + i])) << 8 * (bigEndian ? 3 - i : i);
    return v;
}

bool ReadImage(const std::string& path, RgbImage& image) {
    const std::string s = ReadFile(path);
    image.rgb.clear();
    if (s.size() >= 54 && s.compare(0, 2, "BM") == 0 && Get32(s, 28, false) % 65536 == 24) {
        image.width = static_cast<int>(Get32(s, 18, false));
        image.height = static_cast<int>(Get32(s, 22, false));
        const size_t row = (size_t(image.width) * 3 + 3) & ~size_t(3), pixels = Get32(s, 10, false);
        if (s.size() < pixels + row * image.height) return false;
        for (int y = image.height - 1; y >= 0; --y)  // bottom-up rows of B, G, R
            for (int x = 0; x < image.width * 3; ++x) image.rgb.push_back(s[pixels + row * y + x / 3 * 3 + 2 - x % 3]);
        return true;
    }
    if (s.size() < 33 || s.compare(0, 8, "\x89PNG\r\n\x1a\n") != 0 || s.compare(12, 4, "IHDR") != 0) return false;
    image.width = static_cast<int>(Get32(s, 16, true));
    image.height = static_cast<int>(Get32(s, 20, true));
    std::string z, raw;
    for (size_t at = 8; at + 12 <= s.size(); at += 12 + Get32(s, at, true))
        if (s.compare(at + 4, 4, "IDAT") == 0) z += s.substr(at + 8, Get32(s, at, true));
    for (size_t at = 2; at + 5 <= z.size();) {  // after the zlib header: final bit, LEN, NLEN, bytes
        const size_t n = static_cast<unsigned char>(z[at + 1]) | static_cast<unsigned char>(z[at + 2]) << 8;
        raw += z.substr(at + 5, n);
        if (z[at] & 1) break;
        at += 5 + n;
    }
    const size_t stride = size_t(image.width) * 3 + 1;  // a filter byte, then R G B
    if (raw.size() != stride * image.height) return false;
    for (int y = 0; y < image.height; ++y)
        image.rgb.insert(image.rgb.end(), &raw[y * stride + 1], &raw[(y + 1) * stride]);
    return true;
}

}  // namespace testkit
