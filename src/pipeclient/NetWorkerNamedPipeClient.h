#pragma once
// The service that runs inside the helper program NetWorker64BitClient.exe: opens the pipe
// that the host created, answers IpcBeginInitialize by initialising the local executor, then
// serves one request after another through a short-lived handler (CatalogHandler,
// ExtractHandler, FindFileSizeHandler), each with a fresh logger obtained with GetLogger under
// the handler's class name.
//
// Run returns when the host closes the pipe, when an IpcShouldCancel with response eQuit
// arrives between requests, or when a handler's logger cannot be obtained (no reply is sent
// then). Every other failure leaves Run as a standard exception with a fixed narrow text
// (std::runtime_error, or the exception of the connection or a handler); Run catches nothing.
//
// Usage (the helper program, through the exported factory):
//   NetWorkerNamedPipeClient client(pipeName, connection, executor, log);
//   client.Run();
// pipeName is the bare name given on the helper's command line (without "\\.\pipe\").
// The connection, executor and logger are borrowed: the caller frees them after the client.

#include <cstdint>
#include <string>

#include "interfaces/ILog.h"
#include "interfaces/INamedPipeConnection.h"
#include "interfaces/INetWorkerExecutor.h"
#include "interfaces/INetWorkerNamedPipeClient.h"
#include "pipe/PipeMessages.h"

class NetWorkerNamedPipeClient final : public INetWorkerNamedPipeClient {
public:
    // Copies the name and borrows the three objects; does not touch the pipe. Throws
    // std::invalid_argument for a null argument.
    NetWorkerNamedPipeClient(const wchar_t* pipeName, INamedPipeConnection* connection,
                             INetWorkerExecutor* executor, ILog* log);
    ~NetWorkerNamedPipeClient() override;

    NetWorkerNamedPipeClient(const NetWorkerNamedPipeClient&) = delete;
    NetWorkerNamedPipeClient& operator=(const NetWorkerNamedPipeClient&) = delete;

    void Run() override;

private:
    // Serves one message of the main loop; true ends the loop.
    bool HandleMessage(const unsigned char* message, uint32_t bytesReceived);
    bool HandleCancelMessage(const IpcShouldCancel& message);
    // Serves a request through a fresh Handler, or, when its size field is not its type's,
    // answers it with `Reply` carrying E_FAIL, unread.
    template <typename Handler, typename Request, typename Reply>
    bool ServeOrRefuse(const wchar_t* loggerName, bool (Handler::*operation)(const Request&),
                       const unsigned char* message, uint32_t bytesReceived);
    void RefuseUnreadableRequest(uint32_t type);
    // Zero-fills the receive buffer and receives one message into it.
    bool ReceiveIntoBuffer(uint32_t* bytesReceived);

    std::wstring m_pipeName;
    INamedPipeConnection* m_connection;
    INetWorkerExecutor* m_executor;
    ILog* m_log;
    alignas(8) unsigned char m_receiveBuffer[kIpcMaxMessageSize];
};
