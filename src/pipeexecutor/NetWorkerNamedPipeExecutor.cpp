#include "NetWorkerNamedPipeExecutor.h"

#include <cstring>
#include <stdexcept>

#include "common/CivilTime.h"
#include "common/HostCallGuard.h"
#include "common/MethodTracer.h"
#include "common/ScopeExit.h"
#include "interfaces/NetWorkerStatus.h"
#include "pipe/PipeHardening.h"
#include "pipe/PipeMessageBuilders.h"

namespace {

constexpr int32_t kStatusFail = NetWorkerStatus::Fail;
constexpr int32_t kStatusInvalidArg = NetWorkerStatus::InvalidArgument;
// A closed pipe is reported as the positive Windows error number (kept on purpose:
// docs/compatibility.md, "positive 109").
constexpr int32_t kStatusPipeClosed = NetWorkerStatus::PipeClosed;
constexpr int32_t kStatusPipeNameTaken = NetWorkerStatus::PipeNameTaken;

// A status as the 32 bits that "%08lx" prints, whatever the width of long.
unsigned long StatusBits(int32_t status) {
    return static_cast<uint32_t>(status);
}

uint32_t CancelResponse(bool stop) {
    return stop ? eQuit : eContinue;
}

}  // namespace

NetWorkerNamedPipeExecutor::NetWorkerNamedPipeExecutor(const wchar_t* pipeName,
                                                       INamedPipeConnection* connection,
                                                       LaunchClientFunction launchClient)
    : m_launchClient(launchClient),
      m_connection(connection),
      m_log(AcquireLoggerOrThrow(L"NetWorkerNamedPipeExecutor")),
      m_buffer{} {
    if (pipeName == nullptr || connection == nullptr || launchClient == nullptr) {
        throw std::invalid_argument("pipe name, connection and launcher must be given");
    }
    m_pipeName = pipeName;
}

NetWorkerNamedPipeExecutor::~NetWorkerNamedPipeExecutor() = default;

template <typename Message>
void NetWorkerNamedPipeExecutor::SendToHelper(const Message& message) {
    IpcSend(*m_connection, message);
}

bool NetWorkerNamedPipeExecutor::ReceiveReply(const wchar_t* method, uint32_t* bytesRead) {
    std::memset(m_buffer, 0, sizeof m_buffer);
    uint32_t length = kIpcMaxMessageSize;
    if (!m_connection->Receive(m_buffer, &length)) {
        m_log.get()->Error(method,
                           L"Failed to receive correctly from the pipe. Other end of pipe "
                           L"disconnected while receiving message from pipe! Error: %08lx.",
                           StatusBits(kStatusPipeClosed));
        *bytesRead = 0;
        return false;
    }
    *bytesRead = length;
    return true;
}

int32_t NetWorkerNamedPipeExecutor::UnexpectedReply(const wchar_t* method, uint32_t expected,
                                                    uint32_t actual) {
    // GetFileSize, BeginExtract and EndExtract share Initialize's wording (kept on purpose:
    // docs/compatibility.md, "Initialize's wording").
    m_log.get()->Error(method,
                       L"The client was unable to initialize. Expected messageType '%d'. Actual "
                       L"messageType '%d'. Error: %08lx.",
                       static_cast<int>(expected), static_cast<int>(actual),
                       StatusBits(kStatusFail));
    return kStatusFail;
}

int32_t NetWorkerNamedPipeExecutor::RefuseArgument(const wchar_t* method,
                                                   const std::logic_error& refused) {
    m_log.get()->Error(method, L"%S Error: %08lx.", refused.what(), StatusBits(kStatusInvalidArg));
    return kStatusInvalidArg;
}

int32_t NetWorkerNamedPipeExecutor::InvalidMessageType(const wchar_t* method) {
    // Misspelt (kept on purpose: docs/compatibility.md, "recieved").
    m_log.get()->Error(method, L"Invalid messageType recieved. Error: %08lx.",
                       StatusBits(kStatusFail));
    return kStatusFail;
}

