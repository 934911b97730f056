// TarnLog.dll: the default host logging library. Each logger appends one UTF-8 line per call
// to the file named by TARNLOG_FILE; TARNLOG_LEVEL filters and TARNLOG_FAIL_NAMES makes
// GetLogger refuse chosen names. Configuration is read at every GetLogger, not once at load.

#include <windows.h>

#include <atomic>
#include <cstdarg>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <set>
#include <string>

#include "LogLineFormat.h"
#include "common/EnvironmentVariable.h"
#include "common/LastError.h"
#include "common/UniqueHandle.h"
#include "common/WideFormat.h"
#define LOGGER_API __declspec(dllexport)
#include "interfaces/LoggerApi.h"

namespace {

tarnlog::LocalTimestamp Now() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    return tarnlog::LocalTimestamp{now.wYear,   now.wMonth,  now.wDay,         now.wHour,
                                   now.wMinute, now.wSecond, now.wMilliseconds};
}

// One open log file, shared by every logger of this process that writes to the same path.
// Opened for append only and shared with other writers, so a host and its helper program can
// append to the same file; each line is one WriteFile under the lock, never torn. Append-only
// handles alone do not keep two processes apart everywhere (Wine appends by seeking to the end
// and then writing), so the processes also share a named mutex per file.
class LogFile {
public:
    LogFile(UniqueFileHandle file, UniqueHandle processesLock)
        : m_file(std::move(file)), m_processesLock(std::move(processesLock)) {}

    void Append(const std::string& line) {
        std::lock_guard<std::mutex> lock(m_mutex);
        // Without the named mutex (it could not be created) the line is still written; an
        // abandoned mutex is ours all the same.
        const bool processesLocked =
            m_processesLock.valid() &&
            WaitForSingleObject(m_processesLock.get(), INFINITE) != WAIT_FAILED;
        DWORD written = 0;
        // Logging never fails the caller's operation: a failed write is dropped.
        WriteFile(m_file.get(), line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
        if (processesLocked) {
            ReleaseMutex(m_processesLock.get());
        }
    }

private:
    std::mutex m_mutex;
    UniqueFileHandle m_file;
    UniqueHandle m_processesLock;
};

class LogFileTable {
public:
    // Returns the open file for path, opening it on first use; null and *error when it cannot
    // be opened.
    std::shared_ptr<LogFile> Open(const std::wstring& path, DWORD* error) {
        const std::wstring key = Key(path);
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_files.find(key);
        if (it != m_files.end()) {
            if (std::shared_ptr<LogFile> file = it->second.lock()) {
                return file;
            }
        }
        UniqueFileHandle handle(CreateFileW(path.c_str(), FILE_APPEND_DATA | SYNCHRONIZE,
                                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                            nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!handle.valid()) {
            *error = GetLastError();
            return nullptr;
        }
        UniqueHandle processesLock(
            CreateMutexW(nullptr, FALSE, tarnlog::LogFileLockName(key).c_str()));
        auto file = std::make_shared<LogFile>(std::move(handle), std::move(processesLock));
        m_files[key] = file;
        return file;
    }

private:
    // Two spellings of one file share one handle (and one lock).
    static std::wstring Key(const std::wstring& path) {
        wchar_t small[MAX_PATH];
        DWORD length = GetFullPathNameW(path.c_str(), MAX_PATH, small, nullptr);
        std::wstring key;
        if (length == 0) {
            key = path;
        } else if (length < MAX_PATH) {
            key.assign(small, length);
        } else {
            key.assign(length, L'\0');
            length = GetFullPathNameW(path.c_str(), length, &key[0], nullptr);
            key.resize(length);
        }
        // Windows file names compare without regard to case.
        std::wstring upper(key.size(), L'\0');
        if (!key.empty() &&
            LCMapStringW(LOCALE_INVARIANT, LCMAP_UPPERCASE, key.c_str(),
                         static_cast<int>(key.size()), &upper[0],
                         static_cast<int>(upper.size())) == static_cast<int>(key.size())) {
            return upper;
        }
        return key;
    }

    std::mutex m_mutex;
    std::map<std::wstring, std::weak_ptr<LogFile>> m_files;
};

class TarnLogger final : public ILog {
public:
    TarnLogger(std::wstring name, int level, std::shared_ptr<LogFile> file)
        : m_name(std::move(name)), m_level(level), m_file(std::move(file)) {}
    ~TarnLogger() = default;

    const wchar_t* GetName() override { return m_name.c_str(); }
    void SetLevel(int level) override {
        // Values outside the known levels are ignored rather than guessed at.
        if (level >= LogLevelTrace && level <= LogLevelOff) {
            m_level.store(level, std::memory_order_relaxed);
        }
    }
    int GetLevel() override { return m_level.load(std::memory_order_relaxed); }

    bool IsTraceEnabled() override { return Enabled(LogLevelTrace); }
    bool IsDebugEnabled() override { return Enabled(LogLevelDebug); }
    bool IsInfoEnabled() override { return Enabled(LogLevelInfo); }
    bool IsWarningEnabled() override { return Enabled(LogLevelWarning); }
    bool IsErrorEnabled() override { return Enabled(LogLevelError); }

