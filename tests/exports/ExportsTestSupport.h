#pragma once
// Host-side helpers for tests that start NetWorker64BitClient.exe: the directory of the test
// program (where the helper and the DLLs are built), a scoped current directory, and the
// helper processes found by Toolhelp snapshot.

#include <windows.h>

#include <string>
#include <vector>

std::wstring TestProgramDirectory();

// A pipe name no other test run uses.
std::wstring UniquePipeName(const wchar_t* purpose);

class ScopedCurrentDirectory {
public:
    explicit ScopedCurrentDirectory(const std::wstring& directory);
    ~ScopedCurrentDirectory();
    ScopedCurrentDirectory(const ScopedCurrentDirectory&) = delete;
    ScopedCurrentDirectory& operator=(const ScopedCurrentDirectory&) = delete;

private:
    std::wstring m_previous;
};

// Process ids of running programs with this file name (case-insensitive), newest last.
std::vector<DWORD> FindProcessesNamed(const wchar_t* exeName);

// The same, only those whose parent is `parentId`.
std::vector<DWORD> ChildProcessesNamed(DWORD parentId, const wchar_t* exeName);
