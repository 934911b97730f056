#pragma once
// Scoped "Method Start"/"Method End" tracing through ILog::Trace under a qualified name such
// as L"NetWorkerApiExecutor::Catalog". The name is a string literal held by pointer, so a
// traced call allocates nothing; whether the line is stored is the logger's business.

#include <exception>

#include "../interfaces/ILog.h"
#include "ForeignUnwind.h"

enum class MethodEndOnUnwind {
    Write,  // "Method End" also while an exception passes through (the library's default)
    Skip,   // no "Method End" when an exception leaves the method (the pipe transport)
};

// Registered for a foreign unwind (ForeignUnwind.h): a Visual C++ exception from a host's
// callback still gets its "Method End".
class ScopedMethodTracer final : private ForeignUnwindCleanup {
public:
    ScopedMethodTracer(ILog* log, const wchar_t* method,
                       MethodEndOnUnwind onUnwind = MethodEndOnUnwind::Write)
        : m_log(log),
          m_method(method),
          m_onUnwind(onUnwind),
          m_uncaughtAtEntry(std::uncaught_exceptions()) {
        if (m_log != nullptr) {
            m_log->Trace(m_method, L"Method Start");
        }
    }

    ~ScopedMethodTracer() {
        if (m_log == nullptr) {
            return;
        }
        if (m_onUnwind == MethodEndOnUnwind::Skip &&
            std::uncaught_exceptions() > m_uncaughtAtEntry) {
            return;
        }
        m_log->Trace(m_method, L"Method End");
    }

    ScopedMethodTracer(const ScopedMethodTracer&) = delete;
    ScopedMethodTracer& operator=(const ScopedMethodTracer&) = delete;

    const wchar_t* Method() const { return m_method; }

private:
    void RunForForeignUnwind() override {
        if (m_log != nullptr && m_onUnwind == MethodEndOnUnwind::Write) {
            m_log->Trace(m_method, L"Method End");
        }
        m_log = nullptr;
    }

    ILog* m_log;
    const wchar_t* m_method;
    MethodEndOnUnwind m_onUnwind;
    int m_uncaughtAtEntry;
};

#define NWX_TRACE_CONCAT_INNER(a, b) a##b
#define NWX_TRACE_CONCAT(a, b) NWX_TRACE_CONCAT_INNER(a, b)

// The one way a method traces itself: NWX_TRACE_METHOD(m_log, L"Class::Method"); the pipe
// transport adds MethodEndOnUnwind::Skip as a third argument.
#define NWX_TRACE_METHOD(log, ...) \
    ScopedMethodTracer NWX_TRACE_CONCAT(methodTracer_, __LINE__)((log), __VA_ARGS__)
