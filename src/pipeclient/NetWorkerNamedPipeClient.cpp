#include "NetWorkerNamedPipeClient.h"

#include <cstring>
#include <stdexcept>

#include "CatalogHandler.h"
#include "ExtractHandler.h"
#include "FindFileSizeHandler.h"
#include "HostAnswers.h"
#include "common/MethodTracer.h"
#include "common/UniqueLogger.h"
#include "interfaces/NetWorkerStatus.h"
#include "pipe/PipeMessageBuilders.h"

namespace {

constexpr uint32_t kOpenTimeoutMilliseconds = 10000;

[[noreturn]] void ThrowInvalidMessageType() {
    throw std::runtime_error("Invalid message type received!");
}

// The final message that ends a request the helper cannot read: the operation's own, with
// E_FAIL (a size request, whose reply carries no status, gets size 0).
template <typename Reply>
Reply RefusalReply() {
    return IpcBuildStatusReply<Reply>(NetWorkerStatus::Fail);
}
template <>
IpcFinishGetFileSize RefusalReply<IpcFinishGetFileSize>() {
    return IpcBuildFinishGetFileSize(0);
}

// One request, one handler, one logger. A logger that cannot be obtained ends the session
// without a reply: true.
template <typename Handler, typename Request>
bool ServeRequest(const wchar_t* loggerName, const Request& request,
                  bool (Handler::*operation)(const Request&), INamedPipeConnection* connection,
                  INetWorkerExecutor* executor) {
    const UniqueLogger handlerLog = TryAcquireLogger(loggerName);  // outlives the handler
    if (!handlerLog) {
        return true;
    }
    Handler handler(connection, executor, handlerLog.get());
    return (handler.*operation)(request);
}

// The names as the executor sees them: always terminated, even when a sender filled a whole
// 255-byte field without a terminator.
struct InitializeNames {
    char clientName[kIpcNameFieldSize + 1] = {};
    char serverName[kIpcNameFieldSize + 1] = {};
};

}  // namespace

NetWorkerNamedPipeClient::NetWorkerNamedPipeClient(const wchar_t* pipeName,
                                                   INamedPipeConnection* connection,
                                                   INetWorkerExecutor* executor, ILog* log)
    : m_connection(connection), m_executor(executor), m_log(log), m_receiveBuffer{} {
    RequireArgument(pipeName, "NetWorkerNamedPipeClient needs a pipe name");
    RequireServiceParts("NetWorkerNamedPipeClient", connection, executor, log);
    NWX_TRACE_METHOD(m_log, L"NetWorkerNamedPipeClient::NetWorkerNamedPipeClient");
    m_pipeName = pipeName;
}

NetWorkerNamedPipeClient::~NetWorkerNamedPipeClient() {
    NWX_TRACE_METHOD(m_log, L"NetWorkerNamedPipeClient::~NetWorkerNamedPipeClient");
}

bool NetWorkerNamedPipeClient::ReceiveIntoBuffer(uint32_t* bytesReceived) {
    std::memset(m_receiveBuffer, 0, sizeof m_receiveBuffer);
    *bytesReceived = kIpcMaxMessageSize;
    return m_connection->Receive(m_receiveBuffer, bytesReceived);
}

void NetWorkerNamedPipeClient::Run() {
    static constexpr wchar_t kMethod[] = L"NetWorkerNamedPipeClient::Run";
    NWX_TRACE_METHOD(m_log, kMethod);
    m_log->Debug(kMethod, L"Opening named pipe named '%ls'", m_pipeName.c_str());
    m_connection->OpenExisting(m_pipeName.c_str(), kOpenTimeoutMilliseconds);
    m_log->Debug(kMethod, L"Pipe opened...waiting for IpcBeginInitialize message");

    uint32_t bytesReceived = 0;
    if (!ReceiveIntoBuffer(&bytesReceived)) {
        throw std::runtime_error("NamedPipe connection closed ");
    }
    const IpcBeginInitialize* begin = IpcView<IpcBeginInitialize>(m_receiveBuffer, bytesReceived);
    if (begin == nullptr) {
        throw std::runtime_error(
            "Was expecting to receive BeginInitialize, but something else was received.");
    }
    m_log->Debug(kMethod, L"IpcBeginInitialize received...calling initialize on executor.");
    InitializeNames names;
    std::memcpy(names.clientName, begin->clientName, kIpcNameFieldSize);
    std::memcpy(names.serverName, begin->serverName, kIpcNameFieldSize);
    const int32_t status = m_executor->Initialize(names.clientName, names.serverName);

    // The reply goes out before the status is judged, so the host always learns it.
    m_log->Debug(kMethod, L"Sending IpcFinishInitialize message");
    IpcSend(*m_connection, IpcBuildStatusReply<IpcFinishInitialize>(status));
    if (status < 0) {
        throw std::runtime_error("INetWorkerExecutor::Initialize failed.");
    }

    for (;;) {
        m_log->Debug(kMethod, L"Waiting for next message...");
        if (!ReceiveIntoBuffer(&bytesReceived)) {
            m_log->Debug(kMethod, L"Pipe connection was closed...exiting...");
            break;
        }
        const bool exiting = HandleMessage(m_receiveBuffer, bytesReceived);
        m_log->Debug(kMethod, L"Message processed.  Exiting=%s", exiting ? L"true" : L"false");
        if (exiting) {
            break;
        }
    }
}

