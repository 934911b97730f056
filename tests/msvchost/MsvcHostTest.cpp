// Hosts built for the Visual C++ ABI (msvc_host.exe, msvc_host_nowchar.exe) run whole sessions
// through the SDK against the simulated NetWorker; this program starts them, reads what they
// print and checks it, verifies every restored byte with nwsim-admin, and reads what a logging
// library built for the Visual C++ ABI received.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "HostProgram.h"
#include "ScopedEnvironment.h"
#include "SimulatorFixture.h"
#include "TestFiles.h"
#include "common/UniqueHandle.h"

namespace {

std::wstring BuildDirectory() {
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring program(path, length);
    const std::wstring bin = program.substr(0, program.rfind(L'\\'));
    return bin.substr(0, bin.rfind(L'\\'));
}

std::wstring HostDirectory(const wchar_t* flavour) {
    return BuildDirectory() + L"\\msvchost\\" + flavour;
}

std::wstring Wide(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

size_t Occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    std::string line;
    while (std::getline(stream, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(line);
    }
    return lines;
}

// One line the stand-in logging library recorded.
struct LogRecord {
    std::string pid;
    std::string what;  // "GetLogger", "FreeLogger" or "slot <n>"
    std::string logger;
    std::string method;
    std::string text;
};

std::vector<LogRecord> ParseLogRecords(const std::string& content) {
    std::vector<LogRecord> records;
    for (const std::string& line : Lines(content)) {
        std::vector<std::string> fields;
        std::string::size_type start = 0;
        for (;;) {
            const std::string::size_type tab = line.find('\t', start);
            fields.push_back(line.substr(start, tab - start));
            if (tab == std::string::npos) {
                break;
            }
            start = tab + 1;
        }
        LogRecord record;
        record.pid = fields[0];
        record.what = fields.size() > 1 ? fields[1] : "";
        record.logger = fields.size() > 2 ? fields[2] : "";
        record.method = fields.size() > 3 ? fields[3] : "";
        record.text = fields.size() > 4 ? fields[4] : "";
        records.push_back(record);
    }
    return records;
}

// The catalogue of the seeded backup as the host sees it, and the two files it restores.
constexpr char kStreamingObject[] = "/Second Storage Group/Mailbox Store 2 (EX01).stm";
constexpr char kLogObject[] = "/Second Storage Group/E01000A2.log";

enum class Mode { InProcess, Helper };

class MsvcHost : public ::testing::Test {
protected:
    static void SetUpTestSuite() { s_simulator = std::make_unique<SimulatorFixture>(); }
    static void TearDownTestSuite() { s_simulator.reset(); }

    void SetUp() override {
        ASSERT_TRUE(s_simulator->Ready()) << s_simulator->Failure();
        s_simulator->SetFaults(L"");
        m_restoreDirectory = m_scratch.Child(L"restored");
        m_logFile = m_scratch.Child(L"msvclogger.log");
    }

    HostRun Run(const wchar_t* flavour, const std::wstring& mode) {
        const ScopedEnvironment logFile(L"NWX_MSVCLOG_FILE", m_logFile);
        return RunHost(HostDirectory(flavour), L"msvc_host.exe",
                       mode + L" \"" + m_restoreDirectory + L"\"");
    }

    // Everything a whole session prints, and every restored byte against the backup. The day of
    // the week is 0 in process and filled in through the helper (2024-05-08 was a Wednesday),
    // which turns the time into a FILETIME and back.
    void ExpectWholeSession(const HostRun& run, Mode mode) {
        const std::string time = std::string("time=2024-05-08 23:59:30 wday=") +
                                 (mode == Mode::InProcess ? "0" : "3") + " ms=0 ";
        EXPECT_EQ(run.exitCode, 0u) << run.output;
        EXPECT_TRUE(run.Has("initialize status=0")) << run.output;
        EXPECT_TRUE(run.Has("catalog status=0 files=14")) << run.output;
        EXPECT_TRUE(
            run.Has("file index=0 " + time +
                    "size=0 "
                    "restoreOrder=3000004 path=/First Storage Group/Mailbox Store (EX01).edb"))
            << run.output;
        EXPECT_TRUE(run.Has("file index=9 " + time +
                            "size=0 "
                            "restoreOrder=3000013 path=" +
                            std::string(kStreamingObject)))
            << run.output;
        EXPECT_TRUE(run.Has("file index=12 " + time +
                            "size=5242880 "
                            "restoreOrder=3000016 path=" +
                            std::string(kLogObject)))
            << run.output;
        EXPECT_TRUE(run.Has("size index=9 correct=1 status=0 size=262147")) << run.output;
        EXPECT_TRUE(run.Has("size index=12 correct=0 status=0 size=65536")) << run.output;
        EXPECT_TRUE(run.Has("begin-extract status=0")) << run.output;
        EXPECT_NE(run.output.find("extract index=9 status=0 bytes=262147 "), std::string::npos)
            << run.output;
        EXPECT_NE(run.output.find("extract index=12 status=0 bytes=65536 "), std::string::npos)
            << run.output;
        // Every progress report of both files carried state 1.
        EXPECT_EQ(Occurrences(run.output, "badStates=0 file="), 2u) << run.output;
        EXPECT_TRUE(run.Has("end-extract status=0")) << run.output;
        EXPECT_TRUE(run.Has("quit status=0")) << run.output;
        ExpectRestored(kStreamingObject, L"Mailbox Store 2 (EX01).stm");
        ExpectRestored(kLogObject, L"E01000A2.log");
    }

    void ExpectRestored(const char* object, const wchar_t* file) {
        std::string output;
        EXPECT_TRUE(s_simulator->Verify(Wide(object), m_restoreDirectory + L"\\" + file, &output))
            << output;
    }

    std::vector<LogRecord> LogRecords() const {
        return ParseLogRecords(ReadWholeFile(std::filesystem::path(m_logFile)));
    }

    // The stand-in logging library was called only at the slots the library uses, every logger
    // it handed out came back, and the trace lines arrived at slot 4.
    void ExpectLoggingContract(const std::vector<LogRecord>& records) {
        ASSERT_FALSE(records.empty());
        std::map<std::string, int> open;  // pid + logger name -> loggers not yet freed
        for (const LogRecord& record : records) {
            EXPECT_EQ(record.text.find("unexpected call"), std::string::npos)
                << record.what << " of " << record.logger;
            if (record.what == "GetLogger") {
                ++open[record.pid + " " + record.logger];
            } else if (record.what == "FreeLogger") {
                --open[record.pid + " " + record.logger];
            }
        }
        for (const auto& [logger, count] : open) {
            EXPECT_EQ(count, 0) << "logger " << logger << " not freed exactly once per GetLogger";
        }
        const auto traced = [&](const std::string& method, const std::string& text) {
            return std::any_of(records.begin(), records.end(), [&](const LogRecord& r) {
                return r.what == "slot 4" && r.method == method && r.text == text;
            });
        };
        EXPECT_TRUE(traced("NetWorkerApiExecutor::Catalog", "Method Start"));
        EXPECT_TRUE(traced("NetWorkerApiExecutor::Catalog", "Method End"));
        EXPECT_TRUE(traced("NetWorkerApiExecutor::ExtractFile", "Method End"));
    }

    bool HasRecord(const std::vector<LogRecord>& records, const std::string& what,
                   const std::string& method, const std::string& textStart) const {
        return std::any_of(records.begin(), records.end(), [&](const LogRecord& r) {
            return r.what == what && r.method == method && r.text.rfind(textStart, 0) == 0;
        });
    }

    static std::unique_ptr<SimulatorFixture> s_simulator;
    TempDirectory m_scratch{"msvc-host"};
    std::wstring m_restoreDirectory;
    std::wstring m_logFile;
};

std::unique_ptr<SimulatorFixture> MsvcHost::s_simulator;

TEST_F(MsvcHost, InProcessSession) {
    ExpectWholeSession(Run(L"tarnlog", L"in-process"), Mode::InProcess);
}

TEST_F(MsvcHost, HelperSessionWithTheBuiltInLauncher) {
    const HostRun run = Run(L"tarnlog", L"helper");
    ExpectWholeSession(run, Mode::Helper);
    EXPECT_TRUE(run.Has("launcher calls=0")) << run.output;
}

TEST_F(MsvcHost, HelperSessionWithTheHostsOwnLauncher) {
    const HostRun run = Run(L"tarnlog", L"helper-launcher");
    ExpectWholeSession(run, Mode::Helper);
    EXPECT_NE(run.output.find("launcher pipe=nwx-msvc-host-launcher-"), std::string::npos)
        << run.output;
    EXPECT_TRUE(run.Has("launcher calls=1")) << run.output;
}

TEST_F(MsvcHost, OwnWrapperIsCalledAtSlotsOneToTwelve) {
    const HostRun run = Run(L"tarnlog", L"wrapper-double");
    ExpectWholeSession(run, Mode::InProcess);
    // Initialize, BSAInit and the version once each; BSATerminate never; one transaction for the
    // catalogue and one for the extraction; one query, its 14 + 4 further matches and the end;
    // two objects opened and ended; one size correction.
    EXPECT_TRUE(run.Has("wrapper-slot 1 calls=1")) << run.output;
    EXPECT_TRUE(run.Has("wrapper-slot 2 calls=1")) << run.output;
    EXPECT_TRUE(run.Has("wrapper-slot 3 calls=0")) << run.output;
    EXPECT_TRUE(run.Has("wrapper-slot 4 calls=2")) << run.output;
    EXPECT_TRUE(run.Has("wrapper-slot 5 calls=2")) << run.output;
    EXPECT_TRUE(run.Has("wrapper-slot 6 calls=1")) << run.output;
    EXPECT_TRUE(run.Has("wrapper-slot 7 calls=1")) << run.output;
    EXPECT_TRUE(run.Has("wrapper-slot 9 calls=2")) << run.output;
    EXPECT_TRUE(run.Has("wrapper-slot 11 calls=2")) << run.output;
    EXPECT_TRUE(run.Has("wrapper-slot 12 calls=1")) << run.output;
    EXPECT_NE(run.output.find("wrapper-slot 8 calls="), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("wrapper-slot 10 calls="), std::string::npos) << run.output;
    EXPECT_TRUE(run.Has("wrapper-double destroyed")) << run.output;
}

TEST_F(MsvcHost, DeleteThroughSlotZeroDestroysEveryKindOfObject) {
    const HostRun run = Run(L"tarnlog", L"delete-slot0");
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    // The connection's destructor ran: the server end of its pipe is gone.
    EXPECT_TRUE(run.Has("delete connection pipe-before=1 pipe-after=0 error-after=2"))
        << run.output;
    EXPECT_TRUE(run.Has("delete all done")) << run.output;
}

TEST_F(MsvcHost, CatalogueErrorReachesTheHostsCallback) {
    s_simulator->SetFaults(L"BSAQueryObject=3");
    const HostRun run = Run(L"tarnlog", L"catalog-error");
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_TRUE(run.Has("initialize status=0")) << run.output;
    EXPECT_TRUE(run.Has("error code=17")) << run.output;
    EXPECT_TRUE(run.Has("catalog status=0 files=0")) << run.output;
}

TEST_F(MsvcHost, HostBuiltWithoutNativeWcharBindsToTheOtherSpelling) {
    const HostRun run = RunHost(HostDirectory(L"tarnlog"), L"msvc_host_nowchar.exe", L"");
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_TRUE(run.Has("bound")) << run.output;
}

TEST_F(MsvcHost, MsvcLoggingLibraryInProcess) {
    ExpectWholeSession(Run(L"msvclogger", L"in-process"), Mode::InProcess);
    const std::vector<LogRecord> records = LogRecords();
    ExpectLoggingContract(records);
    // Variadic Info through slot 6, formatted by the logging library itself.
    EXPECT_TRUE(HasRecord(records, "slot 6", "NetWorkerApiExecutor::Initialize",
                          "Networker API Issue 1 Version 2 level 3"));
    EXPECT_TRUE(HasRecord(records, "slot 6", "NetWorkerApiExecutor::Catalog", "Found 14 items."));
}

TEST_F(MsvcHost, MsvcLoggingLibraryWithTheHelper) {
    ExpectWholeSession(Run(L"msvclogger", L"helper"), Mode::Helper);
    const std::vector<LogRecord> records = LogRecords();
    ExpectLoggingContract(records);
    // The helper's own loggers come from the same library: variadic Debug with a wide string.
    EXPECT_TRUE(HasRecord(records, "slot 10", "NetWorkerNamedPipeClient::Run",
                          "Opening named pipe named 'nwx-msvc-host-builtin-"));
    EXPECT_TRUE(
        HasRecord(records, "slot 4", "NetWorkerNamedPipeExecutor::Catalog", "Method Start"));
}

TEST_F(MsvcHost, MsvcLoggingLibraryWithTheHostsOwnLauncherAndWrapper) {
    ExpectWholeSession(Run(L"msvclogger", L"helper-launcher"), Mode::Helper);
    ExpectWholeSession(Run(L"msvclogger", L"wrapper-double"), Mode::InProcess);
    ExpectLoggingContract(LogRecords());
}

TEST_F(MsvcHost, MsvcLoggingLibrarySeesEveryDeletedObjectReleaseItsLogger) {
    const HostRun run = Run(L"msvclogger", L"delete-slot0");
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    const std::vector<LogRecord> records = LogRecords();
    for (const char* logger : {"NamedPipeConnection", "NetWorkerApiWrapper", "NetWorkerApiExecutor",
                               "NetWorkerNamedPipeExecutor"}) {
        EXPECT_TRUE(std::any_of(records.begin(), records.end(), [&](const LogRecord& r) {
            return r.what == "FreeLogger" && r.logger == logger;
        })) << logger;
    }
    std::map<std::string, int> open;
    for (const LogRecord& record : records) {
        if (record.what == "GetLogger") {
            ++open[record.logger];
        } else if (record.what == "FreeLogger") {
            --open[record.logger];
        }
    }
    for (const auto& [logger, count] : open) {
        EXPECT_EQ(count, 0) << logger;
    }
}

TEST_F(MsvcHost, MsvcLoggingLibraryReceivesErrorLines) {
    s_simulator->SetFaults(L"BSAQueryObject=3");
    const HostRun run = Run(L"msvclogger", L"catalog-error");
    EXPECT_TRUE(run.Has("error code=17")) << run.output;
    const std::vector<LogRecord> records = LogRecords();
    // Variadic Error through slot 12: the mapping's line, then the raised message and its
    // HRESULT line.
    EXPECT_TRUE(HasRecord(records, "slot 12", "BSAError2HResult", "BSA Error 3"));
    EXPECT_TRUE(
        HasRecord(records, "slot 12", "NetWorkerApiExecutor::Catalog", "BSAQueryObject failed"));
    EXPECT_TRUE(HasRecord(records, "slot 12", "NetWorkerApiExecutor::Catalog",
                          "HRESULT 80004005 GetLastError() "));
}

// --- msvc_exception_host.exe: the exceptions a Visual C++ host catches and throws ---
//
// Each case runs in a process of its own: a GCC exception reaching the host's frames would end
// that process unhandled, and the case then fails on its exit code and missing last line.

constexpr char kDatabaseObject[] = "/Second Storage Group/Mailbox Store 2 (EX01).edb";
constexpr char kReversedWindowText[] = "timeAfter cannot be later than timeBefore";

class MsvcHostExceptions : public MsvcHost {
protected:
    // Runs one case in one mode with the given simulator faults, the library's log (TarnLog)
    // in m_tarnLog and the simulator's journal emptied first.
    HostRun RunCase(const wchar_t* which, const wchar_t* mode, const wchar_t* faults = L"") {
        s_simulator->SetFaults(faults);
        s_simulator->ClearJournal();
        const ScopedEnvironment logFile(L"TARNLOG_FILE", m_tarnLog);
        const ScopedEnvironment logLevel(L"TARNLOG_LEVEL", L"trace");
        const HostRun run =
            RunHost(HostDirectory(L"tarnlog"), L"msvc_exception_host.exe",
                    std::wstring(which) + L" " + mode + L" \"" + m_restoreDirectory + L"\"");
        s_simulator->SetFaults(L"");
        EXPECT_EQ(run.exitCode, 0u) << run.output;
        EXPECT_TRUE(run.Has("exit 0")) << run.output;
        return run;
    }

    // The simulator's calls of these names, in order, with their return codes.
    std::vector<std::string> JournalCalls(const std::vector<std::string>& names) const {
        std::vector<std::string> calls;
        for (const std::string& line : s_simulator->JournalLines()) {
            const std::string name = line.substr(0, line.find(' '));
            if (std::find(names.begin(), names.end(), name) != names.end()) {
                const size_t rc = line.rfind(" rc=");
                calls.push_back(name + (rc != std::string::npos ? line.substr(rc) : ""));
            }
        }
        return calls;
    }

    // Lines of the library's log that hold both texts.
    size_t TarnLogLinesWith(const std::string& first, const std::string& second) const {
        size_t count = 0;
        for (const std::string& line : Lines(ReadWholeFile(std::filesystem::path(m_tarnLog)))) {
            if (line.find(first) != std::string::npos && line.find(second) != std::string::npos) {
                ++count;
            }
        }
        return count;
    }

    void ExpectReversedWindowCaughtFourWays(const wchar_t* mode) {
        const HostRun run = RunCase(L"reversed-window", mode);
        const std::string text = kReversedWindowText;
        EXPECT_TRUE(run.Has("caught invalid_argument by reference what=" + text)) << run.output;
        EXPECT_TRUE(run.Has("caught logic_error by value what=" + text)) << run.output;
        EXPECT_TRUE(run.Has("caught exception by reference what=" + text)) << run.output;
        EXPECT_TRUE(run.Has("caught with ellipsis")) << run.output;
        // The RTTI behind the object, as typeid and dynamic_cast read it through the runtime.
        EXPECT_TRUE(run.Has("typeid name=class std::invalid_argument")) << run.output;
        EXPECT_TRUE(run.Has("dynamic_cast logic_error=1 runtime_error=0")) << run.output;
        EXPECT_TRUE(run.Has("catalog after status=0 files=14 first=0")) << run.output;
    }

    // The helper dies during an extraction: the extraction reports the closed pipe, the next
    // call that sends raises the pipe's std::runtime_error, and a new session restores whole.
    void ExpectHelperLossCaughtAndANewSessionRestores(const wchar_t* mode) {
        // A 2 MiB object at 256 KiB/s: the helper is killed well inside the transfer.
        const HostRun run = RunCase(L"helper-killed", mode, L"throttle=262144");
        EXPECT_TRUE(run.Has("helper killed count=1")) << run.output;
        EXPECT_TRUE(run.Has("extract status=109")) << run.output;
        const std::string pipeFailure = "WriteFile to pipe failed. GetLastError()=";
        EXPECT_NE(run.output.find("caught runtime_error by reference what=" + pipeFailure),
                  std::string::npos)
            << run.output;
        EXPECT_NE(run.output.find("caught exception by value what=" + pipeFailure),
                  std::string::npos)
            << run.output;
        EXPECT_TRUE(run.Has("caught with ellipsis")) << run.output;
        EXPECT_TRUE(run.Has("next extract status=0")) << run.output;
        EXPECT_TRUE(run.Has("next end-extract status=0")) << run.output;
        ExpectRestored(kLogObject, L"E01000A2.log");
    }

    // The host's progress callback throws its own exception (or answers "stop") at the third
    // report: the host catches it (or gets 1223), the transfer was ended and the partial file
    // deleted on the way, and the same session then lists everything, restores another object
    // without a progress callback and the interrupted object whole.
    void ExpectProgressFaultEndsOnlyThatExtraction(const wchar_t* which, const wchar_t* mode) {
        // 2 MiB at 1 MiB/s: reports 750 ms apart, so the third comes mid-transfer.
        const HostRun run = RunCase(which, mode, L"throttle=1048576");
        const bool stops = std::wstring(which) == L"progress-stops";
        EXPECT_TRUE(run.Has(stops ? "extract status=1223 reports=3"
                                  : "caught host-error code=42 reports=3"))
            << run.output;
        EXPECT_TRUE(run.Has("file after fault exists=0")) << run.output;
        EXPECT_TRUE(run.Has("catalog after status=0 files=14 first=0")) << run.output;
        EXPECT_TRUE(run.Has("extract without progress status=0")) << run.output;
        EXPECT_TRUE(run.Has("extract again status=0 bytes=2097153")) << run.output;
        EXPECT_TRUE(run.Has("end-extract status=0")) << run.output;
        ExpectRestored(kDatabaseObject, L"Mailbox Store 2 (EX01).edb");
        ExpectRestored(kLogObject, L"E01000A2.log");
        EXPECT_EQ(
            JournalCalls({"BSAGetObject", "BSAEndData"}),
            (std::vector<std::string>{"BSAGetObject rc=0", "BSAEndData rc=0", "BSAGetObject rc=0",
                                      "BSAEndData rc=0", "BSAGetObject rc=0", "BSAEndData rc=0"}));
        EXPECT_EQ(TarnLogLinesWith("NetWorkerApiExecutor::ExtractFile", "Method End"), 3u);
    }

    // The host's file-found callback throws at the third file: the host catches it, the
    // transaction was ended, and the next catalogue lists everything from index 0.
    void ExpectFileFoundExceptionCleanedUpAfter(const wchar_t* mode) {
        const HostRun run = RunCase(L"filefound-throws", mode);
        EXPECT_TRUE(run.Has("caught host-error code=7 files=3")) << run.output;
        EXPECT_TRUE(run.Has("catalog after status=0 files=14 first=0")) << run.output;
        EXPECT_EQ(JournalCalls({"BSABeginTxn", "BSAEndTxn"}),
                  (std::vector<std::string>{"BSABeginTxn rc=0", "BSAEndTxn rc=0",
                                            "BSABeginTxn rc=0", "BSAEndTxn rc=0"}));
        EXPECT_EQ(TarnLogLinesWith("NetWorkerApiExecutor::Catalog", "Method End"), 2u);
    }

    // The library's exception kept with std::exception_ptr outlives the catch block: twenty
    // rounds, copies destroyed in both orders, each rethrown copy caught by type with the
    // library's text, the process heap valid after every round.
    void ExpectKeptExceptionsStayValid(const wchar_t* mode) {
        const HostRun run = RunCase(L"keep-exception", mode);
        EXPECT_TRUE(run.Has("kept exceptions rounds=20 right=20 heap-valid=20")) << run.output;
    }

    std::wstring m_tarnLog = m_scratch.Child(L"tarnlog.log");
};

TEST_F(MsvcHostExceptions, ReversedWindowInProcess) {
    ExpectReversedWindowCaughtFourWays(L"in-process");
}

TEST_F(MsvcHostExceptions, ReversedWindowThroughTheHelper) {
    ExpectReversedWindowCaughtFourWays(L"helper");
}

TEST_F(MsvcHostExceptions, ReversedWindowThroughTheHelperWithTheHostsLauncher) {
    ExpectReversedWindowCaughtFourWays(L"helper-launcher");
}

TEST_F(MsvcHostExceptions, KeptExceptionStaysValidInProcess) {
    ExpectKeptExceptionsStayValid(L"in-process");
}

TEST_F(MsvcHostExceptions, KeptExceptionStaysValidThroughTheHelper) {
    ExpectKeptExceptionsStayValid(L"helper");
}

TEST_F(MsvcHostExceptions, HelperKilledDuringAnExtraction) {
    ExpectHelperLossCaughtAndANewSessionRestores(L"helper");
}

TEST_F(MsvcHostExceptions, HelperKilledDuringAnExtractionWithTheHostsLauncher) {
    ExpectHelperLossCaughtAndANewSessionRestores(L"helper-launcher");
}

TEST_F(MsvcHostExceptions, ProgressCallbackThrowsInProcess) {
    ExpectProgressFaultEndsOnlyThatExtraction(L"progress-throws", L"in-process");
}

TEST_F(MsvcHostExceptions, ProgressCallbackThrowsThroughTheHelper) {
    ExpectProgressFaultEndsOnlyThatExtraction(L"progress-throws", L"helper");
}

TEST_F(MsvcHostExceptions, ProgressCallbackThrowsThroughTheHelperWithTheHostsLauncher) {
    ExpectProgressFaultEndsOnlyThatExtraction(L"progress-throws", L"helper-launcher");
}

TEST_F(MsvcHostExceptions, ProgressStopInProcessEndsOnlyThatExtraction) {
    ExpectProgressFaultEndsOnlyThatExtraction(L"progress-stops", L"in-process");
}

TEST_F(MsvcHostExceptions, ProgressStopThroughTheHelperEndsOnlyThatExtraction) {
    ExpectProgressFaultEndsOnlyThatExtraction(L"progress-stops", L"helper");
}

TEST_F(MsvcHostExceptions, FileFoundCallbackThrowsInProcess) {
    ExpectFileFoundExceptionCleanedUpAfter(L"in-process");
}

TEST_F(MsvcHostExceptions, FileFoundCallbackThrowsThroughTheHelper) {
    ExpectFileFoundExceptionCleanedUpAfter(L"helper");
}

TEST_F(MsvcHostExceptions, FileFoundCallbackThrowsThroughTheHelperWithTheHostsLauncher) {
    ExpectFileFoundExceptionCleanedUpAfter(L"helper-launcher");
}

}  // namespace
