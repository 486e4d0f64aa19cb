// Malformed streams: QuillonPlay.exe plays damaged copies of the sample clips
// (raw H.264 and HEVC): cut off inside a unit, with bits flipped or units of
// random bytes put in the second half. It must show the good pictures,
// report the damage and end normally; a file of random bytes is refused with
// a message or played as noise, never a crash. (The player suite counts lost
// and concealed pictures exactly, on H.264 with a damaged keyframe.)
#include <gtest/gtest.h>

#include <cstdio>
#include <random>

#include "testkit/staged_sdk.h"

namespace {

// Offsets of the 00 00 01 start codes of an Annex B stream.
std::vector<size_t> StartCodes(const std::string& s)
{
    std::vector<size_t> at;
    for (size_t i = 0; i + 3 <= s.size(); ++i)
        if (s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1) at.push_back(i);
    return at;
}

std::string BitFlipped(std::string s, std::mt19937& rng)
{
    const size_t half = s.size() / 2;
    for (int i = 0; i < 40; ++i) s[half + rng() % half] ^= static_cast<char>(1 << (rng() % 8));
    return s;
}

// A unit of random bytes put in before every third start code of the second half.
std::string RandomUnits(const std::string& s, std::mt19937& rng)
{
    const std::vector<size_t> codes = StartCodes(s);
    std::string out;
    size_t from = 0;
    for (size_t k = codes.size() / 2; k < codes.size(); k += 3) {
        const size_t at = codes[k] > 0 && s[codes[k] - 1] == 0 ? codes[k] - 1 : codes[k];
        out += s.substr(from, at - from) + std::string("\0\0\0\1", 4);
        for (int i = 0, n = 20 + static_cast<int>(rng() % 400); i < n; ++i) out += static_cast<char>(rng());
        from = at;
    }
    return out + s.substr(from);
}

struct Played {
    DWORD exitCode = 0;
    std::string output;
    int shown = -1;
    bool ReportsErrors() const { return output.find("QuillonPlay: decode error: ") != std::string::npos; }
};

Played Play(testkit::StagedDir& dir, const std::string& name, const std::string& bytes)
{
    dir.Write(name, bytes);
    const testkit::ProcessRun run =
        testkit::RunProcess(dir.Path(), "\"" + dir.Path() + "QuillonPlay.exe\" --no-overlay --fast " + name);
    Played r = {run.exitCode, name + ":\n" + run.output};
    const size_t at = run.output.find("QuillonPlay: shown ");
    if (at != std::string::npos) sscanf(run.output.c_str() + at, "QuillonPlay: shown %d", &r.shown);
    return r;
}

TEST(MalformedStreams, DamagedClipsPlayTheGoodPicturesAndRandomBytesNeverCrash)
{
    StagedSdk sdk("robust_streams");
    sdk.dir.Add("QuillonPlay.exe");
    std::mt19937 rng(2024);
    for (const std::string ext : {".264", ".265"}) {
        const std::string good = testkit::ReadFile(testkit::BinDir() + "..\\sample\\sample" + ext);
        ASSERT_GT(good.size(), 1000u) << ext;
        const Played whole = Play(sdk.dir, "whole" + ext, good);
        ASSERT_EQ(0u, whole.exitCode) << whole.output;
        ASSERT_GT(whole.shown, 10) << whole.output;
        EXPECT_FALSE(whole.ReportsErrors()) << whole.output;
        EXPECT_NE(std::string::npos, whole.output.find(", 0 decode errors")) << whole.output;

        // Cut two thirds in, 40 bytes into a unit: the pictures before the cut are all there.
        const std::vector<size_t> codes = StartCodes(good);
        const Played cut = Play(sdk.dir, "truncated" + ext, good.substr(0, codes[codes.size() * 2 / 3] + 40));
        EXPECT_EQ(0u, cut.exitCode) << cut.output;
        EXPECT_GE(cut.shown, whole.shown * 2 / 3 - 1) << cut.output;
        EXPECT_LT(cut.shown, whole.shown) << cut.output;

        // Damage in the second half: at least the first half plays, and the damage is reported.
        for (const Played& r : {Play(sdk.dir, "flipped" + ext, BitFlipped(good, rng)),
                                Play(sdk.dir, "random-units" + ext, RandomUnits(good, rng))}) {
            EXPECT_EQ(0u, r.exitCode) << r.output;
            EXPECT_GE(r.shown, whole.shown / 2 - 1) << r.output;
            EXPECT_TRUE(r.ReportsErrors()) << r.output;
        }

        // Refused (2: cannot open, 4: nothing shown) or played as noise.
        std::string noise(64 * 1024, '\0');
        for (char& c : noise) c = static_cast<char>(rng());
        const Played r = Play(sdk.dir, "noise" + ext, noise);
        EXPECT_TRUE(r.exitCode == 0 || r.exitCode == 2 || r.exitCode == 4) << r.exitCode << "\n" << r.output;
        EXPECT_NE(std::string::npos, r.output.find("QuillonPlay: ")) << r.output;
    }
}

}  // namespace
