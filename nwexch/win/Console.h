#pragma once
// nwexch's console: where text goes, whether a person is watching, Ctrl+C, and the one
// question the tool may ask (what to do when the disk is full).

#include <windows.h>

#include <atomic>
#include <mutex>
#include <string>

class INetWorkerExecutor;

// Results and summaries go to standard output, progress and diagnostics to the error output.
// A console gets UTF-16 through WriteConsoleW; a pipe or file gets UTF-8.
class ConsoleOutput {
public:
    ConsoleOutput();

    void Out(const std::wstring& text);
    void OutAscii(const std::string& text);
    void Err(const std::wstring& text);

    // True when the error output is a console: the progress bar is drawn there.
    bool ErrIsTerminal() const { return m_errIsConsole; }
    // True when a person can answer a question: input and error output are both a console.
    bool CanAsk() const { return m_errIsConsole && m_inIsConsole; }
    // Width of the console window, for the progress bar.
    size_t ErrWidth() const;

    // Draws over the current progress line (terminal only); an empty text clears it.
    void DrawProgress(const std::wstring& line);
    // Reads one line from the console; empty when input ended or was interrupted.
    std::wstring ReadLine();

private:
    void Write(HANDLE handle, bool isConsole, const std::wstring& text);
    void ClearProgressLocked();

    std::mutex m_mutex;
    HANDLE m_out;
    HANDLE m_err;
    HANDLE m_in;
    bool m_outIsConsole;
    bool m_errIsConsole;
    bool m_inIsConsole;
    size_t m_progressWidth = 0;  // characters of the progress line currently shown
};

ConsoleOutput& Console();

// Cancellation for the whole run. Ctrl+C (or the test hook) asks once; the in-process
// executor is told through Quit, and every callback answers "stop" from then on.
class Cancellation {
public:
    void Install();
    void Request(const wchar_t* why);
    bool Requested() const { return m_requested.load(); }
    const std::wstring& Reason() const { return m_reason; }

    // The executor that Quit is sent to (in-process mode only); null to forget it before the
    // executor is freed.
    void SetQuitTarget(INetWorkerExecutor* executor);

private:
    static BOOL WINAPI OnConsoleEvent(DWORD event);

    std::atomic<bool> m_requested{false};
    std::wstring m_reason;
    std::mutex m_mutex;
    INetWorkerExecutor* m_quitTarget = nullptr;
};

Cancellation& RunCancellation();
