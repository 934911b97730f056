#pragma once
// Loggers of the host's logging library (GetLogger/FreeLogger) under the one resource owner.

#include <stdexcept>

#include "../interfaces/ILog.h"
#include "../interfaces/LoggerApi.h"
#include "UniqueResource.h"

struct LoggerTraits {
    using Handle = ILog*;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle log) { return log != nullptr; }
    static void Close(Handle log) { FreeLogger(log); }
};

using UniqueLogger = UniqueResource<LoggerTraits>;

// The logger `name`, or an empty owner when the logging library refuses it (a logger it
// handed out all the same is released).
inline UniqueLogger TryAcquireLogger(const wchar_t* name) {
    ILog* log = nullptr;
    const int status = GetLogger(name, &log);
    UniqueLogger logger(log);
    if (status != 0) {
        logger.reset();
    }
    return logger;
}

// For long-lived objects: a refused logger throws the standard exception "Failed to
// Initialize the logger." from the constructor that asked.
inline UniqueLogger AcquireLoggerOrThrow(const wchar_t* name) {
    UniqueLogger logger = TryAcquireLogger(name);
    if (!logger) {
        throw std::runtime_error("Failed to Initialize the logger.");
    }
    return logger;
}
