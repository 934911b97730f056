#include "HelperLauncher.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "common/UniqueHandle.h"

namespace {

// The launcher is a plain function pointer, so each helper of this run is kept here under the
// name of its pipe (a restore with --jobs has one per session).
struct HelperState {
    UniqueHandle process;
    UniqueHandle connected{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::thread watcher;
    std::wstring pipeName;
    std::atomic<bool> endedEarly{false};
    DWORD startError = 0;
};

std::mutex g_helpersMutex;

std::map<std::wstring, std::unique_ptr<HelperState>>& Helpers() {
    static std::map<std::wstring, std::unique_ptr<HelperState>> helpers;
    return helpers;
}

// The state of the helper for this pipe, made on first use; it lives as long as the run.
HelperState& State(const std::wstring& pipeName) {
    const std::lock_guard<std::mutex> lock(g_helpersMutex);
    std::unique_ptr<HelperState>& state = Helpers()[pipeName];
    if (!state) {
        state = std::make_unique<HelperState>();
        state->pipeName = pipeName;
    }
    return *state;
}

void Watch(HelperState* state) {
    HANDLE handles[2] = {state->process.get(), state->connected.get()};
    if (WaitForMultipleObjects(2, handles, FALSE, INFINITE) != WAIT_OBJECT_0) {
        return;
    }
    // The helper died before it connected: the executor waits for a connection that will
    // never come. Connecting and closing at once releases it; it then fails on the pipe.
    state->endedEarly = true;
    const std::wstring path = L"\\\\.\\pipe\\" + state->pipeName;
    UniqueFileHandle pipe(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                      OPEN_EXISTING, 0, nullptr));
}

}  // namespace

namespace helper_process {

std::wstring HelperPath() {
    std::vector<wchar_t> buffer(MAX_PATH);
    for (;;) {
        const DWORD length =
            GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
        if (length == 0) {
            return L"NetWorker64BitClient.exe";
        }
        if (length < buffer.size()) {
            std::wstring path(buffer.data(), length);
            const size_t slash = path.find_last_of(L"\\/");
            return (slash == std::wstring::npos ? std::wstring() : path.substr(0, slash + 1)) +
                   L"NetWorker64BitClient.exe";
        }
        buffer.resize(buffer.size() * 2);
    }
}

void MarkConnected(const std::wstring& pipeName) {
    HelperState& state = State(pipeName);
    SetEvent(state.connected.get());
    if (state.watcher.joinable()) {
        state.watcher.join();
    }
}

bool EndedBeforeConnecting(const std::wstring& pipeName, DWORD* exitCode) {
    HelperState& state = State(pipeName);
    if (!state.endedEarly || !state.process) {
        return false;
    }
    *exitCode = 0;
    GetExitCodeProcess(state.process.get(), exitCode);
    return true;
}

DWORD StartError(const std::wstring& pipeName) {
    return State(pipeName).startError;
}

void WaitForExit(const std::wstring& pipeName) {
    HelperState& state = State(pipeName);
    MarkConnected(pipeName);
    if (!state.process) {
        return;
    }
    if (WaitForSingleObject(state.process.get(), 10000) == WAIT_TIMEOUT) {
        // It should have left when the pipe closed; do not leave it behind.
        TerminateProcess(state.process.get(), 1);
    }
    state.process.reset();
}

}  // namespace helper_process

long LaunchHelperFromOwnDirectory(const wchar_t* pipeName) {
    HelperState& state = State(pipeName);
    const std::wstring application = helper_process::HelperPath();
    std::vector<wchar_t> commandLine(pipeName, pipeName + wcslen(pipeName) + 1);
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION info{};
    // A process group of its own: Ctrl+C is for nwexch, which cancels cleanly through the
    // pipe; the helper must not be killed by it in the middle of a write.
    if (!CreateProcessW(application.c_str(), commandLine.data(), nullptr, nullptr, FALSE,
                        NORMAL_PRIORITY_CLASS | CREATE_NEW_PROCESS_GROUP, nullptr, nullptr,
                        &startup, &info)) {
        const DWORD error = GetLastError();
        state.startError = error == 0 ? ERROR_FILE_NOT_FOUND : error;
        return HRESULT_FROM_WIN32(state.startError);
    }
    UniqueHandle thread(info.hThread);
    state.process.reset(info.hProcess);
    state.watcher = std::thread(Watch, &state);
    return 0;
}
