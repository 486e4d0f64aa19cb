// Module loading beside the library, the core-services binding and its log layer, the checks and the
// rectangle helpers. The suites run in file order: the first needs the binding still unloaded.
#include <gtest/gtest.h>

#include <string>

#include "common/QuillonCommonFun.h"
#include "core/core_api.h"
#include "core/load_lib.h"
#include "testkit/staged_sdk.h"

using testkit::Calls;
using testkit::StagedDir;
using testkit::StderrCapture;
using testkit::TakeVelmorCalls;

namespace {

const char* const kThisFile = "tests/core/core_tests.cpp";

// The stderr reports of empty slots: "<line of the row in the table>,CLS_VelmorApi::inner_<name>".
std::string Reports(std::initializer_list<std::string> ops) {
    std::string all;
    for (const std::string& op : ops) {
        int line = -1;
#define VELMOR_OP(pub, ret, name, params, args, fail) \
    if (op == #name) line = __LINE__;
#define VELMOR_LOGOP VELMOR_OP
#include "core/velmor_ops.inc"
#undef VELMOR_OP
#undef VELMOR_LOGOP
        all += std::to_string(line) + ",CLS_VelmorApi::inner_" + op;
    }
    return all;
}

std::string Lower(std::string s) { return CharLowerA(&s[0]), s; }

std::string Str(const RECT& r) {
    return std::to_string(r.left) + "," + std::to_string(r.top) + "," + std::to_string(r.right) + "," +
           std::to_string(r.bottom);
}

}  // namespace

TEST(CoreWithoutModule, GatedLogCostsOneReportAndErrorSequenceFour) {
    ASSERT_EQ(CLS_VelmorApi::GetInstance().m_hModule, nullptr) << "this suite must run first";
    StderrCapture err;
    core_log_msg("nothing %d", 1);
    EXPECT_EQ(err.Take(), Reports({"sdk_log_get_level"}));
    QUILLON_LOG_ERROR("Sample::Fail", 12, "load ffmpeg lib %s fail!", "x.dll");
    EXPECT_EQ(err.Take(),
              Reports({"sdk_log_buf_lock", "sdk_log_buf_date", "sdk_log_get_level", "sdk_err_buf_msg_unlock"}));
}

TEST(CoreWithoutModule, LoadFailsSilentlyWhenTheModuleIsAbsentAndReleaseReports) {
    StagedDir dir("no_velmor");
    HMODULE sdk = dir.Add("QuillonSDK.dll").Load("QuillonSDK.dll");
    ASSERT_NE(sdk, nullptr);
    CLS_VelmorApi api;
    StderrCapture err;
    EXPECT_EQ(api.LoadOSSDK("QuillonSDK.dll", nullptr, nullptr), -1);
    EXPECT_EQ(err.Take(), "");
    EXPECT_FALSE(api.ReleaseOSSDK());
    EXPECT_NE(err.Take().find(",ReleaseOSSDK"), std::string::npos);
    FreeLibrary(sdk);
}

TEST(LoadBesideModule, BoundedCopyRules) {
    char buf[16];
    EXPECT_STREQ(bounded_copy(buf, "abc", 5), "abc");
    EXPECT_STREQ(bounded_copy(buf, "abcd", 5), "abcd");
    EXPECT_STREQ(bounded_copy(buf, "abcdefgh", 5), "abcd");
    EXPECT_STREQ(bounded_copy(buf, "abcdefgh", 0), "abcdefgh");
    EXPECT_STREQ(bounded_copy(buf, "abcdefghi", -3), "abcdefghi");
}

TEST(LoadBesideModule, PathIsTheLowerCasedDirectoryPlusTheFileNameInItsOwnCase) {
    StagedDir dir("Beside\\Mixed.Case");
    HMODULE sdk = dir.Add("QuillonSDK.dll").Add(testkit::kRecordingVelmor, "Velmor.dll").Load("QuillonSDK.dll");
    ASSERT_NE(sdk, nullptr);
    char path[MAX_PATH];
    ASSERT_TRUE(build_path_beside_module("QuillonSDK.dll", "FFmpeg-7.DLL", nullptr, path));
    EXPECT_EQ(std::string(path), Lower(dir.Path()) + "FFmpeg-7.DLL");
    // With the library's handle the cut is after the last backslash.
    ASSERT_TRUE(build_path_beside_module("ignored.dll", "Velmor.dll", sdk, path));
    EXPECT_EQ(std::string(path), Lower(dir.Path()) + "Velmor.dll");
    for (bool altered : {false, true}) {
        HMODULE velmor = load_lib_beside_module("QuillonSDK.dll", "Velmor.dll", nullptr, altered);
        ASSERT_NE(velmor, nullptr);
        EXPECT_EQ(Lower(testkit::ModulePath(velmor)), Lower(dir.Path() + "Velmor.dll"));
        FreeLibrary(velmor);
    }
    EXPECT_EQ(load_lib_beside_module("QuillonSDK.dll", "absent.dll", nullptr, false), nullptr);
    // A file name longer than the buffer is cut to it.
    const std::string longName(400, 'n');
    ASSERT_TRUE(build_path_beside_module("QuillonSDK.dll", longName.c_str(), nullptr, path));
    EXPECT_EQ(std::string(path), Lower(dir.Path()) + std::string(MAX_PATH - 2 - dir.Path().size(), 'n'));
    FreeLibrary(sdk);

    // Unknown library: GetModuleHandleA fails, the path is the executable's, the search finds nothing.
    EXPECT_FALSE(build_path_beside_module("NotLoaded.dll", "Velmor.dll", nullptr, path));
    EXPECT_EQ(load_lib_beside_module("NotLoaded.dll", "Velmor.dll", nullptr, false), nullptr);
    EXPECT_EQ(load_lib_beside_module(nullptr, "Velmor.dll", nullptr, false), nullptr);
}

TEST(LoadBesideModule, DirectoryNamedLikeTheLibraryCutsThePathThere) {
    StagedDir outer("pathcut");
    outer.Add(testkit::kRecordingVelmor, "Velmor.dll");
    HMODULE sdk = StagedDir("pathcut\\QuillonSDK.dll.d").Add("QuillonSDK.dll").Load("QuillonSDK.dll");
    ASSERT_NE(sdk, nullptr);
    char path[MAX_PATH];
    ASSERT_TRUE(build_path_beside_module("QuillonSDK.dll", "Velmor.dll", nullptr, path));
    EXPECT_EQ(std::string(path), Lower(outer.Path()) + "Velmor.dll");
    FreeLibrary(sdk);
}

class CoreLog : public testkit::RecordingTest {
protected:
    static void SetUpTestSuite() {
        ASSERT_NE(Stage("core_log", "").module, nullptr);
        ASSERT_EQ(CLS_VelmorApi::GetInstance().LoadOSSDK("QuillonSDK.dll", nullptr, nullptr), 0);
    }
};

TEST_F(CoreLog, SecondLoadKeepsTheModuleAndLevelGate) {
    CLS_VelmorApi& api = CLS_VelmorApi::GetInstance();
    const HMODULE before = api.m_hModule;
    EXPECT_EQ(api.LoadOSSDK("QuillonSDK.dll", nullptr, nullptr), 0);
    EXPECT_EQ(api.m_hModule, before);
    const struct { int first, second; bool msg, debug; } cases[] = {
        {0, 0, false, false},   {0, 300, true, true},    {200, 0, true, false},  {250, 0, true, false},
        {-1, -5, false, false}, {-200, 300, true, true}, {199, 0, false, false},
    };
    for (const auto& c : cases) {
        testkit::SetVelmorLevels(c.first, c.second);
        TakeVelmorCalls();
        core_log_msg("m %d", 1);
        core_log_debug("d %d", 2);
        Calls expected = {"sdk_log_get_level"};
        if (c.msg) expected.push_back("sdk_log_msg(m 1)");
        expected.push_back("sdk_log_get_level");
        if (c.debug) expected.push_back("sdk_log_debug(d 2)");
        EXPECT_EQ(TakeVelmorCalls(), expected) << "levels " << c.first << "," << c.second;
        EXPECT_EQ(core_log_enabled(LOG_LEVEL_MSG), c.msg);
        EXPECT_EQ(core_log_enabled(LOG_LEVEL_DEBUG), c.debug);
    }
}

static int CheckedEqual(const void* p) {
    CHECK_EQUAL_RETURN(p, nullptr, -101, "Sample::CheckedEqual", 26);
    return 0;
}

static int CheckedUnequal(int ready) {
    CHECK_UNEQUAL_RETURN(ready, 1, -200, "Sample::CheckedUnequal", 72);
    return 0;
}

TEST_F(CoreLog, ErrorLogSequenceAndTheChecks) {
    QUILLON_LOG_ERROR("CLS_Sample::Method", 151, "load ffmpeg lib %s fail!", "ffmpeg-7.dll");
    EXPECT_EQ(TakeVelmorCalls(),
              testkit::ErrorRecord(kThisFile, "CLS_Sample::Method", 151, "load ffmpeg lib ffmpeg-7.dll fail!"));
    int x = 0;
    EXPECT_EQ(CheckedEqual(&x), 0);
    EXPECT_EQ(CheckedUnequal(1), 0);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    EXPECT_EQ(CheckedEqual(nullptr), -101);
    EXPECT_EQ(CheckedUnequal(0), -200);
    EXPECT_EQ(TakeVelmorCalls(),
              testkit::ErrorRecord(kThisFile, "Sample::CheckedEqual", 26, "CHECK_EQUAL_RETURN") +
                  testkit::ErrorRecord(kThisFile, "Sample::CheckedUnequal", 72, "CHECK_UNEQUAL_RETURN"));

    // Levels (0, 0) drop only the position line.
    testkit::SetVelmorLevels(0, 0);
    QUILLON_LOG_ERROR("CLS_Sample::Method", 152, "still %s", "here");
    EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_buf_lock", "sdk_log_buf_date", "sdk_log_get_level",
                                        "sdk_err_buf_msg_unlock(still here)"}));
}

