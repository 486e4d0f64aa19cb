// Malformed streams: QuillonPlay.exe plays damaged copies of the generated
// sample clips (raw H.264 and HEVC): cut off in the middle of a unit, with
// bits flipped in the second half, with units of random bytes put in, and a
// file of nothing but random bytes. It must report the decode errors, keep
// showing the good pictures and end normally; a file that is no stream at
// all is refused with a message.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>

#include "testkit/staged_sdk.h"

namespace {

std::string Clip(const std::string& name) { return testkit::ReadFile(testkit::BinDir() + "..\\sample\\" + name); }

// Offsets of the 00 00 01 start codes of an Annex B stream.
std::vector<size_t> StartCodes(const std::string& s)
{
    std::vector<size_t> at;
    for (size_t i = 0; i + 3 <= s.size(); ++i)
        if (s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1) at.push_back(i);
    return at;
}

std::string Truncated(const std::string& s)
{
    const std::vector<size_t> codes = StartCodes(s);
    return s.substr(0, codes[codes.size() * 2 / 3] + 40);  // 40 bytes into a unit
}

std::string BitFlipped(const std::string& s, std::mt19937& rng)
{
    std::string out = s;
    for (int i = 0; i < 40; ++i) {
        const size_t at = s.size() / 2 + rng() % (s.size() / 2);
        out[at] = static_cast<char>(out[at] ^ (1 << (rng() % 8)));
    }
    return out;
}

// Units of random bytes (after a start code) put in before some start codes of the second half.
std::string RandomUnits(const std::string& s, std::mt19937& rng)
{
    const std::vector<size_t> codes = StartCodes(s);
    std::string out;
    size_t from = 0;
    for (size_t k = codes.size() / 2; k < codes.size(); k += 3) {
        const size_t at = codes[k] > 0 && s[codes[k] - 1] == 0 ? codes[k] - 1 : codes[k];
        out += s.substr(from, at - from);
        out += std::string("\0\0\0\1", 4);
        for (int i = 0, n = 20 + static_cast<int>(rng() % 400); i < n; ++i) out += static_cast<char>(rng());
        from = at;
    }
    return out + s.substr(from);
}

int ShownFrames(const std::string& output)
{
    int shown = -1;
    const size_t at = output.find("QuillonPlay: shown ");
    if (at != std::string::npos) sscanf(output.c_str() + at, "QuillonPlay: shown %d", &shown);
    return shown;
}

// The player reports every damaged unit it skips and every picture the
// decoder had to conceal as "QuillonPlay: decode error: ...".
bool ReportsErrors(const std::string& output)
{
    return output.find("QuillonPlay: decode error: ") != std::string::npos;
}

class MalformedStreams : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_sdk = new StagedSdk("robust_streams");
        s_sdk->dir.Add("QuillonPlay.exe");
    }
    static void TearDownTestSuite() { delete s_sdk; }
    testkit::ProcessRun Play(const std::string& name, const std::string& bytes)
    {
        s_sdk->dir.Write(name, bytes);
        testkit::ProcessRun run = testkit::RunProcess(s_sdk->dir.Path(),
                                                      "\"" + s_sdk->dir.Path() + "QuillonPlay.exe\" --no-overlay --fast " + name);
        printf("%s: exit %lu, %d pictures shown\n", name.c_str(), run.exitCode, ShownFrames(run.output));
        return run;
    }
    static StagedSdk* s_sdk;
};
StagedSdk* MalformedStreams::s_sdk = nullptr;

TEST_F(MalformedStreams, DamagedClipsPlayTheGoodPicturesAndReportTheBadOnes)
{
    std::mt19937 rng(2024);
    for (const char* clip : {"sample.264", "sample.265"}) {
        const std::string good = Clip(clip);
        ASSERT_GT(good.size(), 1000u) << clip;
        const std::string ext = std::string(clip).substr(6);
        const testkit::ProcessRun whole = Play(std::string("whole") + ext, good);
        ASSERT_EQ(0u, whole.exitCode) << whole.output;
        const int all = ShownFrames(whole.output);
        ASSERT_GT(all, 10) << whole.output;
        EXPECT_FALSE(ReportsErrors(whole.output)) << whole.output;
        EXPECT_NE(std::string::npos, whole.output.find(", 0 decode errors")) << whole.output;

        // Cut two thirds in: the pictures before the cut are all there.
        const testkit::ProcessRun cut = Play(std::string("truncated") + ext, Truncated(good));
        EXPECT_EQ(0u, cut.exitCode) << cut.output;
        EXPECT_GE(ShownFrames(cut.output), all * 2 / 3 - 1) << cut.output;
        EXPECT_LT(ShownFrames(cut.output), all) << cut.output;

        // Damage in the second half: at least the first half plays, and
        // the damage is reported.
        for (const auto& damaged : {std::make_pair(std::string("flipped"), BitFlipped(good, rng)),
                                    std::make_pair(std::string("random-units"), RandomUnits(good, rng))}) {
            const testkit::ProcessRun run = Play(damaged.first + ext, damaged.second);
            EXPECT_EQ(0u, run.exitCode) << damaged.first << ext << "\n" << run.output;
            EXPECT_GE(ShownFrames(run.output), all / 2 - 1) << damaged.first << ext << "\n" << run.output;
            EXPECT_TRUE(ReportsErrors(run.output)) << damaged.first << ext << "\n" << run.output;
        }
    }
}

TEST_F(MalformedStreams, RandomBytesAreRefusedWithAMessage)
{
    std::mt19937 rng(99);
    for (const char* ext : {".264", ".265"}) {
        std::string noise(64 * 1024, '\0');
        for (char& c : noise) c = static_cast<char>(rng());
        const testkit::ProcessRun run = Play(std::string("noise") + ext, noise);
        // Refused (2: cannot open, 4: nothing shown) or played as noise; never a crash.
        EXPECT_TRUE(run.exitCode == 0 || run.exitCode == 2 || run.exitCode == 4) << run.exitCode << "\n" << run.output;
        EXPECT_NE(std::string::npos, run.output.find("QuillonPlay: ")) << run.output;
    }
}

}  // namespace
