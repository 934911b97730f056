// The wrapper against the simulated NetWorker installation (nwsim): the real "nsrexecd" service
// registration, the image's libraries and journal, and the real nsrinfo.exe child process.

#include <windows.h>
// After windows.h, which it needs.
#include <tlhelp32.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "RecordingLog.h"
#include "SimulatorFixture.h"
#include "common/UniqueHandle.h"
#include "common/WideFormat.h"
#include "interfaces/NetWorkerStatus.h"
#include "networker/NetWorkerApiWrapper.h"

namespace {

const wchar_t kLogger[] = L"NetWorkerApiWrapper";
const char kDatabase[] = "/First Storage Group/Mailbox Store (EX01).edb";

std::vector<std::wstring> ErrorTexts() {
    std::vector<std::wstring> texts;
    for (const LogLine& line : TestLoggers::History(kLogger)) {
        if (line.level == LogLevelError) {
            texts.push_back(line.text);
        }
    }
    return texts;
}

std::vector<LogLine> NonTraceHistory() {
    std::vector<LogLine> lines;
    for (const LogLine& line : TestLoggers::History(kLogger)) {
        if (line.level != LogLevelTrace) {
            lines.push_back(line);
        }
    }
    return lines;
}

BSA_ObjectDescriptor Database() {
    BSA_ObjectDescriptor desc = {};
    strcpy_s(desc.objectName.objectSpaceName, "\\IS");
    strcpy_s(desc.objectName.pathName, kDatabase);
    return desc;
}

std::wstring Widen(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

class SimulatorTest : public ::testing::Test {
protected:
    void SetUp() override { TestLoggers::Reset(); }

    // Installs the simulator; the wrapper is created afterwards so it is destroyed first.
    void Install(SimulatorOptions options = SimulatorOptions()) {
        m_simulator = std::make_unique<SimulatorFixture>(std::move(options));
        ASSERT_TRUE(m_simulator->Ready()) << m_simulator->Failure();
        m_wrapper = std::make_unique<NetWorkerApiWrapper>();
    }

    void TearDown() override {
        m_wrapper.reset();
        m_simulator.reset();
    }

    // Initialize fails with `code`, logged as `message` and its HRESULT line, nothing else.
    void ExpectInitializeFails(int32_t code, const std::wstring& message) {
        EXPECT_EQ(code, m_wrapper->Initialize());
        const std::vector<std::wstring> errors = ErrorTexts();
        ASSERT_EQ(2u, errors.size());
        EXPECT_EQ(message, errors[0]);
        EXPECT_EQ(0u, errors[1].find(FormatWideString(L"HRESULT %08lx GetLastError() ",
                                                      static_cast<unsigned long>(code))));
    }

    // Installs the plain simulator, initialises the wrapper and sets the tool's faults.
    void InstallWithFaults(const std::wstring& faults) {
        Install();
        ASSERT_EQ(0, m_wrapper->Initialize());
        m_simulator->SetFaults(faults);
    }

    // The size of the seeded 5,000,000,000-byte database, through nsrinfo.exe.
    int32_t DatabaseSize(uint64_t* size) {
        const BSA_ObjectDescriptor desc = Database();
        return m_wrapper->CorrectFileSize(&desc, size, "srv", "cli");
    }

    std::wstring ArgumentLine() const {
        return L"-v -V -s srv -n msexch -N \"\\IS:" + Widen(kDatabase) + L"\" cli";
    }
    std::wstring CommandLogLine() const {
        return m_simulator->InstallDirectory() + L"\\nsrinfo.exe " + ArgumentLine();
    }

    std::unique_ptr<SimulatorFixture> m_simulator;
    std::unique_ptr<NetWorkerApiWrapper> m_wrapper;
};

}  // namespace

TEST_F(SimulatorTest, InstallationFromTheServiceAndNetWorkerStartUp) {
    Install();
    ASSERT_EQ(0, m_wrapper->Initialize());
    EXPECT_NE(nullptr,
              GetModuleHandleW((m_simulator->InstallDirectory() + L"\\libbsa.dll").c_str()));
    EXPECT_TRUE(NonTraceHistory().empty());

    const std::vector<std::string> lginit = m_simulator->JournalLinesOf("_lginit");
    ASSERT_EQ(1u, lginit.size());
    EXPECT_EQ("_lginit program=\"nsr\" reserved1=0x0 reserved2=0x0 rc=0", lginit[0]);
    const std::vector<std::string> nsrlib = m_simulator->JournalLinesOf("nsrlib_init");
    ASSERT_EQ(1u, nsrlib.size());
    EXPECT_NE(std::string::npos, nsrlib[0].find(" value=0x0 rc=0"));
    EXPECT_EQ(std::string::npos, nsrlib[0].find("context=0x0 "));

    // A second Initialize loads nothing and starts nothing.
    EXPECT_EQ(0, m_wrapper->Initialize());
    EXPECT_EQ(1u, m_simulator->JournalLinesOf("_lginit").size());
    EXPECT_EQ(1u, m_simulator->JournalLinesOf("nsrlib_init").size());
}

TEST_F(SimulatorTest, ProgramInTheDriveRoot) {
    SimulatorOptions options;
    options.binaryPath = L"C:\\nsrexecd.exe";
    Install(options);
    ExpectInitializeFails(NetWorkerStatus::DllNotFound, L"LoadLibrary Failed: liblocal.dll");

    uint64_t size = 0;
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, DatabaseSize(&size));
    EXPECT_EQ(L"C:\\nsrinfo.exe " + ArgumentLine(), NonTraceHistory().at(2).text);
}

