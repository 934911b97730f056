#pragma once
// Sets (or, with a null value, removes) an environment variable of this process for the life
// of the object, and gives it back its earlier value (or absence) at the end. Programs the
// test starts meanwhile inherit it. Windows only; header-only.

#include <windows.h>

#include <string>
#include <vector>

class ScopedEnvironment {
public:
    ScopedEnvironment(const wchar_t* name, const wchar_t* value) : m_name(name) {
        std::vector<wchar_t> old(32768);
        SetLastError(ERROR_SUCCESS);
        const DWORD length =
            GetEnvironmentVariableW(name, old.data(), static_cast<DWORD>(old.size()));
        m_hadValue = length > 0 || GetLastError() != ERROR_ENVVAR_NOT_FOUND;
        m_oldValue.assign(old.data(), length < old.size() ? length : 0);
        SetEnvironmentVariableW(name, value);
    }
    ScopedEnvironment(const wchar_t* name, const std::wstring& value)
        : ScopedEnvironment(name, value.c_str()) {}
    ~ScopedEnvironment() {
        SetEnvironmentVariableW(m_name.c_str(), m_hadValue ? m_oldValue.c_str() : nullptr);
    }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::wstring m_name;
    bool m_hadValue = false;
    std::wstring m_oldValue;
};
