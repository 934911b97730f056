#pragma once
// Serves one extraction request inside the helper program (IpcBeginExtract,
// IpcBeginExtractFile or IpcEndExtract) and, during ExtractFile, stands in for the host's
// progress and error callbacks, relaying each over the pipe. Lives for one message: the
// extraction's state is the executor's.

#include "HostAnswers.h"
#include "interfaces/ILog.h"
#include "interfaces/INamedPipeConnection.h"
#include "interfaces/INetWorkerCallBacks.h"
#include "interfaces/INetWorkerExecutor.h"
#include "pipe/PipeMessages.h"

class ExtractHandler final : public INetWorkerErrorCallBack,
                             public INetWorkerUpdateProgressCallBack {
public:
    // Borrows all three; throws std::invalid_argument for a null one.
    ExtractHandler(INamedPipeConnection* connection, INetWorkerExecutor* executor, ILog* log);
    ~ExtractHandler();

    ExtractHandler(const ExtractHandler&) = delete;
    ExtractHandler& operator=(const ExtractHandler&) = delete;

    // Each runs one executor operation and sends its status in the 12-byte reply, whatever
    // it is. Always false: the service goes on.
    bool HandleBeginExtract(const IpcBeginExtract& request);
    // Throws std::invalid_argument when a string field carries no terminator.
    bool HandleExtractFile(const IpcBeginExtractFile& request);
    bool HandleEndExtract(const IpcEndExtract& request);

    bool UpdateProgress(NetWorkerProgressInfo* progress) override;
    // Not traced, unlike CatalogHandler's: their names appear only in their error lines.
    uint32_t NetWorkerError(uint32_t code) override;
    uint32_t AllocationError(const NetWorkerAllocationInfo* info) override;

private:
    INamedPipeConnection* m_connection;
    INetWorkerExecutor* m_executor;
    ILog* m_log;
    HostAnswerBuffer m_answer;
};
