// One host conformance suite, run with the in-process executor and with the pipe executor
// driving the real helper program against the simulated NetWorker. The results must be the
// same except where the out-of-process mode differs on purpose:
// - backupTime carries the day of the week (it travels as a FILETIME);
// - GetFileSize reports a failed size lookup as size 0 with success;
// - Quit does not cancel a running operation;
// - a reversed time window is refused on the host side, before anything reaches the helper.

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "../exports/ExportsTestSupport.h"
#include "HostCallbacks.h"
#include "HostSessions.h"
#include "TestPrograms.h"
#include "ScopedEnvironment.h"
#include "SimulatorEnvironment.h"
#include "TestFiles.h"
#include "common/UniqueHandle.h"

namespace {

const auto* const g_simulator = ::testing::AddGlobalTestEnvironment(new SimulatorEnvironment);

bool VerifyAgainstStore(unsigned objectId, const std::wstring& file) {
    return SimulatorEnvironment::Get().Verify(std::to_wstring(objectId), file);
}

struct InProcess {
    static constexpr bool kThroughPipe = false;
    static std::unique_ptr<HostSession> Open() { return std::make_unique<DirectSession>(); }
};

struct ThroughPipe {
    static constexpr bool kThroughPipe = true;
    static std::unique_ptr<HostSession> Open() {
        return std::make_unique<PipeSession>(UniquePipeName(L"conformance"));
    }
};

struct ExpectedEntry {
    const char* path;
    uint64_t size;
    uint64_t restoreOrder;
    unsigned objectId;
};

// The seeded client's Exchange files, catalogue indexes 0 to 13 (objects 12 to 25).
const ExpectedEntry kSeededCatalogue[] = {
    {"/First Storage Group/Mailbox Store (EX01).edb", 0, 3000004, 12},
    {"/First Storage Group/Mailbox Store (EX01).stm", 0, 3000005, 13},
    {"/First Storage Group/Public Folder Store (EX01).edb", 0, 3000006, 14},
    {"/First Storage Group/Public Folder Store (EX01).stm", 0, 3000007, 15},
    {"/First Storage Group/E00.chk", 8192, 3000008, 16},
    {"/First Storage Group/E00000101.log", 5242880, 3000009, 17},
    {"/First Storage Group/E00000102.log", 5242880, 3000010, 18},
    {"/First Storage Group/E00000103.log", 5242880, 3000011, 19},
    {"/Second Storage Group/Mailbox Store 2 (EX01).edb", 0, 3000012, 20},
    {"/Second Storage Group/Mailbox Store 2 (EX01).stm", 0, 3000013, 21},
    {"/Second Storage Group/E01.chk", 8192, 3000014, 22},
    {"/Second Storage Group/E01000A1.log", 5242880, 3000015, 23},
    {"/Second Storage Group/E01000A2.log", 5242880, 3000016, 24},
    {"/Second Storage Group/E01tmp.log", 5242880, 3000017, 25},
};
constexpr uint32_t kIndexFourBlocks = 12;   // object 24: exactly 4 blocks of 16,384 bytes
constexpr uint32_t kIndexTwoMegabytes = 8;  // object 20: 2,097,153 bytes

FILETIME MakeFileTime(WORD year, WORD month, WORD day, WORD hour) {
    SYSTEMTIME time{year, month, 0, day, hour, 0, 0, 0};
    FILETIME out{};
    SystemTimeToFileTime(&time, &out);
    return out;
}

// The seeded catalogue as the host was told it: index, path, announced size and restore order.
void ExpectSeededEntries(const RecordingFileFound& found) {
    ASSERT_EQ(found.found.size(), std::size(kSeededCatalogue));
    for (size_t i = 0; i < found.found.size(); ++i) {
        const ReportedFile& entry = found.found[i];
        SCOPED_TRACE(entry.path);
        EXPECT_EQ(entry.index, i);
        EXPECT_EQ(entry.path, kSeededCatalogue[i].path);
        EXPECT_EQ(entry.size, kSeededCatalogue[i].size);
        EXPECT_EQ(entry.restoreOrder, kSeededCatalogue[i].restoreOrder);
    }
}

bool FileExists(const std::wstring& path) {
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// The line of a log file that holds `text`; empty when none does.
std::string LogLineWith(const std::string& log, const std::string& text) {
    const size_t at = log.find(text);
    if (at == std::string::npos) {
        return std::string();
    }
    const size_t start = log.rfind('\n', at);
    const size_t end = log.find('\n', at);
    return log.substr(start == std::string::npos ? 0 : start + 1,
                      end == std::string::npos ? std::string::npos : end - start - 1);
}

// Another program (file_holder.exe) that holds a file open for reading, sharing reads and
// deletion but not writing; ended when this goes.
class FileHolderProcess {
public:
    explicit FileHolderProcess(const std::wstring& path) : m_marker(path + L".held") {
        std::wstring commandLine =
            L"\"" + TestProgramDirectory() + L"\\file_holder.exe\" \"" + path + L"\"";
        STARTUPINFOW startup{};
        startup.cb = sizeof startup;
        PROCESS_INFORMATION info{};
        if (!CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                            &startup, &info)) {
            return;
        }
        m_process.reset(info.hProcess);
        const UniqueHandle thread(info.hThread);
        // It makes its marker once it holds the file.
        while (!FileExists(m_marker)) {
            if (WaitForSingleObject(m_process.get(), 10) == WAIT_OBJECT_0) {
                return;
            }
        }
        m_holding = true;
    }
    ~FileHolderProcess() {
        if (m_process) {
            TerminateProcess(m_process.get(), 0);
            WaitForSingleObject(m_process.get(), INFINITE);
        }
        DeleteFileW(m_marker.c_str());
    }
    FileHolderProcess(const FileHolderProcess&) = delete;
    FileHolderProcess& operator=(const FileHolderProcess&) = delete;

    bool Holding() const { return m_holding; }
    // Why it is not holding, for the test's message.
    std::string State() const {
        DWORD exitCode = 0;
        if (!m_process) {
            return "file_holder.exe did not start";
        }
        if (GetExitCodeProcess(m_process.get(), &exitCode) && exitCode != STILL_ACTIVE) {
            return "file_holder.exe ended with " + std::to_string(exitCode);
        }
        return "holding";
    }

private:
    std::wstring m_marker;
    UniqueHandle m_process;
    bool m_holding = false;
};

template <typename Mode>
class ConformanceTest : public ::testing::Test {
protected:
    // Starts a session; faults (NWSIM_FAULTS) are read by the simulated XBSA library at
    // BSAInit, in this process or in the helper, which inherits the environment.
    void Start(const std::wstring& faults = L"") {
        if (!faults.empty()) {
            m_faults = std::make_unique<ScopedEnvironment>(L"NWSIM_FAULTS", faults);
        }
        m_session = Mode::Open();
        ASSERT_EQ(m_session->Initialize("cli", "srv"), 0);
    }

