// The executor over the real wrapper and the simulated NetWorker installation.

#include <windows.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "Journal.h"
#include "common/TarnError.h"
#include "common/WideFormat.h"
#include "SimulatedExecutor.h"
#include "interfaces/NetWorkerStatus.h"

namespace {

using LogTexts = std::vector<std::pair<LogLevel, std::wstring>>;

std::wstring Found(unsigned n, unsigned size, unsigned capacity) {
    return L"Found " + std::to_wstring(n) + L" items. m_smVecObjects  size = " +
           std::to_wstring(size) + L", capacity = " + std::to_wstring(capacity) + L".\n";
}

bool StartsWith(const std::wstring& text, const std::wstring& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

std::string FieldOf(const std::string& journalLine, const std::string& key) {
    nwsim::ParsedJournalLine parsed;
    if (!nwsim::ParseJournalLine(journalLine, parsed)) {
        return "<unparsed>";
    }
    const std::string* value = parsed.Find(key);
    return value != nullptr ? *value : "<missing>";
}

}  // namespace

TEST_F(SimulatedExecutorTest, InitializeHandsBSAInitTheSessionEnvironment) {
    Install();
    ASSERT_EQ(0, Open());
    const std::vector<std::string> inits = m_simulator->JournalLinesOf("BSAInit");
    ASSERT_EQ(1u, inits.size());
    nwsim::ParsedJournalLine init;
    ASSERT_TRUE(nwsim::ParseJournalLine(inits[0], init)) << inits[0];
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"env0", "NSR_CLIENT=cli"}, {"env1", "NSR_DEBUG_LEVEL=0"},
        {"env2", "NSR_SERVER=srv"}, {"env3", "NSR_NO_BUSY_ERRORS=TRUE"},
        {"envCount", "4"},          {"bsaOwner", "MSEXCH"},
        {"appOwner", "msexch"},     {"rc", "0"},
    };
    for (const auto& [key, value] : expected) {
        ASSERT_NE(nullptr, init.Find(key)) << key;
        EXPECT_EQ(value, *init.Find(key)) << key;
    }
    EXPECT_EQ((LogTexts{{LogLevelInfo, L"Networker API Issue 1 Version 2 level 3\n"}}), Lines());
    // The order of the calls that opened the session; nothing terminates it.
    std::vector<std::string> calls;
    for (const std::string& line : m_simulator->JournalLines()) {
        calls.push_back(line.substr(0, line.find(' ')));
    }
    EXPECT_EQ((std::vector<std::string>{"_lginit", "nsrlib_init", "BSAQueryApiVersion", "BSAInit"}),
              calls);
    Close();
    EXPECT_TRUE(m_simulator->JournalLinesOf("BSATerminate").empty());
}

TEST_F(SimulatedExecutorTest, AFailedVersionQueryIsOnlyReported) {
    // The version is only logged: a failing BSAQueryApiVersion neither stops the session nor
    // the catalogue, and the zeroed record is what the log shows.
    Install();
    m_simulator->SetFaults(L"BSAQueryApiVersion=3");
    ASSERT_EQ(0, Open());
    EXPECT_EQ((LogTexts{{LogLevelInfo, L"Networker API Issue 0 Version 0 level 0\n"}}), Lines());
    EXPECT_EQ("3", FieldOf(m_simulator->JournalLinesOf("BSAQueryApiVersion").at(0), "rc"));
    ClearLog();
    EXPECT_EQ(14u, CatalogAll().size());
    EXPECT_TRUE(m_error.codes.empty());
}

TEST_F(SimulatedExecutorTest, UnknownClientIsBadEnvironment) {
    Install();
    m_wrapper = std::make_unique<NetWorkerApiWrapper>();
    m_executor = std::make_unique<NetWorkerApiExecutor>(m_wrapper.get());
    SetLastError(0);
    EXPECT_EQ(static_cast<int32_t>(0x8007000A), m_executor->Initialize("nobody", "srv"));
    const LogTexts lines = Lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(L"BSAInit Failed", lines[1].second);
    EXPECT_EQ("4", FieldOf(m_simulator->JournalLinesOf("BSAInit").at(0), "rc"));
}