void NetWorkerNamedPipeExecutor::SendRefusal(uint32_t type) {
    switch (type) {
        case IpcTypeFileFound:
            // The rest of the catalogue is listed unseen: a "stop" would stay with the helper's
            // executor and cancel the host's next catalogue before it began.
            SendToHelper(IpcBuildShouldCancel(eContinue));
            break;
        case IpcTypeUpdateProgress:
            SendToHelper(IpcBuildShouldCancel(eQuit));
            break;
        case IpcTypeNetWorkerError:
            SendToHelper(IpcBuildNetWorkerErrorResponse(0));
            break;
        case IpcTypeAllocationError:
            SendToHelper(IpcBuildAllocationErrorResponse(0));
            break;
        default:
            break;
    }
}

void NetWorkerNamedPipeExecutor::AbandonConversation(const wchar_t* method,
                                                     uint32_t pendingType) noexcept {
    try {
        SendRefusal(pendingType);
        for (;;) {
            uint32_t bytesRead = 0;
            if (!ReceiveReply(method, &bytesRead)) {
                return;
            }
            const uint32_t type = IpcReceivedType(m_buffer, bytesRead);
            if (type == IpcTypeFinishCatalog || type == IpcTypeFinishExtractFile) {
                return;
            }
            if (type != IpcTypeFileFound && type != IpcTypeUpdateProgress &&
                type != IpcTypeNetWorkerError && type != IpcTypeAllocationError) {
                InvalidMessageType(method);
                return;
            }
            SendRefusal(type);
        }
    } catch (...) {
        // The pipe failed too: the session is lost, and the host's exception is what it sees.
    }
}

template <typename Ask>
auto NetWorkerNamedPipeExecutor::AskHost(const wchar_t* method, uint32_t type, Ask&& ask)
    -> decltype(ask()) {
    // Runs only if the host's callback does not come back: then the helper still waits.
    ScopeExit abandon([&] { AbandonConversation(method, type); });
    auto answer = CallHost(ask);
    abandon.Dismiss();
    return answer;
}

bool NetWorkerNamedPipeExecutor::AnswerErrorCallback(const wchar_t* method, uint32_t type,
                                                     uint32_t bytesRead,
                                                     INetWorkerErrorCallBack* error) {
    if (type == IpcTypeNetWorkerError) {
        const auto* message = IpcView<IpcNetWorkerError>(m_buffer, bytesRead);
        if (message == nullptr) {
            return false;
        }
        const uint32_t answer =
            error != nullptr
                ? AskHost(method, type, [&] { return error->NetWorkerError(message->code); })
                : 0;
        SendToHelper(IpcBuildNetWorkerErrorResponse(answer));
        return true;
    }
    const auto* message = IpcView<IpcAllocationError>(m_buffer, bytesRead);
    if (message == nullptr) {
        return false;
    }
    NetWorkerAllocationInfo info{};
    info.reason = message->reason;
    info.itemsFound = message->itemsFound;
    info.catalogueSize = message->catalogueSize;
    info.catalogueCapacity = message->catalogueCapacity;
    const uint32_t answer =
        error != nullptr ? AskHost(method, type, [&] { return error->AllocationError(&info); }) : 0;
    SendToHelper(IpcBuildAllocationErrorResponse(answer));
    return true;
}