    // A session with the seeded catalogue listed once, as GetFileSize and ExtractFile need.
    void StartCatalogued(const std::wstring& faults = L"") {
        ASSERT_NO_FATAL_FAILURE(Start(faults));
        RecordingFileFound found;
        RecordingErrors errors;
        ASSERT_EQ(CatalogueAll(&found, &errors), 0);
        ASSERT_EQ(found.found.size(), std::size(kSeededCatalogue));
    }

    // A new directory on the 1 MiB file system named by NWX_SMALL_DISK; empty on failure.
    std::wstring SmallDiskDirectory() {
        wchar_t small[MAX_PATH];
        if (GetEnvironmentVariableW(L"NWX_SMALL_DISK", small, MAX_PATH) == 0) {
            ADD_FAILURE() << "NWX_SMALL_DISK (a 1 MiB file system) is not set";
            return std::wstring();
        }
        const std::wstring directory = std::wstring(small) + L"\\" + UniquePipeName(L"full");
        if (!CreateDirectoryW(directory.c_str(), nullptr)) {
            ADD_FAILURE() << "cannot create a directory on NWX_SMALL_DISK";
            return std::wstring();
        }
        return directory;
    }

    INetWorkerExecutor* Executor() { return m_session->Executor(); }

    int32_t CatalogueAll(RecordingFileFound* found, RecordingErrors* errors) {
        return Executor()->Catalog(nullptr, nullptr, found, errors);
    }