    void Trace(const wchar_t* method, const wchar_t* text) override {
        // Tracing runs on every method entry and exit: a disabled trace touches nothing else.
        if (!Writes(LogLevelTrace)) {
            return;
        }
        WriteText(LogLevelTrace, method, text, text != nullptr ? wcslen(text) : 0);
    }

// The level is checked before the arguments are touched: a filtered line costs one load.
#define TARNLOG_WRITE_IF_ENABLED(level)          \
    if (!Writes(level)) {                        \
        return;                                  \
    }                                            \
    va_list args;                                \
    va_start(args, format);                      \
    WriteFormatted(level, method, format, args); \
    va_end(args)

    void Info(const wchar_t* method, const wchar_t* format, ...) override {
        TARNLOG_WRITE_IF_ENABLED(LogLevelInfo);
    }
    void Warning(const wchar_t* method, const wchar_t* format, ...) override {
        TARNLOG_WRITE_IF_ENABLED(LogLevelWarning);
    }
    void Debug(const wchar_t* method, const wchar_t* format, ...) override {
        TARNLOG_WRITE_IF_ENABLED(LogLevelDebug);
    }
    void Error(const wchar_t* method, const wchar_t* format, ...) override {
        TARNLOG_WRITE_IF_ENABLED(LogLevelError);
    }
#undef TARNLOG_WRITE_IF_ENABLED

private:
    bool Enabled(int level) const {
        return m_level.load(std::memory_order_relaxed) <= level;
    }
    bool Writes(int level) const {
        return Enabled(level) && m_file != nullptr;
    }

    void WriteFormatted(int level, const wchar_t* method, const wchar_t* format, va_list args) {
        try {
            wchar_t small[512];
            const size_t length = FormatWideV(small, 512, format, args);
            if (length < 512) {
                WriteText(level, method, small, length);
                return;
            }
            std::wstring text(length + 1, L'\0');
            FormatWideV(&text[0], text.size(), format, args);
            WriteText(level, method, text.c_str(), length);
        } catch (const std::bad_alloc&) {
            // Logging never fails the caller: a line that does not fit in memory is dropped.
        }
    }

    void WriteText(int level, const wchar_t* method, const wchar_t* text, size_t length) {
        // Logging must not disturb the caller's last error: callers log a failure and then
        // read GetLastError for the next line.
        const LastErrorKeeper keeper;
        try {
            m_file->Append(
                tarnlog::BuildLogLine(Now(), level, m_name.c_str(), method, text, length));
        } catch (const std::bad_alloc&) {
        }
    }

    const std::wstring m_name;
    std::atomic<int> m_level;
    const std::shared_ptr<LogFile> m_file;  // null: TARNLOG_FILE not set, nothing is written
};

class LoggerRegistry {
public:
    int Create(const wchar_t* name, ILog** log) {
        std::wstring value;
        if (ReadEnvironmentVariable(L"TARNLOG_FAIL_NAMES", &value)) {
            for (const std::wstring& refused : tarnlog::ParseNameList(value)) {
                if (refused == name) {
                    return kRefusedByConfiguration;
                }
            }
        }

        int level = LogLevelInfo;
        std::wstring levelText;
        const bool levelSet = ReadEnvironmentVariable(L"TARNLOG_LEVEL", &levelText);
        // An empty TARNLOG_LEVEL means the default, like an unset one.
        const bool levelKnown =
            !levelSet || levelText.empty() || tarnlog::ParseLogLevel(levelText, &level);

        std::shared_ptr<LogFile> file;
        std::wstring path;
        if (ReadEnvironmentVariable(L"TARNLOG_FILE", &path) && !path.empty()) {
            DWORD error = ERROR_SUCCESS;
            file = m_files.Open(path, &error);
            if (file == nullptr) {
                return error != ERROR_SUCCESS ? static_cast<int>(error) : ERROR_OPEN_FAILED;
            }
        }

        auto logger = std::make_unique<TarnLogger>(name, level, std::move(file));
        if (!levelKnown) {
            logger->Warning(L"GetLogger", L"Unknown TARNLOG_LEVEL \"%s\"; using info.",
                            levelText.c_str());
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        m_live.insert(logger.get());
        *log = logger.release();
        return 0;
    }

    void Free(ILog* log) {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (m_live.erase(log) == 0) {
                return;  // not one of ours, or freed already
            }
        }
        delete static_cast<TarnLogger*>(log);
    }

    static constexpr int kRefusedByConfiguration = 1;

private:
    std::mutex m_mutex;
    std::set<ILog*> m_live;
    LogFileTable m_files;
};

LoggerRegistry& Registry() {
    static LoggerRegistry* registry = new LoggerRegistry();
    // Deliberately never destroyed: loggers may still be freed while the process exits.
    return *registry;
}

}  // namespace

int GetLogger(const wchar_t* name, ILog** log) {
    if (log == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    *log = nullptr;
    if (name == nullptr) {
        return ERROR_INVALID_PARAMETER;
    }
    const LastErrorKeeper keeper;
    try {
        return Registry().Create(name, log);
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    } catch (...) {
        return ERROR_INTERNAL_ERROR;
    }
}

void FreeLogger(ILog* log) {
    if (log != nullptr) {
        Registry().Free(log);
    }
}
