#include "Console.h"

#include <vector>

#include "interfaces/INetWorkerExecutor.h"

namespace {

bool IsConsole(HANDLE handle) {
    DWORD mode = 0;
    return handle != nullptr && handle != INVALID_HANDLE_VALUE && GetConsoleMode(handle, &mode);
}

std::string ToUtf8(const std::wstring& text) {
    if (text.empty()) {
        return std::string();
    }
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                         nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], size,
                        nullptr, nullptr);
    return out;
}

void WriteAll(HANDLE handle, const char* data, size_t size) {
    while (size > 0) {
        DWORD written = 0;
        const DWORD chunk = size > 0x10000 ? 0x10000 : static_cast<DWORD>(size);
        if (!WriteFile(handle, data, chunk, &written, nullptr) || written == 0) {
            return;  // nobody reads the output any more; nothing better to do
        }
        data += written;
        size -= written;
    }
}

}  // namespace

ConsoleOutput::ConsoleOutput()
    : m_out(GetStdHandle(STD_OUTPUT_HANDLE)),
      m_err(GetStdHandle(STD_ERROR_HANDLE)),
      m_in(GetStdHandle(STD_INPUT_HANDLE)),
      m_outIsConsole(IsConsole(m_out)),
      m_errIsConsole(IsConsole(m_err)),
      m_inIsConsole(IsConsole(m_in)) {}

void ConsoleOutput::Write(HANDLE handle, bool isConsole, const std::wstring& text) {
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE || text.empty()) {
        return;
    }
    if (isConsole) {
        DWORD written = 0;
        WriteConsoleW(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        return;
    }
    const std::string utf8 = ToUtf8(text);
    WriteAll(handle, utf8.data(), utf8.size());
}

void ConsoleOutput::ClearProgressLocked() {
    if (m_progressWidth > 0) {
        Write(m_err, true, L"\r" + std::wstring(m_progressWidth, L' ') + L"\r");
        m_progressWidth = 0;
    }
}

void ConsoleOutput::Out(const std::wstring& text) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_outIsConsole) {
        ClearProgressLocked();
    }
    Write(m_out, m_outIsConsole, text);
}

void ConsoleOutput::OutAscii(const std::string& text) {
    Out(std::wstring(text.begin(), text.end()));
}

void ConsoleOutput::Err(const std::wstring& text) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_errIsConsole) {
        ClearProgressLocked();
    }
    Write(m_err, m_errIsConsole, text);
}

size_t ConsoleOutput::ErrWidth() const {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (m_errIsConsole && GetConsoleScreenBufferInfo(m_err, &info)) {
        const int width = info.srWindow.Right - info.srWindow.Left + 1;
        if (width > 10) {
            return static_cast<size_t>(width - 1);  // never touch the last column: no wrap
        }
    }
    return 79;
}

void ConsoleOutput::DrawProgress(const std::wstring& line) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_errIsConsole) {
        return;
    }
    std::wstring text = L"\r" + line;
    if (line.size() < m_progressWidth) {
        text += std::wstring(m_progressWidth - line.size(), L' ');
        text += L"\r" + line;
    }
    Write(m_err, true, text);
    m_progressWidth = line.size();
}

std::wstring ConsoleOutput::ReadLine() {
    if (!m_inIsConsole) {
        return std::wstring();
    }
    std::wstring line;
    wchar_t buffer[256];
    for (;;) {
        DWORD read = 0;
        if (!ReadConsoleW(m_in, buffer, 256, &read, nullptr) || read == 0) {
            return line;
        }
        line.append(buffer, read);
        if (line.find(L'\n') != std::wstring::npos || line.find(L'\r') != std::wstring::npos) {
            break;
        }
    }
    while (!line.empty() && (line.back() == L'\n' || line.back() == L'\r')) {
        line.pop_back();
    }
    return line;
}

ConsoleOutput& Console() {
    static ConsoleOutput console;
    return console;
}

void Cancellation::Install() {
    SetConsoleCtrlHandler(&Cancellation::OnConsoleEvent, TRUE);
}

BOOL WINAPI Cancellation::OnConsoleEvent(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        return FALSE;  // closing the window or logging off: let Windows end the process
    }
    // Further presses are swallowed too: killing the process now would leave a partial file.
    RunCancellation().Request(L"cancelled by Ctrl+C");
    return TRUE;
}

void Cancellation::Request(const wchar_t* why) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_requested.load()) {
        return;
    }
    m_reason = why;
    m_requested.store(true);
    Console().Err(L"nwexch: cancelling (" + m_reason + L")...\n");
    if (m_quitTarget != nullptr) {
        m_quitTarget->Quit();
    }
}

void Cancellation::SetQuitTarget(INetWorkerExecutor* executor) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_quitTarget = executor;
}

Cancellation& RunCancellation() {
    static Cancellation cancellation;
    return cancellation;
}
