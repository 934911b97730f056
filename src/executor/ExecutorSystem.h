#pragma once
// The system services of NetWorkerApiExecutor: the clock of the progress throttle, the
// destination file (created, written, deleted) and directory creation. Behind this seam the
// executor needs no Windows headers, so its catalogue and extraction logic is built natively
// too (tests under the sanitizers, the fuzzer). Windows builds use kernel32.

#include <cstdint>
#include <memory>

// An open destination file; destroying it closes it.
class ExecutorFile {
public:
    virtual ~ExecutorFile() = default;
    // WriteFile without overlapped I/O; false with the thread's last error set.
    virtual bool Write(const void* data, uint32_t size, uint32_t* written) = 0;
};

class ExecutorSystem {
public:
    virtual ~ExecutorSystem() = default;
    // Milliseconds, wrapping like GetTickCount.
    virtual uint32_t TickCount() = 0;
    // CreateFileW for reading and writing, no sharing, CREATE_ALWAYS (an existing file is
    // overwritten), FILE_FLAG_SEQUENTIAL_SCAN. Null with the thread's last error set.
    virtual std::unique_ptr<ExecutorFile> CreateDestinationFile(const wchar_t* path) = 0;
    // DeleteFileW; false with the thread's last error set.
    virtual bool DeleteDestinationFile(const wchar_t* path) = 0;
    // CreateDirectoryW without security attributes; false with the thread's last error set.
    virtual bool MakeDirectory(const wchar_t* path) = 0;
};

// What an executor uses when it is given no system: kernel32 on Windows. A build without
// Windows has no destination files of its own (every file and directory operation fails with
// ERROR_NOT_SUPPORTED); its tests and fuzzer pass their own system.
ExecutorSystem& DefaultExecutorSystem();