    void TearDown() override {
        m_session.reset();
        m_faults.reset();
    }

    std::unique_ptr<ScopedEnvironment> m_faults;
    std::unique_ptr<HostSession> m_session;
};

using Modes = ::testing::Types<InProcess, ThroughPipe>;
class ModeNames {
public:
    template <typename T>
    static std::string GetName(int) {
        return T::kThroughPipe ? "ThroughPipe" : "InProcess";
    }
};
TYPED_TEST_SUITE(ConformanceTest, Modes, ModeNames);

TYPED_TEST(ConformanceTest, CatalogueWithoutWindowListsTheSeededExchangeFiles) {
    this->Start();
    RecordingFileFound found;
    RecordingErrors errors;
    EXPECT_EQ(this->CatalogueAll(&found, &errors), 0);
    EXPECT_TRUE(errors.codes.empty());
    ExpectSeededEntries(found);
    for (const ReportedFile& entry : found.found) {
        SCOPED_TRACE(entry.path);
        EXPECT_EQ(entry.backupTime.wYear, 2024);
        EXPECT_EQ(entry.backupTime.wMonth, 5);
        EXPECT_EQ(entry.backupTime.wDay, 8);
        EXPECT_EQ(entry.backupTime.wHour, 23);
        EXPECT_EQ(entry.backupTime.wMinute, 59);
        EXPECT_EQ(entry.backupTime.wSecond, 30);
        EXPECT_EQ(entry.backupTime.wMilliseconds, 0);
        // 2024-05-08 is a Wednesday; only the pipe's FILETIME round trip fills it in.
        EXPECT_EQ(entry.backupTime.wDayOfWeek, TypeParam::kThroughPipe ? 3 : 0);
    }
}

TYPED_TEST(ConformanceTest, CatalogueWindowComparesCalendarDates) {
    this->Start();
    // The objects were made at 23:59:30 on 2024-05-08; only their date counts, as midnight.
    const FILETIME midnight = MakeFileTime(2024, 5, 8, 0);
    RecordingFileFound sameDay;
    EXPECT_EQ(this->Executor()->Catalog(&midnight, &midnight, &sameDay, nullptr), 0);
    EXPECT_EQ(sameDay.found.size(), std::size(kSeededCatalogue));

    const FILETIME noon = MakeFileTime(2024, 5, 8, 12);
    RecordingFileFound afterNoon;
    EXPECT_EQ(this->Executor()->Catalog(nullptr, &noon, &afterNoon, nullptr), 0);
    EXPECT_TRUE(afterNoon.found.empty());

    const FILETIME dayBefore = MakeFileTime(2024, 5, 7, 23);
    RecordingFileFound earlier;
    EXPECT_EQ(this->Executor()->Catalog(&dayBefore, nullptr, &earlier, nullptr), 0);
    EXPECT_TRUE(earlier.found.empty());

    RecordingFileFound open;
    EXPECT_EQ(this->Executor()->Catalog(&noon, &dayBefore, &open, nullptr), 0);
    EXPECT_EQ(open.found.size(), std::size(kSeededCatalogue));
}

TYPED_TEST(ConformanceTest, ReversedWindowThrowsTheSameException) {
    this->Start();
    const FILETIME early = MakeFileTime(2024, 5, 1, 0);
    const FILETIME late = MakeFileTime(2024, 5, 9, 0);
    RecordingFileFound found;
    try {
        this->Executor()->Catalog(&early, &late, &found, nullptr);
        ADD_FAILURE() << "expected std::invalid_argument";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "timeAfter cannot be later than timeBefore");
    }
    EXPECT_TRUE(found.found.empty());
    RecordingErrors errors;
    EXPECT_EQ(this->CatalogueAll(&found, &errors), 0);
    // Through the pipe the window is refused before anything is sent; in process the
    // transaction is ended on the way out. Either way the next catalogue sees everything.
    EXPECT_EQ(found.found.size(), std::size(kSeededCatalogue));
    EXPECT_TRUE(errors.codes.empty());
}

