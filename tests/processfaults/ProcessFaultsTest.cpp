// The helper program and the host in each other's way: the helper killed in the middle of an
// operation, the host ending the session, and a stranger knocking on the pipe.

#include <windows.h>

#include <gtest/gtest.h>
#include <tlhelp32.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "../conformance/HostCallbacks.h"
#include "../conformance/HostSessions.h"
#include "../conformance/TestPrograms.h"
#include "../exports/ExportsTestSupport.h"
#include "../pipehardening/StrangerProcesses.h"
#include "ScopedEnvironment.h"
#include "SimulatorEnvironment.h"
#include "TestFiles.h"
#include "common/UniqueHandle.h"

namespace {

constexpr int32_t kPipeClosed = 109;
constexpr DWORD kHelperAccess = SYNCHRONIZE | PROCESS_TERMINATE | PROCESS_QUERY_INFORMATION;

const auto* const g_simulator = ::testing::AddGlobalTestEnvironment(new SimulatorEnvironment);

class CallbackAt : public INetWorkerFileFoundCallBack, public INetWorkerUpdateProgressCallBack {
public:
    CallbackAt(size_t at, std::function<void()> action) : m_at(at), m_action(std::move(action)) {}
    bool NetWorkerFileFound(const NetWorkerFileInfo*) override { return Step(); }
    bool UpdateProgress(NetWorkerProgressInfo*) override { return Step(); }
    size_t Calls() const { return m_calls; }

private:
    bool Step() {
        if (++m_calls == m_at) {
            m_action();
        }
        return false;
    }
    size_t m_at;
    std::function<void()> m_action;
    size_t m_calls = 0;
};

// A pipe session whose helper process is known by handle.
class HelperSession {
public:
    explicit HelperSession(const wchar_t* purpose) : m_session(UniquePipeName(purpose)) {
        const std::vector<DWORD> before = FindProcessesNamed(L"NetWorker64BitClient.exe");
        m_status = m_session.Initialize("cli", "srv");
        for (DWORD id : FindProcessesNamed(L"NetWorker64BitClient.exe")) {
            if (std::find(before.begin(), before.end(), id) == before.end()) {
                m_helperId = id;
                m_helper.reset(OpenProcess(kHelperAccess, FALSE, id));
            }
        }
    }

    int32_t InitializeStatus() const { return m_status; }
    INetWorkerExecutor* Executor() { return m_session.Executor(); }
    PipeSession& Session() { return m_session; }
    HANDLE Helper() const { return m_helper.get(); }
    DWORD HelperId() const { return m_helperId; }

    // Stops every thread of the helper, so that it cannot write again.
    void SuspendHelper() {
        UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
        THREADENTRY32 entry;
        entry.dwSize = sizeof entry;
        for (BOOL more = Thread32First(snapshot.get(), &entry); more;
             more = Thread32Next(snapshot.get(), &entry)) {
            if (entry.th32OwnerProcessID == m_helperId) {
                UniqueHandle thread(OpenThread(THREAD_SUSPEND_RESUME, FALSE, entry.th32ThreadID));
                if (thread) {
                    SuspendThread(thread.get());
                }
            }
        }
    }

    // Kills the helper from another thread once the host is back waiting for a reply.
    void KillHelperLater(DWORD delayMilliseconds) {
        HANDLE helper = m_helper.get();
        m_killer = std::thread([helper, delayMilliseconds] {
            Sleep(delayMilliseconds);
            TerminateProcess(helper, 9);
        });
    }

