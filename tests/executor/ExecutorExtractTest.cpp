#include <cstring>
#include <cwchar>
#include <new>
#include <stdexcept>
#include <thread>

#include "ArrayAllocations.h"
#include "ExecutorTestSupport.h"
#include "common/WideFormat.h"
#include "common/LastError.h"
#include "common/WinError.h"
#include "interfaces/NetWorkerStatus.h"

using LogTexts = std::vector<std::pair<LogLevel, std::wstring>>;

namespace {

bool StartsWith(const std::wstring& text, const std::wstring& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

class ExtractTest : public ExecutorTest {
protected:
    void SetUp() override {
        ExecutorTest::SetUp();
        StartSession();
        m_wrapper.objects = {MakeDescriptor("\\First Storage Group\\priv1.edb", "D", 40000),
                             MakeDescriptor("\\First Storage Group\\E01.log", "L", 10)};
        CatalogAll();
        ASSERT_EQ(0, m_executor->BeginExtract());
        m_wrapper.calls.clear();
        ClearLog();
        m_target = UnderRoot(L"restore");
        m_file = m_target + L"\\priv1.edb";
    }

    int32_t Extract(INetWorkerUpdateProgressCallBack* progress, uint32_t index = 0) {
        return m_executor->ExtractFile(index, m_target.c_str(), L"priv1.edb", progress, &m_error);
    }

    std::wstring PathLine() const { return L"Path is " + m_target + L".\n"; }

    std::wstring m_target;
    std::wstring m_file;
};

TEST_F(ExtractTest, CopiesEveryBlockAndThrottlesProgress) {
    m_wrapper.data = PatternData(40000);
    m_system.ticks = {1000, 1200, 1500};
    ASSERT_EQ(0, Extract(&m_progress));
    EXPECT_EQ(m_wrapper.data, m_system.Content(m_file));
    EXPECT_EQ((std::vector<std::string>{"BSAGetObject", "BSAGetData", "BSAGetData", "BSAGetData",
                                        "BSAEndData"}),
              m_wrapper.calls);
    // The object is opened with its catalogued descriptor.
    ASSERT_EQ(1u, m_wrapper.gotObjects.size());
    EXPECT_STREQ("\\First Storage Group\\priv1.edb", m_wrapper.gotObjects[0].objectName.pathName);
    EXPECT_EQ(40000u, m_wrapper.gotObjects[0].size.right);
    EXPECT_EQ((std::vector<uint32_t>{16384, 16384, 16384}), m_wrapper.getDataBufferLens);
    EXPECT_EQ((std::vector<uint32_t>{16384, 16384, 7232}), m_system.writeSizes);

    // At once with 0, the first block at once (the last report time starts at 0), then at most
    // every 750 ms, and the rest at the end; each carries the bytes since the previous one.
    ASSERT_EQ(3u, m_progress.reports.size());
    EXPECT_EQ(1u, m_progress.reports[0].state);
    EXPECT_EQ(0u, m_progress.reports[0].bytesDone);
    EXPECT_EQ(16384u, m_progress.reports[1].bytesDone);
    EXPECT_EQ(23616u, m_progress.reports[2].bytesDone);
    EXPECT_EQ(m_progress.records[0], m_progress.records[2]) << "one record for every report";

    EXPECT_EQ((LogTexts{{LogLevelInfo, PathLine()}}), Lines());
    EXPECT_EQ(
        (std::vector<std::wstring>{L"NetWorkerApiExecutor::ExtractFile|Method Start",
                                   L"NetWorkerApiExecutor::CreateExtractionFile|Method Start",
                                   L"NetWorkerApiExecutor::RecursiveCreateDirectory|Method Start",
                                   L"NetWorkerApiExecutor::RecursiveCreateDirectory|Method End",
                                   L"NetWorkerApiExecutor::CreateExtractionFile|Method End",
                                   L"NetWorkerApiExecutor::LoadLrgVecObjects|Method Start",
                                   L"NetWorkerApiExecutor::LoadLrgVecObjects|Method End",
                                   L"NetWorkerApiExecutor::ExtractFile|Method End"}),
        Traces());
}

TEST_F(ExtractTest, ReportsWhenTheIntervalHasPassed) {
    m_wrapper.data = PatternData(16384 * 4);
    m_system.ticks = {5000, 5749, 5750, 6499};
    ASSERT_EQ(0, Extract(&m_progress));
    ASSERT_EQ(4u, m_progress.reports.size());
    EXPECT_EQ(16384u, m_progress.reports[1].bytesDone);  // 5000
    EXPECT_EQ(32768u, m_progress.reports[2].bytesDone);  // 5750: exactly 750 later
    EXPECT_EQ(16384u, m_progress.reports[3].bytesDone);  // the final report
}

TEST_F(ExtractTest, ThrottleSurvivesTheTickCounterWrapping) {
    m_wrapper.data = PatternData(16384 * 2);
    m_system.ticks = {0xFFFFFF00u, 0x00000100u};  // 512 ms later, across the wrap
    ASSERT_EQ(0, Extract(&m_progress));
    ASSERT_EQ(3u, m_progress.reports.size());
    EXPECT_EQ(16384u, m_progress.reports[1].bytesDone);
    EXPECT_EQ(16384u, m_progress.reports[2].bytesDone) << "not due yet: sent at the end";
}

TEST_F(ExtractTest, LargerServerBufferIsUsed) {
    m_wrapper.bufferLenWanted = 20000;
    m_wrapper.data = PatternData(50000);
    ASSERT_EQ(0, Extract(nullptr));
    EXPECT_EQ((std::vector<uint32_t>{20000, 20000, 20000}), m_wrapper.getDataBufferLens);
    EXPECT_EQ(m_wrapper.data, m_system.Content(m_file));
}

TEST_F(ExtractTest, BufferLengthsAreSixteenBit) {
    m_wrapper.bufferLenWanted = 70000;  // 4464 as a 16-bit value: the default buffer stays
    m_wrapper.data = PatternData(20000);
    ASSERT_EQ(0, Extract(nullptr));
    EXPECT_EQ((std::vector<uint32_t>{16384, 16384}), m_wrapper.getDataBufferLens);
    m_wrapper.bufferLenWanted = 16385;
    ASSERT_EQ(0, Extract(nullptr));
    EXPECT_EQ(16385u, m_wrapper.getDataBufferLens.back());
}

TEST_F(ExtractTest, TransferBufferIsAllocatedOnceAfterBSAGetObjectAtTheSizeItAsked) {
    m_wrapper.bufferLenWanted = 20000;
    m_wrapper.data = PatternData(50000);
    const ArrayAllocationWatch watch;
    bool getObjectCalled = false;
    std::vector<size_t> beforeGetObject;
    m_wrapper.duringGetObject = [&] {
        getObjectCalled = true;
        beforeGetObject = watch.SizesFrom(NetWorkerApiExecutor::kTransferBufferSize);
    };
    ASSERT_EQ(0, Extract(nullptr));
    ASSERT_TRUE(getObjectCalled);
    EXPECT_TRUE(beforeGetObject.empty()) << "a buffer was allocated before BSAGetObject";
    EXPECT_EQ(std::vector<size_t>{20000},
              watch.SizesFrom(NetWorkerApiExecutor::kTransferBufferSize));
}

TEST_F(ExtractTest, GetObjectFailureAllocatesNoTransferBuffer) {
    m_wrapper.getObjectRc = 3;
    const ArrayAllocationWatch watch;
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(nullptr));
    EXPECT_TRUE(watch.SizesFrom(NetWorkerApiExecutor::kTransferBufferSize).empty());
    EXPECT_EQ((std::vector<std::string>{"BSAGetObject", "BSAEndData"}), m_wrapper.calls);
}

TEST_F(ExtractTest, TransferBufferOutOfMemoryDeletesTheFileAndEndsTheData) {
    m_wrapper.data = PatternData(40000);
    ArrayAllocationWatch watch;
    watch.FailFrom(NetWorkerApiExecutor::kTransferBufferSize);
    EXPECT_THROW(Extract(&m_progress), std::bad_alloc);
    EXPECT_EQ(std::vector<size_t>{16384},
              watch.SizesFrom(NetWorkerApiExecutor::kTransferBufferSize));
    // The file was created before the buffer was asked for, and goes like any incomplete one.
    EXPECT_EQ(std::vector<std::wstring>{m_file}, m_system.filesCreated);
    EXPECT_EQ(std::vector<std::wstring>{m_file}, m_system.filesDeleted);
    EXPECT_FALSE(m_system.FileExists(m_file));
    EXPECT_EQ((std::vector<std::string>{"BSAGetObject", "BSAEndData"}), m_wrapper.calls);
    EXPECT_TRUE(m_progress.reports.empty());
}

TEST_F(ExtractTest, EmptyObjectGivesEmptyFileAndTwoZeroReports) {
    m_wrapper.data.clear();
    m_system.ticks = {1000};
    ASSERT_EQ(0, Extract(&m_progress));
    EXPECT_TRUE(m_system.FileExists(m_file));
    EXPECT_EQ("", m_system.Content(m_file));
    ASSERT_EQ(2u, m_progress.reports.size());
    EXPECT_EQ(0u, m_progress.reports[0].bytesDone);
    EXPECT_EQ(0u, m_progress.reports[1].bytesDone);
}

TEST_F(ExtractTest, NoProgressCallbackNoReports) {
    m_wrapper.data = PatternData(1000);
    ASSERT_EQ(0, Extract(nullptr));
    EXPECT_EQ(0, m_system.ticks.empty() ? 0 : 1);
    EXPECT_EQ(m_wrapper.data, m_system.Content(m_file));
}

TEST_F(ExtractTest, ExistingFileIsOverwritten) {
    m_system.AddDirectory(m_target);
    m_system.AddFile(m_file, std::string(100000, 'x'));
    m_wrapper.data = "short";
    ASSERT_EQ(0, Extract(nullptr));
    EXPECT_EQ("short", m_system.Content(m_file));
}

TEST_F(ExtractTest, ShortWritesAreCompleted) {
    m_wrapper.data = PatternData(20000);
    m_system.shortWriteAt[0] = 100;
    ASSERT_EQ(0, Extract(nullptr));
    EXPECT_EQ(m_wrapper.data, m_system.Content(m_file));
}

TEST_F(ExtractTest, DiskFullRetriedWhenTheHostAnswersContinue) {
    m_wrapper.data = PatternData(40000);
    m_system.failWriteAt[1] = NetWorkerWinError::DiskFull;
    m_error.answers = {1246};
    ASSERT_EQ(0, Extract(nullptr));
    EXPECT_EQ(std::vector<uint32_t>{11}, m_error.codes);
    EXPECT_EQ(m_wrapper.data, m_system.Content(m_file));
    EXPECT_EQ((std::vector<uint32_t>{16384, 16384, 16384, 7232}), m_system.writeSizes);
}

TEST_F(ExtractTest, DiskFullRetryOnTheLastBlockReturnsContinueAndKeepsTheFile) {
    m_wrapper.data = PatternData(20000);
    m_system.failWriteAt[1] = NetWorkerWinError::DiskFull;
    m_error.answers = {1246};
    EXPECT_EQ(1246, Extract(nullptr));
    EXPECT_EQ(m_wrapper.data, m_system.Content(m_file));
}

TEST_F(ExtractTest, DiskFullAnsweredZeroCancelsAtTheNextBlock) {
    m_wrapper.data = PatternData(40000);
    m_system.failWriteAt[1] = NetWorkerWinError::DiskFull;
    m_error.answers = {0};
    WriteLastError(0);
    EXPECT_EQ(1223, Extract(nullptr));
    EXPECT_FALSE(m_system.FileExists(m_file));
    EXPECT_EQ((std::vector<std::string>{"BSAGetObject", "BSAGetData", "BSAGetData", "BSAEndData"}),
              m_wrapper.calls);
    const LogTexts lines = Lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(L"User Canceled the extraction process", lines[1].second);
    EXPECT_TRUE(StartsWith(lines[2].second, L"HRESULT 000004c7 GetLastError() "));
}

TEST_F(ExtractTest, DiskFullAnsweredZeroOnTheLastBlockKeepsTheShorterFile) {
    m_wrapper.data = PatternData(20000);
    m_system.failWriteAt[1] = NetWorkerWinError::DiskFull;
    m_error.answers = {0};
    EXPECT_EQ(0, Extract(nullptr));
    EXPECT_EQ(m_wrapper.data.substr(0, 16384), m_system.Content(m_file));
    EXPECT_EQ((LogTexts{{LogLevelInfo, PathLine()}}), Lines());
}

TEST_F(ExtractTest, DiskFullAnsweredWithAFailureReturnsThatFailure) {
    m_wrapper.data = PatternData(40000);
    m_system.failWriteAt[0] = NetWorkerWinError::DiskFull;
    m_error.answers = {0x80004005u};
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(nullptr));
    EXPECT_FALSE(m_system.FileExists(m_file));
    EXPECT_EQ((std::vector<std::string>{"BSAGetObject", "BSAGetData", "BSAEndData"}),
              m_wrapper.calls);
}

