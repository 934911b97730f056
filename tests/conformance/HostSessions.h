#pragma once
// The two ways a host runs the library, both through the exported factories of
// NetWorkerXbsa.dll: in process (wrapper + NetWorkerApiExecutor) and through the helper
// program (connection + NetWorkerNamedPipeExecutor starting NetWorker64BitClient.exe over a
// real pipe). Objects are freed in reverse order of creation.

#include <memory>
#include <string>

#include "exports/NetWorkerXbsa.h"

class HostSession {
public:
    virtual ~HostSession() = default;
    virtual INetWorkerExecutor* Executor() = 0;
    // The pipe session starts the helper from the test program's directory.
    virtual int32_t Initialize(const char* clientName, const char* serverName) = 0;
};

class DirectSession final : public HostSession {
public:
    DirectSession();
    ~DirectSession() override;
    INetWorkerExecutor* Executor() override { return m_executor; }
    int32_t Initialize(const char* clientName, const char* serverName) override;

private:
    INetWorkerApiWrapper* m_wrapper = nullptr;
    INetWorkerExecutor* m_executor = nullptr;
};

class PipeSession final : public HostSession {
public:
    explicit PipeSession(const std::wstring& pipeName);
    ~PipeSession() override;
    INetWorkerExecutor* Executor() override { return m_executor; }
    int32_t Initialize(const char* clientName, const char* serverName) override;
    const std::wstring& PipeName() const { return m_pipeName; }
    // Frees executor and connection now, as a host that ends the session does.
    void Close();

private:
    std::wstring m_pipeName;
    INamedPipeConnection* m_connection = nullptr;
    INetWorkerExecutor* m_executor = nullptr;
};