    ~HelperSession() {
        if (m_killer.joinable()) {
            m_killer.join();
        }
        if (m_helper) {
            TerminateProcess(m_helper.get(), 9);
        }
    }

private:
    PipeSession m_session;
    int32_t m_status = 0;
    DWORD m_helperId = 0;
    UniqueHandle m_helper;
    std::thread m_killer;
};

bool HasExited(HANDLE process, DWORD waitMilliseconds) {
    return WaitForSingleObject(process, waitMilliseconds) == WAIT_OBJECT_0;
}

TEST(ProcessFaults, HelperKilledDuringCatalogueGives109) {
    HelperSession session(L"killcat");
    ASSERT_EQ(session.InitializeStatus(), 0);
    ASSERT_NE(session.Helper(), nullptr);
    // At the third file the helper is frozen (it waits for this answer and can send nothing
    // more) and killed while the host waits for its next message.
    CallbackAt third(3, [&] {
        session.SuspendHelper();
        session.KillHelperLater(500);
    });
    RecordingErrors errors;
    EXPECT_EQ(session.Executor()->Catalog(nullptr, nullptr, &third, &errors), kPipeClosed);
    EXPECT_EQ(third.Calls(), 3u);
    EXPECT_TRUE(HasExited(session.Helper(), 10000));
}

TEST(ProcessFaults, HelperKilledDuringExtractionGives109) {
    // 16 KiB per second: each block keeps the helper busy for a second.
    ScopedEnvironment slow(L"NWSIM_FAULTS", L"throttle=16384");
    HelperSession session(L"killext");
    ASSERT_EQ(session.InitializeStatus(), 0);
    ASSERT_NE(session.Helper(), nullptr);
    class FirstFile : public INetWorkerFileFoundCallBack {
        bool NetWorkerFileFound(const NetWorkerFileInfo*) override { return false; }
    } found;
    RecordingErrors errors;
    ASSERT_EQ(session.Executor()->Catalog(nullptr, nullptr, &found, &errors), 0);
    ASSERT_EQ(session.Executor()->BeginExtract(), 0);
    const TempDirectory temp("killext");
    const std::wstring directory = temp.Path().wstring();
    CallbackAt first(1, [&] {
        session.SuspendHelper();
        session.KillHelperLater(500);
    });
    EXPECT_EQ(session.Executor()->ExtractFile(8, directory.c_str(), L"db.edb", &first, &errors),
              kPipeClosed);
    EXPECT_TRUE(HasExited(session.Helper(), 10000));
}

// The first file below `directory` that holds some bytes, waiting up to `milliseconds`.
bool WaitForDataBelow(const std::wstring& directory, DWORD milliseconds) {
    for (DWORD waited = 0; waited < milliseconds; waited += 100) {
        for (const std::wstring& file : FilesBelow(directory)) {
            WIN32_FILE_ATTRIBUTE_DATA data{};
            if (GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &data) &&
                (data.nFileSizeLow != 0 || data.nFileSizeHigh != 0)) {
                return true;
            }
        }
        Sleep(100);
    }
    return false;
}

TEST(ProcessFaults, HostKilledDuringExtractionLeavesNoPartialFileAndEndsTheData) {
    // nwexch is the host; at 16 KiB per second its 2 MB database takes two minutes.
    ScopedEnvironment slow(L"NWSIM_FAULTS", L"throttle=16384");
    const TempDirectory temp("killhost");
    const std::wstring directory = temp.Child(L"restore");
    const std::wstring journal = SimulatorEnvironment::Get().JournalPath();
    SimulatorEnvironment::Get().ClearJournal();

    const std::vector<DWORD> before = FindProcessesNamed(L"NetWorker64BitClient.exe");
    std::wstring commandLine = L"\"" + TestProgramDirectory() +
                               L"\\nwexch.exe\" restore --server srv --client cli --mode helper 8 "
                               L"--to \"" +
                               directory + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    ASSERT_TRUE(CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr,
                               nullptr, &startup, &started));
    UniqueHandle host(started.hProcess);
    UniqueHandle hostThread(started.hThread);

    // Killed once the helper has written the first block of the database.
    ASSERT_TRUE(WaitForDataBelow(directory, 60000));
    ASSERT_TRUE(TerminateProcess(host.get(), 9));
    WaitForSingleObject(host.get(), INFINITE);

    UniqueHandle helper;
    for (DWORD id : FindProcessesNamed(L"NetWorker64BitClient.exe")) {
        if (std::find(before.begin(), before.end(), id) == before.end()) {
            helper.reset(OpenProcess(kHelperAccess, FALSE, id));
        }
    }
    ASSERT_TRUE(helper.valid()) << "the helper had ended before its host";
    // Its next progress report finds the pipe closed: the helper ends on its own, having
    // deleted the partial file and ended the transfer.
    EXPECT_TRUE(HasExited(helper.get(), 20000));
    const std::vector<std::wstring> left = FilesBelow(directory);
    EXPECT_TRUE(left.empty()) << std::string(left.front().begin(), left.front().end());

    std::vector<std::string> calls;
    const std::string text = ReadWholeFile(journal);
    for (size_t start = 0; start < text.size();) {
        const size_t end = text.find('\n', start);
        const std::string line = text.substr(start, end - start);
        calls.push_back(line.substr(0, line.find(' ')));
        start = end == std::string::npos ? text.size() : end + 1;
    }
    const auto opened = std::find(calls.begin(), calls.end(), "BSAGetObject");
    ASSERT_NE(opened, calls.end());
    EXPECT_NE(std::find(opened, calls.end(), "BSAEndData"), calls.end());
    if (!HasExited(helper.get(), 0)) {
        TerminateProcess(helper.get(), 9);
    }
}

