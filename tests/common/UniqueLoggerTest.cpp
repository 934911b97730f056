#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "RecordingLog.h"
#include "common/UniqueLogger.h"

class UniqueLoggerTest : public ::testing::Test {
protected:
    void SetUp() override { TestLoggers::Reset(); }
    void TearDown() override { TestLoggers::Reset(); }
};

TEST_F(UniqueLoggerTest, AcquiresANamedLoggerAndFreesItOnDestruction) {
    {
        const UniqueLogger logger = AcquireLoggerOrThrow(L"NetWorkerApiWrapper");
        ASSERT_NE(logger.get(), nullptr);
        EXPECT_STREQ(logger.get()->GetName(), L"NetWorkerApiWrapper");
        EXPECT_EQ(TestLoggers::LiveCount(), 1u);
    }
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

namespace {

// A long-lived object's constructor gives up with this standard exception.
void ExpectAcquiringThrowsTheStandardMessage(const wchar_t* name) {
    try {
        AcquireLoggerOrThrow(name);
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Failed to Initialize the logger.");
    }
}

}  // namespace

TEST_F(UniqueLoggerTest, RefusedLoggerThrowsTheStandardMessage) {
    TestLoggers::FailNames({L"NamedPipeConnection"});
    ExpectAcquiringThrowsTheStandardMessage(L"NamedPipeConnection");
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(UniqueLoggerTest, TryAcquireReportsRefusalAndKeepsNothing) {
    TestLoggers::FailNames({L"CatalogHandler"});
    const UniqueLogger refused = TryAcquireLogger(L"CatalogHandler");
    EXPECT_FALSE(refused);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
    const UniqueLogger granted = TryAcquireLogger(L"ExtractHandler");
    ASSERT_TRUE(granted);
    EXPECT_STREQ(granted.get()->GetName(), L"ExtractHandler");
}

TEST_F(UniqueLoggerTest, NullLoggerReportedAsSuccessCountsAsRefused) {
    TestLoggers::NullNames({L"CatalogHandler", L"NamedPipeConnection"});
    const UniqueLogger handlerLog = TryAcquireLogger(L"CatalogHandler");
    EXPECT_FALSE(handlerLog);
    ExpectAcquiringThrowsTheStandardMessage(L"NamedPipeConnection");
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(UniqueLoggerTest, MovingTransfersOwnership) {
    UniqueLogger first = AcquireLoggerOrThrow(L"Moved");
    ILog* log = first.get();
    UniqueLogger second(std::move(first));
    EXPECT_EQ(first.get(), nullptr);
    EXPECT_EQ(second.get(), log);
    UniqueLogger third;
    third = std::move(second);
    EXPECT_EQ(third.get(), log);
    EXPECT_EQ(TestLoggers::LiveCount(), 1u);
}

TEST_F(UniqueLoggerTest, MoveAssignmentFreesTheLoggerItHeld) {
    UniqueLogger kept = AcquireLoggerOrThrow(L"Kept");
    UniqueLogger replaced = AcquireLoggerOrThrow(L"Replaced");
    replaced = std::move(kept);
    EXPECT_EQ(TestLoggers::LiveCount(), 1u);
    EXPECT_EQ(TestLoggers::Find(L"Replaced"), nullptr);
    EXPECT_STREQ(replaced.get()->GetName(), L"Kept");
}

TEST_F(UniqueLoggerTest, ReleaseHandsTheLoggerBack) {
    ILog* log = nullptr;
    {
        UniqueLogger logger = AcquireLoggerOrThrow(L"Released");
        log = logger.release();
    }
    EXPECT_EQ(TestLoggers::LiveCount(), 1u);
    FreeLogger(log);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(UniqueLoggerTest, LinesOfAFreedLoggerRemainInHistory) {
    {
        const UniqueLogger logger = AcquireLoggerOrThrow(L"Historic");
        logger.get()->Info(L"Historic::Run", L"value %d", 7);
    }
    EXPECT_EQ(TestLoggers::History(L"Historic"),
              (std::vector<LogLine>{{LogLevelInfo, L"Historic::Run", L"value 7"}}));
}
