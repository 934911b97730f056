#include "HostSessions.h"

#include <stdexcept>

#include "../exports/ExportsTestSupport.h"

DirectSession::DirectSession() {
    if (!AllocateNetWorkerApiWrapper(&m_wrapper) ||
        !AllocateNetWorkerApiExecutor(&m_executor, m_wrapper)) {
        FreeNetWorkerApiWrapper(m_wrapper);
        throw std::runtime_error("cannot allocate the in-process executor");
    }
}

DirectSession::~DirectSession() {
    FreeNetWorkerExecutor(m_executor);
    FreeNetWorkerApiWrapper(m_wrapper);
}

int32_t DirectSession::Initialize(const char* clientName, const char* serverName) {
    return m_executor->Initialize(clientName, serverName);
}

PipeSession::PipeSession(const std::wstring& pipeName) : m_pipeName(pipeName) {
    if (!AllocateNamedPipeConnection(&m_connection) ||
        !AllocateNetWorkerNamedPipeExecutor(&m_executor, m_pipeName.c_str(), m_connection)) {
        FreeNamedPipeConnection(m_connection);
        throw std::runtime_error("cannot allocate the pipe executor");
    }
}

PipeSession::~PipeSession() {
    Close();
}

void PipeSession::Close() {
    FreeNetWorkerExecutor(m_executor);
    m_executor = nullptr;
    FreeNamedPipeConnection(m_connection);
    m_connection = nullptr;
}

int32_t PipeSession::Initialize(const char* clientName, const char* serverName) {
    ScopedCurrentDirectory inBin(TestProgramDirectory());
    return m_executor->Initialize(clientName, serverName);
}
