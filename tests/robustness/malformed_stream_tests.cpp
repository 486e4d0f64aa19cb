// Malformed streams: QuillonPlay.exe plays damaged copies of the generated
// sample clips (raw H.264 and HEVC): cut off in the middle of a unit, with
// bits flipped in the second half, with units of random bytes put in, and a
// file of nothing but random bytes. It must report the decode errors, keep
// showing the good pictures and end normally; a file that is no stream at
// all is refused with a message.
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

std::string BitFlipped(const std::string& s, std::mt19937& rng)
{
    std::string out = s;
    for (int i = 0; i < 40; ++i) out[s.size() / 2 + rng() % (s.size() / 2)] ^= static_cast<char>(1 << (rng() % 8));
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
        out += s.substr(from, at - from) + std::string("\0\0\0\1", 4);
        for (int i = 0, n = 20 + static_cast<int>(rng() % 400); i < n; ++i) out += static_cast<char>(rng());
        from = at;
    }
    return out + s.substr(from);
}

struct Played {
    testkit::ProcessRun run;
    int shown = -1;
    // The player reports every damaged unit it skips and every picture the
    // decoder had to conceal as "QuillonPlay: decode error: ...".
    bool ReportsErrors() const { return run.output.find("QuillonPlay: decode error: ") != std::string::npos; }
};

class MalformedStreams : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        s_sdk = new StagedSdk("robust_streams");
        s_sdk->dir.Add("QuillonPlay.exe");
    }
    static void TearDownTestSuite() { delete s_sdk; }
    static Played Play(const std::string& name, const std::string& bytes)
    {
        s_sdk->dir.Write(name, bytes);
        const std::string& dir = s_sdk->dir.Path();
        Played r = {testkit::RunProcess(dir, "\"" + dir + "QuillonPlay.exe\" --no-overlay --fast " + name)};
        const size_t at = r.run.output.find("QuillonPlay: shown ");
        if (at != std::string::npos) sscanf(r.run.output.c_str() + at, "QuillonPlay: shown %d", &r.shown);
        printf("%s: exit %lu, %d pictures shown\n", name.c_str(), r.run.exitCode, r.shown);
        return r;
    }
    static StagedSdk* s_sdk;
};
StagedSdk* MalformedStreams::s_sdk = nullptr;

TEST_F(MalformedStreams, DamagedClipsPlayTheGoodPicturesAndReportTheBadOnes)
{
    std::mt19937 rng(2024);
    for (const std::string ext : {".264", ".265"}) {
        const std::string good = testkit::ReadFile(testkit::BinDir() + "..\\sample\\sample" + ext);
        ASSERT_GT(good.size(), 1000u) << ext;
        const Played whole = Play("whole" + ext, good);
        ASSERT_EQ(0u, whole.run.exitCode) << whole.run.output;
        ASSERT_GT(whole.shown, 10) << whole.run.output;
        EXPECT_FALSE(whole.ReportsErrors()) << whole.run.output;
        EXPECT_NE(std::string::npos, whole.run.output.find(", 0 decode errors")) << whole.run.output;

        // Cut two thirds in, 40 bytes into a unit: the pictures before the cut are all there.
        const std::vector<size_t> codes = StartCodes(good);
        const Played cut = Play("truncated" + ext, good.substr(0, codes[codes.size() * 2 / 3] + 40));
        EXPECT_EQ(0u, cut.run.exitCode) << cut.run.output;
        EXPECT_GE(cut.shown, whole.shown * 2 / 3 - 1) << cut.run.output;
        EXPECT_LT(cut.shown, whole.shown) << cut.run.output;

        // Damage in the second half: at least the first half plays, and the damage is reported.
        for (const auto& damaged : {std::make_pair(std::string("flipped"), BitFlipped(good, rng)),
                                    std::make_pair(std::string("random-units"), RandomUnits(good, rng))}) {
            const Played r = Play(damaged.first + ext, damaged.second);
            EXPECT_EQ(0u, r.run.exitCode) << damaged.first << ext << "\n" << r.run.output;
            EXPECT_GE(r.shown, whole.shown / 2 - 1) << damaged.first << ext << "\n" << r.run.output;
            EXPECT_TRUE(r.ReportsErrors()) << damaged.first << ext << "\n" << r.run.output;
        }
    }
}

TEST_F(MalformedStreams, RandomBytesAreRefusedWithAMessage)
{
    std::mt19937 rng(99);
    for (const char* ext : {".264", ".265"}) {
        std::string noise(64 * 1024, '\0');
        for (char& c : noise) c = static_cast<char>(rng());
        const Played r = Play(std::string("noise") + ext, noise);
        // Refused (2: cannot open, 4: nothing shown) or played as noise; never a crash.
        const DWORD code = r.run.exitCode;
        EXPECT_TRUE(code == 0 || code == 2 || code == 4) << code << "\n" << r.run.output;
        EXPECT_NE(std::string::npos, r.run.output.find("QuillonPlay: ")) << r.run.output;
    }
}

}  // namespace
