#include <cstring>
#include <new>
#include <stdexcept>
#include <thread>

#include "ExecutorTestSupport.h"
#include "common/LastError.h"
#include "interfaces/NetWorkerStatus.h"

using LogTexts = std::vector<std::pair<LogLevel, std::wstring>>;

namespace {

std::wstring FoundLine(unsigned n, unsigned size, unsigned capacity) {
    return L"Found " + std::to_wstring(n) + L" items. m_smVecObjects  size = " +
           std::to_wstring(size) + L", capacity = " + std::to_wstring(capacity) + L".\n";
}

std::vector<std::string> Paths(const RecordingFileFound& found) {
    std::vector<std::string> paths;
    for (const FoundFile& file : found.files) {
        paths.push_back(file.path);
    }
    return paths;
}

// Fails string allocation number `failAt` (1-based) or every reservation after `failReserveAt`.
class ScriptedMemory : public CatalogueMemory {
public:
    char* AllocateString(size_t bytes) override {
        if (++allocations == failStringAt) {
            throw std::bad_alloc();
        }
        return CatalogueMemory::AllocateString(bytes);
    }
    void Reserve(CatalogueEntries& entries, size_t count) override {
        reservations.push_back(count);
        if (failReserveAt >= 0 && static_cast<int>(reservations.size()) > failReserveAt) {
            throw std::bad_alloc();
        }
        CatalogueMemory::Reserve(entries, count);
    }
    int allocations = 0;
    int failStringAt = -1;
    int failReserveAt = -1;
    std::vector<size_t> reservations;
};

class CatalogMemoryTest : public ExecutorTest {
protected:
    void SetUp() override {
        m_memory = &m_scripted;
        ExecutorTest::SetUp();
    }
    ScriptedMemory m_scripted;
};

}  // namespace

