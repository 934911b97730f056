#include "HostProgram.h"

#include "../exports/ExportsTestSupport.h"
#include "common/UniqueHandle.h"

namespace {

// A host's helper programs end once the host has closed their pipes; what they write on the way
// out (their loggers' last lines) is read only after they have gone, up to ten seconds each.
void AwaitHelpersOf(DWORD hostId) {
    for (DWORD id : ChildProcessesNamed(hostId, L"NetWorker64BitClient.exe")) {
        UniqueHandle helper(OpenProcess(SYNCHRONIZE, FALSE, id));
        if (helper) {
            WaitForSingleObject(helper.get(), 10000);
        }
    }
}

}  // namespace

HostRun RunHost(const std::wstring& directory, const wchar_t* program,
                const std::wstring& arguments) {
    HostRun run;
    SECURITY_ATTRIBUTES inheritable = {sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
    HANDLE readRaw = nullptr;
    HANDLE writeRaw = nullptr;
    if (!CreatePipe(&readRaw, &writeRaw, &inheritable, 0)) {
        return run;
    }
    UniqueHandle readEnd(readRaw);
    UniqueHandle writeEnd(writeRaw);
    SetHandleInformation(readEnd.get(), HANDLE_FLAG_INHERIT, 0);

    const std::wstring path = directory + L"\\" + program;
    std::wstring commandLine = L"\"" + path + L"\" " + arguments;
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = writeEnd.get();
    startup.hStdError = writeEnd.get();
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    PROCESS_INFORMATION process = {};
    // Under Wine a start now and then fails with 1359 (ERROR_INTERNAL_ERROR) while other
    // programs start and end around it; the next try starts the program.
    BOOL started = FALSE;
    DWORD error = 0;
    for (int attempt = 0; attempt < 3 && !started; ++attempt) {
        started = CreateProcessW(path.c_str(), &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr,
                                 directory.c_str(), &startup, &process);
        error = started ? 0 : GetLastError();
        if (!started && error != ERROR_INTERNAL_ERROR) {
            break;
        }
        if (!started) {
            Sleep(200);
        }
    }
    if (!started) {
        run.output = "CreateProcessW failed " + std::to_string(error);
        return run;
    }
    UniqueHandle processHandle(process.hProcess);
    UniqueHandle threadHandle(process.hThread);
    writeEnd.reset();
    char buffer[4096];
    DWORD read = 0;
    while (ReadFile(readEnd.get(), buffer, sizeof buffer, &read, nullptr) && read > 0) {
        run.output.append(buffer, read);
    }
    WaitForSingleObject(processHandle.get(), INFINITE);
    GetExitCodeProcess(processHandle.get(), &run.exitCode);
    AwaitHelpersOf(process.dwProcessId);
    return run;
}