TEST_F(CoreLog, TextIsFormattedOnceAndCutAt4094Characters) {
    core_log_msg("%s", "100%d %s literal");
    EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_get_level", "sdk_log_msg(100%d %s literal)"}));
    const std::string kept(4094, 'x');
    core_err_buf_msg_unlock("%s%s", kept.c_str(), "cut");
    core_log_msg("%s%s", kept.c_str(), "tail");
    EXPECT_EQ(TakeVelmorCalls(),
              (Calls{"sdk_err_buf_msg_unlock(" + kept + ")", "sdk_log_get_level", "sdk_log_msg(" + kept + ")"}));
}

TEST_F(CoreLog, PublicLayerForwardsToTheModule) {
    core_log_buf_msg_always("always %d", 3);
    core_log_buf_msg_unlock("u");
    EXPECT_EQ(core_log_buf_quit_unlock("q"), 0);
    core_err_buf_quit_unlock("e");
    core_log_level_err(7, "err %d", 7);
    core_log_level_msg(200, "lm");
    core_log_level_debug(300, "ld");  // gate at 300 is closed with (200, 0)
    EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_buf_msg(always 3)", "sdk_log_buf_msg_unlock(u)",
                                        "sdk_log_buf_quit_unlock(q)", "sdk_err_buf_quit_unlock(e)", "log_err[7](err 7)",
                                        "sdk_log_get_level", "log_msg[200](lm)", "sdk_log_get_level"}));
    testkit::SetVelmorLevels(200, 300);
    core_log_level_debug(300, "ld");
    EXPECT_EQ(TakeVelmorCalls(), (Calls{"sdk_log_get_level", "log_debug[300](ld)"}));

    // An operation the module lacks: one report, the failure value.
    StderrCapture err;
    EXPECT_EQ(core_mutex_lock(nullptr), 0);
    EXPECT_EQ(core_pap_uninit(nullptr), -1);
    EXPECT_EQ(err.Take(), Reports({"sdk_mutex_lock", "pap_uninit"}));
}

