#pragma once
// The named pipe transport of the out-of-process mode: a synchronous, message-mode pipe
// "\\.\pipe\<name>". The host creates the server end (OpenNewPipe, WaitForConnection); the
// helper program opens the client end (OpenExisting). Failures throw std::runtime_error with
// a narrow text after one Error line; a closed peer is the one non-exceptional failure
// (Receive returns false). Windows only.

#include <windows.h>

#include <cstdint>
#include <string>

#include "common/UniqueLogger.h"
#include "common/UniqueHandle.h"
#include "interfaces/INamedPipeConnection.h"

class NamedPipeConnection final : public INamedPipeConnection {
public:
    // Obtains the "NamedPipeConnection" logger; throws "Failed to Initialize the logger.".
    NamedPipeConnection();
    // Closes the pipe (flushing it first), then releases the logger.
    ~NamedPipeConnection() override;

    NamedPipeConnection(const NamedPipeConnection&) = delete;
    NamedPipeConnection& operator=(const NamedPipeConnection&) = delete;

    void OpenNewPipe(const wchar_t* name) override;
    void WaitForConnection() override;
    void OpenExisting(const wchar_t* name, uint32_t timeout) override;
    bool Receive(unsigned char* buffer, uint32_t* length) override;
    uint32_t Send(const unsigned char* buffer, uint32_t length) override;

    // Flush, disconnect (server end only) and close; does nothing when no pipe is open.
    void ClosePipe();
    void ThrowIfPipeNotConnected();

private:
    // Error line under `method`, then std::runtime_error, both with `text`.
    [[noreturn]] void Fail(const wchar_t* method, const std::string& text);
    // The same with the Windows error number appended ("...GetLastError()=" + %lu).
    [[noreturn]] void FailWithError(const wchar_t* method, const char* text, DWORD error);

    UniqueFileHandle m_pipe;
    std::wstring m_pipeName;
    bool m_isServer = false;
    UniqueLogger m_log;
};