TYPED_TEST(ConformanceTest, FileFoundThatStopsEndsAfterThatEntryAndKeepsIt) {
    this->Start();
    RecordingFileFound found;
    found.stopAfter = 3;
    EXPECT_EQ(this->CatalogueAll(&found, nullptr), 0);
    ASSERT_EQ(found.found.size(), 3u);
    EXPECT_EQ(found.found[2].path, kSeededCatalogue[2].path);
    uint64_t size = 1;
    EXPECT_EQ(this->Executor()->GetFileSize(2, false, &size), 0);
    EXPECT_EQ(size, 1500001u);
}

TYPED_TEST(ConformanceTest, SizesComeFromTheCatalogueOrCorrectedThroughNsrinfo) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued());
    uint64_t size = 0;
    EXPECT_EQ(this->Executor()->GetFileSize(0, true, &size), 0);
    EXPECT_EQ(size, 5000000000u);
    EXPECT_EQ(this->Executor()->GetFileSize(4, false, &size), 0);
    EXPECT_EQ(size, 8192u);
    EXPECT_EQ(this->Executor()->GetFileSize(9, true, &size), 0);
    EXPECT_EQ(size, 262147u);
}

TYPED_TEST(ConformanceTest, FailedSizeCorrectionFallsBackToTheCatalogueSize) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued(L"nsrinfo.exit=2"));
    uint64_t size = 99;
    const int32_t status = this->Executor()->GetFileSize(0, true, &size);
    // The catalogue size with its upper half dropped: 5,000,000,000 mod 2^32.
    EXPECT_EQ(size, 705032704u);
    // The pipe's reply carries only the size, never the status.
    EXPECT_EQ(status, TypeParam::kThroughPipe ? 0 : 1627);
}

TYPED_TEST(ConformanceTest, UncorrectedSizeKeepsOnlyTheLower32Bits) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued());
    uint64_t size = 99;
    EXPECT_EQ(this->Executor()->GetFileSize(0, false, &size), 0);
    EXPECT_EQ(size, 705032704u);
    EXPECT_EQ(this->Executor()->GetFileSize(5, false, &size), 0);
    EXPECT_EQ(size, 1048583u);  // a log's real size, not the 5,242,880 announced
}

TYPED_TEST(ConformanceTest, ExtractionWritesTheObjectAndReportsProgress) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued());
    const TempDirectory temp("extract");
    const std::wstring directory = temp.Child(L"new\\dirs");
    RecordingProgress progress;
    RecordingErrors errors;
    ASSERT_EQ(this->Executor()->BeginExtract(), 0);
    EXPECT_EQ(this->Executor()->ExtractFile(kIndexFourBlocks, directory.c_str(), L"E01000A2.log",
                                            &progress, &errors),
              0);
    EXPECT_EQ(this->Executor()->EndExtract(), 0);
    ASSERT_FALSE(progress.reports.empty());
    EXPECT_EQ(progress.reports.front().bytesDone, 0u);
    for (const auto& report : progress.reports) {
        EXPECT_EQ(report.state, 1u);
    }
    EXPECT_EQ(progress.BytesDone(), 65536u);
    EXPECT_TRUE(errors.codes.empty());
    EXPECT_TRUE(VerifyAgainstStore(kSeededCatalogue[kIndexFourBlocks].objectId,
                                   directory + L"\\E01000A2.log"));
}

TYPED_TEST(ConformanceTest, ExtractionCancelledByProgressLeavesNoFile) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued());
    const TempDirectory temp("cancel");
    const std::wstring directory = temp.Path().wstring();
    RecordingProgress progress;
    progress.cancelAt = 2;  // the first data block is always reported at once
    ASSERT_EQ(this->Executor()->BeginExtract(), 0);
    EXPECT_EQ(this->Executor()->ExtractFile(kIndexTwoMegabytes, directory.c_str(), L"db.edb",
                                            &progress, nullptr),
              1223);
    EXPECT_EQ(this->Executor()->EndExtract(), 0);
    EXPECT_EQ(progress.reports.size(), 2u);
    EXPECT_FALSE(FileExists(directory + L"\\db.edb"));
}

