// A host's own logging library as Visual C++ would build it, to stand in for TarnLog.dll: built
// by clang for x86_64-pc-windows-msvc as "TarnLog.dll", exporting only GetLogger and FreeLogger
// under their Visual C++ names. Its ILog writes every call it receives, one UTF-8 line each, to
// the file named by NWX_MSVCLOG_FILE (host and helper append to the same file):
//
//   <pid> \t GetLogger \t <name>
//   <pid> \t FreeLogger \t <name>
//   <pid> \t slot <n> \t <logger name> \t <method> \t <text, formatted for Info/Debug/Error>
//
// Slots that the library must never call are recorded the same way, so the test sees them.

#define LOGGER_API __declspec(dllexport)
#include "MsvcRuntime.h"
#include "interfaces/LoggerApi.h"

namespace {

wchar_t g_file[520];

void Record(const wchar_t* line) {
    char utf8[4096];
    const int length = WideCharToMultiByte(msvcrt::Utf8CodePage, 0, line, -1, utf8,
                                           static_cast<int>(sizeof utf8) - 1, nullptr, nullptr);
    if (length <= 0 || g_file[0] == 0) {
        return;
    }
    utf8[length - 1] = '\n';  // replaces the terminator
    msvcrt::AppendLine(g_file, utf8, static_cast<size_t>(length));
}

// "<pid>\t" + the rest, formatted; line breaks inside the text are kept out of the line.
void RecordFormatted(const wchar_t* format, ...) {
    wchar_t line[2048];
    va_list args;
    va_start(args, format);
    int length = _vsnwprintf(line, 2047, format, args);
    va_end(args);
    if (length < 0) {
        length = 2047;
    }
    line[length] = 0;
    for (int i = 0; i < length; ++i) {
        if (line[i] == L'\n' || line[i] == L'\r') {
            line[i] = L' ';
        }
    }
    Record(line);
}

class RecordingLog final : public ILog {
public:
    explicit RecordingLog(const wchar_t* name) { msvcrt::WideCopy(m_name, 128, name); }
    const wchar_t* Name() const { return m_name; }

    const wchar_t* GetName() override {
        Unexpected(0);
        return m_name;
    }
    void SetLevel(int) override { Unexpected(1); }
    int GetLevel() override {
        Unexpected(2);
        return 0;
    }
    bool IsTraceEnabled() override {
        Unexpected(3);
        return true;
    }
    void Trace(const wchar_t* method, const wchar_t* text) override {
        RecordFormatted(L"%u\tslot 4\t%s\t%s\t%s", GetCurrentProcessId(), m_name, method, text);
    }
    bool IsInfoEnabled() override {
        Unexpected(5);
        return true;
    }
    void Info(const wchar_t* method, const wchar_t* format, ...) override {
        va_list args;
        va_start(args, format);
        Formatted(6, method, format, args);
        va_end(args);
    }
    bool IsWarningEnabled() override {
        Unexpected(7);
        return true;
    }
    void Warning(const wchar_t*, const wchar_t*, ...) override { Unexpected(8); }
    bool IsDebugEnabled() override {
        Unexpected(9);
        return true;
    }
    void Debug(const wchar_t* method, const wchar_t* format, ...) override {
        va_list args;
        va_start(args, format);
        Formatted(10, method, format, args);
        va_end(args);
    }
    bool IsErrorEnabled() override { return true; }
    void Error(const wchar_t* method, const wchar_t* format, ...) override {
        va_list args;
        va_start(args, format);
        Formatted(12, method, format, args);
        va_end(args);
    }

private:
    void Unexpected(int slot) {
        RecordFormatted(L"%u\tslot %d\t%s\t\tunexpected call", GetCurrentProcessId(), slot, m_name);
    }

    void Formatted(int slot, const wchar_t* method, const wchar_t* format, va_list args) {
        wchar_t text[1536];
        int length = _vsnwprintf(text, 1535, format, args);
        if (length < 0) {
            length = 1535;
        }
        text[length] = 0;
        RecordFormatted(L"%u\tslot %d\t%s\t%s\t%s", GetCurrentProcessId(), slot, m_name, method,
                        text);
    }

    wchar_t m_name[128];
};

}  // namespace

int GetLogger(const wchar_t* name, ILog** log) {
    if (name == nullptr || log == nullptr) {
        return 87;
    }
    if (g_file[0] == 0) {
        GetEnvironmentVariableW(L"NWX_MSVCLOG_FILE", g_file, 520);
    }
    auto* logger = new RecordingLog(name);
    *log = logger;
    RecordFormatted(L"%u\tGetLogger\t%s", GetCurrentProcessId(), name);
    return 0;
}

void FreeLogger(ILog* log) {
    if (log == nullptr) {
        return;
    }
    auto* logger = static_cast<RecordingLog*>(log);
    RecordFormatted(L"%u\tFreeLogger\t%s", GetCurrentProcessId(), logger->Name());
    delete logger;
}

extern "C" int LoggerDllMain(void*, DWORD, void*) {
    return 1;
}
