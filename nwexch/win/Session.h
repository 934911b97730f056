#pragma once
// One NetWorker session of nwexch: the library's objects for the chosen mode, created
// through the exported factories and freed in reverse order.

#include <cstdint>
#include <string>

#include "CommandLine.h"
#include "exports/NetWorkerXbsa.h"

class Session {
public:
    Session() = default;
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Creates the objects and calls Initialize. False with *problem set (a full sentence,
    // status included) when anything fails; *exitCode says whether it was the arguments
    // (ExitUsage) or NetWorker (ExitNetWorker). sessionNumber tells the sessions of one run
    // apart (their pipes are named after it); 0 for the first.
    bool Open(const Options& options, std::wstring* problem, int* exitCode,
              unsigned sessionNumber = 0);

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
};

// Narrow (ANSI code page) text for NetWorker; false when the text cannot be represented.
bool ToNarrow(const std::wstring& text, std::string* narrow);
// A narrow NetWorker text as UTF-16.
std::wstring FromNarrow(const char* text);
