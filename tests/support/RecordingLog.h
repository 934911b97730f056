#pragma once
// Test loggers: a recording ILog, and GetLogger/FreeLogger for test executables that hand out
// recording loggers by name (instead of TarnLog.dll).

#include <mutex>
#include <string>
#include <vector>

#include "interfaces/ILog.h"

struct LogLine {
    LogLevel level;
    std::wstring method;
    std::wstring text;  // fully formatted

    bool operator==(const LogLine& other) const {
        return level == other.level && method == other.method && text == other.text;
    }
};

class RecordingLog final : public ILog {
public:
    explicit RecordingLog(std::wstring name = L"RecordingLog") : m_name(std::move(name)) {}
    ~RecordingLog() = default;

    const wchar_t* GetName() override { return m_name.c_str(); }
    void SetLevel(int level) override { m_level = level; }
    int GetLevel() override { return m_level; }
    bool IsTraceEnabled() override { return m_level <= LogLevelTrace; }
    void Trace(const wchar_t* method, const wchar_t* text) override;
    bool IsInfoEnabled() override { return m_level <= LogLevelInfo; }
    void Info(const wchar_t* method, const wchar_t* format, ...) override;
    bool IsWarningEnabled() override { return m_level <= LogLevelWarning; }
    void Warning(const wchar_t* method, const wchar_t* format, ...) override;
    bool IsDebugEnabled() override { return m_level <= LogLevelDebug; }
    void Debug(const wchar_t* method, const wchar_t* format, ...) override;
    bool IsErrorEnabled() override;
    void Error(const wchar_t* method, const wchar_t* format, ...) override;

    // Answer of IsErrorEnabled, and how often it was asked.
    void SetErrorEnabled(bool enabled);
    int IsErrorEnabledCalls() const;

    std::vector<LogLine> Lines() const;
    std::vector<LogLine> LinesAt(LogLevel level) const;
    std::vector<std::wstring> TextsAt(LogLevel level) const;
    // Lines other than "Method Start"/"Method End" traces.
    std::vector<LogLine> NonTraceLines() const;
    void Clear();

private:
    void Add(LogLevel level, const wchar_t* method, std::wstring text);

    std::wstring m_name;
    int m_level = LogLevelTrace;  // records everything; the level only answers Is...Enabled
    bool m_errorEnabled = true;
    int m_isErrorEnabledCalls = 0;
    mutable std::mutex m_mutex;
    std::vector<LogLine> m_lines;
};

// True when one of the lines has this level, method and text.
inline bool HasLine(const std::vector<LogLine>& lines, LogLevel level, const std::wstring& method,
                    const std::wstring& text) {
    for (const LogLine& line : lines) {
        if (line.level == level && line.method == method && line.text == text) {
            return true;
        }
    }
    return false;
}

// The loggers that GetLogger handed out in this test executable.
namespace TestLoggers {
// Names for which GetLogger fails (returns 1 and a null logger).
void FailNames(std::vector<std::wstring> names);
// Names for which GetLogger reports success (returns 0) but leaves the logger null, as a
// faulty logging library may.
void NullNames(std::vector<std::wstring> names);
// The most recent logger handed out under `name` that is still alive, or null.
RecordingLog* Find(const std::wstring& name);
// Every line of every logger ever handed out under `name`, in order, including freed ones.
std::vector<LogLine> History(const std::wstring& name);
size_t LiveCount();
void Reset();
}  // namespace TestLoggers