bool NetWorkerNamedPipeClient::HandleMessage(const unsigned char* message, uint32_t bytesReceived) {
    static constexpr wchar_t kMethod[] = L"NetWorkerNamedPipeClient::HandleMessage";
    NWX_TRACE_METHOD(m_log, kMethod);
    const uint32_t type = IpcReceivedType(message, bytesReceived);
    if (type == 0) {  // also fewer than 8 bytes
        throw std::runtime_error("Invalid message received!");
    }
    m_log->Debug(kMethod, L"Received message of type %i", static_cast<int>(type));
    switch (type) {
        case IpcTypeShouldCancel:
            if (const auto* cancel = IpcView<IpcShouldCancel>(message, bytesReceived)) {
                return HandleCancelMessage(*cancel);
            }
            // Nobody waits for an answer to it: it is dropped unread.
            RefuseUnreadableRequest(type);
            return false;
        case IpcTypeBeginCatalog:
            return ServeOrRefuse<CatalogHandler, IpcBeginCatalog, IpcFinishCatalog>(
                L"CatalogHandler", &CatalogHandler::HandleTransaction, message, bytesReceived);
        case IpcTypeBeginGetFileSize:
            return ServeOrRefuse<FindFileSizeHandler, IpcBeginGetFileSize, IpcFinishGetFileSize>(
                L"FindFileSizeHandler", &FindFileSizeHandler::HandleFileSizeMessage, message,
                bytesReceived);
        case IpcTypeBeginExtract:
            return ServeOrRefuse<ExtractHandler, IpcBeginExtract, IpcFinishBeginExtract>(
                L"ExtractHandler", &ExtractHandler::HandleBeginExtract, message, bytesReceived);
        case IpcTypeBeginExtractFile:
            return ServeOrRefuse<ExtractHandler, IpcBeginExtractFile, IpcFinishExtractFile>(
                L"ExtractHandler", &ExtractHandler::HandleExtractFile, message, bytesReceived);
        case IpcTypeEndExtract:
            return ServeOrRefuse<ExtractHandler, IpcEndExtract, IpcFinishEndExtract>(
                L"ExtractHandler", &ExtractHandler::HandleEndExtract, message, bytesReceived);
        default:
            // Everything the helper itself sends, answers that belong inside a callback,
            // IpcBeginInitialize after the handshake and unknown numbers: the host's reply
            // cannot be known, so the session ends rather than leave the host waiting.
            ThrowInvalidMessageType();
    }
}

template <typename Handler, typename Request, typename Reply>
bool NetWorkerNamedPipeClient::ServeOrRefuse(const wchar_t* loggerName,
                                             bool (Handler::*operation)(const Request&),
                                             const unsigned char* message, uint32_t bytesReceived) {
    const Request* request = IpcView<Request>(message, bytesReceived);
    if (request == nullptr) {
        // A served type whose size field is not its own is never read: the host's operation
        // ends with E_FAIL and the session goes on.
        RefuseUnreadableRequest(Request::kType);
        IpcSend(*m_connection, RefusalReply<Reply>());
        return false;
    }
    return ServeRequest(loggerName, *request, operation, m_connection, m_executor);
}

void NetWorkerNamedPipeClient::RefuseUnreadableRequest(uint32_t type) {
    m_log->Error(L"NetWorkerNamedPipeClient::HandleMessage",
                 L"Refused a message of type %i whose size field is not its own. Error: %08lx.",
                 static_cast<int>(type),
                 static_cast<unsigned long>(static_cast<uint32_t>(NetWorkerStatus::Fail)));
}

bool NetWorkerNamedPipeClient::HandleCancelMessage(const IpcShouldCancel& message) {
    static constexpr wchar_t kMethod[] = L"NetWorkerNamedPipeClient::HandleCancelMessage";
    NWX_TRACE_METHOD(m_log, kMethod);
    const uint32_t response = message.response;
    m_log->Debug(kMethod, L"Handling IpcShouldCancel message with response=%i",
                 static_cast<int>(response));
    return response == eQuit;
}