TEST_F(ExtractTest, OtherWriteFailuresFailTheExtraction) {
    m_wrapper.data = PatternData(40000);
    m_system.failWriteAt[1] = WinError::AccessDenied;
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(nullptr));
    EXPECT_TRUE(m_error.codes.empty());
    EXPECT_FALSE(m_system.FileExists(m_file));
    const LogTexts lines = Lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ((std::pair<LogLevel, std::wstring>{LogLevelError, L"WriteFile Failed"}), lines[1]);
    EXPECT_EQ(HResultLine(0x80004005, WinError::AccessDenied), lines[2].second);
}

TEST_F(ExtractTest, GetObjectFailureDeletesTheFileAndEndsTheData) {
    m_wrapper.getObjectRc = 3;
    WriteLastError(0);
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(&m_progress));
    EXPECT_FALSE(m_system.FileExists(m_file));
    EXPECT_TRUE(m_progress.reports.empty());
    EXPECT_EQ((std::vector<std::string>{"BSAGetObject", "BSAEndData"}), m_wrapper.calls);
    const LogTexts lines = Lines();
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ(L"BSA Error 3\n", lines[1].second);
    EXPECT_EQ(L"BSAGetObject failed", lines[2].second);
    EXPECT_TRUE(StartsWith(lines[3].second, L"HRESULT 80004005 GetLastError() "));
}