TEST_F(ExecutorTest, CatalogReportsAcceptedObjectsWithTheirRecords) {
    StartSession();
    m_wrapper.objects = {
        MakeDescriptor("\\First Storage Group\\priv1.edb", "D", 5000000000ULL, 2026, 11, 20, 23, 59,
                       58),
        MakeDescriptor("/Directory", "D"),
        MakeDescriptor("\\First Storage Group\\priv1.stm", "D", 77),
        MakeDescriptor("\\First Storage Group\\E0000001.log", "L", 1048576),
        MakeDescriptor("\\First Storage Group\\E00.chk", "L", 8192),
        MakeDescriptor("\\First Storage Group\\Private Mailboxes\\x.edb", "D"),
        MakeDescriptor("a.b", "D"),
        MakeDescriptor("\\First Storage Group\\notes.txt", "X"),
    };
    m_wrapper.objects[0].restoreOrder = BSA_UInt64{0x11, 0x22};
    ASSERT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));

    EXPECT_EQ((std::vector<std::string>{"BSABeginTxn", "BSAQueryObject", "BSAGetNextQueryObject",
                                        "BSAGetNextQueryObject", "BSAGetNextQueryObject",
                                        "BSAGetNextQueryObject", "BSAGetNextQueryObject",
                                        "BSAGetNextQueryObject", "BSAGetNextQueryObject",
                                        "BSAGetNextQueryObject", "BSAEndTxn"}),
              m_wrapper.calls);
    for (BSA_Handle handle : m_wrapper.handles) {
        EXPECT_EQ(m_wrapper.handleToGive, handle);
    }
    // The server filters by owner, copy type, object type and status only.
    BSA_QueryDescriptor expectedQuery{};
    std::strcpy(expectedQuery.owner.bsa_ObjectOwner, "MSEXCH");
    std::strcpy(expectedQuery.owner.app_ObjectOwner, "msexch");
    expectedQuery.copyType = BSA_CopyType_BACKUP;
    expectedQuery.objectType = BSA_ObjectType_FILE;
    expectedQuery.status = BSA_ObjectStatus_MOST_RECENT;
    EXPECT_EQ(0, std::memcmp(&expectedQuery, &m_wrapper.query, sizeof expectedQuery));

    ASSERT_EQ(4u, m_found.files.size());
    EXPECT_EQ((std::vector<std::string>{
                  "\\First Storage Group\\priv1.edb", "\\First Storage Group\\priv1.stm",
                  "\\First Storage Group\\E0000001.log", "\\First Storage Group\\E00.chk"}),
              Paths(m_found));
    const std::vector<uint64_t> sizes = {0, 0, 5242880, 8192};
    for (uint32_t i = 0; i < 4; ++i) {
        EXPECT_EQ(i, m_found.files[i].info.index);
        EXPECT_EQ(sizes[i], m_found.files[i].info.size) << i;
    }
    const SYSTEMTIME& time = m_found.files[0].info.backupTime;
    EXPECT_EQ(2026, time.wYear);
    EXPECT_EQ(11, time.wMonth);
    EXPECT_EQ(0, time.wDayOfWeek);
    EXPECT_EQ(20, time.wDay);
    EXPECT_EQ(23, time.wHour);
    EXPECT_EQ(59, time.wMinute);
    EXPECT_EQ(58, time.wSecond);
    EXPECT_EQ(0, time.wMilliseconds);
    EXPECT_EQ(0x0000001100000022ULL, m_found.files[0].info.restoreOrder);
    EXPECT_EQ(0x0000000700000009ULL, m_found.files[1].info.restoreOrder);
    // The path handed to the host lives in the catalogue and stays valid.
    EXPECT_STREQ("\\First Storage Group\\priv1.edb", m_found.files[0].info.path);

    EXPECT_TRUE(m_error.codes.empty());
    EXPECT_EQ((LogTexts{{LogLevelInfo, FoundLine(4, 4, 10240)}}), Lines());
    std::vector<std::wstring> expectedTraces = {L"NetWorkerApiExecutor::Catalog|Method Start"};
    for (int i = 0; i < 4; ++i) {
        expectedTraces.push_back(L"NetWorkerApiExecutor::LoadSmVecObjects|Method Start");
        expectedTraces.push_back(L"NetWorkerApiExecutor::LoadSmVecObjects|Method End");
        expectedTraces.push_back(L"NetWorkerApiExecutor::FireFileFoundEvent|Method Start");
        expectedTraces.push_back(L"NetWorkerApiExecutor::FireFileFoundEvent|Method End");
    }
    expectedTraces.push_back(L"NetWorkerApiExecutor::Catalog|Method End");
    EXPECT_EQ(expectedTraces, Traces());
}

TEST_F(ExecutorTest, CatalogWithoutFileFoundStillBuildsTheCatalogue) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\priv1.edb", "D", 123456)};
    ASSERT_EQ(0, m_executor->Catalog(nullptr, nullptr, nullptr, &m_error));
    uint64_t size = 99;
    EXPECT_EQ(0, m_executor->GetFileSize(0, false, &size));
    EXPECT_EQ(123456u, size);
    EXPECT_EQ(1u, m_executor->CatalogueSize());
}

TEST_F(ExecutorTest, CatalogTwiceIndexesFromZeroAndKeepsStorage) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\a.edb"), MakeDescriptor("\\sg\\b.edb")};
    m_executor->Catalog(nullptr, nullptr, &m_found, &m_error);
    const std::string firstPath = m_found.files[1].info.path;
    const char* firstPointer = m_found.files[1].info.path;
    m_found.files.clear();
    m_wrapper.objects = {MakeDescriptor("\\sg\\c.edb")};
    ClearLog();
    m_executor->Catalog(nullptr, nullptr, &m_found, &m_error);
    ASSERT_EQ(1u, m_found.files.size());
    EXPECT_EQ(0u, m_found.files[0].info.index);
    EXPECT_EQ("\\sg\\c.edb", m_found.files[0].path);
    EXPECT_EQ((LogTexts{{LogLevelInfo, FoundLine(1, 1, 10240)}}), Lines());
    // Paths handed out by the first catalogue stay readable.
    EXPECT_EQ(firstPath, std::string(firstPointer));
}

