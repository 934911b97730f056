#pragma once
// The calling thread's last Windows error, and a keeper that gives it back at the end of a
// scope. Natively (tests, fuzzing) a thread-local stand-in. Header-only, so that programs
// which do not link the library's common code (the helper program) can use it too.

#include <cstdint>

#ifdef _WIN32
#include <windef.h>
#include <errhandlingapi.h>

inline uint32_t ReadLastError() {
    return ::GetLastError();
}
inline void WriteLastError(uint32_t error) {
    ::SetLastError(error);
}
#else
namespace last_error_detail {
inline thread_local uint32_t t_lastError = 0;
}  // namespace last_error_detail

inline uint32_t ReadLastError() {
    return last_error_detail::t_lastError;
}
inline void WriteLastError(uint32_t error) {
    last_error_detail::t_lastError = error;
}
#endif

// Keeps the thread's last error across a scope: releasing a resource, or writing a log line,
// must not change what the caller reads with GetLastError next.
class LastErrorKeeper {
public:
    LastErrorKeeper() : m_error(ReadLastError()) {}
    ~LastErrorKeeper() { WriteLastError(m_error); }
    LastErrorKeeper(const LastErrorKeeper&) = delete;
    LastErrorKeeper& operator=(const LastErrorKeeper&) = delete;

private:
    uint32_t m_error;
};
