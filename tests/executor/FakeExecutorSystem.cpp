#include "FakeExecutorSystem.h"

#include "common/LastError.h"
#include "common/WinError.h"

namespace {

std::wstring WithoutTrailingBackslash(std::wstring path) {
    while (path.size() > 1 && path.back() == L'\\') {
        path.pop_back();
    }
    return path;
}

std::wstring ParentOf(const std::wstring& path) {
    const size_t slash = path.rfind(L'\\');
    return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash);
}

// "C:", "\\server", "\\server\share" and "": there is nothing to create above or at them.
bool IsRoot(const std::wstring& path) {
    if (path.empty() || (path.size() == 2 && path[1] == L':')) {
        return true;
    }
    if (path.compare(0, 2, L"\\\\") == 0) {
        const size_t afterServer = path.find(L'\\', 2);
        return afterServer == std::wstring::npos ||
               path.find(L'\\', afterServer + 1) == std::wstring::npos;
    }
    return false;
}

// True when the call on `path` fails: with the scripted error when there is one (0 included),
// else with `found`, the error the file system itself gives (0: none). Sets the last error.
bool Refused(const std::map<std::wstring, uint32_t>& scripted, const std::wstring& path,
             uint32_t found) {
    const auto failure = scripted.find(path);
    if (failure == scripted.end() && found == 0) {
        return false;
    }
    WriteLastError(failure != scripted.end() ? failure->second : found);
    return true;
}

}  // namespace

class FakeSystem::File final : public ExecutorFile {
public:
    File(FakeSystem& system, std::wstring path) : m_system(system), m_path(std::move(path)) {
        m_system.openFiles.insert(m_path);
    }
    ~File() override { m_system.openFiles.erase(m_system.openFiles.find(m_path)); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool Write(const void* data, uint32_t size, uint32_t* written) override {
        return m_system.Write(m_path, data, size, written);
    }

private:
    FakeSystem& m_system;
    std::wstring m_path;
};

uint32_t FakeSystem::TickCount() {
    if (ticks.empty()) {
        return 0;
    }
    const uint32_t now = ticks.front();
    if (ticks.size() > 1) {
        ticks.pop_front();
    }
    return now;
}

bool FakeSystem::ParentExists(const std::wstring& path) const {
    const std::wstring parent = ParentOf(path);
    return IsRoot(parent) || directories.count(parent) != 0;
}

bool FakeSystem::FileExists(const std::wstring& path) const {
    return files.count(path) != 0;
}

bool FakeSystem::DirectoryExists(const std::wstring& path) const {
    const std::wstring directory = WithoutTrailingBackslash(path);
    return IsRoot(directory) || directories.count(directory) != 0;
}

std::string FakeSystem::Content(const std::wstring& path) const {
    const auto found = files.find(path);
    return found != files.end() ? found->second : std::string();
}

void FakeSystem::AddDirectory(const std::wstring& path) {
    const std::wstring directory = WithoutTrailingBackslash(path);
    if (IsRoot(directory)) {
        return;
    }
    AddDirectory(ParentOf(directory));
    directories.insert(directory);
}

void FakeSystem::AddFile(const std::wstring& path, const std::string& content) {
    AddDirectory(ParentOf(path));
    files[path] = content;
}

std::unique_ptr<ExecutorFile> FakeSystem::CreateDestinationFile(const wchar_t* path) {
    const std::wstring name = path;
    filesCreated.push_back(name);
    uint32_t error = 0;
    if (directories.count(WithoutTrailingBackslash(name)) != 0) {
        error = WinError::AccessDenied;
    } else if (!ParentExists(name)) {
        error = WinError::PathNotFound;
    } else if (openFiles.count(name) != 0) {
        error = WinError::SharingViolation;
    }
    if (Refused(failCreate, name, error)) {
        return nullptr;
    }
    files[name].clear();  // CREATE_ALWAYS: an existing file is overwritten
    return std::make_unique<File>(*this, name);
}

bool FakeSystem::DeleteDestinationFile(const wchar_t* path) {
    const std::wstring name = path;
    filesDeleted.push_back(name);
    uint32_t error = 0;
    if (directories.count(WithoutTrailingBackslash(name)) != 0) {
        error = WinError::AccessDenied;
    } else if (files.count(name) == 0) {
        error = WinError::FileNotFound;
    } else if (openFiles.count(name) != 0) {
        error = WinError::SharingViolation;
    }
    if (Refused(failDelete, name, error)) {
        return false;
    }
    files.erase(name);
    return true;
}

bool FakeSystem::MakeDirectory(const wchar_t* path) {
    const std::wstring name = WithoutTrailingBackslash(path);
    directoriesAsked.push_back(name);
    uint32_t error = 0;
    if (DirectoryExists(name) || files.count(name) != 0) {
        error = WinError::AlreadyExists;
    } else if (!ParentExists(name)) {
        error = WinError::PathNotFound;
    }
    if (Refused(failDirectory, name, error)) {
        return false;
    }
    directories.insert(name);
    return true;
}

bool FakeSystem::Write(const std::wstring& path, const void* data, uint32_t size,
                       uint32_t* written) {
    const int call = writeCalls++;
    writeSizes.push_back(size);
    if (beforeWrite) {
        beforeWrite(call);
    }
    const auto failure = failWriteAt.find(call);
    if (failure != failWriteAt.end()) {
        *written = 0;
        WriteLastError(failure->second);
        return false;
    }
    const auto shortWrite = shortWriteAt.find(call);
    if (shortWrite != shortWriteAt.end() && shortWrite->second < size) {
        size = shortWrite->second;
    }
    files[path].append(static_cast<const char*>(data), size);
    *written = size;
    return true;
}