TYPED_TEST(ConformanceTest, DiskFullRetriesOnceSpaceIsFreed) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued());
    const std::wstring directory = this->SmallDiskDirectory();
    ASSERT_FALSE(directory.empty());
    // Fill the disk, leaving less than one object's worth.
    const std::wstring filler = directory + L"\\filler";
    {
        HANDLE file =
            CreateFileW(filler.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
        ASSERT_NE(file, INVALID_HANDLE_VALUE);
        std::vector<char> block(4096, 'f');
        DWORD written = 0;
        while (WriteFile(file, block.data(), static_cast<DWORD>(block.size()), &written, nullptr) &&
               written == block.size()) {
        }
        CloseHandle(file);
    }
    RecordingErrors errors;
    errors.answer = [&](uint32_t code) -> uint32_t {
        if (code == NwErrorDiskFull && DeleteFileW(filler.c_str())) {
            return 1246;  // ERROR_CONTINUE: space was freed, write again
        }
        return 0;
    };
    ASSERT_EQ(this->Executor()->BeginExtract(), 0);
    EXPECT_EQ(this->Executor()->ExtractFile(kIndexFourBlocks, directory.c_str(), L"log.log",
                                            nullptr, &errors),
              0);
    EXPECT_EQ(this->Executor()->EndExtract(), 0);
    EXPECT_EQ(errors.codes, std::vector<uint32_t>{NwErrorDiskFull});
    EXPECT_TRUE(
        VerifyAgainstStore(kSeededCatalogue[kIndexFourBlocks].objectId, directory + L"\\log.log"));
    DeleteFileW((directory + L"\\log.log").c_str());
    RemoveDirectoryW(directory.c_str());
}

TYPED_TEST(ConformanceTest, DiskFullWithoutRetryCancelsAndLeavesNoFile) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued());
    const std::wstring directory = this->SmallDiskDirectory();
    ASSERT_FALSE(directory.empty());
    RecordingErrors errors;  // answers 0: give up
    ASSERT_EQ(this->Executor()->BeginExtract(), 0);
    EXPECT_EQ(this->Executor()->ExtractFile(kIndexTwoMegabytes, directory.c_str(), L"db.edb",
                                            nullptr, &errors),
              1223);
    EXPECT_EQ(this->Executor()->EndExtract(), 0);
    EXPECT_EQ(errors.codes, std::vector<uint32_t>{NwErrorDiskFull});
    EXPECT_FALSE(FileExists(directory + L"\\db.edb"));
    RemoveDirectoryW(directory.c_str());
}

TYPED_TEST(ConformanceTest, FailedDataTransferLeavesNoFile) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued(L"BSAGetData=3@2"));
    const TempDirectory temp("fault");
    const std::wstring directory = temp.Path().wstring();
    ASSERT_EQ(this->Executor()->BeginExtract(), 0);
    EXPECT_EQ(this->Executor()->ExtractFile(kIndexFourBlocks, directory.c_str(), L"x.log", nullptr,
                                            nullptr),
              static_cast<int32_t>(0x80004005));
    EXPECT_FALSE(FileExists(directory + L"\\x.log"));
}

TYPED_TEST(ConformanceTest, RefusedQueryIsReportedThroughTheErrorCallback) {
    this->Start(L"BSAQueryObject=4");
    RecordingFileFound found;
    RecordingErrors errors;
    EXPECT_EQ(this->CatalogueAll(&found, &errors), 0);
    EXPECT_TRUE(found.found.empty());
    EXPECT_EQ(errors.codes, std::vector<uint32_t>{NwErrorQueryAccess});
}

TYPED_TEST(ConformanceTest, FailedSessionStartReturnsTheSameStatus) {
    ScopedEnvironment faults(L"NWSIM_FAULTS", L"BSAInit=3");
    auto session = TypeParam::Open();
    EXPECT_EQ(session->Initialize("cli", "srv"), static_cast<int32_t>(0x8007000A));
}