int32_t NetWorkerNamedPipeExecutor::Initialize(const char* clientName, const char* serverName) {
    static constexpr wchar_t kMethod[] = L"NetWorkerNamedPipeExecutor::Initialize";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    // Built before anything is opened or started: a name that does not fit is refused
    // rather than cut short.
    IpcBeginInitialize request{};
    try {
        request = IpcBuildBeginInitialize(clientName, serverName);
    } catch (const std::logic_error& refused) {
        return RefuseArgument(kMethod, refused);
    }

    try {
        m_connection->OpenNewPipe(m_pipeName.c_str());
    } catch (const PipeNameTakenError&) {
        // Only a hardened pipe refuses a taken name; the connection has said why.
        m_log.get()->Error(kMethod,
                           L"Another process already serves the pipe '%s'; the helper is not "
                           L"started. Error: %08lx.",
                           m_pipeName.c_str(), StatusBits(kStatusPipeNameTaken));
        return kStatusPipeNameTaken;
    }
    // The launcher's result is a 32-bit status, whatever the width of long.
    const int32_t launched =
        static_cast<int32_t>(CallHost([&] { return m_launchClient(m_pipeName.c_str()); }));
    if (launched < 0) {
        m_log.get()->Error(kMethod, L"Failed to create '%s' process. Error: %08lx.", kClientProgram,
                           StatusBits(launched));
        return launched;
    }
    m_connection->WaitForConnection();

    SendToHelper(request);

    uint32_t bytesRead = 0;
    if (!ReceiveReply(kMethod, &bytesRead)) {
        return kStatusPipeClosed;
    }
    if (const auto* reply = IpcView<IpcFinishInitialize>(m_buffer, bytesRead)) {
        return reply->result;
    }
    return UnexpectedReply(kMethod, IpcTypeFinishInitialize, IpcReceivedType(m_buffer, bytesRead));
}

int32_t NetWorkerNamedPipeExecutor::Catalog(const FILETIME* timeBefore, const FILETIME* timeAfter,
                                            INetWorkerFileFoundCallBack* fileFound,
                                            INetWorkerErrorCallBack* error) {
    static constexpr wchar_t kMethod[] = L"NetWorkerNamedPipeExecutor::Catalog";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    // Refused here, with the in-process executor's exception, rather than in the helper,
    // where the exception would end the helper's session.
    if (timeBefore != nullptr && timeAfter != nullptr &&
        FileTimeToTicks(*timeAfter) > FileTimeToTicks(*timeBefore)) {
        throw std::invalid_argument("timeAfter cannot be later than timeBefore");
    }
    SendToHelper(IpcBuildBeginCatalog(timeBefore, timeAfter));

    for (;;) {
        uint32_t bytesRead = 0;
        if (!ReceiveReply(kMethod, &bytesRead)) {
            return kStatusPipeClosed;
        }
        const uint32_t type = IpcReceivedType(m_buffer, bytesRead);
        if (const auto* found = IpcView<IpcFileFound>(m_buffer, bytesRead)) {
            NetWorkerFileInfo info{};
            info.index = found->index;
            // A time the conversion refuses leaves the record zero, as Windows' own does.
            info.backupTime = SYSTEMTIME{};
            CivilFileTimeToSystemTime(TicksToFileTime(found->backupTime), &info.backupTime);
            // Points into the receive buffer: valid only during the callback.
            info.path = found->path;
            info.size = found->size;
            info.restoreOrder = found->restoreOrder;
            const bool stop = fileFound != nullptr && AskHost(kMethod, type, [&] {
                                  return fileFound->NetWorkerFileFound(&info);
                              });
            SendToHelper(IpcBuildShouldCancel(CancelResponse(stop)));
        } else if (const auto* finish = IpcView<IpcFinishCatalog>(m_buffer, bytesRead)) {
            return finish->result;
        } else if ((type == IpcTypeNetWorkerError || type == IpcTypeAllocationError) &&
                   AnswerErrorCallback(kMethod, type, bytesRead, error)) {
            continue;
        } else {
            return InvalidMessageType(kMethod);
        }
    }
}

int32_t NetWorkerNamedPipeExecutor::GetFileSize(uint32_t index, bool correctSize, uint64_t* size) {
    static constexpr wchar_t kMethod[] = L"NetWorkerNamedPipeExecutor::GetFileSize";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    SendToHelper(IpcBuildBeginGetFileSize(index, correctSize));

    uint32_t bytesRead = 0;
    if (!ReceiveReply(kMethod, &bytesRead)) {
        return kStatusPipeClosed;
    }
    if (const auto* reply = IpcView<IpcFinishGetFileSize>(m_buffer, bytesRead)) {
        *size = reply->size;
        return 0;
    }
    return UnexpectedReply(kMethod, IpcTypeFinishGetFileSize, IpcReceivedType(m_buffer, bytesRead));
}

