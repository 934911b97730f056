#include "NamedPipeConnection.h"

#include <stdexcept>

#include "common/AsciiText.h"
#include "common/EnvironmentVariable.h"
#include "common/MethodTracer.h"
#include "common/WideFormat.h"

namespace {

constexpr wchar_t kPipePrefix[] = L"\\\\.\\pipe\\";
constexpr DWORD kPipeBufferSize = 2048;
constexpr char kCreateFailed[] = "Failed to create new pipe. GetLastError()=";
constexpr char kWaitFailed[] =
    "Something bad happened while waiting for a connection on the pipe. GetLastError()=";

// The transport's operations trace with MethodEndOnUnwind::Skip: no "Method End" when an
// exception leaves them.

std::wstring WidenByCharacter(const std::string& text) {
    std::wstring wide;
    wide.reserve(text.size());
    for (const char c : text) {
        wide.push_back(static_cast<wchar_t>(static_cast<unsigned char>(c)));
    }
    return wide;
}

}  // namespace

NamedPipeConnection::NamedPipeConnection() : m_log(AcquireLoggerOrThrow(L"NamedPipeConnection")) {}

NamedPipeConnection::~NamedPipeConnection() {
    ClosePipe();
}

void NamedPipeConnection::LogFailure(const wchar_t* method, const std::string& text) {
    if (m_log.get() != nullptr) {
        // The text goes to the logger as its format; its percent signs are doubled so that it
        // is written as it stands.
        m_log.get()->Error(method, AsLiteralFormat(WidenByCharacter(text)).c_str());
    }
}

void NamedPipeConnection::Fail(const wchar_t* method, const std::string& text) {
    LogFailure(method, text);
    throw std::runtime_error(text);
}

void NamedPipeConnection::FailWithError(const wchar_t* method, const char* text, DWORD error) {
    Fail(method, std::string(text) + std::to_string(static_cast<unsigned long>(error)));
}

void NamedPipeConnection::OpenNewPipe(const wchar_t* name) {
    static constexpr wchar_t kMethod[] = L"NamedPipeConnection::OpenNewPipe";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    m_bareName = name;
    m_pipeName = std::wstring(kPipePrefix) + name;
    const PipeHardening hardening = ReadPipeHardening();
    if (hardening == PipeHardening::Unrecognised) {
        // A misspelt security switch is for the administrator to see, and Error is among the
        // slots of ILog that the library calls (Trace, Info, Debug, IsErrorEnabled, Error).
        m_log.get()->Error(kMethod,
                           L"%s has a value that is neither on nor off; the pipe is hardened.",
                           kPipeHardeningVariable);
    }
    // An earlier server end stays open (kept on purpose: docs/compatibility.md, "second server
    // end").
    LeakOnPurpose(m_pipe);
    // PIPE_REJECT_REMOTE_CLIENTS goes beyond the pipe mode hosts have always had: the helper is
    // always local, so only clients on other machines see a difference (docs/security.md).
    constexpr DWORD kPipeMode =
        PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS;
    if (!IsHardened(hardening)) {
        m_pipe.reset(::CreateNamedPipeW(m_pipeName.c_str(), PIPE_ACCESS_DUPLEX, kPipeMode,
                                        PIPE_UNLIMITED_INSTANCES, kPipeBufferSize, kPipeBufferSize,
                                        0, nullptr));
        if (!m_pipe.valid()) {
            FailWithError(kMethod, kCreateFailed, ::GetLastError());
        }
        m_isServer = true;
        return;
    }
    CurrentUserOnlySecurity security;
    DWORD error = ERROR_SUCCESS;
    if (!security.Build(&error)) {
        FailWithError(kMethod, kCreateFailed, error);
    }
    // The first and only instance: no other process can serve this name beside the host.
    m_pipe.reset(::CreateNamedPipeW(m_pipeName.c_str(),
                                    PIPE_ACCESS_DUPLEX | FILE_FLAG_FIRST_PIPE_INSTANCE, kPipeMode,
                                    1, kPipeBufferSize, kPipeBufferSize, 0, security.Attributes()));
    if (!m_pipe.valid()) {
        error = ::GetLastError();
        // Access denied: the name exists (first instance) or its owner keeps us out; busy: its
        // only instance is someone else's.
        if (error == ERROR_ACCESS_DENIED || error == ERROR_PIPE_BUSY) {
            FailNameTaken(kMethod, error);
        }
        FailWithError(kMethod, kCreateFailed, error);
    }
    // Where FILE_FLAG_FIRST_PIPE_INSTANCE is not enforced (Wine), an instance created earlier
    // by another process still shows in the count.
    DWORD instances = 0;
    if (::GetNamedPipeHandleStateW(m_pipe.get(), nullptr, &instances, nullptr, nullptr, nullptr,
                                   0) == FALSE) {
        error = ::GetLastError();
        m_pipe.reset();
        FailWithError(kMethod, kCreateFailed, error);
    }
    if (instances != 1) {
        m_pipe.reset();
        FailNameTaken(kMethod, ERROR_ALREADY_EXISTS);
    }
    m_isServer = true;
}

