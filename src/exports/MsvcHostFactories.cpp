#include "MsvcHostFactories.h"

#include "LibraryObjects.h"
#include "MsvcHostObjects.h"

namespace msvc_host {

bool AllocateNamedPipeConnection(INamedPipeConnection** connection) {
    return AllocateInto(connection, [] { return ForMsvcHost(MakeNamedPipeConnection()); });
}

bool AllocateNetWorkerApiExecutor(INetWorkerExecutor** executor, INetWorkerApiWrapper* wrapper) {
    return AllocateInto(executor, [wrapper] {
        INetWorkerApiWrapper* library = LibraryObjectOf(wrapper);
        if (library != wrapper || wrapper == nullptr) {
            return ForMsvcHost(MakeNetWorkerApiExecutor(library));
        }
        // The host's own wrapper: the executor calls it through the host-call guard.
        std::unique_ptr<INetWorkerApiWrapper> guarded = GuardedHostWrapper(wrapper);
        std::unique_ptr<INetWorkerExecutor> executorObject =
            MakeNetWorkerApiExecutor(guarded.get());
        return ForMsvcHost(std::move(executorObject), std::move(guarded));
    });
}

bool AllocateNetWorkerApiWrapper(INetWorkerApiWrapper** wrapper) {
    return AllocateInto(wrapper, [] { return ForMsvcHost(MakeNetWorkerApiWrapper()); });
}

bool AllocateNetWorkerNamedPipeClient(const wchar_t* pipeName, INamedPipeConnection* connection,
                                      INetWorkerExecutor* executor, ILog* log,
                                      INetWorkerNamedPipeClient** client) {
    return AllocateInto(client, [&] {
        return ForMsvcHost(MakeNetWorkerNamedPipeClient(pipeName, LibraryObjectOf(connection),
                                                        LibraryObjectOf(executor), log));
    });
}

bool AllocateNetWorkerNamedPipeExecutor(INetWorkerExecutor** executor, const wchar_t* pipeName,
                                        INamedPipeConnection* connection) {
    return msvc_host::AllocateNetWorkerNamedPipeExecutor(executor, pipeName, connection,
                                                         BuiltInHelperLauncher());
}

bool AllocateNetWorkerNamedPipeExecutor(INetWorkerExecutor** executor, const wchar_t* pipeName,
                                        INamedPipeConnection* connection,
                                        long (*launchClient)(const wchar_t*)) {
    return AllocateInto(executor, [&] {
        return ForMsvcHost(
            MakeNetWorkerNamedPipeExecutor(pipeName, LibraryObjectOf(connection), launchClient));
    });
}

}  // namespace msvc_host
