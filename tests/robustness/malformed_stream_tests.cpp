// Malformed streams: QuillonPlay.exe plays the sample clips (raw H.264, HEVC)
// cut inside a unit, with bits flipped or random units put in the second half:
// it shows the good pictures, reports the damage and ends normally. Random
// bytes are refused with a message or played as noise, never a crash.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>

#include "testkit/staged_sdk.h"

namespace {

// Offsets of the 00 00 01 start codes of an Annex B stream.
std::vector<size_t> StartCodes(const std::string& s)
{
    const std::string code("\0\0\1", 3);
    std::vector<size_t> at;
    for (size_t i = s.find(code); i != std::string::npos; i = s.find(code, i + 1)) at.push_back(i);
    return at;
}

// `s` with its second half damaged: bits flipped, or random units put in before every third start code.
std::string Damaged(const std::string& s, bool flipBits, std::mt19937& rng)
{
    const std::vector<size_t> codes = StartCodes(s);
    std::string out = s;
    for (int i = 0; flipBits && i < 40; ++i) out[s.size() / 2 + rng() % (s.size() / 2)] ^= 1 << (rng() % 8);
    for (size_t k = codes.size() - 1; !flipBits && k >= codes.size() / 2; k -= 3) {
        std::string unit("\0\0\0\1", 4);
        for (int i = 0, n = 20 + static_cast<int>(rng() % 400); i < n; ++i) unit += static_cast<char>(rng());
        out.insert(codes[k] > 0 && s[codes[k] - 1] == 0 ? codes[k] - 1 : codes[k], unit);
    }
    return out;
}

struct Played : testkit::ProcessRun {
    int shown = -1;  // pictures, from the summary line
};

Played Play(testkit::StagedDir& dir, const std::string& name, const std::string& bytes)
{
    dir.Write(name, bytes);
    Played r = {testkit::RunProcess(dir.Path(), "\"" + dir.Path() + "QuillonPlay.exe\" --no-overlay --fast " + name)};
    const size_t at = r.output.find("QuillonPlay: shown ");
    if (at != std::string::npos) sscanf(r.output.c_str() + at, "QuillonPlay: shown %d", &r.shown);
    r.output = name + ":\n" + r.output;
    return r;
}

TEST(MalformedStreams, DamagedClipsPlayTheGoodPicturesAndRandomBytesNeverCrash)
{
    StagedSdk sdk("robust_streams");
    sdk.dir.Add("QuillonPlay.exe");
    const std::string kReport = "QuillonPlay: decode error: ";
    std::mt19937 rng(2024);
    for (const std::string ext : {".264", ".265"}) {
        const std::string good = testkit::ReadFile(testkit::BinDir() + "..\\sample\\sample" + ext);
        const Played whole = Play(sdk.dir, "whole" + ext, good);
        ASSERT_EQ(0u, whole.exitCode) << whole.output;
        ASSERT_GT(whole.shown, 10) << whole.output;
        EXPECT_EQ(std::string::npos, whole.output.find(kReport)) << whole.output;
        EXPECT_NE(std::string::npos, whole.output.find(", 0 decode errors")) << whole.output;

        // Cut two thirds in, 40 bytes into a unit: the pictures before the cut are all there.
        const std::vector<size_t> codes = StartCodes(good);
        const Played cut = Play(sdk.dir, "cut" + ext, good.substr(0, codes[codes.size() * 2 / 3] + 40));
        EXPECT_EQ(0u, cut.exitCode) << cut.output;
        EXPECT_GE(cut.shown, whole.shown * 2 / 3 - 1) << cut.output;
        EXPECT_LT(cut.shown, whole.shown) << cut.output;

        // Damage in the second half: at least the first half plays, and the damage is reported.
        for (const Played& r : {Play(sdk.dir, "flipped" + ext, Damaged(good, true, rng)),
                                Play(sdk.dir, "random-units" + ext, Damaged(good, false, rng))}) {
            EXPECT_EQ(0u, r.exitCode) << r.output;
            EXPECT_GE(r.shown, whole.shown / 2 - 1) << r.output;
            EXPECT_NE(std::string::npos, r.output.find(kReport)) << r.output;
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