TEST_F(CoreLog, IsEqualRectSizeComparesPositionsAndReportsTheFirstDifference) {
    EXPECT_EQ(IsEqualRectSize(RECT{1, 2, 3, 4}, RECT{1, 2, 3, 4}), 1);
    EXPECT_EQ(TakeVelmorCalls(), Calls{});
    const struct { RECT other; int line; } cases[] = {
        {{10, 0, 110, 50}, 57}, {{0, 5, 100, 55}, 58}, {{0, 0, 101, 50}, 59}, {{0, 0, 100, 49}, 60}};
    for (const auto& c : cases) {
        EXPECT_EQ(IsEqualRectSize(RECT{0, 0, 100, 50}, c.other), 0);
        EXPECT_EQ(TakeVelmorCalls(), testkit::ErrorRecord("common/QuillonCommonFun.cpp", "IsEqualRectSize", c.line,
                                                          "CHECK_UNEQUAL_RETURN"));
    }
}

TEST(RectHelpers, ZeroEvenAndAspect) {
    EXPECT_EQ(IsRectZero(RECT{0, 0, 0, 0}), 1);
    EXPECT_EQ(IsRectZero(RECT{0, 0, 0, 1}), 0);
    EXPECT_EQ(IsRectZero(RECT{-1, 0, 0, 0}), 0);
    EXPECT_EQ(Str(MakeRectEven(RECT{1, 3, 1281, 721})), "0,2,1280,720");
    EXPECT_EQ(Str(MakeRectEven(RECT{5, -3, -4, 7})), "4,-2,-4,6");

    const struct { RECT r; int w, h; const char* expected; } cases[] = {
        {{0, 0, 1920, 1080}, 4, 3, "240,0,1680,1080"},  {{0, 0, 1920, 1080}, 16, 9, "0,0,1920,1080"},
        {{0, 0, 1920, 1080}, 9, 16, "656,0,1264,1080"}, {{0, 0, 1920, 1080}, 21, 9, "0,129,1920,951"},
        {{10, 20, 110, 420}, 9, 16, "10,131,110,309"},  // narrower than the aspect: letterbox
    };
    for (auto c : cases) {
        EXPECT_EQ(FitRectToAspect(&c.r, c.w, c.h), 0);
        EXPECT_EQ(Str(c.r), c.expected) << c.w << ":" << c.h;
    }
    EXPECT_EQ(FitRectToAspect(nullptr, 4, 3), -1);
}