TEST_F(ExtractTest, GetDataFailureDeletesThePartialFile) {
    m_wrapper.data = PatternData(40000);
    m_wrapper.getDataRcAt[1] = 6;
    m_system.ticks = {1000};
    EXPECT_EQ(static_cast<int32_t>(0x80070006), Extract(&m_progress));
    EXPECT_FALSE(m_system.FileExists(m_file));
    EXPECT_EQ("BSAEndData", m_wrapper.calls.back());
    const LogTexts lines = Lines();
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ(L"BSA Error 6\n", lines[1].second);
    EXPECT_EQ(L"BSAGetData failed", lines[2].second);
    // No final report after a failure.
    EXPECT_EQ(2u, m_progress.reports.size());
}

TEST_F(ExtractTest, ServerEndingTheDataEarlyKeepsWhatItDelivered) {
    // End of data (18) with no bytes on the second block: the object ends after the first block,
    // however large its descriptor said it was, and that block is kept as the whole file.
    m_wrapper.data = PatternData(40000);
    m_wrapper.getDataRcAt[1] = 18;
    EXPECT_EQ(0, Extract(nullptr));
    EXPECT_EQ(m_wrapper.data.substr(0, 16384), m_system.Content(m_file));
    EXPECT_EQ(16384u, m_wrapper.dataDelivered);
    EXPECT_EQ((std::vector<std::string>{"BSAGetObject", "BSAGetData", "BSAGetData", "BSAEndData"}),
              m_wrapper.calls);
}

