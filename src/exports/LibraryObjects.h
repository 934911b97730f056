#pragma once
// The library's objects as the exported factories make them, shared by the GCC names
// (NetWorkerXbsa.cpp) and the Visual C++ names (MsvcHostFactories.cpp). Each Make function
// throws when the object cannot be made; AllocateInto turns that into false and null.

#include <memory>

#include "interfaces/ILog.h"
#include "interfaces/INamedPipeConnection.h"
#include "interfaces/INetWorkerApiWrapper.h"
#include "interfaces/INetWorkerExecutor.h"
#include "interfaces/INetWorkerNamedPipeClient.h"

using LaunchHelperFunction = long (*)(const wchar_t* pipeName);

std::unique_ptr<INamedPipeConnection> MakeNamedPipeConnection();
std::unique_ptr<INetWorkerApiWrapper> MakeNetWorkerApiWrapper();
std::unique_ptr<INetWorkerExecutor> MakeNetWorkerApiExecutor(INetWorkerApiWrapper* wrapper);
std::unique_ptr<INetWorkerNamedPipeClient> MakeNetWorkerNamedPipeClient(
    const wchar_t* pipeName, INamedPipeConnection* connection, INetWorkerExecutor* executor,
    ILog* log);
std::unique_ptr<INetWorkerExecutor> MakeNetWorkerNamedPipeExecutor(
    const wchar_t* pipeName, INamedPipeConnection* connection, LaunchHelperFunction launchClient);
LaunchHelperFunction BuiltInHelperLauncher();

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
