#include "NamedPipeConnection.h"

#include <stdexcept>

#include "common/MethodTracer.h"
#include "common/WideFormat.h"

namespace {

constexpr wchar_t kPipePrefix[] = L"\\\\.\\pipe\\";
constexpr DWORD kPipeBufferSize = 2048;

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

void NamedPipeConnection::Fail(const wchar_t* method, const std::string& text) {
    if (m_log.get() != nullptr) {
        // The text goes to the logger as its format; its percent signs are doubled so that it
        // is written as it stands.
        m_log.get()->Error(method, AsLiteralFormat(WidenByCharacter(text)).c_str());
    }
    throw std::runtime_error(text);
}

void NamedPipeConnection::FailWithError(const wchar_t* method, const char* text, DWORD error) {
    Fail(method, std::string(text) + std::to_string(static_cast<unsigned long>(error)));
}

void NamedPipeConnection::OpenNewPipe(const wchar_t* name) {
    static constexpr wchar_t kMethod[] = L"NamedPipeConnection::OpenNewPipe";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    m_pipeName = std::wstring(kPipePrefix) + name;
    // An earlier server end stays open (kept on purpose: docs/compatibility.md, "second server
    // end").
    LeakOnPurpose(m_pipe);
    m_pipe.reset(::CreateNamedPipeW(m_pipeName.c_str(), PIPE_ACCESS_DUPLEX,
                                    PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                                    PIPE_UNLIMITED_INSTANCES, kPipeBufferSize, kPipeBufferSize, 0,
                                    nullptr));
    if (!m_pipe.valid()) {
        FailWithError(kMethod, "Failed to create new pipe. GetLastError()=", ::GetLastError());
    }
    m_isServer = true;
}

void NamedPipeConnection::WaitForConnection() {
    static constexpr wchar_t kMethod[] = L"NamedPipeConnection::WaitForConnection";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    ThrowIfPipeNotConnected();
    if (!m_isServer) {
        m_log.get()->Info(kMethod, L"Pipe already open.  Using existing pipe");
        return;
    }
    m_log.get()->Debug(kMethod, L"Waiting to ConnectNamedPipe...");
    // A client that opened the pipe between creation and this call shows as 535.
    const bool connected = ::ConnectNamedPipe(m_pipe.get(), nullptr) != FALSE ||
                           ::GetLastError() == ERROR_PIPE_CONNECTED;
    m_log.get()->Debug(kMethod, L"ConnectNamedPipe completed");
    if (!connected) {
        const DWORD error = ::GetLastError();
        ClosePipe();
        FailWithError(kMethod,
                      "Something bad happened while waiting for a connection on the pipe. "
                      "GetLastError()=",
                      error);
    }
}

void NamedPipeConnection::OpenExisting(const wchar_t* name, uint32_t timeout) {
    static constexpr wchar_t kMethod[] = L"NamedPipeConnection::OpenExisting";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    if (m_pipe.valid()) {
        Fail(kMethod, "Pipe has already been opened!");
    }
    m_pipeName = std::wstring(kPipePrefix) + name;
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
            return;
        }
        if (::GetLastError() != ERROR_PIPE_BUSY) {
            FailWithError(kMethod, "Could not open pipe. GetLastError()=", ::GetLastError());
        }
        // The bare name, without "\\.\pipe\" (kept on purpose: docs/compatibility.md, "bare name
        // for WaitNamedPipeW").
        if (::WaitNamedPipeW(name, timeout) == FALSE) {
            Fail(kMethod, "Could not open pipe: timed out.");
        }
    }
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
