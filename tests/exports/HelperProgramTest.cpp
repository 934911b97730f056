// NetWorker64BitClient.exe as a program: its command line, its exit codes and its log.

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ExportsTestSupport.h"
#include "TestFiles.h"
#include "common/UniqueHandle.h"
#include "exports/NetWorkerXbsa.h"

namespace {

// Starts the helper from the test program's directory with this exact command line and
// returns its exit code (or -1).
int RunHelper(const std::wstring& commandLine, DWORD timeoutMilliseconds = 60000) {
    const std::wstring program = TestProgramDirectory() + L"\\NetWorker64BitClient.exe";
    std::vector<wchar_t> writable(commandLine.begin(), commandLine.end());
    writable.push_back(L'\0');
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(program.c_str(), writable.data(), nullptr, nullptr, FALSE, 0, nullptr,
                        nullptr, &startup, &info)) {
        return -1;
    }
    UniqueHandle process(info.hProcess);
    UniqueHandle thread(info.hThread);
    if (WaitForSingleObject(process.get(), timeoutMilliseconds) != WAIT_OBJECT_0) {
        TerminateProcess(process.get(), 99);
        return -1;
    }
    DWORD exitCode = 0;
    GetExitCodeProcess(process.get(), &exitCode);
    return static_cast<int>(exitCode);
}

class ScopedLogFile {
public:
    ScopedLogFile() : m_path(m_directory.Child(L"helper.log")) {
        SetEnvironmentVariableW(L"TARNLOG_FILE", m_path.c_str());
    }
    ~ScopedLogFile() { SetEnvironmentVariableW(L"TARNLOG_FILE", nullptr); }
    std::string Text() const { return ReadWholeFile(m_path); }

private:
    TempDirectory m_directory{"helperlog"};
    std::wstring m_path;
};

TEST(HelperProgram, AFailedSessionIsLoggedWithItsTextAndEndsWithCode1) {
    ScopedLogFile log;
    // Nobody created this pipe: opening it fails at once with error 2.
    EXPECT_EQ(RunHelper(UniquePipeName(L"nobody")), 1);
    const std::string text = log.Text();
    EXPECT_NE(text.find("The session ended with an error: Could not open pipe. GetLastError()=2"),
              std::string::npos)
        << text;
}

TEST(HelperProgram, WithoutAPipeNameItEndsWithCode2) {
    ScopedLogFile log;
    EXPECT_EQ(RunHelper(L"NetWorker64BitClient.exe"), 2);
    EXPECT_NE(log.Text().find("No pipe name on the command line."), std::string::npos);
}

TEST(HelperProgram, WithoutItsLoggerItEndsWithCode3) {
    SetEnvironmentVariableW(L"TARNLOG_FAIL_NAMES", L"NetWorker64BitClient");
    const int exitCode = RunHelper(UniquePipeName(L"nolog"));
    SetEnvironmentVariableW(L"TARNLOG_FAIL_NAMES", nullptr);
    EXPECT_EQ(exitCode, 3);
}

// A launcher that starts the helper the conventional way: program name, then the pipe name.
long ConventionalLauncher(const wchar_t* pipeName) {
    const std::wstring program = TestProgramDirectory() + L"\\NetWorker64BitClient.exe";
    std::wstring commandLine = L"\"" + program + L"\" " + pipeName;
    std::vector<wchar_t> writable(commandLine.begin(), commandLine.end());
    writable.push_back(L'\0');
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(program.c_str(), writable.data(), nullptr, nullptr, FALSE, 0, nullptr,
                        nullptr, &startup, &info)) {
        return static_cast<long>(0x80004005);
    }
    UniqueHandle process(info.hProcess);
    UniqueHandle thread(info.hThread);
    return 0;
}

TEST(HelperProgram, ConventionalCommandLineServesTheSameSession) {
    INamedPipeConnection* connection = nullptr;
    INetWorkerExecutor* executor = nullptr;
    ASSERT_TRUE(AllocateNamedPipeConnection(&connection));
    ASSERT_TRUE(AllocateNetWorkerNamedPipeExecutor(&executor, UniquePipeName(L"conv").c_str(),
                                                   connection, ConventionalLauncher));
    // The helper answers: whatever its executor's status, the reply arrived over the pipe
    // (a helper that read a wrong name would never connect and Initialize would block).
    const int32_t status = executor->Initialize("cli", "srv");
    EXPECT_NE(status, 109);
    EXPECT_NE(status, static_cast<int32_t>(0x80004005));
    FreeNetWorkerExecutor(executor);
    FreeNamedPipeConnection(connection);
}

}  // namespace
