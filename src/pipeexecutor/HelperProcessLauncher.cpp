// The default launcher of the out-of-process mode: starts the helper program. Windows only;
// the rest of NetWorkerNamedPipeExecutor is platform-neutral.
#include <windows.h>

#include <cstring>
#include <cwchar>
#include <string>
#include <utility>
#include <vector>

#include "NetWorkerNamedPipeExecutor.h"
#include "common/EnvironmentBlock.h"
#include "common/UniqueHandle.h"
#include "pipe/PipeSecurity.h"

namespace {

struct EnvironmentStringsTraits {
    using Handle = wchar_t*;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle block) { return block != nullptr; }
    static void Close(Handle block) { ::FreeEnvironmentStringsW(block); }
};
using UniqueEnvironmentStrings = UniqueResource<EnvironmentStringsTraits>;

// The host's environment, and for a hardened host also the id of this process, so that the
// helper can tell its own host's pipe from another's.
std::wstring HardenedHelperEnvironment() {
    const UniqueEnvironmentStrings current(::GetEnvironmentStringsW());
    return EnvironmentBlockWith(current.get(), kPipeServerProcessVariable,
                                std::to_wstring(::GetCurrentProcessId()));
}

}  // namespace

long NetWorkerNamedPipeExecutor::StartClientProcess(const wchar_t* pipeName) {
    // CreateProcessW may write into the command line, so it gets its own copy.
    std::vector<wchar_t> commandLine(pipeName, pipeName + std::wcslen(pipeName) + 1);
    STARTUPINFOW startup;
    std::memset(&startup, 0, sizeof startup);
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process;
    std::memset(&process, 0, sizeof process);
    const bool hardened = IsHardened(ReadPipeHardening());
    std::wstring environment;
    DWORD flags = NORMAL_PRIORITY_CLASS;
    if (hardened) {
        environment = HardenedHelperEnvironment();
        flags |= CREATE_UNICODE_ENVIRONMENT;
    }
    if (!::CreateProcessW(kClientProgram, commandLine.data(), nullptr, nullptr, FALSE, flags,
                          hardened ? &environment[0] : nullptr, nullptr, &startup, &process)) {
        const unsigned long error = ::GetLastError();
        // A failure that leaves no error number still must not count as started: the host
        // would wait for a helper that never comes.
        if (error == 0) {
            return E_FAIL;
        }
        return HRESULT_FROM_WIN32(error);
    }
    UniqueHandle processHandle(process.hProcess);
    UniqueHandle threadHandle(process.hThread);
    if (hardened) {
        // The pipe accepts this process only; its handle is kept until it has connected.
        ExpectPipeClient(pipeName,
                         ExpectedPipeClient{std::move(processHandle), process.dwProcessId});
    }
    // Otherwise the host never waits for the helper: both handles are closed at once.
    return 0;
}
