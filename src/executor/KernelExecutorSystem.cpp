// The executor's system services on Windows: kernel32.
#include <windows.h>

#include "ExecutorSystem.h"
#include "common/UniqueHandle.h"

namespace {

class KernelFile final : public ExecutorFile {
public:
    explicit KernelFile(UniqueFileHandle handle) : m_handle(std::move(handle)) {}

    bool Write(const void* data, uint32_t size, uint32_t* written) override {
        DWORD done = 0;
        const BOOL ok = ::WriteFile(m_handle.get(), data, size, &done, nullptr);
        *written = done;
        return ok != FALSE;
    }

private:
    UniqueFileHandle m_handle;
};

class KernelSystem final : public ExecutorSystem {
public:
    uint32_t TickCount() override { return ::GetTickCount(); }

    std::unique_ptr<ExecutorFile> CreateDestinationFile(const wchar_t* path) override {
        UniqueFileHandle handle(::CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                              CREATE_ALWAYS, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
        if (!handle) {
            return nullptr;
        }
        return std::make_unique<KernelFile>(std::move(handle));
    }

    bool DeleteDestinationFile(const wchar_t* path) override {
        return ::DeleteFileW(path) != FALSE;
    }

    bool MakeDirectory(const wchar_t* path) override {
        return ::CreateDirectoryW(path, nullptr) != FALSE;
    }
};

}  // namespace

ExecutorSystem& DefaultExecutorSystem() {
    static KernelSystem system;
    return system;
}
