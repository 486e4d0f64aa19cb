// Wall benchmark: the largest number of tiles of a 640 x 360, 25 fps clip
// that QuillonWall.exe shows at 25 fps per tile with fewer than 1% of the
// pictures late or dropped. The wall runs for kSeconds at each tile count
// in turn, up to the first count that fails; each row sets the tiles' rate
// against the clip's own 25 fps, the baseline every tile has to hold. The
// table is named after the stack it ran on (QUILLON_STACK, 1 by default).
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/bench_common.h"
#include "testkit/testkit.h"

namespace {

constexpr int kSeconds = 6;
constexpr double kRate = 25.0;
constexpr double kMaxLatePercent = 1.0;
constexpr int kCounts[] = {1, 2, 4, 6, 9, 12, 16, 20, 25, 30, 36, 49, 64};

struct WallRun {
    double fpsPerTile = 0, latePercent = 100, cpuSeconds = 0;
    int shown = 0;
};

bool RunWall(const testkit::StagedDir& dir, int tiles, WallRun& r)
{
    const std::string clip = testkit::BinDir() + "..\\sample-640x360\\sample.264";
    const testkit::ProcessRun run = testkit::RunProcess(
        dir.Path(), "\"" + dir.Path() + "QuillonWall.exe\" --tiles " + std::to_string(tiles) + " --seconds " +
                        std::to_string(kSeconds) + " \"" + clip + "\"", 600000);
    const size_t at = run.output.find("QuillonWall: " + std::to_string(tiles) + " tiles for ");
    int n = 0, late = 0, dropped = 0, errors = 0;
    double seconds = 0;
    if (run.exitCode != 0 || at == std::string::npos ||
        sscanf(run.output.c_str() + at,
               "QuillonWall: %d tiles for %lf s: shown %d (%lf fps per tile), late %d, dropped %d (%lf%% late or "
               "dropped), decode errors %d, cpu %lf s",
               &n, &seconds, &r.shown, &r.fpsPerTile, &late, &dropped, &r.latePercent, &errors, &r.cpuSeconds) != 9) {
        fprintf(stderr, "wall_bench: QuillonWall failed with %d tiles:\n%s\n", tiles, run.output.c_str());
        return false;
    }
    return true;
}

}  // namespace

int main()
{
    testkit::StagedDir dir("wall_bench");
    dir.Add("QuillonWall.exe").Add("QuillonSDK.dll").Add("Velmor.dll").Add("ffmpeg-7.dll");
    const char* stack = getenv("QUILLON_STACK");
    bench::Table table(std::string("wall_stack") + (stack && *stack ? stack : "1"), "tiles",
                       {"fps per tile", "late or dropped %", "ratio to 25 fps", "cpu ms per picture"});
    int largest = 0;
    for (int tiles : kCounts) {
        WallRun r;
        const bool ran = RunWall(dir, tiles, r);
        const bool holds = ran && r.fpsPerTile >= kRate * 0.98 && r.latePercent < kMaxLatePercent;
        table.Row(std::to_string(tiles) + (holds ? "" : " (fails)"),
                  {r.fpsPerTile, r.latePercent, r.fpsPerTile / kRate, r.shown ? r.cpuSeconds * 1000 / r.shown : 0});
        printf("%d tiles: %.2f fps per tile, %.2f%% late or dropped%s\n", tiles, r.fpsPerTile, r.latePercent,
               holds ? "" : " - does not hold 25 fps");
        fflush(stdout);
        if (!holds) break;
        largest = tiles;
    }
    table.Row("largest holding 25 fps", {static_cast<double>(largest)});
    table.Publish(2);
    return 0;
}