TEST_F(SimulatedExecutorTest, CatalogueOfTheSeededBackup) {
    Install();
    ASSERT_EQ(0, Open());
    ClearLog();
    const std::vector<FoundFile> files = CatalogAll();
    const std::vector<SeededObject>& seeded = SeededCatalogue();
    ASSERT_EQ(seeded.size(), files.size());
    for (size_t i = 0; i < files.size(); ++i) {
        const NetWorkerFileInfo& info = files[i].info;
        EXPECT_EQ(i, info.index);
        EXPECT_EQ(seeded[i].path, files[i].path) << i;
        EXPECT_EQ(seeded[i].announced, info.size) << seeded[i].path;
        EXPECT_EQ(3000000ULL + static_cast<uint64_t>(seeded[i].id - 8), info.restoreOrder);
        EXPECT_EQ(2024, info.backupTime.wYear);
        EXPECT_EQ(5, info.backupTime.wMonth);
        EXPECT_EQ(8, info.backupTime.wDay);
        EXPECT_EQ(23, info.backupTime.wHour);
        EXPECT_EQ(59, info.backupTime.wMinute);
        EXPECT_EQ(30, info.backupTime.wSecond);
        EXPECT_EQ(0, info.backupTime.wDayOfWeek);
        EXPECT_EQ(0, info.backupTime.wMilliseconds);
    }
    EXPECT_TRUE(m_error.codes.empty());
    EXPECT_EQ((LogTexts{{LogLevelInfo, Found(14, 14, 10240)}}), Lines());

    // The query asked the server for the most recent backup copies of MSEXCH/msexch files.
    const std::string query = m_simulator->JournalLinesOf("BSAQueryObject").at(0);
    EXPECT_EQ("MSEXCH", FieldOf(query, "qBsaOwner"));
    EXPECT_EQ("msexch", FieldOf(query, "qAppOwner"));
    EXPECT_EQ("1", FieldOf(query, "copyType"));
    EXPECT_EQ("1", FieldOf(query, "objectType"));
    EXPECT_EQ("1", FieldOf(query, "status"));
    EXPECT_EQ(1u, m_simulator->JournalLinesOf("BSAEndTxn").size());

    // A second catalogue indexes from 0 again.
    const std::vector<FoundFile> again = CatalogAll();
    ASSERT_EQ(seeded.size(), again.size());
    EXPECT_EQ(0u, again[0].info.index);
}

TEST_F(SimulatedExecutorTest, TimeWindowsCompareTheBackupDate) {
    Install();
    ASSERT_EQ(0, Open());
    const FILETIME backupDay = MidnightOf(2024, 5, 8);
    const FILETIME nextDay = MidnightOf(2024, 5, 9);
    const FILETIME dayBefore = MidnightOf(2024, 5, 7);

    m_found.files.clear();
    m_executor->Catalog(&backupDay, &backupDay, &m_found, &m_error);
    EXPECT_EQ(14u, m_found.files.size()) << "23:59:30 on the bound's day counts as that day";
    m_found.files.clear();
    m_executor->Catalog(nullptr, &nextDay, &m_found, &m_error);
    EXPECT_EQ(0u, m_found.files.size());
    m_found.files.clear();
    m_executor->Catalog(&dayBefore, nullptr, &m_found, &m_error);
    EXPECT_EQ(0u, m_found.files.size());
    m_found.files.clear();
    m_executor->Catalog(&nextDay, &dayBefore, &m_found, &m_error);
    EXPECT_EQ(14u, m_found.files.size());
    EXPECT_THROW(m_executor->Catalog(&dayBefore, &nextDay, &m_found, &m_error),
                 std::invalid_argument);
}

TEST_F(SimulatedExecutorTest, FileSizesWithAndWithoutCorrection) {
    Install();
    ASSERT_EQ(0, Open());
    CatalogAll();
    m_simulator->ClearJournal();
    uint64_t size = 0;
    EXPECT_EQ(0, m_executor->GetFileSize(0, false, &size));
    EXPECT_EQ(705032704u, size);
    EXPECT_TRUE(m_simulator->JournalLinesOf("nsrinfo").empty());

    EXPECT_EQ(0, m_executor->GetFileSize(0, true, &size));
    EXPECT_EQ(5000000000ULL, size);
    const std::vector<std::string> runs = m_simulator->JournalLinesOf("nsrinfo");
    ASSERT_EQ(1u, runs.size());
    EXPECT_EQ(
        "-v -V -s srv -n msexch -N \"\\IS:/First Storage Group/Mailbox Store (EX01).edb\" cli",
        FieldOf(runs[0], "cmdline"));

    // A log: the catalogue's size, not the announced 5,242,880.
    EXPECT_EQ(0, m_executor->GetFileSize(5, false, &size));
    EXPECT_EQ(1048583u, size);

    // nsrinfo failing: its status, and the catalogue's 32-bit size as the fallback.
    m_simulator->SetFaults(L"nsrinfo.exit=2");
    EXPECT_EQ(1627, m_executor->GetFileSize(0, true, &size));
    EXPECT_EQ(705032704u, size);
    m_simulator->SetFaults(L"");
}

