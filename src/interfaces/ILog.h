#pragma once
// The host logging library's logger. The library calls only Trace (4), Info (6), Debug (10),
// IsErrorEnabled (11) and Error (12); a host's own ILog may differ in the other slots.
// Formats follow the Microsoft wide-printf convention: %s is a wide string, %S a narrow one.

#include "InterfaceAbi.h"

enum LogLevel : int {
    LogLevelTrace = 0,
    LogLevelDebug = 1,
    LogLevelInfo = 2,
    LogLevelWarning = 3,
    LogLevelError = 4,
    LogLevelOff = 5,
};

class ILog {
public:
    virtual const wchar_t* GetName() = 0;                                         // 0
    virtual void SetLevel(int level) = 0;                                         // 1
    virtual int GetLevel() = 0;                                                   // 2
    virtual bool IsTraceEnabled() = 0;                                            // 3
    virtual void Trace(const wchar_t* method, const wchar_t* text) = 0;           // 4
    virtual bool IsInfoEnabled() = 0;                                             // 5
    virtual void Info(const wchar_t* method, const wchar_t* format, ...) = 0;     // 6
    virtual bool IsWarningEnabled() = 0;                                          // 7
    virtual void Warning(const wchar_t* method, const wchar_t* format, ...) = 0;  // 8
    virtual bool IsDebugEnabled() = 0;                                            // 9
    virtual void Debug(const wchar_t* method, const wchar_t* format, ...) = 0;    // 10
    virtual bool IsErrorEnabled() = 0;                                            // 11
    virtual void Error(const wchar_t* method, const wchar_t* format, ...) = 0;    // 12

protected:
    // No destructor slot: loggers are released with FreeLogger, never deleted through ILog.
    ~ILog() = default;
};
