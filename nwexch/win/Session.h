#pragma once
// One NetWorker session of nwexch: the library's objects for the chosen mode, created
// through the exported factories and freed in reverse order.

#include <cstdint>
#include <exception>
#include <string>

#include "CommandLine.h"
#include "exports/NetWorkerXbsa.h"

class Session {
public:
    Session() = default;
    ~Session() { Close(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Creates the objects and calls Initialize. False with *problem set (a full sentence,
    // status included) when anything fails; *exitCode says whether it was the arguments
    // (ExitUsage) or NetWorker (ExitNetWorker). sessionNumber tells the sessions of one run
    // apart (their pipes are named after it); 0 for the first.
    bool Open(const Options& options, std::wstring* problem, int* exitCode,
              unsigned sessionNumber = 0);

    // Frees the objects (closing the pipe is what ends the helper) and waits for the helper to
    // end; once is enough. Never throws: what went wrong is returned as a sentence, empty when
    // nothing did.
    std::wstring Close() noexcept;

    INetWorkerExecutor* Executor() const { return m_executor; }
    bool InHelper() const { return m_helper; }
    // The helper's pipe name (helper mode), empty in process.
    const std::wstring& PipeName() const { return m_pipeName; }

private:
    INetWorkerApiWrapper* m_wrapper = nullptr;
    INamedPipeConnection* m_connection = nullptr;
    INetWorkerExecutor* m_executor = nullptr;
    bool m_helper = false;
    std::wstring m_pipeName;
    bool m_closed = false;
};

// The outcome of one call on a session's executor: its status, or what it threw. A session whose
// call threw cannot be trusted with another one.
struct SessionCall {
    int32_t status = 0;
    bool threw = false;
    std::wstring thrown;  // what the call threw, as a sentence

    // The session is gone: the call threw (the pipe failed under it, in helper mode), or the
    // helper program closed its pipe.
    bool Lost() const;
    // The status with its meaning, or what was thrown.
    std::wstring Why() const;
};

// What an exception from the library says, as a sentence.
std::wstring DescribeException(const Session& session, const std::exception_ptr& thrown);

// Runs one call on the session's executor (a callable returning its status) and catches
// whatever it throws, so that a helper that dies never ends nwexch.
template <typename Call>
SessionCall CallSession(const Session& session, Call&& call) noexcept {
    SessionCall result;
    try {
        result.status = call();
    } catch (...) {
        result.threw = true;
        result.thrown = DescribeException(session, std::current_exception());
    }
    return result;
}

// Narrow (ANSI code page) text for NetWorker; false when the text cannot be represented.
bool ToNarrow(const std::wstring& text, std::string* narrow);
// A narrow NetWorker text as UTF-16.
std::wstring FromNarrow(const char* text);