TEST_F(SimulatedExecutorTest, ExtractsEveryCatalogedObjectByteForByte) {
    Install();
    // The seeded 5 GB database is shrunk to keep the test short; its index stays 0.
    SetStoreField(12, 11, "3000001");
    TempDirectory temp;
    for (const wchar_t* faults : {L"", L"BSAGetObject.bufferLen=40000"}) {
        m_simulator->SetFaults(faults);
        ASSERT_EQ(0, Open());
        ASSERT_EQ(SeededCatalogue().size(), CatalogAll().size());
        m_simulator->ClearJournal();
        const std::wstring root = temp.Child(*faults ? L"large" : L"default") + L"\\restore";
        ASSERT_EQ(0, m_executor->BeginExtract());
        for (uint32_t i = 0; i < SeededCatalogue().size(); ++i) {
            const SeededObject& object = SeededCatalogue()[i];
            const std::wstring directory = root + L"\\" + GroupOf(object.path);
            m_progress.reports.clear();
            ASSERT_EQ(0,
                      m_executor->ExtractFile(i, directory.c_str(), FileNameOf(object.path).c_str(),
                                              &m_progress, &m_error))
                << object.path;
            const std::wstring file = directory + L"\\" + FileNameOf(object.path);
            std::string output;
            EXPECT_TRUE(Verify(object.id, file, &output)) << output;
            uint64_t total = 0;
            for (size_t r = 1; r < m_progress.reports.size(); ++r) {
                total += m_progress.reports[r].bytesDone;
            }
            EXPECT_EQ(object.id == 12 ? 3000001u : object.size, total) << object.path;
        }
        ASSERT_EQ(0, m_executor->EndExtract());
        EXPECT_TRUE(m_error.codes.empty());
        const std::string expectedLen = *faults ? "40000" : "16384";
        for (const std::string& line : m_simulator->JournalLinesOf("BSAGetData")) {
            ASSERT_EQ(expectedLen, FieldOf(line, "bufferLen")) << line;
        }
        EXPECT_EQ(SeededCatalogue().size(), m_simulator->JournalLinesOf("BSAEndData").size());
    }
    m_simulator->SetFaults(L"");
}

namespace {

struct FaultCase {
    const char* call;
    const char* when;  // the call's number within the session, "" for every call
};

// Every XBSA return code that the library maps to a failure status.
const int kFailureCodes[] = {3, 4, 5, 6, 11, 32, 52, 75, 77, 78, 79, 80, 81, 83, 85};

int32_t Mapped(int code) {
    return BSAError2HResult(code, nullptr);
}

std::wstring HResultPrefix(int32_t status) {
    return FormatWideString(L"HRESULT %08lx GetLastError() ",
                            static_cast<unsigned long>(static_cast<uint32_t>(status)));
}

}  // namespace

