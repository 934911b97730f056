#include "NetWorkerXbsa.h"

#include <memory>
#include <stdexcept>
#include <string>

#include "LibraryObjects.h"
#include "executor/NetWorkerApiExecutor.h"
#include "networker/NetWorkerApiWrapper.h"
#include "pipe/NamedPipeConnection.h"
#include "pipeclient/NetWorkerNamedPipeClient.h"
#include "pipeexecutor/NetWorkerNamedPipeExecutor.h"

namespace {

std::wstring CopyPipeName(const wchar_t* pipeName) {
    if (pipeName == nullptr) {
        throw std::invalid_argument("pipeName must not be null");
    }
    return std::wstring(pipeName);
}

// Every interface of the library has its virtual deleting destructor at slot 0; freeing runs it
// exactly as a Visual C++ host's `delete` would.
template <typename Interface>
void Destroy(Interface* object) {
    if (object == nullptr) {
        return;
    }
#if defined(_MSC_VER)
    delete object;
#else
    object->DeletingDestructor(1);
#endif
}

}  // namespace

std::unique_ptr<INamedPipeConnection> MakeNamedPipeConnection() {
    return std::make_unique<NamedPipeConnection>();
}

std::unique_ptr<INetWorkerApiWrapper> MakeNetWorkerApiWrapper() {
    return std::make_unique<NetWorkerApiWrapper>();
}

std::unique_ptr<INetWorkerExecutor> MakeNetWorkerApiExecutor(INetWorkerApiWrapper* wrapper) {
    if (wrapper == nullptr) {
        throw std::invalid_argument("wrapper must not be null");
    }
    return std::make_unique<NetWorkerApiExecutor>(wrapper);
}

std::unique_ptr<INetWorkerNamedPipeClient> MakeNetWorkerNamedPipeClient(
    const wchar_t* pipeName, INamedPipeConnection* connection, INetWorkerExecutor* executor,
    ILog* log) {
    const std::wstring name = CopyPipeName(pipeName);
    return std::make_unique<NetWorkerNamedPipeClient>(name.c_str(), connection, executor, log);
}

std::unique_ptr<INetWorkerExecutor> MakeNetWorkerNamedPipeExecutor(
    const wchar_t* pipeName, INamedPipeConnection* connection, LaunchHelperFunction launchClient) {
    const std::wstring name = CopyPipeName(pipeName);
    return std::make_unique<NetWorkerNamedPipeExecutor>(name.c_str(), connection, launchClient);
}

LaunchHelperFunction BuiltInHelperLauncher() {
    return &NetWorkerNamedPipeExecutor::StartClientProcess;
}

NETWORKERXBSA_API bool AllocateNamedPipeConnection(INamedPipeConnection** connection) {
    return AllocateInto(connection, [] { return MakeNamedPipeConnection(); });
}

NETWORKERXBSA_API bool AllocateNetWorkerApiExecutor(INetWorkerExecutor** executor,
                                                    INetWorkerApiWrapper* wrapper) {
    return AllocateInto(executor, [wrapper] { return MakeNetWorkerApiExecutor(wrapper); });
}

NETWORKERXBSA_API bool AllocateNetWorkerApiWrapper(INetWorkerApiWrapper** wrapper) {
    return AllocateInto(wrapper, [] { return MakeNetWorkerApiWrapper(); });
}

NETWORKERXBSA_API bool AllocateNetWorkerNamedPipeClient(const wchar_t* pipeName,
                                                        INamedPipeConnection* connection,
                                                        INetWorkerExecutor* executor, ILog* log,
                                                        INetWorkerNamedPipeClient** client) {
    return AllocateInto(
        client, [&] { return MakeNetWorkerNamedPipeClient(pipeName, connection, executor, log); });
}

NETWORKERXBSA_API bool AllocateNetWorkerNamedPipeExecutor(INetWorkerExecutor** executor,
                                                          const wchar_t* pipeName,
                                                          INamedPipeConnection* connection) {
    return AllocateNetWorkerNamedPipeExecutor(executor, pipeName, connection,
                                              BuiltInHelperLauncher());
}

NETWORKERXBSA_API bool AllocateNetWorkerNamedPipeExecutor(INetWorkerExecutor** executor,
                                                          const wchar_t* pipeName,
                                                          INamedPipeConnection* connection,
                                                          long (*launchClient)(const wchar_t*)) {
    return AllocateInto(executor, [&] {
        return MakeNetWorkerNamedPipeExecutor(pipeName, connection, launchClient);
    });
}

NETWORKERXBSA_API void FreeNamedPipeConnection(INamedPipeConnection* connection) {
    Destroy(connection);
}

NETWORKERXBSA_API void FreeNetWorkerApiWrapper(INetWorkerApiWrapper* wrapper) {
    Destroy(wrapper);
}

NETWORKERXBSA_API void FreeNetWorkerExecutor(INetWorkerExecutor* executor) {
    Destroy(executor);
}

NETWORKERXBSA_API void FreeNetWorkerNamedPipeClient(INetWorkerNamedPipeClient* client) {
    Destroy(client);
}
