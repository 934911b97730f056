#pragma once
// Programs of the test program's own directory, started the way a host starts them, and
// scoped environment variables that those programs inherit.

#include <windows.h>

#include <string>

// Runs a program of the test program's directory with these arguments; returns its exit code,
// or -1 when it could not be started. Quiet: its output is thrown away (benchmarks print one line).
int RunTestProgram(const std::wstring& program, const std::wstring& arguments, bool quiet = false);

// A scoped environment variable of this process (children inherit it).
class ScopedEnvironment {
public:
    ScopedEnvironment(const wchar_t* name, const std::wstring& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const wchar_t* m_name;
};
