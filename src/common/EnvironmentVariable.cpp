#include "EnvironmentVariable.h"

#include <windows.h>

#include <utility>

bool ReadEnvironmentVariable(const wchar_t* name, std::wstring* value) {
    constexpr DWORD kSmall = 512;
    wchar_t small[kSmall];
    ::SetLastError(ERROR_SUCCESS);
    DWORD length = ::GetEnvironmentVariableW(name, small, kSmall);
    if (length == 0) {
        value->clear();
        return ::GetLastError() != ERROR_ENVVAR_NOT_FOUND;
    }
    if (length < kSmall) {
        value->assign(small, length);
        return true;
    }
    // Another thread may change the variable between the calls: retry until it fits.
    std::wstring buffer;
    while (length >= buffer.size()) {
        buffer.assign(length, L'\0');
        ::SetLastError(ERROR_SUCCESS);
        length = ::GetEnvironmentVariableW(name, &buffer[0], static_cast<DWORD>(buffer.size()));
        if (length == 0) {
            value->clear();
            return ::GetLastError() != ERROR_ENVVAR_NOT_FOUND;
        }
    }
    buffer.resize(length);
    *value = std::move(buffer);
    return true;
}