TEST_F(ExtractTest, ServerDeliveringMoreThanTheBufferIsRefused) {
    m_wrapper.data = PatternData(40000);
    m_wrapper.getDataNumBytesAt[0] = 30000;
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(nullptr));
    EXPECT_FALSE(m_system.FileExists(m_file));
    EXPECT_EQ(L"BSAGetData delivered more than the buffer holds", Lines().at(1).second);
}

TEST_F(ExtractTest, DeliveredCountIsSixteenBit) {
    // 70000 bytes said to be in the 16384-byte buffer: read as 4464, which fits, so only 4464
    // bytes of that block are written and the extraction goes on with the next block.
    m_wrapper.data = PatternData(20000);
    m_wrapper.getDataNumBytesAt[0] = 70000;
    ASSERT_EQ(0, Extract(nullptr));
    EXPECT_EQ(m_wrapper.data.substr(0, 4464) + m_wrapper.data.substr(16384),
              m_system.Content(m_file));
}

TEST_F(ExtractTest, ProgressAnswerTrueCancels) {
    m_wrapper.data = PatternData(40000);
    m_system.ticks = {1000};
    m_progress.answer = [](size_t report) { return report == 1; };
    EXPECT_EQ(1223, Extract(&m_progress));
    EXPECT_FALSE(m_system.FileExists(m_file));
    EXPECT_EQ((std::vector<std::string>{"BSAGetObject", "BSAGetData", "BSAEndData"}),
              m_wrapper.calls);
}

