#pragma once
// Serves one IpcBeginCatalog request inside the helper program: runs the executor's Catalog
// and stands in for the host's callbacks, relaying each over the pipe and waiting for the
// host's answer. Lives for one request; destroyed through its own type only.

#include "HostAnswers.h"
#include "interfaces/ILog.h"
#include "interfaces/INamedPipeConnection.h"
#include "interfaces/INetWorkerCallBacks.h"
#include "interfaces/INetWorkerExecutor.h"
#include "pipe/PipeMessages.h"

class CatalogHandler final : public INetWorkerFileFoundCallBack, public INetWorkerErrorCallBack {
public:
    // Borrows all three; throws std::invalid_argument for a null one.
    CatalogHandler(INamedPipeConnection* connection, INetWorkerExecutor* executor, ILog* log);
    ~CatalogHandler();

    CatalogHandler(const CatalogHandler&) = delete;
    CatalogHandler& operator=(const CatalogHandler&) = delete;

    // Runs Catalog and sends IpcFinishCatalog with its status, whatever it is. Always false:
    // the service goes on.
    bool HandleTransaction(const IpcBeginCatalog& request);

    bool NetWorkerFileFound(const NetWorkerFileInfo* file) override;
    uint32_t NetWorkerError(uint32_t code) override;
    uint32_t AllocationError(const NetWorkerAllocationInfo* info) override;

private:
    INamedPipeConnection* m_connection;
    INetWorkerExecutor* m_executor;
    ILog* m_log;
    HostAnswerBuffer m_answer;
};