TEST_F(ExecutorTest, FileFoundTrueStopsAfterThatEntry) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\a.edb"), MakeDescriptor("\\sg\\b.edb"),
                         MakeDescriptor("\\sg\\c.edb")};
    m_found.answer = [](const NetWorkerFileInfo& info) { return info.index == 1; };
    ASSERT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
    EXPECT_EQ(2u, m_found.files.size());
    EXPECT_EQ((std::vector<std::string>{"BSABeginTxn", "BSAQueryObject", "BSAGetNextQueryObject",
                                        "BSAGetNextQueryObject", "BSAEndTxn"}),
              m_wrapper.calls);
    EXPECT_EQ((LogTexts{{LogLevelInfo, FoundLine(2, 2, 10240)}}), Lines());
    EXPECT_EQ(2u, m_executor->CatalogueSize());

    // The stop ended that catalogue only: the next one lists everything again.
    ClearLog();
    m_found.files.clear();
    m_found.answer = [](const NetWorkerFileInfo&) { return false; };
    m_executor->Catalog(nullptr, nullptr, &m_found, &m_error);
    EXPECT_EQ(3u, m_found.files.size());
    EXPECT_EQ(3u, m_executor->CatalogueSize());
}

TEST_F(ExecutorTest, QuitBetweenOperationsEndsTheNextCatalogueOnlyAndKeepsTheCatalogue) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\a.edb"), MakeDescriptor("\\sg\\b.edb")};
    ASSERT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
    ASSERT_EQ(2u, m_executor->CatalogueSize());
    EXPECT_EQ(0, m_executor->Quit());
    ClearLog();
    m_found.files.clear();
    m_executor->Catalog(nullptr, nullptr, &m_found, &m_error);
    EXPECT_TRUE(m_found.files.empty());
    EXPECT_EQ(L"User Canceled the extraction process", Lines().at(0).second);
    // Ended before its query: the previous catalogue stays, its indexes valid.
    EXPECT_EQ(2u, m_executor->CatalogueSize());
    // The Quit was spent on that catalogue.
    m_executor->Catalog(nullptr, nullptr, &m_found, &m_error);
    EXPECT_EQ(2u, m_found.files.size());
}

TEST_F(ExecutorTest, QuitInsideFileFoundIsLostWhenTheHostAnswersFalse) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\a.edb"), MakeDescriptor("\\sg\\c.edb")};
    m_found.answer = [&](const NetWorkerFileInfo& info) {
        if (info.index == 0) {
            std::thread([&] { m_executor->Quit(); }).join();
        }
        return false;
    };
    ASSERT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
    EXPECT_EQ(2u, m_found.files.size());
}

TEST_F(ExecutorTest, QuitBetweenObjectsEndsTheLoopAtTheNextCheck) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\a.edb"), MakeDescriptor("\\sg\\b.edb"),
                         MakeDescriptor("\\sg\\c.edb")};
    // The quit arrives while the server fetches the second object.
    class QuittingWrapper : public FakeApiWrapper {
    public:
        NetWorkerApiExecutor* executor = nullptr;
        int32_t BSAGetNextQueryObject(BSA_Handle handle, BSA_ObjectDescriptor* d) override {
            const int32_t rc = FakeApiWrapper::BSAGetNextQueryObject(handle, d);
            std::thread([this] { executor->Quit(); }).join();
            return rc;
        }
    } wrapper;
    wrapper.objects = m_wrapper.objects;
    NetWorkerApiExecutor executor(&wrapper);
    wrapper.executor = &executor;
    ASSERT_EQ(0, executor.Initialize("cli", "srv"));
    ASSERT_EQ(0, executor.Catalog(nullptr, nullptr, &m_found, &m_error));
    EXPECT_EQ(1u, m_found.files.size());
    EXPECT_EQ(
        (std::vector<std::string>{"Initialize", "BSAQueryApiVersion", "BSAInit", "BSABeginTxn",
                                  "BSAQueryObject", "BSAGetNextQueryObject", "BSAEndTxn"}),
        wrapper.calls);
}