TEST_F(ExtractTest, FirstProgressAnswerTrueCancelsBeforeAnyData) {
    m_wrapper.data = PatternData(40000);
    m_progress.answer = [](size_t) { return true; };
    EXPECT_EQ(1223, Extract(&m_progress));
    EXPECT_FALSE(m_system.FileExists(m_file));
    EXPECT_EQ((std::vector<std::string>{"BSAGetObject", "BSAEndData"}), m_wrapper.calls);
}

TEST_F(ExtractTest, FirstProgressAnswerClearsAnEarlierQuit) {
    m_wrapper.data = PatternData(100);
    m_executor->Quit();
    EXPECT_EQ(0, Extract(&m_progress));
    EXPECT_TRUE(m_system.FileExists(m_file));
    // Without a progress callback the pending Quit cancels.
    m_executor->Quit();
    EXPECT_EQ(1223, Extract(nullptr));
    EXPECT_FALSE(m_system.FileExists(m_file));
}

TEST_F(ExtractTest, ProgressCallbackThatThrowsDeletesThePartialFileAndEndsTheData) {
    m_wrapper.data = PatternData(16384 * 4);
    m_system.ticks = {1000};
    m_progress.answer = [](size_t report) -> bool {
        if (report == 1) {
            throw std::runtime_error("Other end of pipe disconnected");
        }
        return false;
    };
    try {
        Extract(&m_progress);
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ("Other end of pipe disconnected", error.what());
    }
    EXPECT_FALSE(m_system.FileExists(m_file));
    EXPECT_EQ((std::vector<std::string>{"BSAGetObject", "BSAGetData", "BSAEndData"}),
              m_wrapper.calls);
    EXPECT_EQ((LogTexts{{LogLevelInfo, PathLine()}}), Lines()) << "no status was raised";
    const std::vector<std::wstring> traces = Traces();
    ASSERT_GE(traces.size(), 3u);
    EXPECT_EQ(L"NetWorkerApiExecutor::DeleteExtractionFile|Method End", traces[traces.size() - 2]);
    EXPECT_EQ(L"NetWorkerApiExecutor::ExtractFile|Method End", traces.back());

    // The session goes on: the next extraction of the same file works.
    m_progress.answer = nullptr;
    m_wrapper.calls.clear();
    ASSERT_EQ(0, Extract(&m_progress));
    EXPECT_EQ(m_wrapper.data, m_system.Content(m_file));
}

TEST_F(ExtractTest, FirstProgressReportThatThrowsLeavesNoFile) {
    for (const size_t throwingReport : {size_t{0}}) {
        SCOPED_TRACE(throwingReport);
        m_wrapper.data = PatternData(20000);
        m_wrapper.calls.clear();
        m_progress.reports.clear();
        m_system.ticks = {1000};
        m_progress.answer = [throwingReport](size_t report) -> bool {
            if (report == throwingReport) {
                throw std::runtime_error("gone");
            }
            return false;
        };
        EXPECT_THROW(Extract(&m_progress), std::runtime_error);
        EXPECT_FALSE(m_system.FileExists(m_file));
        EXPECT_EQ("BSAEndData", m_wrapper.calls.back());
        EXPECT_EQ(throwingReport + 1, m_progress.reports.size());
    }
}

// Once the block that ends the object is written, the transfer's status decides the file: a
// callback that throws after that leaves it as a "stop" answered there would, which is also what
// the helper does when the host's callback throws there.
TEST_F(ExtractTest, FinalProgressReportThatThrowsKeepsTheCompleteFile) {
    m_wrapper.data = PatternData(20000);
    m_system.ticks = {1000};
    m_progress.answer = [](size_t report) -> bool {
        if (report == 2) {
            throw std::runtime_error("gone");
        }
        return false;
    };
    EXPECT_THROW(Extract(&m_progress), std::runtime_error);
    EXPECT_EQ(m_wrapper.data, m_system.Content(m_file));
    EXPECT_EQ("BSAEndData", m_wrapper.calls.back());
    EXPECT_EQ(3u, m_progress.reports.size());
}

