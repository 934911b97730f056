#include "ExecutorSystem.h"

namespace {

class KernelSystem final : public ExecutorSystem {
public:
    uint32_t TickCount() override { return ::GetTickCount(); }

    bool WriteFile(HANDLE file, const void* data, uint32_t size, uint32_t* written) override {
        DWORD done = 0;
        const BOOL ok = ::WriteFile(file, data, size, &done, nullptr);
        *written = done;
        return ok != FALSE;
    }

    bool CreateDirectory(const wchar_t* path) override {
        return ::CreateDirectoryW(path, nullptr) != FALSE;
    }
};

}  // namespace

ExecutorSystem& KernelExecutorSystem() {
    static KernelSystem system;
    return system;
}
