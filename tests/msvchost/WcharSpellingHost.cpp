// A host built as Visual C++ builds with /Zc:wchar_t- (wchar_t is unsigned short): the three
// functions that take a wide string, and GetLogger, bind under that spelling of their names.
// Prints "bound" and exits 0 when every allocation succeeded.

#include "MsvcRuntime.h"
#include "NetWorkerXbsa.h"
#include "interfaces/LoggerApi.h"

namespace {

long NoLaunch(const wchar_t*) {
    return -1;
}

}  // namespace

extern "C" void HostEntry() {
    static_assert(sizeof(wchar_t) == 2, "wchar_t is unsigned short here");
    ILog* log = nullptr;
    INamedPipeConnection* connection = nullptr;
    INetWorkerApiWrapper* wrapper = nullptr;
    INetWorkerExecutor* direct = nullptr;
    INetWorkerExecutor* builtIn = nullptr;
    INetWorkerExecutor* ownLauncher = nullptr;
    INetWorkerNamedPipeClient* client = nullptr;
    const bool bound =
        GetLogger(L"WcharSpellingHost", &log) == 0 && AllocateNamedPipeConnection(&connection) &&
        AllocateNetWorkerApiWrapper(&wrapper) && AllocateNetWorkerApiExecutor(&direct, wrapper) &&
        AllocateNetWorkerNamedPipeExecutor(&builtIn, L"nwx-wchar-spelling", connection) &&
        AllocateNetWorkerNamedPipeExecutor(&ownLauncher, L"nwx-wchar-spelling", connection,
                                           &NoLaunch) &&
        AllocateNetWorkerNamedPipeClient(L"nwx-wchar-spelling", connection, direct, log, &client);
    FreeNetWorkerNamedPipeClient(client);
    FreeNetWorkerExecutor(ownLauncher);
    FreeNetWorkerExecutor(builtIn);
    FreeNetWorkerExecutor(direct);
    FreeNetWorkerApiWrapper(wrapper);
    FreeNamedPipeConnection(connection);
    FreeLogger(log);
    msvcrt::Print(bound ? "bound\n" : "allocation failed\n");
    ExitProcess(bound ? 0 : 1);
}