TEST_F(SimulatedExecutorTest, FaultMatrix) {
    Install();
    TempDirectory temp;
    const std::wstring directory = temp.Child(L"faults");
    // Index 9 is the 262,147-byte streaming file of the second storage group: 17 blocks.
    const uint32_t index = 9;
    const std::wstring file = directory + L"\\Mailbox Store 2 (EX01).stm";

    for (int code : kFailureCodes) {
        const int32_t status = Mapped(code);
        ASSERT_LT(status, 0) << code;
        const std::wstring bsaError = L"BSA Error " + std::to_wstring(code) + L"\n";
        SCOPED_TRACE("code " + std::to_string(code));

        // BSAInit: always the same status.
        m_simulator->SetFaults(L"BSAInit=" + std::to_wstring(code));
        EXPECT_EQ(static_cast<int32_t>(0x8007000A), Open());
        EXPECT_EQ(L"BSAInit Failed", Lines().at(1).second);

        // Catalogue: begin, query, fetch.
        m_simulator->SetFaults(L"BSABeginTxn=" + std::to_wstring(code) + L"@1");
        ASSERT_EQ(0, Open());
        m_error.codes.clear();
        ClearLog();
        EXPECT_TRUE(CatalogAll().empty());
        EXPECT_EQ(std::vector<uint32_t>{9}, m_error.codes);
        LogTexts lines = Lines();
        ASSERT_EQ(4u, lines.size());
        EXPECT_EQ(bsaError, lines[0].second);
        EXPECT_EQ(L"BSABeginTxn failed", lines[1].second);
        EXPECT_TRUE(StartsWith(lines[2].second, HResultPrefix(status)));
        EXPECT_EQ(Found(0, 0, 0), lines[3].second);

        m_simulator->SetFaults(L"BSAQueryObject=" + std::to_wstring(code));
        ASSERT_EQ(0, Open());
        m_error.codes.clear();
        ClearLog();
        EXPECT_TRUE(CatalogAll().empty());
        EXPECT_EQ(std::vector<uint32_t>{code == 4 ? 18u : 17u}, m_error.codes);
        lines = Lines();
        ASSERT_EQ(4u, lines.size());
        EXPECT_EQ(L"BSAQueryObject failed", lines[1].second);

        m_simulator->SetFaults(L"BSAGetNextQueryObject=" + std::to_wstring(code) + L"@5");
        ASSERT_EQ(0, Open());
        m_error.codes.clear();
        ClearLog();
        EXPECT_EQ(2u, CatalogAll().size());
        EXPECT_EQ(std::vector<uint32_t>{17}, m_error.codes);
        lines = Lines();
        ASSERT_EQ(4u, lines.size());
        EXPECT_EQ(L"BSAGetNextQueryObject failed", lines[1].second);
        EXPECT_EQ(Found(2, 2, 10240), lines[3].second);

        // Extraction: the transaction, the object, its data, its end.
        struct ExtractCase {
            std::wstring faults;
            const wchar_t* message;  // null: the extraction itself succeeds
        };
        const std::wstring c = std::to_wstring(code);
        const ExtractCase extractCases[] = {
            {L"BSAGetObject=" + c, L"BSAGetObject failed"},
            {L"BSAGetData=" + c + L"@2", L"BSAGetData failed"},
            {L"BSAGetData=" + c + L"@17", L"BSAGetData failed"},
            {L"BSAEndData=" + c, nullptr},
        };
        for (const ExtractCase& extract : extractCases) {
            SCOPED_TRACE(std::string(extract.faults.begin(), extract.faults.end()));
            m_simulator->SetFaults(extract.faults);
            ASSERT_EQ(0, Open());
            ASSERT_EQ(14u, CatalogAll().size());
            ASSERT_EQ(0, m_executor->BeginExtract());
            ClearLog();
            m_simulator->ClearJournal();
            const int32_t result = m_executor->ExtractFile(
                index, directory.c_str(), L"Mailbox Store 2 (EX01).stm", nullptr, &m_error);
            lines = Lines();
            EXPECT_EQ(1u, m_simulator->JournalLinesOf("BSAEndData").size());
            if (extract.message != nullptr) {
                EXPECT_EQ(status, result);
                EXPECT_FALSE(FileExists(file)) << "no partial file";
                // BSAEndData follows on every path; after a failed open the server refuses it.
                ASSERT_GE(lines.size(), 4u);
                EXPECT_EQ(bsaError, lines[1].second);
                EXPECT_EQ(extract.message, lines[2].second);
                EXPECT_TRUE(StartsWith(lines[3].second, HResultPrefix(status)));
            } else {
                EXPECT_EQ(0, result);
                EXPECT_TRUE(Verify(21, file));
                ASSERT_EQ(3u, lines.size());
                EXPECT_EQ(bsaError, lines[1].second);
                EXPECT_EQ(
                    FormatWideString(L"BSAEndData failed with error %08lx.\n",
                                     static_cast<unsigned long>(static_cast<uint32_t>(status))),
                    lines[2].second);
            }
            m_executor->EndExtract();
        }

        // The extraction transaction's own begin and end.
        m_simulator->SetFaults(L"BSABeginTxn=" + c + L"@2");
        ASSERT_EQ(0, Open());
        CatalogAll();
        ClearLog();
        EXPECT_EQ(status, m_executor->BeginExtract());
        EXPECT_EQ(L"BSABeginTxn failed", Lines().at(1).second);
        m_simulator->SetFaults(L"BSAEndTxn=" + c + L"@2");
        ASSERT_EQ(0, Open());
        CatalogAll();
        ASSERT_EQ(0, m_executor->BeginExtract());
        ClearLog();
        EXPECT_EQ(status, m_executor->EndExtract());
        EXPECT_EQ(L"BSAEndTxn failed", Lines().at(1).second);
    }
    m_simulator->SetFaults(L"");
}

