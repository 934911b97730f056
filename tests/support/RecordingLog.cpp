#include "RecordingLog.h"

#include <algorithm>
#include <cstdarg>
#include <map>
#include <memory>

#include "common/WideFormat.h"
#include "interfaces/LoggerApi.h"

void RecordingLog::Add(LogLevel level, const wchar_t* method, std::wstring text) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(LogLine{level, method != nullptr ? method : L"", std::move(text)});
}

void RecordingLog::Trace(const wchar_t* method, const wchar_t* text) {
    Add(LogLevelTrace, method, text != nullptr ? text : L"");
}

#define NWX_RECORD_FORMATTED(level)                      \
    va_list args;                                        \
    va_start(args, format);                              \
    std::wstring text = FormatWideStringV(format, args); \
    va_end(args);                                        \
    Add(level, method, std::move(text))

void RecordingLog::Info(const wchar_t* method, const wchar_t* format, ...) {
    NWX_RECORD_FORMATTED(LogLevelInfo);
}
void RecordingLog::Warning(const wchar_t* method, const wchar_t* format, ...) {
    NWX_RECORD_FORMATTED(LogLevelWarning);
}
void RecordingLog::Debug(const wchar_t* method, const wchar_t* format, ...) {
    NWX_RECORD_FORMATTED(LogLevelDebug);
}
void RecordingLog::Error(const wchar_t* method, const wchar_t* format, ...) {
    NWX_RECORD_FORMATTED(LogLevelError);
}
#undef NWX_RECORD_FORMATTED

bool RecordingLog::IsErrorEnabled() {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_isErrorEnabledCalls;
    return m_errorEnabled;
}

void RecordingLog::SetErrorEnabled(bool enabled) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_errorEnabled = enabled;
}

int RecordingLog::IsErrorEnabledCalls() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_isErrorEnabledCalls;
}

std::vector<LogLine> RecordingLog::Lines() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_lines;
}

std::vector<LogLine> RecordingLog::LinesAt(LogLevel level) const {
    std::vector<LogLine> result;
    for (const LogLine& line : Lines()) {
        if (line.level == level) {
            result.push_back(line);
        }
    }
    return result;
}

std::vector<std::wstring> RecordingLog::TextsAt(LogLevel level) const {
    std::vector<std::wstring> result;
    for (const LogLine& line : LinesAt(level)) {
        result.push_back(line.text);
    }
    return result;
}

std::vector<LogLine> RecordingLog::NonTraceLines() const {
    std::vector<LogLine> result;
    for (const LogLine& line : Lines()) {
        if (line.level != LogLevelTrace) {
            result.push_back(line);
        }
    }
    return result;
}

void RecordingLog::Clear() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.clear();
}

namespace {

struct Registry {
    std::mutex mutex;
    std::vector<std::wstring> failNames;
    std::vector<std::wstring> nullNames;
    std::vector<std::unique_ptr<RecordingLog>> live;
    std::map<std::wstring, std::vector<LogLine>> history;
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

}  // namespace

int GetLogger(const wchar_t* name, ILog** log) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    const std::wstring key = name != nullptr ? name : L"";
    if (std::find(registry.failNames.begin(), registry.failNames.end(), key) !=
        registry.failNames.end()) {
        *log = nullptr;
        return 1;
    }
    if (std::find(registry.nullNames.begin(), registry.nullNames.end(), key) !=
        registry.nullNames.end()) {
        *log = nullptr;
        return 0;
    }
    registry.live.push_back(std::make_unique<RecordingLog>(key));
    *log = registry.live.back().get();
    return 0;
}

void FreeLogger(ILog* log) {
    Registry& registry = TheRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    for (auto it = registry.live.begin(); it != registry.live.end(); ++it) {
        if (it->get() == log) {
            std::vector<LogLine> lines = (*it)->Lines();
            auto& history = registry.history[(*it)->GetName()];
            history.insert(history.end(), lines.begin(), lines.end());
            registry.live.erase(it);
            return;
        }
    }
}

namespace TestLoggers {

void FailNames(std::vector<std::wstring> names) {
    std::lock_guard<std::mutex> lock(TheRegistry().mutex);
    TheRegistry().failNames = std::move(names);
}

void NullNames(std::vector<std::wstring> names) {
    std::lock_guard<std::mutex> lock(TheRegistry().mutex);
    TheRegistry().nullNames = std::move(names);
}

RecordingLog* Find(const std::wstring& name) {
    std::lock_guard<std::mutex> lock(TheRegistry().mutex);
    auto& live = TheRegistry().live;
    for (auto it = live.rbegin(); it != live.rend(); ++it) {
        if (name == (*it)->GetName()) {
            return it->get();
        }
    }
    return nullptr;
}

std::vector<LogLine> History(const std::wstring& name) {
    std::lock_guard<std::mutex> lock(TheRegistry().mutex);
    std::vector<LogLine> lines = TheRegistry().history[name];
    for (const auto& log : TheRegistry().live) {
        if (name == log->GetName()) {
            std::vector<LogLine> liveLines = log->Lines();
            lines.insert(lines.end(), liveLines.begin(), liveLines.end());
        }
    }
    return lines;
}

size_t LiveCount() {
    std::lock_guard<std::mutex> lock(TheRegistry().mutex);
    return TheRegistry().live.size();
}

void Reset() {
    std::lock_guard<std::mutex> lock(TheRegistry().mutex);
    TheRegistry().failNames.clear();
    TheRegistry().nullNames.clear();
    TheRegistry().live.clear();
    TheRegistry().history.clear();
}

}  // namespace TestLoggers
