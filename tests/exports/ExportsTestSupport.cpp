#include "ExportsTestSupport.h"

#include <tlhelp32.h>

#include <atomic>

#include "common/UniqueHandle.h"

std::wstring TestProgramDirectory() {
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring full(path, length);
    return full.substr(0, full.find_last_of(L"\\/"));
}

std::wstring UniquePipeName(const wchar_t* purpose) {
    static std::atomic<unsigned> counter{0};
    return std::wstring(L"nwx-") + purpose + L"-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
           std::to_wstring(counter++);
}

ScopedCurrentDirectory::ScopedCurrentDirectory(const std::wstring& directory) {
    wchar_t previous[MAX_PATH];
    const DWORD length = GetCurrentDirectoryW(MAX_PATH, previous);
    m_previous.assign(previous, length);
    SetCurrentDirectoryW(directory.c_str());
}

ScopedCurrentDirectory::~ScopedCurrentDirectory() {
    SetCurrentDirectoryW(m_previous.c_str());
}

namespace {

// Ids of the running processes that `wanted` picks, in the snapshot's order.
template <typename Predicate>
std::vector<DWORD> ProcessIdsWhere(Predicate wanted) {
    std::vector<DWORD> ids;
    UniqueHandle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) {
        return ids;
    }
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Process32FirstW(snapshot.get(), &entry); more;
         more = Process32NextW(snapshot.get(), &entry)) {
        if (wanted(entry)) {
            ids.push_back(entry.th32ProcessID);
        }
    }
    return ids;
}

}  // namespace

std::vector<DWORD> FindProcessesNamed(const wchar_t* exeName) {
    return ProcessIdsWhere([exeName](const PROCESSENTRY32W& entry) {
        return _wcsicmp(entry.szExeFile, exeName) == 0;
    });
}

std::vector<DWORD> ChildProcessesNamed(DWORD parentId, const wchar_t* exeName) {
    return ProcessIdsWhere([parentId, exeName](const PROCESSENTRY32W& entry) {
        return entry.th32ParentProcessID == parentId && _wcsicmp(entry.szExeFile, exeName) == 0;
    });
}
