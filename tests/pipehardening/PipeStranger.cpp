// pipe_stranger.exe: another process of the same user on a host's pipe, driven by its command
// line. The events are named events that the test created.
//   pipe_stranger squat <name> <ready> <end> <instances>
//       create \\.\pipe\<name> first (with 1 or 255 instances), set <ready>, keep it until <end>
//   pipe_stranger create <name>
//       try to create one more instance of the pipe; exit 0 when it was created, else the error
//   pipe_stranger knock <name> <connected>
//       open the pipe as soon as it exists, set <connected>, then read until the server lets go:
//       exit 0 when it was disconnected without being sent anything, 1 when it was sent data,
//       231 when the pipe was busy (another client had it first), 2 when it never appeared
//   pipe_stranger client <name>
//       open the pipe, waiting while it is busy, send "hello" and expect it back: exit 0 then
//   pipe_stranger serve <name> <ready>
//       create the only instance, set <ready>, wait for a client, send it the first message of a
//       session (IpcBeginInitialize), then exit 1 when a reply comes, 0 when the client leaves
//       without one
// Any other failure exits with 10 + the step.

#include <windows.h>

#include <string>

#include "common/UniqueHandle.h"
#include "pipe/PipeMessageBuilders.h"

namespace {

constexpr DWORD kWaitForPipeMilliseconds = 20000;

std::wstring PipePath(const wchar_t* name) {
    return std::wstring(L"\\\\.\\pipe\\") + name;
}

bool Signal(const wchar_t* eventName) {
    const UniqueHandle event(::OpenEventW(EVENT_MODIFY_STATE, FALSE, eventName));
    return event.valid() && ::SetEvent(event.get()) != FALSE;
}

int Squat(const wchar_t* name, const wchar_t* ready, const wchar_t* end, DWORD instances) {
    const UniqueFileHandle pipe(::CreateNamedPipeW(PipePath(name).c_str(), PIPE_ACCESS_DUPLEX,
                                                   PIPE_TYPE_MESSAGE | PIPE_WAIT, instances, 2048,
                                                   2048, 0, nullptr));
    if (!pipe.valid()) {
        return 11;
    }
    const UniqueHandle endEvent(::OpenEventW(SYNCHRONIZE, FALSE, end));
    if (!endEvent.valid() || !Signal(ready)) {
        return 12;
    }
    return ::WaitForSingleObject(endEvent.get(), 60000) == WAIT_OBJECT_0 ? 0 : 13;
}

int Create(const wchar_t* name) {
    const UniqueFileHandle pipe(::CreateNamedPipeW(
        PipePath(name).c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_WAIT,
        PIPE_UNLIMITED_INSTANCES, 2048, 2048, 0, nullptr));
    return pipe.valid() ? 0 : static_cast<int>(::GetLastError());
}

int Knock(const wchar_t* name, const wchar_t* connected) {
    const std::wstring path = PipePath(name);
    UniqueFileHandle pipe;
    const ULONGLONG deadline = ::GetTickCount64() + kWaitForPipeMilliseconds;
    while (!pipe.valid()) {
        pipe.reset(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                 OPEN_EXISTING, 0, nullptr));
        if (pipe.valid()) {
            break;
        }
        if (::GetLastError() == ERROR_PIPE_BUSY) {
            return ERROR_PIPE_BUSY;
        }
        if (::GetTickCount64() > deadline) {
            return 2;
        }
        ::Sleep(0);
    }
    if (!Signal(connected)) {
        return 11;
    }
    char byte = 0;
    DWORD read = 0;
    if (::ReadFile(pipe.get(), &byte, 1, &read, nullptr) != FALSE ||
        ::GetLastError() == ERROR_MORE_DATA) {
        return 1;
    }
    const DWORD error = ::GetLastError();
    return error == ERROR_BROKEN_PIPE || error == ERROR_PIPE_NOT_CONNECTED ? 0 : 12;
}

int Client(const wchar_t* name) {
    const std::wstring path = PipePath(name);
    UniqueFileHandle pipe;
    while (!pipe.valid()) {
        pipe.reset(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                 OPEN_EXISTING, 0, nullptr));
        if (!pipe.valid() && (::GetLastError() != ERROR_PIPE_BUSY ||
                              ::WaitNamedPipeW(path.c_str(), kWaitForPipeMilliseconds) == FALSE)) {
            return 11;
        }
    }
    DWORD mode = PIPE_READMODE_MESSAGE;
    if (::SetNamedPipeHandleState(pipe.get(), &mode, nullptr, nullptr) == FALSE) {
        return 12;
    }
    DWORD written = 0;
    if (::WriteFile(pipe.get(), "hello", 5, &written, nullptr) == FALSE) {
        return 13;
    }
    char reply[16] = {};
    DWORD read = 0;
    if (::ReadFile(pipe.get(), reply, sizeof reply, &read, nullptr) == FALSE) {
        return 14;
    }
    return read == 5 && std::string(reply, read) == "hello" ? 0 : 15;
}

int Serve(const wchar_t* name, const wchar_t* ready) {
    const UniqueFileHandle pipe(::CreateNamedPipeW(
        PipePath(name).c_str(), PIPE_ACCESS_DUPLEX,
        PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, 1, 2048, 2048, 0, nullptr));
    if (!pipe.valid()) {
        return 11;
    }
    if (!Signal(ready)) {
        return 12;
    }
    if (::ConnectNamedPipe(pipe.get(), nullptr) == FALSE &&
        ::GetLastError() != ERROR_PIPE_CONNECTED) {
        return 13;
    }
    const IpcBeginInitialize request = IpcBuildBeginInitialize("cli", "srv");
    DWORD written = 0;
    if (::WriteFile(pipe.get(), &request, sizeof request, &written, nullptr) == FALSE) {
        // The client may already have left.
        const DWORD error = ::GetLastError();
        return error == ERROR_NO_DATA || error == ERROR_BROKEN_PIPE ? 0 : 14;
    }
    unsigned char reply[kIpcMaxMessageSize];
    DWORD read = 0;
    if (::ReadFile(pipe.get(), reply, sizeof reply, &read, nullptr) != FALSE) {
        return 1;
    }
    const DWORD error = ::GetLastError();
    return error == ERROR_BROKEN_PIPE || error == ERROR_PIPE_NOT_CONNECTED ? 0 : 15;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const std::wstring mode = argc > 1 ? argv[1] : L"";
    if (mode == L"squat" && argc == 6) {
        return Squat(argv[2], argv[3], argv[4], static_cast<DWORD>(_wtoi(argv[5])));
    }
    if (mode == L"create" && argc == 3) {
        return Create(argv[2]);
    }
    if (mode == L"knock" && argc == 4) {
        return Knock(argv[2], argv[3]);
    }
    if (mode == L"client" && argc == 3) {
        return Client(argv[2]);
    }
    if (mode == L"serve" && argc == 4) {
        return Serve(argv[2], argv[3]);
    }
    return 10;
}
