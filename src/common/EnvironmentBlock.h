#pragma once
// Environment blocks as CreateProcessW takes them: "NAME=value" strings, each ended by a null,
// the whole block ended by one more. Platform-neutral.

#include <string>

// The block `current` (null: an empty environment) with the variable `name` set to `value`:
// every earlier entry of that name (compared without regard to ASCII case) is dropped and the
// new entry added at the end. The result ends with two nulls.
std::wstring EnvironmentBlockWith(const wchar_t* current, const std::wstring& name,
                                  const std::wstring& value);