TEST_F(SimulatedExecutorTest, NoMatchIsNoExchangeObjects) {
    Install();
    for (int code : {17, 26}) {
        m_simulator->SetFaults(L"BSAQueryObject=" + std::to_wstring(code));
        ASSERT_EQ(0, Open());
        m_error.codes.clear();
        ClearLog();
        EXPECT_TRUE(CatalogAll().empty());
        EXPECT_TRUE(m_error.codes.empty());
        const LogTexts lines = Lines();
        ASSERT_EQ(3u, lines.size());
        EXPECT_EQ(L"No Exchange Objects", lines[0].second);
        EXPECT_TRUE(StartsWith(lines[1].second, L"HRESULT 00000491 GetLastError() "));
    }
    m_simulator->SetFaults(L"");
}

namespace {

// Forwards to the real wrapper; holds BSAGetObject until the test has quit twice.
class GateWrapper : public INetWorkerApiWrapper {
public:
    explicit GateWrapper(INetWorkerApiWrapper* inner) : m_inner(inner) {}
    std::function<void()> insideGetObject;

    int32_t Initialize() override { return m_inner->Initialize(); }
    int32_t BSAInit(BSA_Handle* h, BSA_SecurityToken* t, BSA_ObjectOwner* o, char** e) override {
        return m_inner->BSAInit(h, t, o, e);
    }
    int32_t BSATerminate(BSA_Handle h) override { return m_inner->BSATerminate(h); }
    int32_t BSABeginTxn(BSA_Handle h) override { return m_inner->BSABeginTxn(h); }
    int32_t BSAEndTxn(BSA_Handle h) override { return m_inner->BSAEndTxn(h); }
    int32_t BSAQueryObject(BSA_Handle h, BSA_QueryDescriptor* q, BSA_ObjectDescriptor* d) override {
        return m_inner->BSAQueryObject(h, q, d);
    }
    int32_t BSAQueryApiVersion(BSA_ApiVersion* v) override {
        return m_inner->BSAQueryApiVersion(v);
    }
    int32_t BSAGetNextQueryObject(BSA_Handle h, BSA_ObjectDescriptor* d) override {
        return m_inner->BSAGetNextQueryObject(h, d);
    }
    int32_t BSAGetObject(BSA_Handle h, BSA_ObjectDescriptor* d, BSA_DataBlock32* b) override {
        const int32_t rc = m_inner->BSAGetObject(h, d, b);
        if (insideGetObject) {
            insideGetObject();
        }
        return rc;
    }
    int32_t BSAGetData(BSA_Handle h, BSA_DataBlock32* b) override {
        return m_inner->BSAGetData(h, b);
    }
    int32_t BSAEndData(BSA_Handle h) override { return m_inner->BSAEndData(h); }
    int32_t CorrectFileSize(const BSA_ObjectDescriptor* d, uint64_t* s, const char* server,
                            const char* client) override {
        return m_inner->CorrectFileSize(d, s, server, client);
    }

private:
    INetWorkerApiWrapper* m_inner;
};

}  // namespace

TEST_F(SimulatedExecutorTest, QuitFromASecondThreadDuringBSAGetObject) {
    Install();
    NetWorkerApiWrapper real;
    GateWrapper gate(&real);
    NetWorkerApiExecutor executor(&gate);
    ASSERT_EQ(0, executor.Initialize("cli", "srv"));
    RecordingFileFound found;
    ASSERT_EQ(0, executor.Catalog(nullptr, nullptr, &found, &m_error));
    ASSERT_EQ(0, executor.BeginExtract());

    std::vector<int32_t> answers;
    std::mutex mutex;
    std::condition_variable quitDone;
    bool done = false;
    std::thread quitter;
    gate.insideGetObject = [&] {
        // The working thread is inside BSAGetObject until the second thread has quit twice.
        quitter = std::thread([&] {
            const int32_t first = executor.Quit();
            const int32_t second = executor.Quit();
            std::lock_guard<std::mutex> lock(mutex);
            answers = {first, second};
            done = true;
            quitDone.notify_one();
        });
        std::unique_lock<std::mutex> lock(mutex);
        quitDone.wait(lock, [&] { return done; });
    };
    TempDirectory temp;
    EXPECT_EQ(1223, executor.ExtractFile(9, temp.Path().c_str(), L"x.stm", nullptr, &m_error));
    quitter.join();
    EXPECT_EQ((std::vector<int32_t>{1, 0}), answers);
    EXPECT_FALSE(FileExists(temp.Child(L"x.stm")));
    EXPECT_TRUE(m_simulator->JournalLinesOf("BSAGetData").empty());
    EXPECT_EQ(1u, m_simulator->JournalLinesOf("BSAEndData").size());
    EXPECT_EQ(0, executor.EndExtract());
}

