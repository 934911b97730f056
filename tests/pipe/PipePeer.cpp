// pipe_peer.exe: the other end of the named pipe tests, driven by its command line.
//   pipe_peer client-echo <name> <event>        open the pipe, signal, echo every message;
//                                               "quit" ends it (the handle is simply closed)
//   pipe_peer client-open-close <name> <event>  open the pipe, close it, signal
//   pipe_peer server <name> <event> <disconnect|close> <size>...
//       create the only instance, signal, wait for the client, write one message per size
//       (bytes 0, 1, 2, ...), then flush and either disconnect and close, or only close
//   pipe_peer server-busy <name> <event>
//       create the only instance, signal, serve one client until it sends "quit"
// Exit code 0 on success, 10 + the step number on failure.

#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

std::wstring Widen(const char* text) {
    std::wstring wide;
    for (const char* p = text; *p != '\0'; ++p) {
        wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(*p)));
    }
    return wide;
}

std::wstring PipePath(const char* name) {
    return L"\\\\.\\pipe\\" + Widen(name);
}

bool Signal(const char* eventName) {
    HANDLE event = ::OpenEventW(EVENT_MODIFY_STATE, FALSE, Widen(eventName).c_str());
    if (event == nullptr) {
        return false;
    }
    const bool set = ::SetEvent(event) != FALSE;
    ::CloseHandle(event);
    return set;
}

HANDLE OpenClientEnd(const char* name) {
    HANDLE pipe = ::CreateFileW(PipePath(name).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    if (pipe == INVALID_HANDLE_VALUE) {
        return pipe;
    }
    DWORD mode = PIPE_READMODE_MESSAGE;
    if (::SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr) == FALSE) {
        ::CloseHandle(pipe);
        return INVALID_HANDLE_VALUE;
    }
    return pipe;
}

HANDLE CreateOnlyInstance(const char* name) {
    return ::CreateNamedPipeW(PipePath(name).c_str(), PIPE_ACCESS_DUPLEX,
                              PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, 1, 2048, 2048,
                              0, nullptr);
}

bool AwaitClient(HANDLE pipe) {
    return ::ConnectNamedPipe(pipe, nullptr) != FALSE || ::GetLastError() == ERROR_PIPE_CONNECTED;
}

// Echoes messages until "quit" or a read failure.
int EchoUntilQuit(HANDLE pipe) {
    std::vector<unsigned char> buffer(8192);
    for (;;) {
        DWORD read = 0;
        if (::ReadFile(pipe, buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr) ==
            FALSE) {
            return 0;
        }
        if (read == 4 && std::memcmp(buffer.data(), "quit", 4) == 0) {
            return 0;
        }
        DWORD written = 0;
        if (::WriteFile(pipe, buffer.data(), read, &written, nullptr) == FALSE || written != read) {
            return 20;
        }
    }
}

int ClientEcho(const char* name, const char* eventName) {
    HANDLE pipe = OpenClientEnd(name);
    if (pipe == INVALID_HANDLE_VALUE) {
        return 11;
    }
    if (!Signal(eventName)) {
        return 12;
    }
    const int result = EchoUntilQuit(pipe);
    ::CloseHandle(pipe);
    return result;
}

int ClientOpenClose(const char* name, const char* eventName) {
    HANDLE pipe = OpenClientEnd(name);
    if (pipe == INVALID_HANDLE_VALUE) {
        return 11;
    }
    ::CloseHandle(pipe);
    return Signal(eventName) ? 0 : 12;
}

int Server(const char* name, const char* eventName, const char* ending, int sizeCount,
           char** sizes) {
    HANDLE pipe = CreateOnlyInstance(name);
    if (pipe == INVALID_HANDLE_VALUE) {
        return 11;
    }
    if (!Signal(eventName)) {
        return 12;
    }
    if (!AwaitClient(pipe)) {
        return 13;
    }
    for (int i = 0; i < sizeCount; ++i) {
        std::vector<unsigned char> message(static_cast<size_t>(std::atoi(sizes[i])));
        for (size_t b = 0; b < message.size(); ++b) {
            message[b] = static_cast<unsigned char>(b);
        }
        DWORD written = 0;
        if (::WriteFile(pipe, message.data(), static_cast<DWORD>(message.size()), &written,
                        nullptr) == FALSE) {
            return 14;
        }
    }
    ::FlushFileBuffers(pipe);
    if (std::strcmp(ending, "disconnect") == 0) {
        ::DisconnectNamedPipe(pipe);
    }
    ::CloseHandle(pipe);
    return 0;
}

int ServerBusy(const char* name, const char* eventName) {
    HANDLE pipe = CreateOnlyInstance(name);
    if (pipe == INVALID_HANDLE_VALUE) {
        return 11;
    }
    if (!Signal(eventName)) {
        return 12;
    }
    if (!AwaitClient(pipe)) {
        return 13;
    }
    const int result = EchoUntilQuit(pipe);
    ::CloseHandle(pipe);
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        return 2;
    }
    const std::string mode = argv[1];
    if (mode == "client-echo") {
        return ClientEcho(argv[2], argv[3]);
    }
    if (mode == "client-open-close") {
        return ClientOpenClose(argv[2], argv[3]);
    }
    if (mode == "server" && argc >= 5) {
        return Server(argv[2], argv[3], argv[4], argc - 5, argv + 5);
    }
    if (mode == "server-busy") {
        return ServerBusy(argv[2], argv[3]);
    }
    return 3;
}