void NamedPipeConnection::FailNameTaken(const wchar_t* method, DWORD error) {
    m_log.get()->Error(method,
                       L"The pipe name '%s' is already taken by another process; a hardened "
                       L"pipe is not served beside it.",
                       m_bareName.c_str());
    const std::string text =
        std::string(kCreateFailed) + std::to_string(static_cast<unsigned long>(error));
    LogFailure(method, text);
    throw PipeNameTakenError(text, error);
}

void NamedPipeConnection::WaitForConnection() {
    static constexpr wchar_t kMethod[] = L"NamedPipeConnection::WaitForConnection";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    ThrowIfPipeNotConnected();
    if (!m_isServer) {
        m_log.get()->Info(kMethod, L"Pipe already open.  Using existing pipe");
        return;
    }
    // Only the built-in launcher of a hardened host leaves a helper to wait for.
    ExpectedPipeClient expected;
    if (TakeExpectedPipeClient(m_bareName, &expected)) {
        AcceptOnlyExpectedClient(kMethod, expected);
        return;
    }
    DWORD error = ERROR_SUCCESS;
    if (!ConnectClient(kMethod, &error)) {
        ClosePipe();
        FailWithError(kMethod, kWaitFailed, error);
    }
}

bool NamedPipeConnection::ConnectClient(const wchar_t* method, DWORD* error) {
    m_log.get()->Debug(method, L"Waiting to ConnectNamedPipe...");
    // A client that opened the pipe between creation and this call shows as 535.
    const bool connected = ::ConnectNamedPipe(m_pipe.get(), nullptr) != FALSE ||
                           ::GetLastError() == ERROR_PIPE_CONNECTED;
    m_log.get()->Debug(method, L"ConnectNamedPipe completed");
    // Read after the log line, as hosts have always had it (their logger may change it).
    *error = ::GetLastError();
    return connected;
}

void NamedPipeConnection::AcceptOnlyExpectedClient(const wchar_t* method,
                                                   ExpectedPipeClient& expected) {
    for (;;) {
        DWORD error = ERROR_SUCCESS;
        const bool connected = ConnectClient(method, &error);
        ULONG clientId = 0;
        if (connected && ::GetNamedPipeClientProcessId(m_pipe.get(), &clientId) != FALSE &&
            clientId == expected.processId) {
            m_log.get()->Debug(method, L"Accepted the helper process %lu.",
                               static_cast<unsigned long>(clientId));
            return;
        }
        if (connected) {
            m_log.get()->Error(method,
                               L"Refused a connection from process %lu: this pipe serves only "
                               L"the helper process %lu.",
                               static_cast<unsigned long>(clientId),
                               static_cast<unsigned long>(expected.processId));
        } else if (error != ERROR_NO_DATA) {
            // Anything but a client that came and went is a failure of the pipe itself.
            ClosePipe();
            FailWithError(method, kWaitFailed, error);
        }
        (void)::DisconnectNamedPipe(m_pipe.get());
        if (::WaitForSingleObject(expected.process.get(), 0) == WAIT_OBJECT_0) {
            ClosePipe();
            Fail(method, "The helper process " +
                             std::to_string(static_cast<unsigned long>(expected.processId)) +
                             " ended before it connected.");
        }
    }
}

