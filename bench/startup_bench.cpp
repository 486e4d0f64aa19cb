// Start-up: time of the first QuillonStartup in a fresh process with the
// real ffmpeg-7.dll and Velmor.dll beside the library, against plain
// LoadLibrary of those two modules in a fresh process. Each figure is the
// median of several child processes (a second start-up only counts).
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bench/bench_common.h"
#include "testkit/staged_sdk.h"

namespace {

constexpr int kRuns = 7;

// In the child: one measurement in milliseconds, printed as "ms=<value>".
int Child(const std::string& what, std::string dir)
{
    dir += "\\";
    double ms = -1;
    if (what == "sdk") {
        QuillonSdkApi api;
        std::string error;
        if (!api.Bind(LoadLibraryA((dir + "QuillonSDK.dll").c_str()), error)) return 1;
        const double start = bench::Now();
        const int r = api.QuillonStartup();
        ms = (bench::Now() - start) * 1000;
        if (r != 0 || !GetModuleHandleA("ffmpeg-7.dll")) return 2;
    } else {
        const double start = bench::Now();
        const bool loaded = LoadLibraryA((dir + "Velmor.dll").c_str()) && LoadLibraryA((dir + "ffmpeg-7.dll").c_str());
        ms = (bench::Now() - start) * 1000;
        if (!loaded) return 2;
    }
    printf("ms=%.3f\n", ms);
    return 0;
}

std::vector<double> Measure(const std::string& what, const testkit::StagedDir& dir)
{
    std::vector<double> ms;
    // Without its trailing backslash, which would quote the closing quote.
    const std::string path = dir.Path().substr(0, dir.Path().size() - 1);
    for (int i = 0; i < kRuns; ++i) {
        const testkit::ProcessRun run = testkit::RunProcess(
            dir.Path(), "\"" + testkit::BinDir() + "startup_bench.exe\" --child " + what + " \"" + path + "\"");
        const size_t at = run.output.find("ms=");
        if (run.exitCode == 0 && at != std::string::npos) ms.push_back(atof(run.output.c_str() + at + 3));
        else fprintf(stderr, "child %s failed (%lu): %s\n", what.c_str(), run.exitCode, run.output.c_str());
    }
    std::sort(ms.begin(), ms.end());
    return ms;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 4 && strcmp(argv[1], "--child") == 0) return Child(argv[2], argv[3]);

    testkit::StagedDir dir("bench_startup");
    dir.Add("QuillonSDK.dll").Add("Velmor.dll").Add("ffmpeg-7.dll");
    const std::vector<double> sdk = Measure("sdk", dir);
    const std::vector<double> modules = Measure("modules", dir);
    if (sdk.empty() || modules.empty()) return 1;
    const double sdkMedian = sdk[sdk.size() / 2], modulesMedian = modules[modules.size() / 2];
    bench::Table table("startup", "step", {"median ms", "min ms", "max ms", "ratio"});
    table.Row("first QuillonStartup", {sdkMedian, sdk.front(), sdk.back(), sdkMedian / modulesMedian});
    table.Row("LoadLibrary of both modules", {modulesMedian, modules.front(), modules.back(), 1.0});
    table.Publish(2);
    return 0;
}