TEST_F(ExecutorTest, TimeWindowComparesDatesOnlyWithInclusiveBounds) {
    StartSession();
    m_wrapper.objects = {
        MakeDescriptor("\\sg\\before.edb", "D", 1, 2026, 3, 13, 23, 59, 59),
        MakeDescriptor("\\sg\\early.edb", "D", 1, 2026, 3, 14, 0, 0, 0),
        MakeDescriptor("\\sg\\late.edb", "D", 1, 2026, 3, 14, 23, 59, 59),
        MakeDescriptor("\\sg\\after.edb", "D", 1, 2026, 3, 15, 0, 0, 1),
    };
    const FILETIME midnight = MidnightOf(2026, 3, 14);
    ASSERT_EQ(0, m_executor->Catalog(&midnight, &midnight, &m_found, &m_error));
    EXPECT_EQ((std::vector<std::string>{"\\sg\\early.edb", "\\sg\\late.edb"}), Paths(m_found));

    m_found.files.clear();
    m_executor->Catalog(nullptr, &midnight, &m_found, &m_error);
    EXPECT_EQ((std::vector<std::string>{"\\sg\\early.edb", "\\sg\\late.edb", "\\sg\\after.edb"}),
              Paths(m_found));
    m_found.files.clear();
    m_executor->Catalog(&midnight, nullptr, &m_found, &m_error);
    EXPECT_EQ((std::vector<std::string>{"\\sg\\before.edb", "\\sg\\early.edb", "\\sg\\late.edb"}),
              Paths(m_found));
}

TEST_F(ExecutorTest, TimeAfterLaterThanTimeBeforeThrowsAfterEndingTheTransaction) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\a.edb")};
    const FILETIME before = MidnightOf(2026, 3, 14);
    const FILETIME after = MidnightOf(2026, 3, 15);
    try {
        m_executor->Catalog(&before, &after, &m_found, &m_error);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ("timeAfter cannot be later than timeBefore", error.what());
    }
    // The transaction is ended on the way out; no closing line is written.
    EXPECT_EQ((std::vector<std::string>{"BSABeginTxn", "BSAQueryObject", "BSAEndTxn"}),
              m_wrapper.calls);
    EXPECT_TRUE(Lines().empty());
    EXPECT_EQ((std::vector<std::wstring>{L"NetWorkerApiExecutor::Catalog|Method Start",
                                         L"NetWorkerApiExecutor::Catalog|Method End"}),
              Traces());
}

TEST_F(ExecutorTest, FileFoundCallbackThatThrowsEndsTheTransactionAndPassesTheException) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\a.edb"), MakeDescriptor("\\sg\\b.edb"),
                         MakeDescriptor("\\sg\\c.edb")};
    m_found.answer = [](const NetWorkerFileInfo& file) -> bool {
        if (file.index == 1) {
            throw std::runtime_error("host went away");
        }
        return false;
    };
    try {
        m_executor->Catalog(nullptr, nullptr, &m_found, &m_error);
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("host went away", error.what());
    }
    EXPECT_EQ((std::vector<std::string>{"BSABeginTxn", "BSAQueryObject", "BSAGetNextQueryObject",
                                        "BSAEndTxn"}),
              m_wrapper.calls);
    EXPECT_TRUE(Lines().empty()) << "no closing line on the way out of an exception";
    EXPECT_EQ(L"NetWorkerApiExecutor::Catalog|Method End", Traces().back());
    // The two entries accepted so far stay, and the next catalogue starts afresh.
    EXPECT_EQ(2u, m_executor->CatalogueSize());
    m_found.answer = nullptr;
    m_found.files.clear();
    m_wrapper.calls.clear();
    EXPECT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
    EXPECT_EQ(3u, m_found.files.size());
    EXPECT_EQ("BSAEndTxn", m_wrapper.calls.back());
}

TEST_F(ExecutorTest, ErrorCallbackThatThrowsEndsTheTransactionAndPassesTheException) {
    StartSession();
    m_wrapper.beginTxnResult = 5;
    class ThrowingError : public INetWorkerErrorCallBack {
    public:
        uint32_t NetWorkerError(uint32_t) override { throw std::logic_error("refused"); }
        uint32_t AllocationError(const NetWorkerAllocationInfo*) override { return 0; }
    } error;
    EXPECT_THROW(m_executor->Catalog(nullptr, nullptr, &m_found, &error), std::logic_error);
    EXPECT_EQ((std::vector<std::string>{"BSABeginTxn", "BSAEndTxn"}), m_wrapper.calls);
}

