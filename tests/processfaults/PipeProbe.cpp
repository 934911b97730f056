// pipe_probe.exe <pipe name>: tries to open \\.\pipe\<name> as a client once, as a third
// process would, and exits with the Windows error (0 when it got the pipe).

#include <windows.h>

#include <string>

int wmain(int argc, wchar_t** argv) {
    if (argc != 2) {
        return 87;  // ERROR_INVALID_PARAMETER
    }
    const std::wstring path = std::wstring(L"\\\\.\\pipe\\") + argv[1];
    HANDLE pipe = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                              0, nullptr);
    if (pipe == INVALID_HANDLE_VALUE) {
        return static_cast<int>(GetLastError());
    }
    CloseHandle(pipe);
    return 0;
}
