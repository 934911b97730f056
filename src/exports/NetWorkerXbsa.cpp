#include "NetWorkerXbsa.h"

#include <memory>
#include <stdexcept>
#include <string>

#include "executor/NetWorkerApiExecutor.h"
#include "networker/NetWorkerApiWrapper.h"
#include "pipe/NamedPipeConnection.h"
#include "pipeclient/NetWorkerNamedPipeClient.h"
#include "pipeexecutor/NetWorkerNamedPipeExecutor.h"

namespace {

// Runs make() and hands the object out; whatever make() throws becomes false and null.
template <typename Interface, typename Make>
bool AllocateInto(Interface** out, Make make) {
    if (out == nullptr) {
        return false;
    }
    *out = nullptr;
    try {
        std::unique_ptr<Interface> object = make();
        *out = object.release();
    } catch (...) {
        *out = nullptr;
    }
    return *out != nullptr;
}

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

NETWORKERXBSA_API bool AllocateNamedPipeConnection(INamedPipeConnection** connection) {
    return AllocateInto(connection, [] { return std::make_unique<NamedPipeConnection>(); });
}

NETWORKERXBSA_API bool AllocateNetWorkerApiExecutor(INetWorkerExecutor** executor,
                                                    INetWorkerApiWrapper* wrapper) {
    return AllocateInto(executor,
                        [wrapper] { return std::make_unique<NetWorkerApiExecutor>(wrapper); });
}

NETWORKERXBSA_API bool AllocateNetWorkerApiWrapper(INetWorkerApiWrapper** wrapper) {
    return AllocateInto(wrapper, [] { return std::make_unique<NetWorkerApiWrapper>(); });
}

NETWORKERXBSA_API bool AllocateNetWorkerNamedPipeClient(const wchar_t* pipeName,
                                                        INamedPipeConnection* connection,
                                                        INetWorkerExecutor* executor, ILog* log,
                                                        INetWorkerNamedPipeClient** client) {
    return AllocateInto(client, [&] {
        const std::wstring name = CopyPipeName(pipeName);
        return std::make_unique<NetWorkerNamedPipeClient>(name.c_str(), connection, executor, log);
    });
}

NETWORKERXBSA_API bool AllocateNetWorkerNamedPipeExecutor(INetWorkerExecutor** executor,
                                                          const wchar_t* pipeName,
                                                          INamedPipeConnection* connection) {
    return AllocateNetWorkerNamedPipeExecutor(executor, pipeName, connection,
                                              &NetWorkerNamedPipeExecutor::StartClientProcess);
}

NETWORKERXBSA_API bool AllocateNetWorkerNamedPipeExecutor(INetWorkerExecutor** executor,
                                                          const wchar_t* pipeName,
                                                          INamedPipeConnection* connection,
                                                          long (*launchClient)(const wchar_t*)) {
    return AllocateInto(executor, [&] {
        const std::wstring name = CopyPipeName(pipeName);
        return std::make_unique<NetWorkerNamedPipeExecutor>(name.c_str(), connection, launchClient);
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
