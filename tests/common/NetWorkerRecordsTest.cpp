// The callback records cross the host's binary interface and the pipe: their layout is fixed.

#include <gtest/gtest.h>

#include <cstddef>

#include "interfaces/NetWorkerRecords.h"
#include "interfaces/WinTypes.h"

TEST(NetWorkerRecords, FileInfoLayout) {
    EXPECT_EQ(offsetof(NetWorkerFileInfo, index), 0u);
    EXPECT_EQ(offsetof(NetWorkerFileInfo, backupTime), 4u);
    EXPECT_EQ(offsetof(NetWorkerFileInfo, path), 24u);
    EXPECT_EQ(offsetof(NetWorkerFileInfo, size), 32u);
    EXPECT_EQ(offsetof(NetWorkerFileInfo, restoreOrder), 40u);
    EXPECT_EQ(sizeof(NetWorkerFileInfo), 48u);
}

TEST(NetWorkerRecords, ProgressInfoLayout) {
    EXPECT_EQ(offsetof(NetWorkerProgressInfo, state), 0u);
    EXPECT_EQ(offsetof(NetWorkerProgressInfo, bytesDone), 4u);
    EXPECT_EQ(sizeof(NetWorkerProgressInfo), 8u);
}

TEST(NetWorkerRecords, AllocationInfoLayout) {
    EXPECT_EQ(offsetof(NetWorkerAllocationInfo, reason), 0u);
    EXPECT_EQ(offsetof(NetWorkerAllocationInfo, itemsFound), 4u);
    EXPECT_EQ(offsetof(NetWorkerAllocationInfo, catalogueSize), 8u);
    EXPECT_EQ(offsetof(NetWorkerAllocationInfo, catalogueCapacity), 16u);
    EXPECT_EQ(sizeof(NetWorkerAllocationInfo), 24u);
    EXPECT_EQ(AllocationReasonCatalogueGrowth, 0u);
    EXPECT_EQ(AllocationReasonEntryStrings, 4u);
}

TEST(NetWorkerRecords, SystemTimeFieldsInWindowsOrder) {
    EXPECT_EQ(offsetof(SYSTEMTIME, wYear), 0u);
    EXPECT_EQ(offsetof(SYSTEMTIME, wMonth), 2u);
    EXPECT_EQ(offsetof(SYSTEMTIME, wDayOfWeek), 4u);
    EXPECT_EQ(offsetof(SYSTEMTIME, wDay), 6u);
    EXPECT_EQ(offsetof(SYSTEMTIME, wHour), 8u);
    EXPECT_EQ(offsetof(SYSTEMTIME, wMinute), 10u);
    EXPECT_EQ(offsetof(SYSTEMTIME, wSecond), 12u);
    EXPECT_EQ(offsetof(SYSTEMTIME, wMilliseconds), 14u);
    EXPECT_EQ(offsetof(FILETIME, dwLowDateTime), 0u);
    EXPECT_EQ(offsetof(FILETIME, dwHighDateTime), 4u);
}
