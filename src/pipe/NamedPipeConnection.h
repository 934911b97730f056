#pragma once
// The named pipe transport of the out-of-process mode: a synchronous, message-mode pipe
// "\\.\pipe\<name>". The host creates the server end (OpenNewPipe, WaitForConnection); the
// helper program opens the client end (OpenExisting). Failures throw std::runtime_error with
// a narrow text after one Error line; a closed peer is the one non-exceptional failure
// (Receive returns false). Windows only.
//
// The server end always refuses clients on other machines. With NWX_PIPE_HARDENING set
// (docs/security.md) the server end must be the name's first and only instance and lets only
// the current user and LocalSystem in; it accepts only the helper process that the built-in
// launcher started for it. A hardened client end serves only the process that started it, when
// that process said so through NWX_PIPE_SERVER_PROCESS.

#include <windows.h>

#include <cstdint>
#include <string>

#include "common/UniqueLogger.h"
#include "common/UniqueHandle.h"
#include "interfaces/INamedPipeConnection.h"
#include "pipe/PipeSecurity.h"

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
    // ConnectNamedPipe between its two Debug lines; false with *error when no client is on.
    bool ConnectClient(const wchar_t* method, DWORD* error);
    // Hardened server end: refuses clients other than the expected helper until it connects.
    void AcceptOnlyExpectedClient(const wchar_t* method, ExpectedPipeClient& expected);
    // Hardened client end: closes the pipe and throws unless its server is the process that
    // started this one.
    void VerifyServerIsParent(const wchar_t* method);
    // The two Error lines of a hardened pipe whose name is taken, then PipeNameTakenError.
    [[noreturn]] void FailNameTaken(const wchar_t* method, DWORD error);
    // The Error line of a failure: `text` under `method`.
    void LogFailure(const wchar_t* method, const std::string& text);
    // Error line under `method`, then std::runtime_error, both with `text`.
    [[noreturn]] void Fail(const wchar_t* method, const std::string& text);
    // The same with the Windows error number appended ("...GetLastError()=" + %lu).
    [[noreturn]] void FailWithError(const wchar_t* method, const char* text, DWORD error);

    UniqueFileHandle m_pipe;
    std::wstring m_pipeName;
    std::wstring m_bareName;  // the name as given, without "\\.\pipe\"
    bool m_isServer = false;
    UniqueLogger m_log;
};
