// The trace log: silent until switched on, exact in what it writes, and free while it is off.
#include "trace_log.h"

#include <gtest/gtest.h>
#include <string>

TEST(trace_log, names_its_place_and_evaluates_nothing_while_off)
{
    int evaluated = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(trace_log("%d", ++evaluated) + (trace_log)("raw %d", 1), 0);
    EXPECT_EQ(evaluated, 0);
    trace_enabled = 1;
    const int line = __LINE__ + 1;
    const int written = trace_log("part %s has 100%%", "%d");
    trace_log_open("left open");
    trace_enabled = 0;
    const std::string place = "[tests/trace_log_test.cpp ", rest = " TestBody] ";
    const std::string first = place + std::to_string(line) + rest + "part %d has 100%\n";
    EXPECT_EQ(written, static_cast<int>(first.size()));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              first + place + std::to_string(line + 1) + rest + "left open");
}
