#pragma once
// Programs of the test program's own directory, started the way a host starts them.

#include <windows.h>

#include <string>

// Runs a program of the test program's directory with these arguments; returns its exit code,
// or -1 when it could not be started. Quiet: its output is thrown away (benchmarks print one line).
int RunTestProgram(const std::wstring& program, const std::wstring& arguments, bool quiet = false);
