#pragma once
// Serves one IpcBeginGetFileSize request inside the helper program. No callbacks, nothing
// received: one executor call, one reply.

#include "interfaces/ILog.h"
#include "interfaces/INamedPipeConnection.h"
#include "interfaces/INetWorkerExecutor.h"
#include "pipe/PipeMessages.h"

class FindFileSizeHandler final {
public:
    // Borrows all three; throws std::invalid_argument for a null one.
    FindFileSizeHandler(INamedPipeConnection* connection, INetWorkerExecutor* executor, ILog* log);
    ~FindFileSizeHandler();

    FindFileSizeHandler(const FindFileSizeHandler&) = delete;
    FindFileSizeHandler& operator=(const FindFileSizeHandler&) = delete;

    // Sends IpcFinishGetFileSize with the size found, or 0 when GetFileSize failed: the
    // status itself does not travel. Always false: the service goes on.
    bool HandleFileSizeMessage(const IpcBeginGetFileSize& request);

private:
    INamedPipeConnection* m_connection;
    INetWorkerExecutor* m_executor;
    ILog* m_log;
};
