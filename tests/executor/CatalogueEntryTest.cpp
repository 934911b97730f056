#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "RecordingLog.h"
#include "executor/CatalogueEntry.h"

namespace {

// Fails the allocation with the given number (1-based); counts every allocation.
class FailingMemory : public CatalogueMemory {
public:
    explicit FailingMemory(int failAt) : m_failAt(failAt) {}
    char* AllocateString(size_t bytes) override {
        ++m_allocations;
        if (m_allocations == m_failAt) {
            throw std::bad_alloc();
        }
        m_sizes.push_back(bytes);
        return CatalogueMemory::AllocateString(bytes);
    }
    void FreeString(char* text) override {
        ++m_frees;
        CatalogueMemory::FreeString(text);
    }
    int m_failAt;
    int m_allocations = 0;
    int m_frees = 0;
    std::vector<size_t> m_sizes;
};

BSA_ObjectDescriptor SampleDescriptor() {
    BSA_ObjectDescriptor descriptor{};
    descriptor.version = 7;
    std::strcpy(descriptor.Owner.bsa_ObjectOwner, "MSEXCH");
    std::strcpy(descriptor.objectName.objectSpaceName, "\\Microsoft Information Store");
    std::strcpy(descriptor.objectName.pathName, "\\First Storage Group\\priv1.edb");
    descriptor.createTime.tm_year = 126;
    descriptor.createTime.tm_mon = 10;
    descriptor.createTime.tm_mday = 21;
    descriptor.createTime.tm_hour = 3;
    descriptor.copyType = BSA_CopyType_BACKUP;
    descriptor.copyId = BSA_UInt64{1, 2};
    descriptor.restoreOrder = BSA_UInt64{3, 4};
    std::strcpy(descriptor.lGName, "lg");
    std::strcpy(descriptor.cGName, "cg");
    descriptor.size = BSA_UInt64{1, 705032704};
    std::strcpy(descriptor.resourceType, "D");
    descriptor.objectType = BSA_ObjectType_FILE;
    descriptor.objectStatus = BSA_ObjectStatus_MOST_RECENT;
    std::memset(descriptor.reservedByStandard, 'r', sizeof descriptor.reservedByStandard);
    std::strcpy(descriptor.objectDescription, "Exchange database");
    std::strcpy(descriptor.objectInfo, "info text");
    return descriptor;
}

}  // namespace

TEST(CatalogueEntryTest, CompactEnoughForLargeCatalogues) {
    EXPECT_LT(sizeof(CatalogueEntry), 600u);
}

TEST(CatalogueEntryTest, RoundTripRestoresEveryFieldButOwner) {
    RecordingLog log(L"NetWorkerApiExecutor");
    FailingMemory memory(0);
    const BSA_ObjectDescriptor original = SampleDescriptor();
    CatalogueEntry entry{};
    ASSERT_EQ(1, LoadSmVecObjects(&log, memory, original, &entry));
    // Exactly sized strings: length plus terminator.
    EXPECT_EQ((std::vector<size_t>{std::strlen(original.objectName.objectSpaceName) + 1,
                                   std::strlen(original.objectName.pathName) + 1,
                                   std::strlen(original.objectInfo) + 1}),
              memory.m_sizes);

    BSA_ObjectDescriptor restored{};
    std::strcpy(restored.Owner.bsa_ObjectOwner, "caller");
    LoadLrgVecObjects(&log, entry, &restored);
    BSA_ObjectDescriptor expected = original;
    expected.Owner = restored.Owner;
    EXPECT_EQ(0, std::memcmp(&expected, &restored, sizeof expected));
    EXPECT_STREQ("caller", restored.Owner.bsa_ObjectOwner);

    CatalogueEntries entries;
    entries.reserve(1);
    entries.push_back(entry);
    EXPECT_EQ(1, ClearM_smVecObjects(&log, memory, entries));
    EXPECT_EQ(3, memory.m_frees);
    EXPECT_EQ(1u, entries.size());
    EXPECT_EQ(nullptr, entries[0].pathName);
    // A second clear finds the strings missing.
    EXPECT_EQ(0, ClearM_smVecObjects(&log, memory, entries));

    const std::vector<LogLine> expectedLines = {
        {LogLevelTrace, L"NetWorkerApiExecutor::LoadSmVecObjects", L"Method Start"},
        {LogLevelTrace, L"NetWorkerApiExecutor::LoadSmVecObjects", L"Method End"},
        {LogLevelTrace, L"NetWorkerApiExecutor::LoadLrgVecObjects", L"Method Start"},
        {LogLevelTrace, L"NetWorkerApiExecutor::LoadLrgVecObjects", L"Method End"},
        {LogLevelTrace, L"NetWorkerApiExecutor::ClearM_smVecObjects", L"Method Start"},
        {LogLevelTrace, L"NetWorkerApiExecutor::ClearM_smVecObjects", L"Method End"},
        {LogLevelTrace, L"NetWorkerApiExecutor::ClearM_smVecObjects", L"Method Start"},
        {LogLevelTrace, L"NetWorkerApiExecutor::ClearM_smVecObjects", L"Method End"},
    };
    EXPECT_EQ(expectedLines, log.Lines());
}

