#pragma once
// RAII owner of a logger obtained from the host logging library with GetLogger and released
// with FreeLogger.

#include <stdexcept>

#include "../interfaces/ILog.h"
#include "../interfaces/LoggerApi.h"

class OwnedLogger {
public:
    OwnedLogger() = default;
    explicit OwnedLogger(ILog* log) : m_log(log) {}
    ~OwnedLogger() { Reset(); }

    OwnedLogger(OwnedLogger&& other) noexcept : m_log(other.Release()) {}
    OwnedLogger& operator=(OwnedLogger&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    OwnedLogger(const OwnedLogger&) = delete;
    OwnedLogger& operator=(const OwnedLogger&) = delete;

    // For long-lived objects: a failed GetLogger throws the standard exception
    // "Failed to Initialize the logger." from the constructor that asked.
    static OwnedLogger AcquireOrThrow(const wchar_t* name) {
        OwnedLogger logger;
        if (!logger.TryAcquire(name)) {
            throw std::runtime_error("Failed to Initialize the logger.");
        }
        return logger;
    }

    // Returns false when the logging library refuses; any logger it left behind is released.
    bool TryAcquire(const wchar_t* name) {
        Reset();
        ILog* log = nullptr;
        const int status = GetLogger(name, &log);
        m_log = log;
        if (status != 0) {
            Reset();
            return false;
        }
        return true;
    }

    void Reset(ILog* log = nullptr) {
        if (m_log != nullptr) {
            FreeLogger(m_log);
        }
        m_log = log;
    }

    ILog* Release() {
        ILog* log = m_log;
        m_log = nullptr;
        return log;
    }

    ILog* Get() const { return m_log; }

private:
    ILog* m_log = nullptr;
};