TEST_F(ExecutorTest, BeginTxnFailureReportsNineAndReturnsZero) {
    StartSession();
    m_wrapper.beginTxnResult = 5;
    WriteLastError(0);
    EXPECT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
    EXPECT_EQ(std::vector<uint32_t>{9}, m_error.codes);
    EXPECT_EQ((std::vector<std::string>{"BSABeginTxn", "BSAEndTxn"}), m_wrapper.calls);
    EXPECT_EQ((LogTexts{{LogLevelError, L"BSA Error 5\n"},
                        {LogLevelError, L"BSABeginTxn failed"},
                        {LogLevelError, HResultLine(0x80004005, 0)},
                        {LogLevelInfo, FoundLine(0, 0, 0)}}),
              Lines());
}

TEST_F(ExecutorTest, QueryAuthenticationFailureReportsEighteen) {
    StartSession();
    m_wrapper.queryRc = 4;
    WriteLastError(0);
    EXPECT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
    EXPECT_EQ(std::vector<uint32_t>{18}, m_error.codes);
    EXPECT_EQ((LogTexts{{LogLevelError, L"BSA Error 4\n"},
                        {LogLevelError, L"BSAQueryObject failed"},
                        {LogLevelError, HResultLine(0x80070005, 0)},
                        {LogLevelInfo, FoundLine(0, 0, 0)}}),
              Lines());
    EXPECT_EQ("BSAEndTxn", m_wrapper.calls.back());
}

TEST_F(ExecutorTest, OtherQueryFailuresReportSeventeen) {
    StartSession();
    for (int32_t rc : {3, 6, 77, 83}) {
        m_wrapper.queryRc = rc;
        m_error.codes.clear();
        ClearLog();
        EXPECT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
        EXPECT_EQ(std::vector<uint32_t>{17}, m_error.codes) << rc;
        EXPECT_EQ(L"BSAQueryObject failed", Lines().at(1).second);
    }
}

TEST_F(ExecutorTest, NothingMatchedIsNoExchangeObjectsWithoutErrorCallback) {
    StartSession();
    for (int32_t rc : {17, 26}) {
        m_wrapper.queryRc = rc;
        ClearLog();
        WriteLastError(0);
        EXPECT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
        EXPECT_TRUE(m_error.codes.empty());
        EXPECT_EQ((LogTexts{{LogLevelError, L"No Exchange Objects"},
                            {LogLevelError, HResultLine(1169, 0)},
                            {LogLevelInfo, FoundLine(0, 0, 10240 * 0)}}),
                  Lines());
    }
}

TEST_F(ExecutorTest, FetchFailureReportsSeventeenAndKeepsEarlierEntries) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\a.edb"), MakeDescriptor("\\sg\\b.edb"),
                         MakeDescriptor("\\sg\\c.edb")};
    m_wrapper.nextRcAt[1] = 79;
    WriteLastError(0);
    EXPECT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
    EXPECT_EQ(std::vector<uint32_t>{17}, m_error.codes);
    EXPECT_EQ(2u, m_found.files.size());
    EXPECT_EQ((LogTexts{{LogLevelError, L"BSA Error 79\n"},
                        {LogLevelError, L"BSAGetNextQueryObject failed"},
                        {LogLevelError, HResultLine(0x80004005, 0)},
                        {LogLevelInfo, FoundLine(2, 2, 10240)}}),
              Lines());
    uint64_t size = 0;
    EXPECT_EQ(0, m_executor->GetFileSize(1, false, &size));
    EXPECT_EQ(1000u, size);
}

