// libbsa.dll of the simulated installation: the ten XBSA entry points, served by XbsaServer over
// the store that nwsim.ini (or NWSIM_ROOT) names. Exports come from the generated .def file so a
// variant can leave any one of them out.

#include <windows.h>

#include <atomic>
#include <exception>
#include <locale>

#include "ImageSupport.h"
#include "XbsaServer.h"
#include "common/UniqueHandle.h"

namespace {

class ImageServerHost final : public nwsim::ServerHost {
public:
    nwsim::ServerSettings LoadSettings() override {
        nwsim::ServerSettings settings;
        settings.storeRoot =
            nwsim::FindStoreRoot(nwsim::ModuleDirectory(&g_anchor), settings.error);
        settings.faultText = nwsim::ReadFaultText(settings.storeRoot);
        return settings;
    }
    bool JournalEnabled() override { return nwsim::JournalEnabled(); }
    void Append(const std::string& line) override { nwsim::AppendJournal(line); }
    uint64_t ProcessId() override { return GetCurrentProcessId(); }

    static const int g_anchor;
};

const int ImageServerHost::g_anchor = 0;

nwsim::XbsaServer& Server() {
    static ImageServerHost host;
    static nwsim::XbsaServer server(host);
    return server;
}

// The C++ runtime's one-time set-ups (the server's guarded statics, the locale behind every
// file stream) run through the POSIX-threads layer linked into this DLL, which gives each
// thread that runs one a record of its own: a duplicate of the thread's handle, an event and
// 784 bytes. A thread that outlives the DLL keeps them, so a host that loads and frees the
// installation's libraries per session, as the library does, would lose two handles and the
// bytes at every session. The first call after loading therefore runs them on a thread of this
// DLL that ends at once: its handles close with it, and only the 528 bytes that the threads
// layer keeps of an ended thread stay behind when the DLL is freed.
std::atomic<bool> g_runtimeReady{false};

DWORD WINAPI SetUpRuntime(void*) {
    try {
        Server();
        const std::locale locale;
        (void)locale;
    } catch (...) {
        // The call that follows meets the same failure and reports it.
    }
    return 0;
}

void SetUpRuntimeOnOwnThread() {
    if (g_runtimeReady.load()) {
        return;
    }
    UniqueHandle thread(CreateThread(nullptr, 0, SetUpRuntime, nullptr, 0, nullptr));
    if (thread) {
        WaitForSingleObject(thread.get(), INFINITE);
    }
    g_runtimeReady.store(true);
}

// Nothing may unwind into the caller: an internal failure is a system error.
template <typename Call>
BSA_Int32 Guarded(Call call) {
    SetUpRuntimeOnOwnThread();
    try {
        return call();
    } catch (...) {
        return BSA_RC_ABORT_SYSTEM_ERROR;
    }
}

}  // namespace

extern "C" {

BSA_Int32 BSAInit(BSA_Handle* handle, BSA_SecurityToken* token, BSA_ObjectOwner* owner,
                  char** environment) {
    return Guarded([&] { return Server().Init(handle, token, owner, environment); });
}

BSA_Int32 BSATerminate(BSA_Handle handle) {
    return Guarded([&] { return Server().Terminate(handle); });
}

BSA_Int32 BSABeginTxn(BSA_Handle handle) {
    return Guarded([&] { return Server().BeginTxn(handle); });
}

// The standard's two arguments: a caller that passes the handle alone leaves the vote to
// whatever its register held, and is answered 11 (BSA_RC_INVALID_VOTE) for most values.
BSA_Int32 BSAEndTxn(BSA_Handle handle, BSA_Vote vote) {
    return Guarded([&] { return Server().EndTxn(handle, vote); });
}

BSA_Int32 BSAQueryObject(BSA_Handle handle, BSA_QueryDescriptor* query,
                         BSA_ObjectDescriptor* descriptor) {
    return Guarded([&] { return Server().QueryObject(handle, query, descriptor); });
}

BSA_Int32 BSAQueryApiVersion(BSA_ApiVersion* version) {
    return Guarded([&] { return Server().QueryApiVersion(version); });
}

BSA_Int32 BSAGetNextQueryObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor) {
    return Guarded([&] { return Server().GetNextQueryObject(handle, descriptor); });
}

BSA_Int32 BSAGetObject(BSA_Handle handle, BSA_ObjectDescriptor* descriptor,
                       BSA_DataBlock32* dataBlock) {
    return Guarded([&] { return Server().OpenObject(handle, descriptor, dataBlock); });
}

BSA_Int32 BSAGetData(BSA_Handle handle, BSA_DataBlock32* dataBlock) {
    return Guarded([&] { return Server().GetData(handle, dataBlock); });
}

BSA_Int32 BSAEndData(BSA_Handle handle) {
    return Guarded([&] { return Server().EndData(handle); });
}

}  // extern "C"
