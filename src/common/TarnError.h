#pragma once
// The library's one exception type: a 32-bit status and nothing else. It has no base class on
// purpose, so a handler for standard exceptions does not catch it. Thrown and caught by value;
// its text was written to the log when it was raised (RaiseTarnError).

#include <cstdint>

class ILog;

class TarnError {
public:
    explicit TarnError(int32_t errorCode) : code(errorCode) {}
    ~TarnError() {}

    int32_t code;
};

// Writes the message and "HRESULT %08lx GetLastError() %d" as two Error lines (when the logger
// has errors enabled), then throws TarnError(code). log may be null. The formatted message is
// handed to the logger as a format again, with its percent signs doubled, so the logged line
// is the message as formatted here.
[[noreturn]] void RaiseTarnError(ILog* log, int32_t code, const wchar_t* method,
                                 const wchar_t* format, ...);

// The one way a TarnError becomes a status: runs `operation`, which returns a status, and
// returns that status, or the code of the TarnError it raised. Every other exception passes
// through unchanged.
template <typename Operation>
int32_t RunAsStatus(Operation&& operation) {
    try {
        return operation();
    } catch (TarnError error) {
        return error.code;
    }
}

// Maps an XBSA return code to a status: negative for failures (logged as "BSA Error %d\n"),
// 1169 for "nothing matched", 0 for success and every code outside the table.
int32_t BSAError2HResult(int32_t rc, ILog* log);
