#include "MsvcHostObjects.h"

#include <mutex>
#include <unordered_map>

#include "common/HostCallGuard.h"

namespace {

// Which object handed to a Visual C++ host stands in front of which of the library's own: a
// host passes such objects back to the factories (a connection, a wrapper, an executor), and
// the library must then use its own object, whose exceptions it can catch.
class StandIns {
public:
    void Add(const void* standIn, void* library) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_library[standIn] = library;
    }
    void Remove(const void* standIn) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_library.erase(standIn);
    }
    void* LibraryObjectOf(const void* object) const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_library.find(object);
        return found != m_library.end() ? found->second : nullptr;
    }

private:
    mutable std::mutex m_mutex;
    std::unordered_map<const void*, void*> m_library;
};

StandIns& Registry() {
    static StandIns standIns;
    return standIns;
}

// Owns the library's object and is registered as standing in front of it for as long as it
// lives.
template <typename Interface>
class StandIn : public Interface {
public:
    explicit StandIn(std::unique_ptr<Interface> library) : m_library(std::move(library)) {
        Registry().Add(static_cast<Interface*>(this), m_library.get());
    }
    ~StandIn() override { Registry().Remove(static_cast<Interface*>(this)); }
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

protected:
    Interface& Library() { return *m_library; }
    // For a stand-in with members that the library's object still uses while it ends.
    void DestroyLibraryNow() { m_library.reset(); }

private:
    std::unique_ptr<Interface> m_library;
};

class MsvcHostExecutor final : public StandIn<INetWorkerExecutor> {
public:
    MsvcHostExecutor(std::unique_ptr<INetWorkerExecutor> library,
                     std::unique_ptr<INetWorkerApiWrapper> hostWrapper)
        : StandIn(std::move(library)), m_hostWrapper(std::move(hostWrapper)) {}
    ~MsvcHostExecutor() override { DestroyLibraryNow(); }

    int32_t Initialize(const char* clientName, const char* serverName) override {
        return CallForMsvcHost([&] { return Library().Initialize(clientName, serverName); });
    }
    int32_t Catalog(const FILETIME* timeBefore, const FILETIME* timeAfter,
                    INetWorkerFileFoundCallBack* fileFound,
                    INetWorkerErrorCallBack* error) override {
        return CallForMsvcHost(
            [&] { return Library().Catalog(timeBefore, timeAfter, fileFound, error); });
    }
    int32_t GetFileSize(uint32_t index, bool correctSize, uint64_t* size) override {
        return CallForMsvcHost([&] { return Library().GetFileSize(index, correctSize, size); });
    }
    int32_t BeginExtract() override {
        return CallForMsvcHost([&] { return Library().BeginExtract(); });
    }
    int32_t ExtractFile(uint32_t index, const wchar_t* directory, const wchar_t* fileName,
                        INetWorkerUpdateProgressCallBack* progress,
                        INetWorkerErrorCallBack* error) override {
        return CallForMsvcHost(
            [&] { return Library().ExtractFile(index, directory, fileName, progress, error); });
    }
    int32_t EndExtract() override {
        return CallForMsvcHost([&] { return Library().EndExtract(); });
    }
    int32_t Quit() override {
        return CallForMsvcHost([&] { return Library().Quit(); });
    }

private:
    // Ends after the executor that calls it: the destructor ends the executor first.
    std::unique_ptr<INetWorkerApiWrapper> m_hostWrapper;
};

// Every operation of INetWorkerApiWrapper, handed as a call on a wrapper to Derived::Through,
// which makes it on the wrapper it stands for in its own way: the two wrappers below differ in
// nothing else.
template <typename Derived, typename Base>
class ApiWrapperForwarder : public Base {
public:
    using Base::Base;

    int32_t Initialize() override {
        return Pass([&](INetWorkerApiWrapper& w) { return w.Initialize(); });
    }
    int32_t BSAInit(BSA_Handle* handle, BSA_SecurityToken* token, BSA_ObjectOwner* owner,
                    char** environment) override {
        return Pass(
            [&](INetWorkerApiWrapper& w) { return w.BSAInit(handle, token, owner, environment); });
    }
    int32_t BSATerminate(BSA_Handle handle) override {
        return Pass([&](INetWorkerApiWrapper& w) { return w.BSATerminate(handle); });
    }
    int32_t BSABeginTxn(BSA_Handle handle) override {
        return Pass([&](INetWorkerApiWrapper& w) { return w.BSABeginTxn(handle); });
    }
    int32_t BSAEndTxn(BSA_Handle handle) override {
        return Pass([&](INetWorkerApiWrapper& w) { return w.BSAEndTxn(handle); });
    }
    int32_t BSAQueryObject(BSA_Handle handle, BSA_QueryDescriptor* query,
                           BSA_ObjectDescriptor* descriptor) override {
        return Pass(
            [&](INetWorkerApiWrapper& w) { return w.BSAQueryObject(handle, query, descriptor); });
    }
    int32_t BSAQueryApiVersion(BSA_ApiVersion* version) override {
        return Pass([&](INetWorkerApiWrapper& w) { return w.BSAQueryApiVersion(version); });
    }
    int32_t BSAGetNextQueryObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor) override {
        return Pass(
            [&](INetWorkerApiWrapper& w) { return w.BSAGetNextQueryObject(handle, descriptor); });
    }
    int32_t BSAGetObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,
                         BSA_DataBlock32* dataBlock) override {
        return Pass(
            [&](INetWorkerApiWrapper& w) { return w.BSAGetObject(handle, descriptor, dataBlock); });
    }
    int32_t BSAGetData(BSA_Handle handle, BSA_DataBlock32* dataBlock) override {
        return Pass([&](INetWorkerApiWrapper& w) { return w.BSAGetData(handle, dataBlock); });
    }
    int32_t BSAEndData(BSA_Handle handle) override {
        return Pass([&](INetWorkerApiWrapper& w) { return w.BSAEndData(handle); });
    }
    int32_t CorrectFileSize(const BSA_ObjectDescriptor* descriptor, uint64_t* size,
                            const char* serverName, const char* clientName) override {
        return Pass([&](INetWorkerApiWrapper& w) {
            return w.CorrectFileSize(descriptor, size, serverName, clientName);
        });
    }

