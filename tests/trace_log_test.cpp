// The trace log: silent until switched on, exact in what it writes, and free while it is off.
#include "trace_log.h"

#include <gtest/gtest.h>
#include <string>

namespace {

TEST(trace_log, evaluates_and_writes_nothing_while_off)
{
    int evaluated = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(trace_log("%d", ++evaluated), 0);
    EXPECT_EQ((trace_log)("raw %d", 1), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(evaluated, 0);
}

TEST(trace_log, prefixes_module_line_and_function)
{
    trace_enabled = 1;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int line = __LINE__ + 1;
    const int written = trace_log("part %s has 100%%", "%d");
    trace_log_open("left open");
    const std::string text = testing::internal::GetCapturedStderr();
    trace_enabled = 0;

    const std::string where = "[tests/trace_log_test.cpp " + std::to_string(line) + " TestBody] ";
    const std::string first = where + "part %d has 100%\n";
    EXPECT_EQ(written, static_cast<int>(first.size()));
    EXPECT_EQ(text, first + "[tests/trace_log_test.cpp " + std::to_string(line + 1) + " TestBody] left open");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

} // namespace
