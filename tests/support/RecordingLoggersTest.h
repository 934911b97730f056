#pragma once
// A test fixture for code that obtains its loggers through GetLogger in a test executable that
// links nwx_test_logging: every test starts and ends with no loggers recorded.

#include <gtest/gtest.h>

#include <string>

#include "RecordingLog.h"

class RecordingLoggersTest : public ::testing::Test {
protected:
    void SetUp() override { TestLoggers::Reset(); }
    void TearDown() override { TestLoggers::Reset(); }

    // The latest live logger handed out under `name`; fails the test when there is none.
    static RecordingLog& LatestLog(const std::wstring& name) {
        RecordingLog* log = TestLoggers::Find(name);
        EXPECT_NE(log, nullptr) << "no logger named " << std::string(name.begin(), name.end());
        return *log;
    }
};