TEST_F(SimulatorTest, BinaryPathWithoutBackslash) {
    SimulatorOptions options;
    options.binaryPath = L"nsrexecd.exe";
    Install(options);
    ExpectInitializeFails(NetWorkerStatus::DllNotFound, L"LoadLibrary Failed: liblocal.dll");
}

TEST_F(SimulatorTest, NoServiceFailsWith1157OnLiblocal) {
    SimulatorOptions options;
    options.registerService = false;
    Install(options);
    EXPECT_EQ(NetWorkerStatus::DllNotFound, m_wrapper->Initialize());
    const std::vector<std::wstring> errors = ErrorTexts();
    ASSERT_EQ(4u, errors.size());
    EXPECT_EQ(L"Could not open service nsrexecd", errors[0]);
    EXPECT_EQ(0u, errors[1].find(L"HRESULT 0000006e "));
    EXPECT_EQ(L"LoadLibrary Failed: liblocal.dll", errors[2]);
    EXPECT_EQ(0u, errors[3].find(L"HRESULT 00000485 "));
    EXPECT_TRUE(m_simulator->JournalLinesOf("_lginit").empty());
}

TEST_F(SimulatorTest, OnlyLibnsrbsa) {
    SimulatorOptions options;
    options.xbsaName = L"libnsrbsa.dll";
    Install(options);
    ASSERT_EQ(0, m_wrapper->Initialize());
    const std::vector<LogLine> lines = NonTraceHistory();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(L"Loaded 'libnsrbsa.dll'", lines[0].text);
    EXPECT_EQ(L"NetWorkerApiWrapper::LoadNetWorkerLibraries", lines[0].method);

    BSA_ApiVersion version = {};
    EXPECT_EQ(0, m_wrapper->BSAQueryApiVersion(&version));
    EXPECT_EQ(3, version.level);
    EXPECT_EQ(1u, m_simulator->JournalLinesOf("BSAQueryApiVersion").size());
}

TEST_F(SimulatorTest, NeitherXbsaLibrary) {
    SimulatorOptions options;
    options.xbsaName = L"libnsrbsa.dll";
    options.omitFiles = {L"libnsrbsa.dll"};
    Install(options);
    ExpectInitializeFails(NetWorkerStatus::DllNotFound, L"LoadLibrary Failed: libbsa.dll");
}

TEST_F(SimulatorTest, MissingLibrary) {
    SimulatorOptions options;
    options.omitFiles = {L"librap.dll"};
    Install(options);
    ExpectInitializeFails(NetWorkerStatus::DllNotFound, L"LoadLibrary Failed: librap.dll");
}

TEST_F(SimulatorTest, MissingExport) {
    SimulatorOptions options;
    options.omitExports = {L"BSAGetData"};
    Install(options);
    ExpectInitializeFails(NetWorkerStatus::EntryPointMissing, L"GetProcAddress Failed: BSAGetData");
    EXPECT_TRUE(m_simulator->JournalLinesOf("_lginit").empty());
}