TYPED_TEST(ConformanceTest, QuitDuringExtraction) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued());
    const TempDirectory temp("quit");
    const std::wstring directory = temp.Path().wstring();
    RecordingProgress progress;
    int32_t quitStatus = -1;
    progress.onReport = [&](size_t report) {
        if (report == 2) {
            quitStatus = this->Executor()->Quit();
        }
    };
    ASSERT_EQ(this->Executor()->BeginExtract(), 0);
    const int32_t status = this->Executor()->ExtractFile(kIndexTwoMegabytes, directory.c_str(),
                                                         L"db.edb", &progress, nullptr);
    EXPECT_EQ(quitStatus, 0);
    if (TypeParam::kThroughPipe) {
        // Quit sends nothing: the extraction runs to its end.
        EXPECT_EQ(status, 0);
        EXPECT_TRUE(VerifyAgainstStore(kSeededCatalogue[kIndexTwoMegabytes].objectId,
                                       directory + L"\\db.edb"));
    } else {
        EXPECT_EQ(status, 1223);
        EXPECT_FALSE(FileExists(directory + L"\\db.edb"));
    }
}

// A library whose records are 4 KiB longer than ours reads and writes that much beyond every
// record it is given; the headroom behind each one keeps the session whole.
TYPED_TEST(ConformanceTest, OversizedRecordsStillListSizeAndRestoreByteExactly) {
    ASSERT_NO_FATAL_FAILURE(this->Start(L"records=oversized"));
    RecordingFileFound found;
    RecordingErrors errors;
    EXPECT_EQ(this->CatalogueAll(&found, &errors), 0);
    EXPECT_TRUE(errors.codes.empty());
    ExpectSeededEntries(found);
    uint64_t size = 0;
    EXPECT_EQ(this->Executor()->GetFileSize(0, true, &size), 0);
    EXPECT_EQ(size, 5000000000u);
    EXPECT_EQ(this->Executor()->GetFileSize(5, false, &size), 0);
    EXPECT_EQ(size, 1048583u);

    const TempDirectory temp("oversized");
    const std::wstring directory = temp.Path().wstring();
    RecordingProgress progress;
    ASSERT_EQ(this->Executor()->BeginExtract(), 0);
    EXPECT_EQ(this->Executor()->ExtractFile(kIndexTwoMegabytes, directory.c_str(), L"db.edb",
                                            &progress, &errors),
              0);
    EXPECT_EQ(this->Executor()->ExtractFile(kIndexFourBlocks, directory.c_str(), L"log.log",
                                            nullptr, &errors),
              0);
    EXPECT_EQ(this->Executor()->EndExtract(), 0);
    EXPECT_EQ(progress.BytesDone(), 2097153u);
    EXPECT_TRUE(
        VerifyAgainstStore(kSeededCatalogue[kIndexTwoMegabytes].objectId, directory + L"\\db.edb"));
    EXPECT_TRUE(
        VerifyAgainstStore(kSeededCatalogue[kIndexFourBlocks].objectId, directory + L"\\log.log"));
}

