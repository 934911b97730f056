// file_holder <path>: holds an existing file open as another program that uses it would,
// reading and sharing reads and deletion but not writing, until it is ended. Once it holds the
// file it creates "<path>.held", so that its starter can wait without touching the file itself.
// Exit codes: 2 for a wrong command line, 3 when the file cannot be opened, 4 when the marker
// cannot be made.
#include <windows.h>

#include <string>

#include "common/UniqueHandle.h"

int wmain(int argc, wchar_t** argv) {
    if (argc != 2) {
        return 2;
    }
    const UniqueFileHandle file(CreateFileW(argv[1], GENERIC_READ,
                                            FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr,
                                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return 3;
    }
    const std::wstring marker = std::wstring(argv[1]) + L".held";
    const UniqueFileHandle held(
        CreateFileW(marker.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr));
    if (!held) {
        return 4;
    }
    Sleep(INFINITE);
    return 0;
}
