#pragma once
// The few system services of NetWorkerApiExecutor that tests must be able to steer: the clock
// of the progress throttle, file writes (disk full on demand) and directory creation.
// Production uses kernel32 through KernelExecutorSystem().

#include <windows.h>

#include <cstdint>

class ExecutorSystem {
public:
    virtual ~ExecutorSystem() = default;
    // Milliseconds, wrapping like GetTickCount.
    virtual uint32_t TickCount() = 0;
    // WriteFile without overlapped I/O; false with the thread's last error set.
    virtual bool WriteFile(HANDLE file, const void* data, uint32_t size, uint32_t* written) = 0;
    // CreateDirectoryW without security attributes; false with the thread's last error set.
    virtual bool CreateDirectory(const wchar_t* path) = 0;
};

ExecutorSystem& KernelExecutorSystem();
