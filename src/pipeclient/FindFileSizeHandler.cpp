#include "FindFileSizeHandler.h"

#include <stdexcept>

#include "HostAnswers.h"
#include "common/MethodTracer.h"
#include "pipe/PipeMessageBuilders.h"

FindFileSizeHandler::FindFileSizeHandler(INamedPipeConnection* connection,
                                         INetWorkerExecutor* executor, ILog* log)
    : m_connection(connection), m_executor(executor), m_log(log) {
    RequireServiceParts("FindFileSizeHandler", connection, executor, log);
    NWX_TRACE_METHOD(m_log, L"FindFileSizeHandler::FindFileSizeHandler");
}

FindFileSizeHandler::~FindFileSizeHandler() {
    NWX_TRACE_METHOD(m_log, L"FindFileSizeHandler::~FindFileSizeHandler");
}

bool FindFileSizeHandler::HandleFileSizeMessage(const IpcBeginGetFileSize& request) {
    static constexpr wchar_t kMethod[] = L"FindFileSizeHandler::HandleFileSizeMessage";
    NWX_TRACE_METHOD(m_log, kMethod);
    IpcFinishGetFileSize reply = IpcBuildFinishGetFileSize(0);
    uint64_t size = 0;
    // Any non-zero correctSize counts as true.
    const int32_t status = m_executor->GetFileSize(request.index, request.correctSize != 0, &size);
    if (status >= 0) {
        m_log->Info(kMethod, L"File size found: %I64u", static_cast<unsigned long long>(size));
        reply.size = size;
    }
    IpcSend(*m_connection, reply);
    return false;
}
