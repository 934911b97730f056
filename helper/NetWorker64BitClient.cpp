// NetWorker64BitClient.exe: serves one host's NetWorkerNamedPipeExecutor over the pipe named
// on the command line, running the in-process executor in this process.
// Exit codes: 0 after a normal end of the session; 1 when the session failed (the reason is
// logged); 2 without a pipe name; 3 when the logger cannot be obtained; 4 when an object of
// the library cannot be allocated.

#include <windows.h>

#include <exception>
#include <string>
#include <vector>

#include "HelperCommandLine.h"
#include "common/UniqueLogger.h"
#include "common/UniqueResource.h"
#include "exports/NetWorkerXbsa.h"
#include "interfaces/LoggerApi.h"

namespace {

constexpr wchar_t kMethod[] = L"NetWorker64BitClient::main";

enum ExitCode : int {
    ExitNormal = 0,
    ExitSessionFailed = 1,
    ExitNoPipeName = 2,
    ExitNoLogger = 3,
    ExitAllocationFailed = 4,
};

// The library's objects, each freed by its own Free... export.
template <typename Interface, void (*Free)(Interface*)>
struct LibraryObjectTraits {
    using Handle = Interface*;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle object) { return object != nullptr; }
    static void Close(Handle object) { Free(object); }
};

using OwnedConnection =
    UniqueResource<LibraryObjectTraits<INamedPipeConnection, FreeNamedPipeConnection>>;
using OwnedWrapper =
    UniqueResource<LibraryObjectTraits<INetWorkerApiWrapper, FreeNetWorkerApiWrapper>>;
using OwnedExecutor =
    UniqueResource<LibraryObjectTraits<INetWorkerExecutor, FreeNetWorkerExecutor>>;
using OwnedClient =
    UniqueResource<LibraryObjectTraits<INetWorkerNamedPipeClient, FreeNetWorkerNamedPipeClient>>;

std::wstring ModuleFileName() {
    std::vector<wchar_t> path(MAX_PATH);
    for (;;) {
        const DWORD length =
            ::GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0) {
            return L"NetWorker64BitClient.exe";
        }
        if (length < path.size()) {
            return std::wstring(path.data(), length);
        }
        path.resize(path.size() * 2);
    }
}

// Allocates through one export; logs and returns false when it refuses.
template <typename Owner, typename AllocateFunction>
bool Allocate(ILog* log, const wchar_t* what, Owner* owner, AllocateFunction allocate) {
    typename Owner::Handle object = nullptr;
    if (!allocate(&object) || object == nullptr) {
        log->Error(kMethod, L"Failed to allocate the %s.", what);
        return false;
    }
    owner->reset(object);
    return true;
}

// Everything is allocated here and freed in reverse order on the way out.
int Serve(ILog* log, const std::wstring& pipeName) {
    OwnedConnection connection;
    OwnedWrapper wrapper;
    OwnedExecutor executor;
    OwnedClient client;
    if (!Allocate(log, L"named pipe connection", &connection,
                  [](INamedPipeConnection** out) { return AllocateNamedPipeConnection(out); }) ||
        !Allocate(log, L"NetWorker API wrapper", &wrapper,
                  [](INetWorkerApiWrapper** out) { return AllocateNetWorkerApiWrapper(out); }) ||
        !Allocate(log, L"NetWorker API executor", &executor,
                  [&](INetWorkerExecutor** out) {
                      return AllocateNetWorkerApiExecutor(out, wrapper.get());
                  }) ||
        !Allocate(log, L"named pipe client", &client, [&](INetWorkerNamedPipeClient** out) {
            return AllocateNetWorkerNamedPipeClient(pipeName.c_str(), connection.get(),
                                                    executor.get(), log, out);
        })) {
        return ExitAllocationFailed;
    }
    try {
        client.get()->Run();
    } catch (const std::exception& failure) {
        log->Error(kMethod, L"The session ended with an error: %S", failure.what());
        return ExitSessionFailed;
    } catch (...) {
        log->Error(kMethod, L"The session ended with an error of unknown type.");
        return ExitSessionFailed;
    }
    return ExitNormal;
}

}  // namespace

int main() {
    const std::wstring pipeName = PipeNameFromCommandLine(::GetCommandLineW(), ModuleFileName());
    const UniqueLogger owned = TryAcquireLogger(L"NetWorker64BitClient");
    if (!owned) {
        return ExitNoLogger;
    }
    ILog* const log = owned.get();
    if (pipeName.empty()) {
        log->Error(kMethod, L"No pipe name on the command line.");
        return ExitNoPipeName;
    }
    log->Info(kMethod, L"Serving pipe '%s'.", pipeName.c_str());
    const int exitCode = Serve(log, pipeName);
    log->Info(kMethod, L"Exiting with code %d.", exitCode);
    return exitCode;
}
