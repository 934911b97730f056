#pragma once
// Reading one of this process's environment variables whatever its length. Windows only.

#include <string>

// The value of the variable `name`; false when it is not set (an empty value counts as set).
bool ReadEnvironmentVariable(const wchar_t* name, std::wstring* value);