TEST_F(SimulatorTest, SessionThroughTheForwarders) {
    Install();
    ASSERT_EQ(0, m_wrapper->Initialize());
    char client[] = "NSR_CLIENT=cli";
    char server[] = "NSR_SERVER=srv";
    char* environment[] = {client, server, nullptr};
    BSA_SecurityToken token = {};
    BSA_ObjectOwner owner = {};
    strcpy_s(owner.bsa_ObjectOwner, "MSEXCH");
    strcpy_s(owner.app_ObjectOwner, "msexch");
    BSA_Handle handle = 0;
    ASSERT_EQ(0, m_wrapper->BSAInit(&handle, &token, &owner, environment));
    ASSERT_NE(0u, handle);

    EXPECT_EQ(0, m_wrapper->BSABeginTxn(handle));
    // The handle and a commit reach the library; it ends the transaction.
    EXPECT_EQ(0, m_wrapper->BSAEndTxn(handle));
    // Outside a transaction the simulator answers 5, and the forwarder passes it on.
    EXPECT_EQ(5, m_wrapper->BSAEndTxn(handle));
    const std::vector<std::string> endTxn = m_simulator->JournalLinesOf("BSAEndTxn");
    ASSERT_EQ(2u, endTxn.size());
    EXPECT_EQ("BSAEndTxn handle=" + std::to_string(handle) + " vote=1 rc=0", endTxn[0]);
    EXPECT_EQ(0, m_wrapper->BSATerminate(handle));
    EXPECT_EQ(6, m_wrapper->BSABeginTxn(handle));
}

TEST_F(SimulatorTest, FiveGigabyteSizeFromTheRealTool) {
    Install();
    ASSERT_EQ(0, m_wrapper->Initialize());
    uint64_t size = 0;
    EXPECT_EQ(0, DatabaseSize(&size));
    EXPECT_EQ(5000000000ull, size);

    const std::vector<LogLine> lines = NonTraceHistory();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(CommandLogLine(), lines[0].text);
    const std::vector<std::string> runs = m_simulator->JournalLinesOf("nsrinfo");
    ASSERT_EQ(1u, runs.size());
    EXPECT_NE(std::string::npos,
              runs[0].find("cmdline=\"-v -V -s srv -n msexch -N \\\"\\\\IS:/First Storage "
                           "Group/Mailbox Store (EX01).edb\\\" cli\""))
        << runs[0];
    EXPECT_NE(std::string::npos, runs[0].find(" exit=0"));
}

TEST_F(SimulatorTest, ToolExitCodeFails) {
    InstallWithFaults(L"nsrinfo.exit=2");
    uint64_t size = 0;
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, DatabaseSize(&size));
    EXPECT_EQ(0u, size);
    const std::vector<LogLine> lines = NonTraceHistory();
    ASSERT_EQ(5u, lines.size());
    EXPECT_EQ(CommandLogLine(), lines[0].text);
    EXPECT_EQ(CommandLogLine(), lines[1].text);
    EXPECT_EQ(LogLevelInfo, lines[2].level);
    EXPECT_NE(std::wstring::npos, lines[2].text.find(L"size=5000000000,"));
    EXPECT_EQ(L"nsrinfo.exe failed: 0x00000002", lines[3].text);
    EXPECT_EQ(0u, lines[4].text.find(L"HRESULT 0000065b "));
}

TEST_F(SimulatorTest, SpacedOutputGivesZero) {
    InstallWithFaults(L"nsrinfo.output=spaced");
    uint64_t size = 1;
    EXPECT_EQ(0, DatabaseSize(&size));
    EXPECT_EQ(0u, size);
    EXPECT_TRUE(ErrorTexts().empty());
}

TEST_F(SimulatorTest, LateMarkerIsNotSeen) {
    InstallWithFaults(L"nsrinfo.output=late");
    uint64_t size = 1;
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, DatabaseSize(&size));
    EXPECT_EQ(0u, size);
    ASSERT_FALSE(ErrorTexts().empty());
    EXPECT_EQ(L"Invalid file size", ErrorTexts()[0]);
}

TEST_F(SimulatorTest, TwentyDigitValueIsInvalid) {
    InstallWithFaults(L"nsrinfo.output=long-value");
    uint64_t size = 1;
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, DatabaseSize(&size));
    EXPECT_EQ(0u, size);
    ASSERT_FALSE(ErrorTexts().empty());
    EXPECT_EQ(L"Invalid file size", ErrorTexts()[0]);
}

namespace {

// The nsrinfo.exe children of this process that are still running.
std::vector<DWORD> RunningToolChildren() {
    std::vector<DWORD> children;
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        return children;
    }
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot, &entry); more;
         more = Process32NextW(snapshot, &entry)) {
        if (entry.th32ParentProcessID == GetCurrentProcessId() &&
            lstrcmpiW(entry.szExeFile, L"nsrinfo.exe") == 0) {
            children.push_back(entry.th32ProcessID);
        }
    }
    CloseHandle(snapshot);
    return children;
}