TEST_F(ExtractTest, DiskFullQuestionThatThrowsDeletesThePartialFile) {
    m_wrapper.data = PatternData(40000);
    m_system.failWriteAt[1] = NetWorkerWinError::DiskFull;
    m_error.onDiskFull = [] { throw std::bad_alloc(); };
    EXPECT_THROW(Extract(nullptr), std::bad_alloc);
    EXPECT_EQ(std::vector<uint32_t>{11}, m_error.codes);
    EXPECT_FALSE(m_system.FileExists(m_file));
    EXPECT_EQ("BSAEndData", m_wrapper.calls.back());
}

TEST_F(ExtractTest, QuitDuringAThrottledTransferCancelsAndDeletes) {
    m_wrapper.data = PatternData(16384 * 6);
    m_system.ticks = {1000, 1100, 1200, 1300, 1400, 1500};
    m_wrapper.duringGetData = [&](int call) {
        if (call == 2) {
            std::thread([&] { EXPECT_EQ(0, m_executor->Quit()); }).join();
        }
    };
    EXPECT_EQ(1223, Extract(&m_progress));
    EXPECT_FALSE(m_system.FileExists(m_file));
    EXPECT_EQ(3, m_system.writeCalls) << "the block in flight is written, then the loop stops";
    EXPECT_EQ("BSAEndData", m_wrapper.calls.back());
    // Reports: the initial one and the first block; the rest was never due.
    EXPECT_EQ(2u, m_progress.reports.size());
}

TEST_F(ExtractTest, CreatesMissingDirectoryLevels) {
    const std::wstring existing = UnderRoot(L"a");
    m_system.AddDirectory(existing);
    m_target = existing + L"\\b\\c";
    m_file = m_target + L"\\priv1.edb";
    m_wrapper.data = "abc";
    ASSERT_EQ(0, Extract(nullptr));
    EXPECT_EQ("abc", m_system.Content(m_file));
    // Every level from below the root is asked for; existing ones count as created.
    ASSERT_GE(m_system.directoriesAsked.size(), 3u);
    const size_t n = m_system.directoriesAsked.size();
    EXPECT_EQ(existing, m_system.directoriesAsked[n - 3]);
    EXPECT_EQ(existing + L"\\b", m_system.directoriesAsked[n - 2]);
    EXPECT_EQ(existing + L"\\b\\c", m_system.directoriesAsked[n - 1]);
    // The first level asked for sits right below the drive's root.
    EXPECT_EQ(std::wstring::npos, m_system.directoriesAsked[0].find(L'\\', 3))
        << m_system.directoriesAsked[0];
}

TEST_F(ExtractTest, ObjectIsOpenedWithTheRecordTheQueryReturnedOwnerAside) {
    m_wrapper.data = "abc";
    ASSERT_EQ(0, Extract(nullptr));
    ASSERT_EQ(1u, m_wrapper.gotObjects.size());
    BSA_ObjectDescriptor expected = m_wrapper.objects[0];
    expected.Owner = BSA_ObjectOwner{};
    EXPECT_EQ(0, std::memcmp(&expected, &m_wrapper.gotObjects[0], sizeof expected));
}

// A library whose records are 4 KiB longer than ours reads and writes that far behind every
// record (under AddressSanitizer, any record without that headroom is a report).
TEST_F(ExtractTest, LongerLibraryRecordsFindHeadroomBehindEveryRecord) {
    m_wrapper.oversizedRecords = true;
    CatalogAll();
    m_wrapper.data = PatternData(40000);
    ASSERT_EQ(0, Extract(&m_progress));
    EXPECT_EQ(m_wrapper.data, m_system.Content(m_file));
    uint64_t size = 0;
    m_wrapper.correctedSize = 40000;
    EXPECT_EQ(0, m_executor->GetFileSize(0, true, &size));
    EXPECT_EQ(40000u, size);
}

TEST_F(ExtractTest, TrailingBackslashMakesNoDifference) {
    m_target = UnderRoot(L"x\\y\\");
    m_wrapper.data = "abc";
    ASSERT_EQ(0, Extract(nullptr));
    EXPECT_EQ("abc", m_system.Content(UnderRoot(L"x\\y\\priv1.edb")));
    EXPECT_EQ(UnderRoot(L"x\\y"), m_system.directoriesAsked.back());
}

