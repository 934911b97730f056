// The default launcher of the out-of-process mode: starts the helper program. Windows only;
// the rest of NetWorkerNamedPipeExecutor is platform-neutral.
#include <windows.h>

#include <cstring>
#include <cwchar>
#include <vector>

#include "NetWorkerNamedPipeExecutor.h"
#include "common/UniqueHandle.h"

long NetWorkerNamedPipeExecutor::StartClientProcess(const wchar_t* pipeName) {
    // CreateProcessW may write into the command line, so it gets its own copy.
    std::vector<wchar_t> commandLine(pipeName, pipeName + std::wcslen(pipeName) + 1);
    STARTUPINFOW startup;
    std::memset(&startup, 0, sizeof startup);
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process;
    std::memset(&process, 0, sizeof process);
    if (!::CreateProcessW(kClientProgram, commandLine.data(), nullptr, nullptr, FALSE,
                          NORMAL_PRIORITY_CLASS, nullptr, nullptr, &startup, &process)) {
        const unsigned long error = ::GetLastError();
        // A failure that leaves no error number still must not count as started: the host
        // would wait for a helper that never comes.
        if (error == 0) {
            return E_FAIL;
        }
        return HRESULT_FROM_WIN32(error);
    }
    // The host never waits for the helper: both handles are closed at once.
    UniqueHandle processHandle(process.hProcess);
    UniqueHandle threadHandle(process.hThread);
    return 0;
}
