#include "bench/bench_common.h"

#include <cstdio>

#include "bench/baseline_loop.h"
#include "testkit/testkit.h"

namespace bench {

double Now()
{
    static const double frequency = [] {
        LARGE_INTEGER f;
        QueryPerformanceFrequency(&f);
        return static_cast<double>(f.QuadPart);
    }();
    LARGE_INTEGER t;
    QueryPerformanceCounter(&t);
    return t.QuadPart / frequency;
}

std::vector<double> Interleaved(const std::vector<std::function<double(DWORD)>>& contenders, int rounds, DWORD runMs)
{
    std::vector<double> sums(contenders.size(), 0.0);
    for (int r = 0; r < rounds; ++r)
        for (size_t c = 0; c < contenders.size(); ++c) sums[c] += contenders[c](runMs / rounds);
    for (double& s : sums) s /= rounds;
    return sums;
}

double BaselineFps(HWND window, const xop::FrameImage& image, DWORD runMs)
{
    BaselineLoop loop(window, image.width, image.height);
    if (!loop.Ok()) return 0.0;
    loop.UseI420(image);
    testkit::PumpMessages();  // a pending repaint of the window would cover the loop's pictures
    const double fps = FramesPerSecond([&] { loop.Frame(); }, runMs);
    // Proof that the loop drew the picture: its centre on the screen.
    const COLORREF centre =
        testkit::WaitForClientPixel(window, image.width / 2, image.height / 2, [](COLORREF c) { return c != 0; });
    if (centre == 0) fprintf(stderr, "baseline: nothing drawn\n");
    return fps;
}

Table::Table(std::string name, std::string labelColumn, std::vector<std::string> columns)
    : m_name(std::move(name)), m_labelColumn(std::move(labelColumn)), m_columns(std::move(columns))
{
}

void Table::Row(const std::string& label, const std::vector<double>& values) { m_rows.emplace_back(label, values); }

std::string Table::Publish(int decimals) const
{
    printf("\n%s\n%-28s", m_name.c_str(), m_labelColumn.c_str());
    for (const std::string& c : m_columns) printf(" %16s", c.c_str());
    printf("\n");
    for (const auto& row : m_rows) {
        printf("%-28s", row.first.c_str());
        for (double v : row.second) printf(" %16.*f", decimals, v);
        printf("\n");
    }
    fflush(stdout);

    const std::string dir = testkit::BinDir() + "..\\bench-results\\";
    CreateDirectoryA(dir.c_str(), nullptr);
    const std::string path = dir + m_name + ".json";
    FILE* f = fopen(path.c_str(), "wb");
    if (!f) return "";
    fprintf(f, "{\n  \"benchmark\": \"%s\",\n  \"rows\": [\n", m_name.c_str());
    for (size_t r = 0; r < m_rows.size(); ++r) {
        fprintf(f, "    {\"%s\": \"%s\"", m_labelColumn.c_str(), m_rows[r].first.c_str());
        for (size_t c = 0; c < m_columns.size() && c < m_rows[r].second.size(); ++c)
            fprintf(f, ", \"%s\": %.*f", m_columns[c].c_str(), decimals + 2, m_rows[r].second[c]);
        fprintf(f, "}%s\n", r + 1 < m_rows.size() ? "," : "");
    }
    fprintf(f, "  ]\n}\n");
    fclose(f);
    printf("(written to %s)\n", path.c_str());
    return path;
}

}  // namespace bench
