// nsrexecd.exe of the simulated installation: a real, harmless Windows service. It reports
// running and stops when asked. Started from a console it says so and exits 0.

#include <windows.h>

#include <cstdio>

#include "common/UniqueHandle.h"

namespace {

SERVICE_STATUS_HANDLE g_statusHandle = nullptr;
HANDLE g_stopEvent = nullptr;

void Report(DWORD state) {
    SERVICE_STATUS status = {};
    status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
    status.dwCurrentState = state;
    status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP : 0;
    SetServiceStatus(g_statusHandle, &status);
}

DWORD WINAPI Control(DWORD control, DWORD, void*, void*) {
    if (control == SERVICE_CONTROL_STOP || control == SERVICE_CONTROL_SHUTDOWN) {
        Report(SERVICE_STOP_PENDING);
        SetEvent(g_stopEvent);
    }
    return NO_ERROR;
}

void WINAPI ServiceMain(DWORD, LPWSTR*) {
    g_statusHandle = RegisterServiceCtrlHandlerExW(L"nsrexecd", Control, nullptr);
    if (g_statusHandle == nullptr) {
        return;
    }
    UniqueHandle stopEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    g_stopEvent = stopEvent.get();
    Report(SERVICE_RUNNING);
    WaitForSingleObject(stopEvent.get(), INFINITE);
    Report(SERVICE_STOPPED);
}

}  // namespace

int main() {
    SERVICE_TABLE_ENTRYW table[] = {{const_cast<LPWSTR>(L"nsrexecd"), ServiceMain},
                                    {nullptr, nullptr}};
    if (StartServiceCtrlDispatcherW(table)) {
        return 0;
    }
    if (GetLastError() == ERROR_FAILED_SERVICE_CONTROLLER_CONNECT) {
        std::printf(
            "nsrexecd: simulated NetWorker client service; run it as the service "
            "\"nsrexecd\" (nothing to do from a console)\n");
        return 0;
    }
    std::fprintf(stderr, "nsrexecd: StartServiceCtrlDispatcher failed: %lu\n", GetLastError());
    return 1;
}
