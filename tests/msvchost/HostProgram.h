#pragma once
// Runs a program built for the Visual C++ ABI (msvc_host.exe and its kind) the way a user starts
// it, with its own directory as the current directory (where the built-in launcher looks for
// the helper), and collects what it prints.

#include <windows.h>

#include <string>

struct HostRun {
    DWORD exitCode = 0xFFFFFFFF;
    std::string output;

    // True when the output holds this line.
    bool Has(const std::string& line) const {
        return output.find(line + "\n") != std::string::npos;
    }
};

// Runs <directory>\<program> <arguments> and collects its standard output and error; returns
// once the program and the helper programs it started have ended.
HostRun RunHost(const std::wstring& directory, const wchar_t* program,
                const std::wstring& arguments);