TEST_F(ExtractTest, PathWithoutLevelIsRefused) {
    m_target = L"C:restore";
    WriteLastError(0);
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(nullptr));
    EXPECT_TRUE(m_system.directoriesAsked.empty());
    EXPECT_EQ((std::vector<std::string>{"BSAEndData"}), m_wrapper.calls);
    EXPECT_TRUE(m_system.filesDeleted.empty());
    const LogTexts lines = Lines();
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ((std::pair<LogLevel, std::wstring>{LogLevelInfo, L"Path is C:restore.\n"}), lines[0]);
    EXPECT_EQ((std::pair<LogLevel, std::wstring>{LogLevelError, L"Path not long enough.\n"}),
              lines[1]);
    EXPECT_EQ(L"Could not Create File", lines[2].second);
    EXPECT_EQ(HResultLine(0x80004005, 0x80004005), lines[3].second);
}

TEST_F(ExtractTest, NetworkPathEndingAfterTheShareIsRefused) {
    m_target = L"\\\\server\\share";
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(nullptr));
    EXPECT_EQ(L"Path not long enough.\n", Lines().at(1).second);
}

TEST_F(ExtractTest, ShortAndNullDirectories) {
    m_target = L"C:";
    WriteLastError(0);
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(nullptr));
    LogTexts lines = Lines();
    EXPECT_EQ((std::pair<LogLevel, std::wstring>{LogLevelError, L"Path too short.\n"}), lines[0]);
    EXPECT_EQ(L"Could not Create File", lines[1].second);

    ClearLog();
    EXPECT_EQ(static_cast<int32_t>(0x80004005),
              m_executor->ExtractFile(0, nullptr, L"priv1.edb", nullptr, &m_error));
    lines = Lines();
    EXPECT_EQ((std::pair<LogLevel, std::wstring>{LogLevelError, L"Null Path.\n"}), lines[0]);
    EXPECT_EQ(HResultLine(0x80004005, 0x80070057), lines[2].second);
}

TEST_F(ExtractTest, DirectoryFailureSurfacesAsUnableToCreateFile) {
    const std::wstring level = UnderRoot(L"locked");
    m_system.failDirectory[level] = WinError::AccessDenied;
    m_target = level + L"\\inner";
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(nullptr));
    const LogTexts lines = Lines();
    ASSERT_GE(lines.size(), 5u);
    const size_t n = m_system.directoriesAsked.size();
    EXPECT_EQ(level, m_system.directoriesAsked[n - 1]) << "stops at the failing level";
    EXPECT_EQ((std::pair<LogLevel, std::wstring>{LogLevelError,
                                                 L"Unable to create directory 0x000005.\n"}),
              lines[1]);
    EXPECT_TRUE(StartsWith(lines[2].second, L"Unable to create file " + m_target +
                                                L"\\priv1.edb. GetLastError() = 0x"))
        << lines[2].second;
    EXPECT_EQ(L"Could not Create File", lines[3].second);
}

TEST_F(ExtractTest, DirectoryFailureWithoutErrorNumberGivesWriteFault) {
    const std::wstring level = UnderRoot(L"odd");
    m_system.failDirectory[level] = 0;
    m_target = level;
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(nullptr));
    const LogTexts lines = Lines();
    EXPECT_EQ(L"Unable to create directory 00000000.\n", lines[1].second);
    EXPECT_EQ(L"Could not Create File", lines[2].second);
    EXPECT_EQ(HResultLine(0x80004005, 29), lines[3].second);
}

TEST_F(ExtractTest, FileThatCannotBeCreatedIsReported) {
    // A directory of the file's name makes creating the file fail.
    m_system.AddDirectory(m_target);
    m_system.AddDirectory(m_file);
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(&m_progress));
    EXPECT_TRUE(m_progress.reports.empty());
    EXPECT_EQ((std::vector<std::string>{"BSAEndData"}), m_wrapper.calls);
    const LogTexts lines = Lines();
    ASSERT_EQ(4u, lines.size());
    EXPECT_TRUE(
        StartsWith(lines[1].second, L"Unable to create file " + m_file + L". GetLastError() = 0x"));
    EXPECT_EQ(L"Could not Create File", lines[2].second);
    EXPECT_TRUE(m_system.filesDeleted.empty());
    EXPECT_TRUE(m_system.DirectoryExists(m_file));
}