void NamedPipeConnection::OpenExisting(const wchar_t* name, uint32_t timeout) {
    static constexpr wchar_t kMethod[] = L"NamedPipeConnection::OpenExisting";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    if (m_pipe.valid()) {
        Fail(kMethod, "Pipe has already been opened!");
    }
    m_bareName = name;
    m_pipeName = std::wstring(kPipePrefix) + name;
    const bool hardened = IsHardened(ReadPipeHardening());
    for (;;) {
        m_pipe.reset(::CreateFileW(m_pipeName.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                   OPEN_EXISTING, 0, nullptr));
        if (m_pipe.valid()) {
            DWORD readMode = PIPE_READMODE_MESSAGE;
            if (::SetNamedPipeHandleState(m_pipe.get(), &readMode, nullptr, nullptr) == FALSE) {
                const DWORD error = ::GetLastError();
                ClosePipe();
                FailWithError(kMethod, "SetNamedPipeHandleState failed. GetLastError()=", error);
            }
            m_isServer = false;
            if (hardened) {
                VerifyServerIsParent(kMethod);
            }
            return;
        }
        if (::GetLastError() != ERROR_PIPE_BUSY) {
            FailWithError(kMethod, "Could not open pipe. GetLastError()=", ::GetLastError());
        }
        // The bare name, without "\\.\pipe\" (kept on purpose: docs/compatibility.md, "bare name
        // for WaitNamedPipeW"). A hardened helper waits for the pipe itself: its host may first
        // have to turn away a stranger that took the only instance.
        if (::WaitNamedPipeW(hardened ? m_pipeName.c_str() : name, timeout) == FALSE) {
            Fail(kMethod, "Could not open pipe: timed out.");
        }
    }
}

void NamedPipeConnection::VerifyServerIsParent(const wchar_t* method) {
    std::wstring announced;
    uint32_t starter = 0;
    if (!ReadEnvironmentVariable(kPipeServerProcessVariable, &announced)) {
        // Not started by a launcher that names its process: nothing to compare with.
        m_log.get()->Debug(method, L"%s is not set; the pipe's server is not checked.",
                           kPipeServerProcessVariable);
        return;
    }
    // A value that is not a process id matches no server (starter stays 0).
    (void)ParseDecimalUint32(announced.c_str(), &starter);
    const DWORD parent = ParentProcessId();
    ULONG server = 0;
    if (::GetNamedPipeServerProcessId(m_pipe.get(), &server) != FALSE && server == parent &&
        parent == starter) {
        m_log.get()->Debug(method, L"The pipe is served by the parent process %lu.",
                           static_cast<unsigned long>(parent));
        return;
    }
    ClosePipe();
    Fail(method, "The pipe is served by process " +
                     std::to_string(static_cast<unsigned long>(server)) + ", not by the process " +
                     std::to_string(static_cast<unsigned long>(starter)) +
                     " that started this helper (its parent is " +
                     std::to_string(static_cast<unsigned long>(parent)) + ").");
}

bool NamedPipeConnection::Receive(unsigned char* buffer, uint32_t* length) {
    static constexpr wchar_t kMethod[] = L"NamedPipeConnection::Receive";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    ThrowIfPipeNotConnected();
    DWORD bytesRead = 0;
    if (::ReadFile(m_pipe.get(), buffer, *length, &bytesRead, nullptr) != FALSE) {
        *length = bytesRead;
        return true;
    }
    const DWORD error = ::GetLastError();
    // 233 is what a reader sees after the server end flushed, disconnected and closed (as
    // ClosePipe does); 109 after the other process merely closed or died. Both mean the
    // other end has gone.
    if (error == ERROR_BROKEN_PIPE || error == ERROR_PIPE_NOT_CONNECTED) {
        m_log.get()->Info(kMethod, L"The pipe has been disconnected.");
        return false;
    }
    FailWithError(kMethod, "ReadFile from pipe failed. GetLastError()=", error);
}

uint32_t NamedPipeConnection::Send(const unsigned char* buffer, uint32_t length) {
    static constexpr wchar_t kMethod[] = L"NamedPipeConnection::Send";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    ThrowIfPipeNotConnected();
    DWORD written = 0;
    if (::WriteFile(m_pipe.get(), buffer, length, &written, nullptr) != FALSE &&
        written == length) {
        return written;
    }
    // A short write reported as success shows the last error as it stands.
    FailWithError(kMethod, "WriteFile to pipe failed. GetLastError()=", ::GetLastError());
}

void NamedPipeConnection::ThrowIfPipeNotConnected() {
    static constexpr wchar_t kMethod[] = L"NamedPipeConnection::ThrowIfPipeNotConnected";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    if (!m_pipe.valid()) {
        Fail(kMethod, "Named pipe is not connected!");
    }
}

void NamedPipeConnection::ClosePipe() {
    NWX_TRACE_METHOD(m_log.get(), L"NamedPipeConnection::ClosePipe", MethodEndOnUnwind::Skip);
    if (!m_pipe.valid()) {
        return;
    }
    // Results are not checked: closing goes ahead whatever the peer did.
    (void)::FlushFileBuffers(m_pipe.get());  // waits until the peer has read what was written
    if (m_isServer) {
        (void)::DisconnectNamedPipe(m_pipe.get());
    }
    m_pipe.reset();
}
