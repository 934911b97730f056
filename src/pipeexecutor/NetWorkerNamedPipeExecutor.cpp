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

bool NetWorkerNamedPipeExecutor::ReceiveIntoBuffer() {
    std::memset(m_buffer, 0, sizeof m_buffer);
    uint32_t length = kIpcMaxMessageSize;
    const bool received = m_connection->Receive(m_buffer, &length);
    m_replyLength = received ? length : 0;
    return received;
}

bool NetWorkerNamedPipeExecutor::ReceiveReply(const wchar_t* method) {
    if (!ReceiveIntoBuffer()) {
        m_log.get()->Error(method,
                           L"Failed to receive correctly from the pipe. Other end of pipe "
                           L"disconnected while receiving message from pipe! Error: %08lx.",
                           StatusBits(kStatusPipeClosed));
        return false;
    }
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
        case IpcTypeUpdateProgress:
            // A stop ends only the operation it was answered in: the helper's next request is
            // served as if nothing had happened.
            SendToHelper(IpcBuildShouldCancel(eQuit));
            break;
        case IpcTypeNetWorkerError:
            // For a full disk this ends the extraction as cancelled and deletes its file, on the
            // last block too (0 would keep a file without that block).
            SendToHelper(IpcBuildNetWorkerErrorResponse(NetWorkerWinError::Cancelled));
            break;
        case IpcTypeAllocationError:
            SendToHelper(IpcBuildAllocationErrorResponse(0));
            break;
        default:
            break;
    }
}

void NetWorkerNamedPipeExecutor::AbandonConversation(uint32_t pendingType,
                                                     uint32_t finalType) noexcept {
    try {
        SendRefusal(pendingType);
        for (;;) {
            if (!ReceiveIntoBuffer()) {
                return;
            }
            const uint32_t type = IpcReceivedType(m_buffer, m_replyLength);
            if (type == finalType) {
                return;
            }
            if (IpcIsQuestion(type)) {
                SendRefusal(type);
            }
        }
    } catch (...) {
        // The pipe failed too: the session is lost, and the host's exception is what it sees.
    }
}

template <typename Ask>
auto NetWorkerNamedPipeExecutor::AskHost(uint32_t type, uint32_t finalType, Ask&& ask)
    -> decltype(ask()) {
    // Runs only if the host's callback does not come back: then the helper still waits.
    ScopeExit abandon([&] { AbandonConversation(type, finalType); });
    auto answer = CallHost(ask);
    abandon.Dismiss();
    return answer;
}

bool NetWorkerNamedPipeExecutor::AnswerErrorQuestion(uint32_t finalType, const Relay& relay) {
    INetWorkerErrorCallBack* error = relay.error;
    const uint32_t type = IpcReceivedType(m_buffer, m_replyLength);
    if (type == IpcTypeNetWorkerError) {
        const auto* message = IpcView<IpcNetWorkerError>(m_buffer, m_replyLength);
        if (message == nullptr) {
            return false;
        }
        const uint32_t answer =
            error != nullptr
                ? AskHost(type, finalType, [&] { return error->NetWorkerError(message->code); })
                : 0;
        SendToHelper(IpcBuildNetWorkerErrorResponse(answer));
        return true;
    }
    const auto* message = IpcView<IpcAllocationError>(m_buffer, m_replyLength);
    if (message == nullptr) {
        return false;
    }
    NetWorkerAllocationInfo info{};
    info.reason = message->reason;
    info.itemsFound = message->itemsFound;
    info.catalogueSize = message->catalogueSize;
    info.catalogueCapacity = message->catalogueCapacity;
    const uint32_t answer =
        error != nullptr ? AskHost(type, finalType, [&] { return error->AllocationError(&info); })
                         : 0;
    SendToHelper(IpcBuildAllocationErrorResponse(answer));
    return true;
}

bool NetWorkerNamedPipeExecutor::AnswerQuestion(uint32_t finalType, const Relay& relay) {
    const uint32_t type = IpcReceivedType(m_buffer, m_replyLength);
    if (relay.stopQuestion == 0) {
        return false;  // this operation relays no question at all
    }
    if (type == IpcTypeNetWorkerError || type == IpcTypeAllocationError) {
        return AnswerErrorQuestion(finalType, relay);
    }
    if (type != relay.stopQuestion) {
        return false;
    }
    bool stop = false;
    if (const auto* found = IpcView<IpcFileFound>(m_buffer, m_replyLength)) {
        NetWorkerFileInfo info{};
        info.index = found->index;
        // A time the conversion refuses leaves the record zero, as Windows' own does.
        info.backupTime = SYSTEMTIME{};
        CivilFileTimeToSystemTime(TicksToFileTime(found->backupTime), &info.backupTime);
        // Points into the receive buffer: valid only during the callback.
        info.path = found->path;
        info.size = found->size;
        info.restoreOrder = found->restoreOrder;
        INetWorkerFileFoundCallBack* fileFound = relay.fileFound;
        stop = fileFound != nullptr &&
               AskHost(type, finalType, [&] { return fileFound->NetWorkerFileFound(&info); });
    } else if (const auto* update = IpcView<IpcUpdateProgress>(m_buffer, m_replyLength)) {
        NetWorkerProgressInfo info{};
        info.state = update->state;
        info.bytesDone = update->bytesDone;
        INetWorkerUpdateProgressCallBack* progress = relay.progress;
        stop = progress != nullptr &&
               AskHost(type, finalType, [&] { return progress->UpdateProgress(&info); });
    } else {
        return false;  // the right kind, the wrong size
    }
    SendToHelper(IpcBuildShouldCancel(CancelResponse(stop)));
    return true;
}

