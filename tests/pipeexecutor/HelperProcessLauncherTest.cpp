// The default launcher of the out-of-process mode, on Windows.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RecordingLog.h"
#include "ScriptedConnection.h"
#include "TestFiles.h"
#include "pipeexecutor/NetWorkerNamedPipeExecutor.h"

namespace {

// CreateProcessW as this executable calls it. Windows gives no way to make the real call fail
// without an error number, so the import slot that the launcher calls through is defined below
// instead of by the kernel32 import library; unless a test asks for the failure, kernel32's own
// CreateProcessW runs.
struct CreateProcessScript {
    bool failWithoutErrorNumber = false;
    std::vector<std::wstring> programs;  // the program of every failed call
};
CreateProcessScript g_createProcess;

BOOL WINAPI ScriptedCreateProcessW(LPCWSTR program, LPWSTR commandLine,
                                   LPSECURITY_ATTRIBUTES processAttributes,
                                   LPSECURITY_ATTRIBUTES threadAttributes, BOOL inheritHandles,
                                   DWORD flags, LPVOID environment, LPCWSTR directory,
                                   LPSTARTUPINFOW startup, LPPROCESS_INFORMATION process) {
    if (g_createProcess.failWithoutErrorNumber) {
        g_createProcess.programs.push_back(program != nullptr ? program : L"");
        ::SetLastError(ERROR_SUCCESS);
        return FALSE;
    }
    static const auto kernel32CreateProcessW =
        reinterpret_cast<decltype(&::CreateProcessW)>(reinterpret_cast<void (*)()>(
            ::GetProcAddress(::GetModuleHandleW(L"kernel32.dll"), "CreateProcessW")));
    return kernel32CreateProcessW(program, commandLine, processAttributes, threadAttributes,
                                  inheritHandles, flags, environment, directory, startup, process);
}

// Runs the test in an empty directory, so that a launch that does reach Windows finds no
// helper program, and with CreateProcessW failing without an error number when asked.
class LauncherTest : public ::testing::Test {
protected:
    void SetUp() override {
        TestLoggers::Reset();
        g_createProcess = CreateProcessScript{};
        ASSERT_GT(::GetCurrentDirectoryW(MAX_PATH, m_previousDirectory), 0u);
        ASSERT_TRUE(::SetCurrentDirectoryW(m_empty.Path().c_str()));
    }
    void TearDown() override {
        g_createProcess = CreateProcessScript{};
        ::SetCurrentDirectoryW(m_previousDirectory);
        TestLoggers::Reset();
    }

    TempDirectory m_empty{"launcher"};
    wchar_t m_previousDirectory[MAX_PATH] = {};
};

using StartClientProcess = LauncherTest;

TEST_F(StartClientProcess, MissingProgramGivesTheHresultOfFileNotFound) {
    const long status = NetWorkerNamedPipeExecutor::StartClientProcess(L"nwx-missing");
    EXPECT_EQ(static_cast<unsigned long>(status), 0x80070002ul);
    EXPECT_TRUE(g_createProcess.programs.empty());
}

TEST_F(StartClientProcess, FailureWithoutAnErrorNumberGivesEFail) {
    g_createProcess.failWithoutErrorNumber = true;
    const long status = NetWorkerNamedPipeExecutor::StartClientProcess(L"nwx-no-number");
    EXPECT_EQ(static_cast<unsigned long>(status), 0x80004005ul);
    EXPECT_THAT(g_createProcess.programs, ::testing::ElementsAre(L"NetWorker64BitClient.exe"));
}

TEST_F(StartClientProcess, InitializeReportsAFailureWithoutAnErrorNumberAndNeverWaits) {
    g_createProcess.failWithoutErrorNumber = true;
    ScriptedConnection connection;
    NetWorkerNamedPipeExecutor executor(L"nwx-no-number", &connection,
                                        &NetWorkerNamedPipeExecutor::StartClientProcess);
    EXPECT_EQ(executor.Initialize("c", "s"), static_cast<int32_t>(0x80004005));
    EXPECT_THAT(connection.Calls(), ::testing::ElementsAre(L"OpenNewPipe:nwx-no-number"));
    EXPECT_TRUE(connection.Sent().empty());
    const RecordingLog* log = TestLoggers::Find(L"NetWorkerNamedPipeExecutor");
    ASSERT_NE(log, nullptr);
    EXPECT_THAT(log->TextsAt(LogLevelError),
                ::testing::ElementsAre(
                    L"Failed to create 'NetWorker64BitClient.exe' process. Error: 80004005."));
}

}  // namespace

// The import slot of CreateProcessW (see ScriptedCreateProcessW).
extern "C" {
decltype(&::CreateProcessW) __imp_CreateProcessW = &ScriptedCreateProcessW;
}