TEST_F(ExtractTest, CreateFailureDeletesNothing) {
    // A host's file that cannot be opened for writing (another program holds it) stays.
    m_system.AddFile(m_file, "host data");
    m_system.failCreate[m_file] = WinError::SharingViolation;
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(&m_progress));
    EXPECT_EQ((std::vector<std::string>{"BSAEndData"}), m_wrapper.calls);
    EXPECT_TRUE(m_system.filesDeleted.empty());
    EXPECT_EQ("host data", m_system.Content(m_file));
    const LogTexts lines = Lines();
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ(L"Unable to create file " + m_file + L". GetLastError() = 0x000020.\n",
              lines[1].second);
    EXPECT_EQ(L"Could not Create File", lines[2].second);
}

TEST_F(ExtractTest, FailedDeletionIsLoggedWithTheWindowsNumberAndTheResultStands) {
    m_wrapper.data = std::string(40000, 'd');
    m_wrapper.getDataRcAt[1] = 3;
    m_system.failDelete[m_file] = WinError::AccessDenied;
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(nullptr));
    EXPECT_TRUE(m_system.FileExists(m_file));
    const LogTexts lines = Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(L"DeleteFile failed\n", lines[lines.size() - 2].second);
    EXPECT_EQ(HResultLine(5, 5), lines[lines.size() - 1].second);
}

TEST_F(ExtractTest, IndexOutOfRangeLeavesTheDestinationAlone) {
    m_system.AddDirectory(m_target);
    m_system.AddFile(m_file, "host data");
    WriteLastError(0);
    EXPECT_EQ(static_cast<int32_t>(0x80070057), Extract(&m_progress, 2));
    EXPECT_EQ("host data", m_system.Content(m_file));
    EXPECT_EQ((std::vector<std::string>{"BSAEndData"}), m_wrapper.calls);
    EXPECT_EQ((LogTexts{{LogLevelError, L"Catalogue index 2 out of range (2 entries)"},
                        {LogLevelError, HResultLine(0x80070057, 0)}}),
              Lines());
    EXPECT_TRUE(m_progress.reports.empty());
}

TEST_F(ExtractTest, EndDataFailureIsLoggedOnly) {
    m_wrapper.data = "abc";
    m_wrapper.endDataResult = 3;
    EXPECT_EQ(0, Extract(nullptr));
    EXPECT_EQ("abc", m_system.Content(m_file));
    EXPECT_EQ((LogTexts{{LogLevelInfo, PathLine()},
                        {LogLevelError, L"BSA Error 3\n"},
                        {LogLevelError, L"BSAEndData failed with error 80004005.\n"}}),
              Lines());
}

TEST_F(ExtractTest, DestinationPathTooLongIsReported) {
    // The directory, a backslash and "priv1.edb" make 1024 characters, one too many: the
    // directory is made, and the file is refused like one that cannot be created.
    const size_t fixed = UnderRoot(L"").size() + 1 + std::wcslen(L"priv1.edb");
    m_target = UnderRoot(std::wstring(1024 - fixed, L'z'));
    EXPECT_EQ(static_cast<int32_t>(0x80004005), Extract(nullptr));
    EXPECT_EQ((std::vector<std::string>{"BSAEndData"}), m_wrapper.calls);
    EXPECT_TRUE(m_system.filesCreated.empty());
    EXPECT_TRUE(m_system.filesDeleted.empty());
    const LogTexts lines = Lines();
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ(L"Unable to create file " + m_target + L". GetLastError() = 0x0000ce.\n",
              lines[1].second);  // ERROR_FILENAME_EXCED_RANGE
    EXPECT_EQ(L"Could not Create File", lines[2].second);
    EXPECT_EQ(HResultLine(0x80004005, 206), lines[3].second);

    // One character less fits.
    m_target.pop_back();
    m_wrapper.data = "abc";
    EXPECT_EQ(0, Extract(nullptr));
    EXPECT_EQ("abc", m_system.Content(m_target + L"\\priv1.edb"));
}

TEST_F(ExtractTest, DiskFullWithoutErrorCallbackCancels) {
    m_wrapper.data = PatternData(40000);
    m_system.failWriteAt[1] = NetWorkerWinError::DiskFull;
    EXPECT_EQ(1223, m_executor->ExtractFile(0, m_target.c_str(), L"priv1.edb", nullptr, nullptr));
    EXPECT_FALSE(m_system.FileExists(m_file));
}
