#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "RecordingLog.h"
#include "common/OwnedLogger.h"

class OwnedLoggerTest : public ::testing::Test {
protected:
    void SetUp() override { TestLoggers::Reset(); }
    void TearDown() override { TestLoggers::Reset(); }
};

TEST_F(OwnedLoggerTest, AcquiresANamedLoggerAndFreesItOnDestruction) {
    {
        OwnedLogger logger = OwnedLogger::AcquireOrThrow(L"NetWorkerApiWrapper");
        ASSERT_NE(logger.Get(), nullptr);
        EXPECT_STREQ(logger.Get()->GetName(), L"NetWorkerApiWrapper");
        EXPECT_EQ(TestLoggers::LiveCount(), 1u);
    }
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(OwnedLoggerTest, RefusedLoggerThrowsTheStandardMessage) {
    TestLoggers::FailNames({L"NamedPipeConnection"});
    try {
        OwnedLogger::AcquireOrThrow(L"NamedPipeConnection");
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Failed to Initialize the logger.");
    }
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(OwnedLoggerTest, TryAcquireReportsRefusalAndKeepsNothing) {
    OwnedLogger logger = OwnedLogger::AcquireOrThrow(L"Before");
    TestLoggers::FailNames({L"CatalogHandler"});
    EXPECT_FALSE(logger.TryAcquire(L"CatalogHandler"));
    EXPECT_EQ(logger.Get(), nullptr);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
    EXPECT_TRUE(logger.TryAcquire(L"ExtractHandler"));
    EXPECT_STREQ(logger.Get()->GetName(), L"ExtractHandler");
}

TEST_F(OwnedLoggerTest, MovingTransfersOwnership) {
    OwnedLogger first = OwnedLogger::AcquireOrThrow(L"Moved");
    ILog* log = first.Get();
    OwnedLogger second(std::move(first));
    EXPECT_EQ(first.Get(), nullptr);
    EXPECT_EQ(second.Get(), log);
    OwnedLogger third;
    third = std::move(second);
    EXPECT_EQ(third.Get(), log);
    EXPECT_EQ(TestLoggers::LiveCount(), 1u);
}

TEST_F(OwnedLoggerTest, MoveAssignmentFreesTheLoggerItHeld) {
    OwnedLogger kept = OwnedLogger::AcquireOrThrow(L"Kept");
    OwnedLogger replaced = OwnedLogger::AcquireOrThrow(L"Replaced");
    replaced = std::move(kept);
    EXPECT_EQ(TestLoggers::LiveCount(), 1u);
    EXPECT_EQ(TestLoggers::Find(L"Replaced"), nullptr);
    EXPECT_STREQ(replaced.Get()->GetName(), L"Kept");
}

TEST_F(OwnedLoggerTest, ReleaseHandsTheLoggerBack) {
    ILog* log = nullptr;
    {
        OwnedLogger logger = OwnedLogger::AcquireOrThrow(L"Released");
        log = logger.Release();
    }
    EXPECT_EQ(TestLoggers::LiveCount(), 1u);
    FreeLogger(log);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(OwnedLoggerTest, LinesOfAFreedLoggerRemainInHistory) {
    {
        OwnedLogger logger = OwnedLogger::AcquireOrThrow(L"Historic");
        logger.Get()->Info(L"Historic::Run", L"value %d", 7);
    }
    EXPECT_EQ(TestLoggers::History(L"Historic"),
              (std::vector<LogLine>{{LogLevelInfo, L"Historic::Run", L"value 7"}}));
}