// A Win32 thread running one call, so a blocked read in it can be cancelled.
class CallThread {
public:
    explicit CallThread(std::function<void()> body) : m_body(std::move(body)) {
        m_thread.reset(CreateThread(nullptr, 0, &CallThread::Run, this, 0, nullptr));
    }
    ~CallThread() { Join(); }

    bool Started() const { return m_thread.valid(); }
    bool Returned() const { return m_returned.load(); }
    HANDLE Handle() const { return m_thread.get(); }
    void Join() {
        if (m_thread) {
            WaitForSingleObject(m_thread.get(), INFINITE);
            m_thread.reset();
        }
    }

private:
    static DWORD WINAPI Run(void* self) {
        auto* call = static_cast<CallThread*>(self);
        call->m_body();
        call->m_returned = true;
        return 0;
    }

    std::function<void()> m_body;
    std::atomic<bool> m_returned{false};
    UniqueHandle m_thread;
};

// Cancels the call's blocked read until the call returns; retried because the thread may reach
// the read only after a cancel found nothing to cancel. False if it never returned.
bool CancelUntilReturned(CallThread& call) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (WaitForSingleObject(call.Handle(), 0) == WAIT_OBJECT_0) {
            return true;
        }
        CancelSynchronousIo(call.Handle());
        if (WaitForSingleObject(call.Handle(), 100) == WAIT_OBJECT_0) {
            return true;
        }
    }
    return false;
}

bool TerminateToolChildren(UINT exitCode) {
    const std::vector<DWORD> children = RunningToolChildren();
    for (DWORD pid : children) {
        HANDLE process = OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, pid);
        if (process != nullptr) {
            TerminateProcess(process, exitCode);
            WaitForSingleObject(process, 10000);
            CloseHandle(process);
        }
    }
    return !children.empty();
}

}  // namespace

// The flood output fills the pipe before the tool can end, and the wrapper waits for the end
// before it reads: the call cannot return until the tool is ended from outside.
TEST_F(SimulatorTest, FloodOutputBlocksUntilTheToolIsEnded) {
    InstallWithFaults(L"nsrinfo.output=flood");
    int32_t status = 0;
    uint64_t size = 1;
    CallThread worker([&] { status = DatabaseSize(&size); });
    ASSERT_TRUE(worker.Started());
    Sleep(2000);
    EXPECT_FALSE(worker.Returned());
    EXPECT_TRUE(TerminateToolChildren(9));
    // On Windows the read then finds what the tool had put in the pipe and returns at once.
    // Wine drops a dead writer's pending data, so there the read waits like the empty case
    // below until it is cancelled; the outcome is the same.
    if (WaitForSingleObject(worker.Handle(), 5000) == WAIT_TIMEOUT) {
        ASSERT_TRUE(CancelUntilReturned(worker));
    }
    worker.Join();
    // Whatever the read delivered, the tool ended with code 9.
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, status);
    EXPECT_EQ(0u, size);
    const std::vector<std::wstring> errors = ErrorTexts();
    ASSERT_FALSE(errors.empty());
    EXPECT_EQ(L"nsrinfo.exe failed: 0x00000009", errors[0]);
}

// With no output at all, the single read waits for data that never comes: this process holds
// the pipe's write ends itself, so the tool's end is no end-of-file. Only cancelling the
// blocked read lets the call return.
TEST_F(SimulatorTest, EmptyOutputBlocksInTheReadEvenAfterTheToolEnded) {
    InstallWithFaults(L"nsrinfo.output=empty");
    int32_t status = 0;
    uint64_t size = 1;
    CallThread worker([&] { status = DatabaseSize(&size); });
    ASSERT_TRUE(worker.Started());
    Sleep(2000);
    EXPECT_FALSE(worker.Returned());
    // The tool ended by itself: nothing is left to terminate, and the call is still blocked.
    EXPECT_TRUE(RunningToolChildren().empty());
    EXPECT_EQ(1u, m_simulator->JournalLinesOf("nsrinfo").size());
    EXPECT_FALSE(worker.Returned());

    ASSERT_TRUE(CancelUntilReturned(worker));
    worker.Join();
    EXPECT_EQ(NetWorkerStatus::FunctionFailed, status);
    EXPECT_EQ(0u, size);
    ASSERT_FALSE(ErrorTexts().empty());
    EXPECT_EQ(L"Invalid file size", ErrorTexts()[0]);
}