// The server's own codes for a buffer too small (78) and a null argument (85) reach the host
// mapped, with the mapping's line, the failure and its HRESULT line in the log.
TYPED_TEST(ConformanceTest, ServerCodes78And85ReachTheHostMapped) {
    struct Case {
        const wchar_t* fault;
        const char* failure;
        int32_t status;
        const char* hresultLine;
    };
    const Case cases[] = {
        {L"BSAGetData=78", "BSAGetData failed", static_cast<int32_t>(0x8007007A),
         "HRESULT 8007007a GetLastError() "},
        {L"BSAGetObject=85", "BSAGetObject failed", static_cast<int32_t>(0x80070057),
         "HRESULT 80070057 GetLastError() "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.failure);
        const TempDirectory temp("codes");
        const std::wstring logFile = temp.Child(L"session.log");
        {
            const ScopedEnvironment logging(L"TARNLOG_FILE", logFile);
            ASSERT_NO_FATAL_FAILURE(this->StartCatalogued(c.fault));
            RecordingErrors errors;
            ASSERT_EQ(this->Executor()->BeginExtract(), 0);
            EXPECT_EQ(this->Executor()->ExtractFile(kIndexFourBlocks, temp.Path().c_str(), L"x.log",
                                                    nullptr, &errors),
                      c.status);
            EXPECT_EQ(this->Executor()->EndExtract(), 0);
            EXPECT_TRUE(errors.codes.empty());
            EXPECT_FALSE(FileExists(temp.Child(L"x.log")));
            this->TearDown();  // the helper's log lines are all written once it has ended
        }
        const std::string log = ReadWholeFile(logFile);
        const std::string code = c.status == static_cast<int32_t>(0x8007007A) ? "78" : "85";
        const std::string mapped = LogLineWith(log, "BSA Error " + code);
        EXPECT_NE(mapped.find("BSAError2HResult"), std::string::npos) << log;
        const std::string failure = LogLineWith(log, c.failure);
        EXPECT_NE(failure.find("NetWorkerApiExecutor::ExtractFile"), std::string::npos) << log;
        const size_t failureAt = log.find(c.failure);
        ASSERT_NE(failureAt, std::string::npos) << log;
        EXPECT_NE(log.find(c.hresultLine, failureAt), std::string::npos) << log;
    }
}

// A failure before this call created the file leaves a host's file of that name alone.
TYPED_TEST(ConformanceTest, ExistingFileInARefusedDirectorySurvives) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued());
    const std::wstring name = UniquePipeName(L"survivor") + L".edb";
    const std::wstring path = L"C:\\" + name;
    ASSERT_TRUE(WriteWholeFile(path, "the host's own data"));
    ASSERT_EQ(this->Executor()->BeginExtract(), 0);
    // "C:\" has no level below the root: refused before any file is made.
    EXPECT_EQ(this->Executor()->ExtractFile(0, L"C:\\", name.c_str(), nullptr, nullptr),
              static_cast<int32_t>(0x80004005));
    EXPECT_EQ(this->Executor()->EndExtract(), 0);
    EXPECT_EQ(ReadWholeFile(path), "the host's own data");
    DeleteFileW(path.c_str());
}

TYPED_TEST(ConformanceTest, FileLockedByAnotherProcessSurvives) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued());
    const TempDirectory temp("locked");
    const std::wstring path = temp.Child(L"E01000A2.log");
    ASSERT_TRUE(WriteWholeFile(path, "in use elsewhere"));
    {
        const FileHolderProcess holder(path);
        ASSERT_TRUE(holder.Holding()) << holder.State();
        ASSERT_EQ(this->Executor()->BeginExtract(), 0);
        EXPECT_EQ(this->Executor()->ExtractFile(kIndexFourBlocks, temp.Path().c_str(),
                                                L"E01000A2.log", nullptr, nullptr),
                  static_cast<int32_t>(0x80004005));
        EXPECT_EQ(this->Executor()->EndExtract(), 0);
    }
    // A deletion would have been carried out when the holder let go.
    EXPECT_EQ(ReadWholeFile(path), "in use elsewhere");
}

TYPED_TEST(ConformanceTest, IncompleteFileIsStillDeletedAfterAFailedTransfer) {
    ASSERT_NO_FATAL_FAILURE(this->StartCatalogued(L"BSAGetData=3@3"));
    const TempDirectory temp("incomplete");
    const std::wstring path = temp.Child(L"E01000A2.log");
    ASSERT_TRUE(WriteWholeFile(path, "an older restore"));
    ASSERT_EQ(this->Executor()->BeginExtract(), 0);
    EXPECT_EQ(this->Executor()->ExtractFile(kIndexFourBlocks, temp.Path().c_str(), L"E01000A2.log",
                                            nullptr, nullptr),
              static_cast<int32_t>(0x80004005));
    EXPECT_EQ(this->Executor()->EndExtract(), 0);
    EXPECT_FALSE(FileExists(path));
}

}  // namespace
