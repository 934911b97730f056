#include "ExtractHandler.h"

#include <cstring>
#include <stdexcept>
#include <string>

#include "common/MethodTracer.h"
#include "interfaces/NetWorkerStatus.h"
#include "pipe/PipeMessageBuilders.h"
#include "pipe/WireStrings.h"

namespace {

// A field that fills all its units has no terminator; the executor would read past it.
bool IsTerminated(const void* field) {
    return WideFieldLength(field, kIpcWideFieldSize) < kIpcWideFieldSize;
}

}  // namespace

ExtractHandler::ExtractHandler(INamedPipeConnection* connection, INetWorkerExecutor* executor,
                               ILog* log)
    : m_connection(connection), m_executor(executor), m_log(log), m_answer{} {
    RequireServiceParts("ExtractHandler", connection, executor, log);
    NWX_TRACE_METHOD(m_log, L"ExtractHandler::ExtractHandler");
}

ExtractHandler::~ExtractHandler() {
    NWX_TRACE_METHOD(m_log, L"ExtractHandler::~ExtractHandler");
}

bool ExtractHandler::HandleBeginExtract(const IpcBeginExtract& /*request*/) {
    NWX_TRACE_METHOD(m_log, L"ExtractHandler::HandleBeginExtract");
    const int32_t status = m_executor->BeginExtract();
    IpcSend(*m_connection, IpcBuildStatusReply<IpcFinishBeginExtract>(status));
    return false;
}

bool ExtractHandler::HandleExtractFile(const IpcBeginExtractFile& request) {
    static constexpr wchar_t kMethod[] = L"ExtractHandler::HandleExtractFile";
    NWX_TRACE_METHOD(m_log, kMethod);
    const void* directory = IpcDirectoryField(request);
    const void* fileName = IpcFileNameField(request);
    if (!IsTerminated(directory) || !IsTerminated(fileName)) {
        // Refused unserved: the host's extraction ends with E_INVALIDARG, the session goes on.
        m_log->Error(
            kMethod, L"IpcBeginExtractFile %s has no terminator. Error: %08lx.",
            IsTerminated(directory) ? L"fileName" : L"directory",
            static_cast<unsigned long>(static_cast<uint32_t>(NetWorkerStatus::InvalidArgument)));
        IpcSend(*m_connection,
                IpcBuildStatusReply<IpcFinishExtractFile>(NetWorkerStatus::InvalidArgument));
        return false;
    }
    int32_t status = 0;
#ifdef _WIN32
    // wchar_t is UTF-16 here: the fields are passed in place; the request stays in the
    // service's receive buffer for the whole call, answers go to this handler's buffer.
    status = m_executor->ExtractFile(request.index, static_cast<const wchar_t*>(directory),
                                     static_cast<const wchar_t*>(fileName), this, this);
#else
    const std::wstring directoryText = WideFieldToString(directory, kIpcWideFieldSize);
    const std::wstring fileNameText = WideFieldToString(fileName, kIpcWideFieldSize);
    status = m_executor->ExtractFile(request.index, directoryText.c_str(), fileNameText.c_str(),
                                     this, this);
#endif
    IpcSend(*m_connection, IpcBuildStatusReply<IpcFinishExtractFile>(status));
    return false;
}

bool ExtractHandler::HandleEndExtract(const IpcEndExtract& /*request*/) {
    NWX_TRACE_METHOD(m_log, L"ExtractHandler::HandleEndExtract");
    const int32_t status = m_executor->EndExtract();
    IpcSend(*m_connection, IpcBuildStatusReply<IpcFinishEndExtract>(status));
    return false;
}

bool ExtractHandler::UpdateProgress(NetWorkerProgressInfo* progress) {
    static constexpr wchar_t kMethod[] = L"ExtractHandler::UpdateProgress";
    NWX_TRACE_METHOD(m_log, kMethod);
    RequireArgument(progress, "UpdateProgress needs a progress record");
    IpcSend(*m_connection, IpcBuildUpdateProgress(*progress));
    const uint32_t received = ReceiveHostAnswer(*m_connection, m_answer);
    return JudgeStopAnswer(m_answer, received, m_log, kMethod);
}

uint32_t ExtractHandler::NetWorkerError(uint32_t code) {
    IpcSend(*m_connection, IpcBuildNetWorkerError(code));
    const uint32_t received = ReceiveHostAnswer(*m_connection, m_answer);
    // An answer it cannot read cancels: 0 would keep a file without its last block.
    return JudgeValueAnswer<IpcNetWorkerErrorResponse>(
        m_answer, received, m_log, L"ExtractHandler::NetWorkerError", NetWorkerWinError::Cancelled);
}

uint32_t ExtractHandler::AllocationError(const NetWorkerAllocationInfo* info) {
    RequireArgument(info, "AllocationError needs an allocation record");
    IpcSend(*m_connection, IpcBuildAllocationError(*info));
    const uint32_t received = ReceiveHostAnswer(*m_connection, m_answer);
    return JudgeValueAnswer<IpcAllocationErrorResponse>(m_answer, received, m_log,
                                                        L"ExtractHandler::AllocationError");
}