template <typename Request, typename Reply>
int32_t NetWorkerNamedPipeExecutor::StatusConversation(const wchar_t* method) {
    SendToHelper(IpcMakeMessage<Request>());
    uint32_t bytesRead = 0;
    if (!ReceiveReply(method, &bytesRead)) {
        return kStatusPipeClosed;
    }
    if (const auto* reply = IpcView<Reply>(m_buffer, bytesRead)) {
        return reply->result;
    }
    return UnexpectedReply(method, Reply::kType, IpcReceivedType(m_buffer, bytesRead));
}

int32_t NetWorkerNamedPipeExecutor::BeginExtract() {
    static constexpr wchar_t kMethod[] = L"NetWorkerNamedPipeExecutor::BeginExtract";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    return StatusConversation<IpcBeginExtract, IpcFinishBeginExtract>(kMethod);
}

int32_t NetWorkerNamedPipeExecutor::ExtractFile(uint32_t index, const wchar_t* directory,
                                                const wchar_t* fileName,
                                                INetWorkerUpdateProgressCallBack* progress,
                                                INetWorkerErrorCallBack* error) {
    static constexpr wchar_t kMethod[] = L"NetWorkerNamedPipeExecutor::ExtractFile";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    IpcBeginExtractFile request{};
    try {
        request = IpcBuildBeginExtractFile(index, directory, fileName);
    } catch (const std::logic_error& refused) {
        return RefuseArgument(kMethod, refused);
    }
    SendToHelper(request);

    for (;;) {
        uint32_t bytesRead = 0;
        if (!ReceiveReply(kMethod, &bytesRead)) {
            return kStatusPipeClosed;
        }
        const uint32_t type = IpcReceivedType(m_buffer, bytesRead);
        if (const auto* finish = IpcView<IpcFinishExtractFile>(m_buffer, bytesRead)) {
            return finish->result;
        } else if (const auto* update = IpcView<IpcUpdateProgress>(m_buffer, bytesRead)) {
            NetWorkerProgressInfo info{};
            info.state = update->state;
            info.bytesDone = update->bytesDone;
            const bool cancel = progress != nullptr && AskHost(kMethod, type, [&] {
                                    return progress->UpdateProgress(&info);
                                });
            SendToHelper(IpcBuildShouldCancel(CancelResponse(cancel)));
        } else if ((type == IpcTypeNetWorkerError || type == IpcTypeAllocationError) &&
                   AnswerErrorCallback(kMethod, type, bytesRead, error)) {
            continue;
        } else if (type == IpcTypeUpdateProgress || type == IpcTypeNetWorkerError ||
                   type == IpcTypeAllocationError) {
            // A question of the wrong size: the helper waits for an answer all the same. It
            // is refused without asking the host, so both sides stay in step and the helper
            // ends the extraction as cancelled.
            InvalidMessageType(kMethod);
            SendRefusal(type);
        } else {
            // Unlike Catalog, an unknown message does not end the extraction: it is logged
            // and the next message is awaited (kept on purpose: docs/compatibility.md,
            // "lenient extraction").
            InvalidMessageType(kMethod);
        }
    }
}

int32_t NetWorkerNamedPipeExecutor::EndExtract() {
    static constexpr wchar_t kMethod[] = L"NetWorkerNamedPipeExecutor::EndExtract";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    return StatusConversation<IpcEndExtract, IpcFinishEndExtract>(kMethod);
}

int32_t NetWorkerNamedPipeExecutor::Quit() {
    // Nothing crosses the pipe: the helper ends when the host frees the connection.
    NWX_TRACE_METHOD(m_log.get(), L"NetWorkerNamedPipeExecutor::Quit", MethodEndOnUnwind::Skip);
    return 0;
}
