// Our Velmor.dll writing real log files through the SDK's log layer.
#include <gtest/gtest.h>

#include <regex>
#include <vector>

#include "core/core_api.h"
#include "testkit/testkit.h"

namespace {

class VelmorFile : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        static testkit::StagedDir dir("velmor_file");
        dir.Add("QuillonSDK.dll").Add("Velmor.dll");
        dir.Write("Velmor.ini", "[log]\r\nlevel=250\r\ndebug_level=0\r\nfile=records.log\r\n");
        s_log = dir.Path() + "records.log";
        ASSERT_NE(dir.Load("QuillonSDK.dll"), nullptr);
        ASSERT_EQ(CLS_VelmorApi::GetInstance().LoadOSSDK("QuillonSDK.dll", nullptr, nullptr), 0);
    }
    // Lines written since the previous call.
    static std::vector<std::string> NewLines() {
        const std::string all = testkit::ReadFile(s_log);
        std::string fresh = all.substr(s_read);
        s_read = all.size();
        return testkit::SplitLines(fresh);
    }
    static inline std::string s_log;
    static inline size_t s_read = 0;
};

const std::string kDate = R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}\] )";

}  // namespace

TEST_F(VelmorFile, LevelsFromTheIniFileRecordsDatedAndPercentSignsLiteral) {
    int first = -7, second = -7;
    core_log_get_level(&first, &second);
    EXPECT_EQ(std::make_pair(first, second), std::make_pair(250, 0));
    NewLines();
    core_log_msg("%s", "keep 100%d %s as written");
    core_log_debug("dropped: debug is off");
    QUILLON_LOG_ERROR("CLS_Sample::Method", 37, "[QuillonStartup] already Startup!");
    const auto lines = NewLines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_TRUE(std::regex_match(lines[0], std::regex(kDate + R"(keep 100%d %s as written)"))) << lines[0];
    EXPECT_TRUE(std::regex_match(
        lines[1], std::regex(kDate + R"(file: tests/velmor/velmor_tests\.cpp, func:CLS_Sample::Method, line: 37 )"
                                     R"(\[QuillonStartup\] already Startup!)")))
        << lines[1];

    core_log_set_level(0, 300, 0);
    core_log_debug("debug %d", 300);
    core_log_set_level(200, 0, 0);
    const auto debug = NewLines();
    ASSERT_EQ(debug.size(), 1u);
    EXPECT_TRUE(std::regex_match(debug[0], std::regex(kDate + R"(\[debug\] debug 300)"))) << debug[0];
}