TEST(CatalogueEntryTest, UnterminatedTextsSurviveTheRoundTrip) {
    BSA_ObjectDescriptor original = SampleDescriptor();
    std::memset(original.objectName.pathName, 'p', sizeof original.objectName.pathName);
    std::memset(original.objectInfo, 'i', sizeof original.objectInfo);
    CatalogueEntry entry{};
    ASSERT_EQ(1, LoadSmVecObjects(nullptr, DefaultCatalogueMemory(), original, &entry));
    EXPECT_EQ(sizeof original.objectName.pathName, std::strlen(entry.pathName));
    EXPECT_EQ(256u, std::strlen(entry.objectInfo));
    BSA_ObjectDescriptor restored{};
    LoadLrgVecObjects(nullptr, entry, &restored);
    EXPECT_EQ(0, std::memcmp(original.objectName.pathName, restored.objectName.pathName,
                             sizeof original.objectName.pathName));
    EXPECT_EQ(0, std::memcmp(original.objectInfo, restored.objectInfo, sizeof original.objectInfo));
    CatalogueEntries entries;
    entries.reserve(1);
    entries.push_back(entry);
    ClearM_smVecObjects(nullptr, DefaultCatalogueMemory(), entries);
}

TEST(CatalogueEntryTest, EachFailedAllocationReturnsZeroAndKeepsNothing) {
    for (int failAt = 1; failAt <= 3; ++failAt) {
        RecordingLog log(L"NetWorkerApiExecutor");
        FailingMemory memory(failAt);
        CatalogueEntry entry{};
        EXPECT_EQ(0, LoadSmVecObjects(&log, memory, SampleDescriptor(), &entry)) << failAt;
        EXPECT_EQ(failAt, memory.m_allocations);
        EXPECT_EQ(failAt - 1, memory.m_frees) << "strings allocated before the failure";
        EXPECT_EQ(nullptr, entry.pathName);
        const std::vector<LogLine> expectedLines = {
            {LogLevelTrace, L"NetWorkerApiExecutor::LoadSmVecObjects", L"Method Start"},
            {LogLevelTrace, L"NetWorkerApiExecutor::LoadSmVecObjects", L"Method End"},
        };
        EXPECT_EQ(expectedLines, log.Lines());
    }
}

TEST(CatalogueEntriesTest, ReserveGrowsInWholeBlocks) {
    CatalogueEntries entries;
    EXPECT_EQ(0u, entries.capacity());
    DefaultCatalogueMemory().Reserve(entries, 10240);
    EXPECT_EQ(10240u, entries.capacity());
    entries.reserve(10241);
    EXPECT_EQ(20480u, entries.capacity());
    entries.reserve(5);
    EXPECT_EQ(20480u, entries.capacity()) << "never shrinks";
    EXPECT_TRUE(entries.empty());
}

TEST(CatalogueEntriesTest, EntriesKeepTheirPlaceAcrossGrowthAndIndexAcrossBlocks) {
    CatalogueEntries entries;
    entries.reserve(10240);
    CatalogueEntry entry{};
    for (uint32_t i = 0; i < 10240; ++i) {
        entry.version = i;
        entries.push_back(entry);
    }
    const CatalogueEntry* first = &entries[0];
    entries.reserve(20480);
    EXPECT_EQ(first, &entries[0]);
    entry.version = 10240;
    entries.push_back(entry);
    EXPECT_EQ(10241u, entries.size());
    EXPECT_EQ(10240u, entries[10240].version);
    EXPECT_EQ(10239u, entries[10239].version);
    EXPECT_EQ(10240u, entries.back().version);
}

TEST(CatalogueEntriesTest, PushWithoutRoomIsRefusedAndClearKeepsTheRoom) {
    CatalogueEntries entries;
    EXPECT_THROW(entries.push_back(CatalogueEntry{}), std::length_error);
    entries.reserve(1);
    entries.push_back(CatalogueEntry{});
    entries.clear();
    EXPECT_EQ(0u, entries.size());
    EXPECT_EQ(10240u, entries.capacity());
}

TEST(CatalogueStringPoolTest, StringsAreDistinctAndChunksAreShared) {
    CatalogueStringPool pool;
    std::vector<char*> texts;
    for (int i = 0; i < 10000; ++i) {
        char* text = pool.AllocateString(20);
        std::memset(text, 'a' + i % 26, 19);
        text[19] = '\0';
        texts.push_back(text);
    }
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(std::string(19, static_cast<char>('a' + i % 26)), texts[i]) << i;
    }
    // 200,000 bytes in 64 KiB chunks.
    EXPECT_EQ(4u, pool.ChunkCount());
    char* large = pool.AllocateString(100000);
    std::memset(large, 'x', 100000);
    EXPECT_EQ(5u, pool.ChunkCount());
    char* small = pool.AllocateString(10);
    EXPECT_EQ(5u, pool.ChunkCount()) << "the current chunk goes on after a large string";
    EXPECT_EQ(texts.back() + 20, small);
    pool.FreeString(small);
}

TEST(CatalogueStringPoolTest, EntriesRoundTripThroughThePool) {
    CatalogueStringPool pool;
    CatalogueEntry entry{};
    ASSERT_EQ(1, LoadSmVecObjects(nullptr, pool, SampleDescriptor(), &entry));
    EXPECT_STREQ("\\First Storage Group\\priv1.edb", entry.pathName);
    CatalogueEntries entries;
    entries.reserve(1);
    entries.push_back(entry);
    EXPECT_EQ(1, ClearM_smVecObjects(nullptr, pool, entries));
    EXPECT_EQ(nullptr, entries[0].pathName);
}