TEST(ProcessFaults, HostFreeingItsConnectionEndsTheHelperNormally) {
    HelperSession session(L"free");
    ASSERT_EQ(session.InitializeStatus(), 0);
    ASSERT_NE(session.Helper(), nullptr);
    RecordingFileFound found;
    RecordingErrors errors;
    ASSERT_EQ(session.Executor()->Catalog(nullptr, nullptr, &found, &errors), 0);
    EXPECT_EQ(found.found.size(), 14u);
    session.Session().Close();
    ASSERT_TRUE(HasExited(session.Helper(), 20000));
    DWORD exitCode = 259;
    ASSERT_TRUE(GetExitCodeProcess(session.Helper(), &exitCode));
    EXPECT_EQ(exitCode, 0u);
}

TEST(ProcessFaults, ThirdProcessIsRefusedAndTheSessionGoesOn) {
    HelperSession session(L"busy");
    ASSERT_EQ(session.InitializeStatus(), 0);
    const int probe = RunTestProgram(L"pipe_probe.exe", session.Session().PipeName());
    EXPECT_EQ(probe, ERROR_PIPE_BUSY);
    RecordingFileFound found;
    RecordingErrors errors;
    EXPECT_EQ(session.Executor()->Catalog(nullptr, nullptr, &found, &errors), 0);
    EXPECT_EQ(found.found.size(), 14u);
    uint64_t size = 0;
    EXPECT_EQ(session.Executor()->GetFileSize(4, false, &size), 0);
    EXPECT_EQ(size, 8192u);
}

// A hardened host (NWX_PIPE_HARDENING, which its helper inherits) with the built-in launcher:
// a stranger that knocks on the pipe as soon as it exists is never served, and the host's own
// helper, told by the launcher which process started it, checks the server and serves it.
TEST(ProcessFaults, HardenedSessionServesOnlyItsOwnHelper) {
    const TempDirectory temp("hardened");
    const std::wstring logFile = temp.Child(L"session.log");
    const ScopedEnvironment hardening(L"NWX_PIPE_HARDENING", L"1");
    const ScopedEnvironment logging(L"TARNLOG_FILE", logFile);
    const ScopedEnvironment level(L"TARNLOG_LEVEL", L"debug");
    const std::wstring pipeName = UniquePipeName(L"hardened");
    Knocker stranger(pipeName);
    ASSERT_TRUE(stranger.Started());

    PipeSession session(pipeName);
    ASSERT_EQ(session.Initialize("cli", "srv"), 0);
    RecordingFileFound found;
    RecordingErrors errors;
    EXPECT_EQ(session.Executor()->Catalog(nullptr, nullptr, &found, &errors), 0);
    EXPECT_EQ(found.found.size(), 14u);
    const std::wstring directory = temp.Child(L"restore");
    ASSERT_TRUE(CreateDirectoryW(directory.c_str(), nullptr));
    ASSERT_EQ(session.Executor()->BeginExtract(), 0);
    // Catalogue index 4 is the simulator's object 16, E00.chk (8,192 bytes).
    EXPECT_EQ(session.Executor()->ExtractFile(4, directory.c_str(), L"E00.chk", nullptr, &errors),
              0);
    EXPECT_EQ(session.Executor()->EndExtract(), 0);
    session.Close();

    // Turned away (0) when it came first, or found the only instance taken (231); never served.
    const DWORD strangerExit = stranger.AwaitExit();
    EXPECT_TRUE(strangerExit == 0 || strangerExit == ERROR_PIPE_BUSY) << strangerExit;
    const std::string log = ReadWholeFile(logFile);
    EXPECT_NE(log.find("The pipe is served by the parent process " +
                       std::to_string(GetCurrentProcessId()) + "."),
              std::string::npos)
        << "the helper did not check its server";
    if (strangerExit == 0) {
        EXPECT_NE(log.find("Refused a connection from process " + std::to_string(stranger.Id())),
                  std::string::npos);
    }
    EXPECT_TRUE(SimulatorEnvironment::Get().Verify(L"16", directory + L"\\E00.chk"));
}

TEST(ProcessFaults, HardenedInitializeRefusesAPipeNameTakenBySquatter) {
    const ScopedEnvironment hardening(L"NWX_PIPE_HARDENING", L"1");
    const std::wstring pipeName = UniquePipeName(L"squatted");
    const Squatter squatter(pipeName, PIPE_UNLIMITED_INSTANCES);
    ASSERT_TRUE(squatter.Holds());
    const std::vector<DWORD> before = FindProcessesNamed(L"NetWorker64BitClient.exe");
    PipeSession session(pipeName);
    EXPECT_EQ(static_cast<uint32_t>(session.Initialize("cli", "srv")), 0x800700B7u);
    EXPECT_EQ(FindProcessesNamed(L"NetWorker64BitClient.exe"), before) << "a helper was started";
}

}  // namespace
