#include "RestoreSchedule.h"

#include "CommandLine.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

namespace {

CatalogueRow Row(uint32_t index, const wchar_t* path) {
    CatalogueRow row;
    row.index = index;
    row.path = path;
    return row;
}

}  // namespace

TEST(LargestFirst, BiggestFilesFirstAndTheSameSizeInThePlansOrder) {
    // Plan order is restore order; a database of 300 MB and two logs of 1 MiB.
    EXPECT_EQ(LargestFirst({1048576, 300000000, 8192, 1048576, 300000000}),
              (std::vector<size_t>{1, 4, 0, 3, 2}));
    EXPECT_TRUE(LargestFirst({}).empty());
}

TEST(CatalogueDifference, TheSameFilesAtTheSameIndexesMatch) {
    const std::vector<CatalogueRow> first = {Row(0, L"/SG/a.edb"), Row(1, L"/SG/b.log")};
    EXPECT_EQ(CatalogueDifference(first, first), L"");
    EXPECT_EQ(CatalogueDifference(first, {Row(0, L"/SG/a.edb")}),
              L"it lists 1 files, the first session 2");
    EXPECT_EQ(CatalogueDifference(first, {Row(0, L"/SG/a.edb"), Row(1, L"/SG/c.log")}),
              L"index 1 is /SG/c.log there, /SG/b.log for the first session");
}

TEST(FileQueue, EveryPositionIsHandedOutOnceAcrossThreads) {
    std::vector<size_t> order(1000);
    for (size_t i = 0; i < order.size(); ++i) {
        order[i] = order.size() - 1 - i;
    }
    FileQueue queue(order);
    std::vector<std::vector<size_t>> taken(4);
    std::vector<std::thread> sessions;
    for (auto& mine : taken) {
        sessions.emplace_back([&queue, &mine] {
            size_t position = 0;
            while (queue.Next(&position)) {
                mine.push_back(position);
                queue.Finished();
            }
        });
    }
    for (std::thread& session : sessions) {
        session.join();
    }
    std::multiset<size_t> all;
    for (const auto& mine : taken) {
        // Each session takes them in the queue's order.
        for (size_t i = 1; i < mine.size(); ++i) {
            EXPECT_GT(mine[i - 1], mine[i]);
        }
        all.insert(mine.begin(), mine.end());
    }
    EXPECT_EQ(all.size(), order.size());
    EXPECT_EQ(std::set<size_t>(all.begin(), all.end()).size(), order.size());
}

TEST(FileQueue, AFileGivenBackGoesToTheNextSessionBeforeTheRest) {
    FileQueue queue({4, 7, 2});
    size_t first = 0;
    ASSERT_TRUE(queue.Next(&first));
    EXPECT_EQ(first, 4u);
    queue.GiveBack(first);
    size_t position = 0;
    std::vector<size_t> taken;
    while (queue.Next(&position)) {
        taken.push_back(position);
        queue.Finished();
    }
    EXPECT_EQ(taken, (std::vector<size_t>{4, 7, 2}));
}

TEST(FileQueue, AnEmptyQueueWaitsForTheFileInFlightToComeBack) {
    FileQueue queue({3});
    size_t inFlight = 0;
    ASSERT_TRUE(queue.Next(&inFlight));
    // The other session asks while the only file is still taken: it may come back, so the
    // answer waits for it rather than "nothing left".
    bool got = false;
    size_t position = 99;
    std::thread other([&] {
        got = queue.Next(&position);
        if (got) {
            queue.Finished();
        }
    });
    queue.GiveBack(inFlight);
    other.join();
    EXPECT_TRUE(got);
    EXPECT_EQ(position, 3u);
    EXPECT_FALSE(queue.Next(&position));
}

TEST(FileQueue, AnEmptyQueueEndsOnceTheFileInFlightIsFinished) {
    FileQueue queue({5});
    size_t inFlight = 0;
    ASSERT_TRUE(queue.Next(&inFlight));
    bool got = true;
    std::thread other([&] {
        size_t position = 0;
        got = queue.Next(&position);
    });
    queue.Finished();
    other.join();
    EXPECT_FALSE(got);
}

TEST(RestoreExitCode, CancelledThenEverySessionLostThenAnyLossOrFailure) {
    FileOutcome restored;
    restored.result = FileResult::Restored;
    FileOutcome failed;
    failed.result = FileResult::Failed;
    FileOutcome notDone;
    const std::vector<FileOutcome> allRestored = {restored, restored};
    const std::vector<FileOutcome> oneFailed = {restored, failed};
    EXPECT_EQ(RestoreExitCode(allRestored, 4, 0, false), ExitOk);
    EXPECT_EQ(RestoreExitCode(oneFailed, 4, 0, false), ExitFilesFailed);
    // A lost session fails the run even when the others restored everything.
    EXPECT_EQ(RestoreExitCode(allRestored, 4, 1, false), ExitFilesFailed);
    EXPECT_EQ(RestoreExitCode(oneFailed, 4, 3, false), ExitFilesFailed);
    // Every session lost: a session failure, even with every file restored before.
    EXPECT_EQ(RestoreExitCode(allRestored, 1, 1, false), ExitNetWorker);
    EXPECT_EQ(RestoreExitCode({restored, notDone}, 4, 4, false), ExitNetWorker);
    EXPECT_EQ(RestoreExitCode({notDone, notDone}, 4, 4, true), ExitCancelled);
    EXPECT_EQ(RestoreExitCode(oneFailed, 2, 1, true), ExitCancelled);
}

TEST(InFlightLabel, OneFileAsItIsSeveralByName) {
    EXPECT_EQ(InFlightLabel({L"/First Storage Group/E00.chk"}), L"/First Storage Group/E00.chk");
    EXPECT_EQ(InFlightLabel({L"/SG/a.edb", L"/SG/b.stm", L"c.log"}),
              L"3 files: a.edb, b.stm, c.log");
    EXPECT_EQ(InFlightLabel({}), L"0 files:");
}