TEST_F(SimulatedExecutorTest, QuitDuringAThrottledTransfer) {
    Install();
    // 2 MB at 256 KiB/s: eight seconds unless cancelled.
    m_simulator->SetFaults(L"throttle=262144");
    ASSERT_EQ(0, Open());
    CatalogAll();
    ASSERT_EQ(0, m_executor->BeginExtract());
    HANDLE dataFlowing = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    std::atomic<int32_t> quitAnswer{-1};
    std::thread quitter([&] {
        WaitForSingleObject(dataFlowing, INFINITE);
        quitAnswer = m_executor->Quit();
    });
    m_progress.answer = [&](size_t report) {
        if (report >= 1) {
            SetEvent(dataFlowing);
        }
        return false;
    };
    TempDirectory temp;
    ClearLog();
    EXPECT_EQ(1223,
              m_executor->ExtractFile(8, temp.Path().c_str(), L"big.edb", &m_progress, &m_error));
    quitter.join();
    CloseHandle(dataFlowing);
    EXPECT_EQ(0, quitAnswer.load());
    EXPECT_FALSE(FileExists(temp.Child(L"big.edb")));
    EXPECT_LT(m_simulator->JournalLinesOf("BSAGetData").size(), 2097153u / 16384);
    EXPECT_EQ(L"User Canceled the extraction process", Lines().at(1).second);
    m_simulator->SetFaults(L"");
}

TEST_F(SimulatedExecutorTest, FileFoundCallbackThatThrowsStillEndsTheTransaction) {
    Install();
    ASSERT_EQ(0, Open());
    m_simulator->ClearJournal();
    m_found.answer = [](const NetWorkerFileInfo& file) -> bool {
        if (file.index == 2) {
            throw std::runtime_error("the host went away");
        }
        return false;
    };
    EXPECT_THROW(m_executor->Catalog(nullptr, nullptr, &m_found, &m_error), std::runtime_error);
    // The server saw the transaction ended, successfully, after the last query call.
    std::vector<std::string> calls;
    for (const std::string& line : m_simulator->JournalLines()) {
        calls.push_back(line.substr(0, line.find(' ')));
    }
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ("BSAEndTxn", calls.back());
    EXPECT_EQ("0", FieldOf(m_simulator->JournalLinesOf("BSAEndTxn").back(), "rc"));
    // Nothing is left open: the next catalogue begins its own transaction and sees it all.
    m_found.answer = nullptr;
    EXPECT_EQ(SeededCatalogue().size(), CatalogAll().size());
    EXPECT_EQ("0", FieldOf(m_simulator->JournalLinesOf("BSABeginTxn").back(), "rc"));
}

TEST_F(SimulatedExecutorTest, ProgressCallbackThatThrowsEndsTheDataAndLeavesNoPartialFile) {
    Install();
    ASSERT_EQ(0, Open());
    CatalogAll();
    ASSERT_EQ(0, m_executor->BeginExtract());
    m_simulator->ClearJournal();
    TempDirectory temp;
    m_progress.answer = [](size_t report) -> bool {
        if (report == 1) {
            throw std::runtime_error("Other end of pipe disconnected");
        }
        return false;
    };
    // Object 20, 2,097,153 bytes: the first block is on disk when the callback throws.
    EXPECT_THROW(m_executor->ExtractFile(8, temp.Path().c_str(), L"big.edb", &m_progress, &m_error),
                 std::runtime_error);
    EXPECT_FALSE(FileExists(temp.Child(L"big.edb")));
    const std::vector<std::string> endData = m_simulator->JournalLinesOf("BSAEndData");
    ASSERT_EQ(1u, endData.size());
    EXPECT_EQ("0", FieldOf(endData[0], "rc"));
    EXPECT_EQ(1u, m_simulator->JournalLinesOf("BSAGetData").size());

    // The transfer was closed: the same session extracts the object in full and ends cleanly.
    m_progress.answer = nullptr;
    ASSERT_EQ(0,
              m_executor->ExtractFile(8, temp.Path().c_str(), L"big.edb", &m_progress, &m_error));
    std::string output;
    EXPECT_TRUE(Verify(20, temp.Child(L"big.edb"), &output)) << output;
    EXPECT_EQ(0, m_executor->EndExtract());
}
