// Logging gates, default sink, the inverted generic form and the file sink.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>

#include "log.h"
#include "test_core_util.h"

using kxtest::LogCapture;

TEST(CoreLog, DefaultSinkPassesErrorsOnlyToStderr) {
    testing::internal::CaptureStderr();
    kx_log_debug("debug %d\n", 1);
    kx_log_info("info\n");
    kx_log_warn("warn\n");
    kx_log_error("error %s", "x");
    EXPECT_EQ("error x", testing::internal::GetCapturedStderr());

    kx_set_log_call_back(nullptr, 1);  // default sink, threshold info
    testing::internal::CaptureStderr();
    kx_log_debug("d");
    kx_log_info("i");
    kx_log_warn("w");
    kx_log_error("e");
    EXPECT_EQ("iwe", testing::internal::GetCapturedStderr());
}

TEST(CoreLog, GatesAndInvertedGenericForm) {
    struct Case {
        int threshold;
        const char* expected;
    } cases[] = {{0, "DIWE"}, {1, "IWE"}, {2, "WE"}, {3, "E"}, {4, ""}};
    for (const Case& c : cases) {
        LogCapture::install(c.threshold);
        kx_log_debug("D");
        kx_log_info("I");
        kx_log_warn("W");
        kx_log_error("E");
        std::string got;
        for (auto& line : LogCapture::all()) got += line;
        EXPECT_EQ(c.expected, got) << c.threshold;
    }
    // kx_log passes when the level is below the threshold.
    LogCapture::install(2);
    kx_log(LOG_LEVEL_INFO, "below");
    kx_log(LOG_LEVEL_WARN, "equal");
    kx_log(LOG_LEVEL_ERROR, "above");
    EXPECT_EQ(std::vector<std::string>{"below"}, LogCapture::all());
}

TEST(CoreLog, TimeStampFormat) {
    EXPECT_TRUE(std::regex_match(std::string(kx_get_cur_time()),
                                 std::regex(R"(\d{4}-\d{2}-\d{2} \d{2}_\d{2}_\d{2})")));
}

TEST(CoreLog, FileSinkStampsEveryLevelAndCutsLongMessages) {
    char path[] = "/tmp/kx_core_log_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    kx_set_log_save(path);
    kx_log_debug("debug %d\n", 7);
    kx_log_error("no newline");
    kx_log_info("%s", std::string(3000, 'z').c_str());
    testing::internal::CaptureStderr();
    custom_api_log(nullptr, nullptr);
    EXPECT_EQ("Error: message is a null pointer\n", testing::internal::GetCapturedStderr());

    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    std::string text = content.str();
    const std::string stamp = R"(\[\d{4}-\d{2}-\d{2} \d{2}_\d{2}_\d{2}\])";
    EXPECT_TRUE(std::regex_match(text, std::regex(stamp + " Begin API Testing\\.\n" + stamp + ": debug 7\n\n" + stamp +
                                                  ": no newline\n" + stamp + ": z{1023}\n")))
        << text;
    unlink(path);
}

TEST(CoreLog, UnopenableLogFileEndsTheProcess) {
    EXPECT_EXIT(kx_set_log_save("/nonexistent-dir/x.log"), testing::ExitedWithCode(1), "Failed to open log file");
}
