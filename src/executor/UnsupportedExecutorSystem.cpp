// The executor's system services where there is no Windows: no destination files at all.
// Tests and the fuzzer give the executor their own system instead.
#include <chrono>

#include "ExecutorSystem.h"
#include "common/LastError.h"
#include "common/WinError.h"

namespace {

class UnsupportedSystem final : public ExecutorSystem {
public:
    uint32_t TickCount() override {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<uint32_t>(
            std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
    }

    std::unique_ptr<ExecutorFile> CreateDestinationFile(const wchar_t* /*path*/) override {
        WriteLastError(WinError::NotSupported);
        return nullptr;
    }

    bool DeleteDestinationFile(const wchar_t* /*path*/) override {
        WriteLastError(WinError::NotSupported);
        return false;
    }

    bool MakeDirectory(const wchar_t* /*path*/) override {
        WriteLastError(WinError::NotSupported);
        return false;
    }
};

}  // namespace

ExecutorSystem& DefaultExecutorSystem() {
    static UnsupportedSystem system;
    return system;
}
