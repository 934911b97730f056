#include "CatalogHandler.h"

#include <cstring>
#include <stdexcept>

#include "common/CivilTime.h"
#include "common/MethodTracer.h"
#include "pipe/PipeMessageBuilders.h"

CatalogHandler::CatalogHandler(INamedPipeConnection* connection, INetWorkerExecutor* executor,
                               ILog* log)
    : m_connection(connection), m_executor(executor), m_log(log), m_answer{} {
    RequireServiceParts("CatalogHandler", connection, executor, log);
    NWX_TRACE_METHOD(m_log, L"CatalogHandler::CatalogHandler");
}

CatalogHandler::~CatalogHandler() {
    NWX_TRACE_METHOD(m_log, L"CatalogHandler::~CatalogHandler");
}

bool CatalogHandler::HandleTransaction(const IpcBeginCatalog& request) {
    static constexpr wchar_t kMethod[] = L"CatalogHandler::HandleTransaction";
    NWX_TRACE_METHOD(m_log, kMethod);
    // 0 stands for an absent bound, as the host writes it for a null pointer; a bound of
    // exactly 0 therefore cannot be sent.
    const FILETIME before = TicksToFileTime(request.timeBefore);
    const FILETIME after = TicksToFileTime(request.timeAfter);
    const FILETIME* timeBefore = request.timeBefore != 0 ? &before : nullptr;
    const FILETIME* timeAfter = request.timeAfter != 0 ? &after : nullptr;
    const int32_t status = m_executor->Catalog(timeBefore, timeAfter, this, this);
    m_log->Debug(kMethod, L"Finished cataloging...sending IpcFinishCatalog");
    IpcSend(*m_connection, IpcBuildStatusReply<IpcFinishCatalog>(status));
    return false;
}

bool CatalogHandler::NetWorkerFileFound(const NetWorkerFileInfo* file) {
    static constexpr wchar_t kMethod[] = L"CatalogHandler::NetWorkerFileFound";
    NWX_TRACE_METHOD(m_log, kMethod);
    RequireArgument(file, "NetWorkerFileFound needs a file record");
    m_log->Debug(kMethod, L"Cataloging file index %lu, path: %S",
                 static_cast<unsigned long>(file->index), file->path);
    IpcSend(*m_connection, IpcBuildFileFound(*file));
    const uint32_t received = ReceiveHostAnswer(*m_connection, m_answer);
    return JudgeStopAnswer(m_answer, received, m_log, kMethod);
}

uint32_t CatalogHandler::NetWorkerError(uint32_t code) {
    static constexpr wchar_t kMethod[] = L"CatalogHandler::NetWorkerError";
    NWX_TRACE_METHOD(m_log, kMethod);
    IpcSend(*m_connection, IpcBuildNetWorkerError(code));
    const uint32_t received = ReceiveHostAnswer(*m_connection, m_answer);
    return JudgeValueAnswer<IpcNetWorkerErrorResponse>(m_answer, received, m_log, kMethod);
}

uint32_t CatalogHandler::AllocationError(const NetWorkerAllocationInfo* info) {
    static constexpr wchar_t kMethod[] = L"CatalogHandler::AllocationError";
    NWX_TRACE_METHOD(m_log, kMethod);
    RequireArgument(info, "AllocationError needs an allocation record");
    IpcSend(*m_connection, IpcBuildAllocationError(*info));
    const uint32_t received = ReceiveHostAnswer(*m_connection, m_answer);
    return JudgeValueAnswer<IpcAllocationErrorResponse>(m_answer, received, m_log, kMethod);
}