NetWorkerNamedPipeExecutor::ConversationEnd NetWorkerNamedPipeExecutor::Converse(
    const wchar_t* method, uint32_t finalType, const Relay& relay, bool* confused) {
    // Catalog and ExtractFile report what they cannot use with their own line, the one-reply
    // operations with Initialize's.
    const auto logUnexpected = [&](uint32_t type) {
        if (relay.stopQuestion != 0) {
            InvalidMessageType(method);
        } else {
            UnexpectedReply(method, finalType, type);
        }
    };
    for (;;) {
        if (!ReceiveReply(method)) {
            return ConversationEnd::PipeClosed;
        }
        const uint32_t type = IpcReceivedType(m_buffer, m_replyLength);
        if (type == finalType) {
            // A final message that cannot be read still ends the operation.
            return IpcHasExactSize(m_buffer, m_replyLength) ? ConversationEnd::Final
                                                            : ConversationEnd::UnreadableFinal;
        }
        if (IpcIsQuestion(type)) {
            if (!AnswerQuestion(finalType, relay)) {
                // The helper waits for an answer all the same: it gets a refusal, unasked.
                logUnexpected(type);
                SendRefusal(type);
                *confused = true;
            }
            continue;
        }
        // Not a question and not the end: the helper is still inside the operation.
        logUnexpected(type);
        *confused = true;
    }
}

template <typename Final>
int32_t NetWorkerNamedPipeExecutor::RelayedStatus(const wchar_t* method, const Relay& relay,
                                                  bool failWhenConfused) {
    bool confused = false;
    switch (Converse(method, Final::kType, relay, &confused)) {
        case ConversationEnd::PipeClosed:
            return kStatusPipeClosed;
        case ConversationEnd::UnreadableFinal:
            return InvalidMessageType(method);
        case ConversationEnd::Final:
            break;
    }
    // Each message it could not use was logged as it came.
    return confused && failWhenConfused ? kStatusFail
                                        : IpcView<Final>(m_buffer, m_replyLength)->result;
}

template <typename Reply>
const Reply* NetWorkerNamedPipeExecutor::AwaitReply(const wchar_t* method, int32_t* failure) {
    bool confused = false;
    switch (Converse(method, Reply::kType, Relay{}, &confused)) {
        case ConversationEnd::PipeClosed:
            *failure = kStatusPipeClosed;
            return nullptr;
        case ConversationEnd::UnreadableFinal:
            *failure = UnexpectedReply(method, Reply::kType, Reply::kType);
            return nullptr;
        case ConversationEnd::Final:
            break;
    }
    if (confused) {
        *failure = kStatusFail;  // each message it could not use was logged as it came
        return nullptr;
    }
    return IpcView<Reply>(m_buffer, m_replyLength);
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

    int32_t failure = kStatusFail;
    const auto* reply = AwaitReply<IpcFinishInitialize>(kMethod, &failure);
    return reply != nullptr ? reply->result : failure;
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

    // A catalogue whose conversation held a message it could not use is a failed one.
    return RelayedStatus<IpcFinishCatalog>(
        kMethod, Relay{IpcTypeFileFound, fileFound, nullptr, error}, true);
}

int32_t NetWorkerNamedPipeExecutor::GetFileSize(uint32_t index, bool correctSize, uint64_t* size) {
    static constexpr wchar_t kMethod[] = L"NetWorkerNamedPipeExecutor::GetFileSize";
    NWX_TRACE_METHOD(m_log.get(), kMethod, MethodEndOnUnwind::Skip);
    SendToHelper(IpcBuildBeginGetFileSize(index, correctSize));

    int32_t failure = kStatusFail;
    const auto* reply = AwaitReply<IpcFinishGetFileSize>(kMethod, &failure);
    if (reply == nullptr) {
        return failure;
    }
    *size = reply->size;
    return 0;
}

template <typename Request, typename Reply>
int32_t NetWorkerNamedPipeExecutor::StatusConversation(const wchar_t* method) {
    SendToHelper(IpcMakeMessage<Request>());
    int32_t failure = kStatusFail;
    const auto* reply = AwaitReply<Reply>(method, &failure);
    return reply != nullptr ? reply->result : failure;
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

    // Unlike Catalog, a message it cannot use does not fail the extraction: it is logged and
    // the helper's status stands (kept on purpose: docs/compatibility.md, "lenient
    // extraction"). A question it cannot use was refused, which the helper ends as cancelled.
    return RelayedStatus<IpcFinishExtractFile>(
        kMethod, Relay{IpcTypeUpdateProgress, nullptr, progress, error}, false);
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
