#pragma once
// Windows helpers for the simulator's image and admin tests: where the built image is, running
// programs with their output captured, and scoped environment variables.

#include <windows.h>

#include <filesystem>
#include <string>

namespace nwsimtest {

std::filesystem::path TestExeDirectory();
std::filesystem::path ImageDirectory();     // <build>/nwsim/install
std::filesystem::path VariantsDirectory();  // <build>/nwsim/variants
std::filesystem::path AdminExe();           // <build>/bin/nwsim-admin.exe

struct ProcessResult {
    DWORD exitCode = 0;
    std::string output;  // standard output
    std::string errors;  // standard error
};

// CreateProcessW with the full command line; output read while the program runs.
ProcessResult RunCommand(const std::wstring& commandLine);
// CreateProcessA the way the library starts nsrinfo.exe: application name set, command line
// without the program name.
ProcessResult RunWithApplicationName(const std::string& application, const std::string& arguments);

// Runs nwsim-admin.exe with the given arguments.
ProcessResult Admin(const std::wstring& arguments);

std::wstring Quote(const std::filesystem::path& path);

}  // namespace nwsimtest