TEST_F(ExecutorTest, CatalogueGrowsInStepsOf10240) {
    StartSession();
    for (int i = 0; i < 10241; ++i) {
        m_wrapper.objects.push_back(MakeDescriptor("\\sg\\E" + std::to_string(i) + ".log", "L"));
    }
    m_wrapper.objects.push_back(MakeDescriptor("\\sg\\skip.txt", "X"));
    ASSERT_EQ(0, m_executor->Catalog(nullptr, nullptr, nullptr, &m_error));
    EXPECT_EQ((LogTexts{{LogLevelInfo, FoundLine(10241, 10241, 20480)}}), Lines());
}

TEST_F(CatalogMemoryTest, StringAllocationFailureReportsReasonFour) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\a.edb"), MakeDescriptor("\\sg\\b.edb"),
                         MakeDescriptor("\\sg\\c.edb")};
    m_scripted.allocations = 0;
    m_scripted.failStringAt = 5;  // the second entry's path name
    EXPECT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, &m_error));
    ASSERT_EQ(1u, m_error.allocations.size());
    const NetWorkerAllocationInfo& info = m_error.allocations[0];
    EXPECT_EQ(4u, info.reason);
    EXPECT_EQ(1u, info.itemsFound);
    EXPECT_EQ(0u, info.catalogueSize);
    EXPECT_EQ(0u, info.catalogueCapacity);
    EXPECT_EQ(1u, m_found.files.size());
    EXPECT_EQ((std::vector<std::string>{"BSABeginTxn", "BSAQueryObject", "BSAGetNextQueryObject",
                                        "BSAEndTxn"}),
              m_wrapper.calls);
    EXPECT_EQ((LogTexts{{LogLevelInfo, FoundLine(1, 1, 10240)}}), Lines());
}

TEST_F(CatalogMemoryTest, GrowthFailureReportsReasonZeroWithSizes) {
    StartSession();
    for (int i = 0; i < 10242; ++i) {
        m_wrapper.objects.push_back(MakeDescriptor("\\sg\\E" + std::to_string(i) + ".log", "L"));
    }
    m_scripted.failReserveAt = 1;  // the first reservation works, growing past it fails
    EXPECT_EQ(0, m_executor->Catalog(nullptr, nullptr, nullptr, &m_error));
    ASSERT_EQ(1u, m_error.allocations.size());
    const NetWorkerAllocationInfo& info = m_error.allocations[0];
    EXPECT_EQ(0u, info.reason);
    EXPECT_EQ(10240u, info.itemsFound);
    EXPECT_EQ(10240u, info.catalogueSize);
    EXPECT_EQ(10240u, info.catalogueCapacity);
    EXPECT_EQ(10240u, m_scripted.reservations.at(0));
    EXPECT_EQ(20480u, m_scripted.reservations.back());
    EXPECT_EQ("BSAEndTxn", m_wrapper.calls.back());
    EXPECT_EQ((LogTexts{{LogLevelInfo, FoundLine(10240, 10240, 10240)}}), Lines());
}

TEST_F(CatalogMemoryTest, GrowthCheckedOnEveryPassAcceptedOrNot) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\x.txt", "X"), MakeDescriptor("\\sg\\y.txt", "X"),
                         MakeDescriptor("\\sg\\a.edb")};
    m_executor->Catalog(nullptr, nullptr, nullptr, &m_error);
    EXPECT_EQ((std::vector<size_t>{10240, 10240, 10240}), m_scripted.reservations);
}

TEST_F(ExecutorTest, CatalogWithoutErrorCallbackStillReportsThroughTheLog) {
    StartSession();
    m_wrapper.objects = {MakeDescriptor("\\sg\\a.edb"), MakeDescriptor("\\sg\\b.edb")};
    m_wrapper.nextRcAt[0] = 3;
    WriteLastError(0);
    EXPECT_EQ(0, m_executor->Catalog(nullptr, nullptr, &m_found, nullptr));
    EXPECT_EQ(1u, m_found.files.size());
    EXPECT_EQ((LogTexts{{LogLevelError, L"BSA Error 3\n"},
                        {LogLevelError, L"BSAGetNextQueryObject failed"},
                        {LogLevelError, HResultLine(0x80004005, 0)},
                        {LogLevelInfo, FoundLine(1, 1, 10240)}}),
              Lines());
}