private:
    template <typename Call>
    int32_t Pass(const Call& call) {
        return static_cast<Derived*>(this)->Through(call);
    }
};

// The library's wrapper for a Visual C++ host: its GCC exceptions raised the Visual C++ way.
class MsvcHostWrapper final
    : public ApiWrapperForwarder<MsvcHostWrapper, StandIn<INetWorkerApiWrapper>> {
public:
    using ApiWrapperForwarder::ApiWrapperForwarder;

    template <typename Call>
    int32_t Through(const Call& call) {
        return CallForMsvcHost([&] { return call(Library()); });
    }
};

class MsvcHostConnection final : public StandIn<INamedPipeConnection> {
public:
    using StandIn::StandIn;

    void OpenNewPipe(const wchar_t* name) override {
        CallForMsvcHost([&] { Library().OpenNewPipe(name); });
    }
    void WaitForConnection() override {
        CallForMsvcHost([&] { Library().WaitForConnection(); });
    }
    void OpenExisting(const wchar_t* name, uint32_t timeout) override {
        CallForMsvcHost([&] { Library().OpenExisting(name, timeout); });
    }
    bool Receive(unsigned char* buffer, uint32_t* length) override {
        return CallForMsvcHost([&] { return Library().Receive(buffer, length); });
    }
    uint32_t Send(const unsigned char* buffer, uint32_t length) override {
        return CallForMsvcHost([&] { return Library().Send(buffer, length); });
    }
};

class MsvcHostNamedPipeClient final : public StandIn<INetWorkerNamedPipeClient> {
public:
    using StandIn::StandIn;

    void Run() override {
        CallForMsvcHost([&] { Library().Run(); });
    }
};

// A host's wrapper as the executor sees it: each call through the host-call guard.
class HostWrapperGuard final : public ApiWrapperForwarder<HostWrapperGuard, INetWorkerApiWrapper> {
public:
    explicit HostWrapperGuard(INetWorkerApiWrapper* host) : m_host(host) {}

    template <typename Call>
    int32_t Through(const Call& call) {
        return CallHost([&] { return call(*m_host); });
    }

private:
    INetWorkerApiWrapper* m_host;
};

template <typename Interface>
Interface* LibraryObjectOrSelf(Interface* object) {
    void* library = Registry().LibraryObjectOf(object);
    return library != nullptr ? static_cast<Interface*>(library) : object;
}

}  // namespace

INetWorkerExecutor* LibraryObjectOf(INetWorkerExecutor* object) {
    return LibraryObjectOrSelf(object);
}

INetWorkerApiWrapper* LibraryObjectOf(INetWorkerApiWrapper* object) {
    return LibraryObjectOrSelf(object);
}

INamedPipeConnection* LibraryObjectOf(INamedPipeConnection* object) {
    return LibraryObjectOrSelf(object);
}

std::unique_ptr<INetWorkerExecutor> ForMsvcHost(std::unique_ptr<INetWorkerExecutor> executor) {
    return ForMsvcHost(std::move(executor), nullptr);
}

std::unique_ptr<INetWorkerExecutor> ForMsvcHost(std::unique_ptr<INetWorkerExecutor> executor,
                                                std::unique_ptr<INetWorkerApiWrapper> hostWrapper) {
    return std::make_unique<MsvcHostExecutor>(std::move(executor), std::move(hostWrapper));
}

std::unique_ptr<INetWorkerApiWrapper> ForMsvcHost(std::unique_ptr<INetWorkerApiWrapper> wrapper) {
    return std::make_unique<MsvcHostWrapper>(std::move(wrapper));
}

std::unique_ptr<INamedPipeConnection> ForMsvcHost(
    std::unique_ptr<INamedPipeConnection> connection) {
    return std::make_unique<MsvcHostConnection>(std::move(connection));
}

std::unique_ptr<INetWorkerNamedPipeClient> ForMsvcHost(
    std::unique_ptr<INetWorkerNamedPipeClient> client) {
    return std::make_unique<MsvcHostNamedPipeClient>(std::move(client));
}

std::unique_ptr<INetWorkerApiWrapper> GuardedHostWrapper(INetWorkerApiWrapper* hostWrapper) {
    return std::make_unique<HostWrapperGuard>(hostWrapper);
}
