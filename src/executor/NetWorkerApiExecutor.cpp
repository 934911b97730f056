#include "NetWorkerApiExecutor.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "ExchangeObjectRules.h"
#include "ExecutorSystem.h"
#include "ExtractionPaths.h"
#include "common/LastError.h"
#include "common/MethodTracer.h"
#include "common/ScopeExit.h"
#include "common/TarnError.h"
#include "common/UniqueHandle.h"
#include "interfaces/NetWorkerStatus.h"

namespace {

// BSAInit takes the environment as char**; these two entries are never written to.
char g_debugLevelEntry[] = "NSR_DEBUG_LEVEL=0";
char g_noBusyErrorsEntry[] = "NSR_NO_BUSY_ERRORS=TRUE";

constexpr char kClientPrefix[] = "NSR_CLIENT=";
constexpr char kServerPrefix[] = "NSR_SERVER=";
constexpr wchar_t kCancelledMessage[] = L"User Canceled the extraction process";

// The server's end-of-data code; the block that comes with it still carries data.
constexpr int32_t kNoMoreData = BSA_RC_NO_MORE_DATA;

// A host that passes no error callback hears nothing; a disk-full question then counts as
// answered with 0, which cancels the extraction.
uint32_t ReportError(INetWorkerErrorCallBack* error, uint32_t code) {
    return error != nullptr ? error->NetWorkerError(code) : 0;
}

void ReportAllocation(INetWorkerErrorCallBack* error, const NetWorkerAllocationInfo& info) {
    if (error != nullptr) {
        error->AllocationError(&info);
    }
}

// Copies a name of at most kNameCapacity - 1 characters; false for null or longer names.
bool CopyName(const char* name, char (&target)[NetWorkerApiExecutor::kNameCapacity]) {
    if (name == nullptr) {
        return false;
    }
    const size_t length = strnlen(name, NetWorkerApiExecutor::kNameCapacity);
    if (length >= NetWorkerApiExecutor::kNameCapacity) {
        return false;
    }
    std::memcpy(target, name, length);
    target[length] = '\0';
    return true;
}

std::unique_ptr<char[]> MakeEnvironmentEntry(const char* prefix, const char* value) {
    const size_t size = std::strlen(prefix) + 256;
    std::unique_ptr<char[]> entry(new char[size]);
    std::snprintf(entry.get(), size, "%s%s", prefix, value);
    return entry;
}

}  // namespace

NetWorkerApiExecutor::NetWorkerApiExecutor(INetWorkerApiWrapper* wrapper, ExecutorSeams seams)
    : m_wrapper(wrapper),
      m_serverName{},
      m_clientName{},
      m_progress{},
      m_environment{},
      m_handle(0),
      m_cancel(false),
      m_inGetObject(false),
      m_quitDuringGetObject(false),
      m_memory(seams.memory != nullptr ? *seams.memory : m_stringPool),
      m_system(seams.system != nullptr ? *seams.system : KernelExecutorSystem()),
      m_logger(OwnedLogger::AcquireOrThrow(L"NetWorkerApiExecutor")),
      m_log(m_logger.Get()) {}

NetWorkerApiExecutor::~NetWorkerApiExecutor() {
    ClearM_smVecObjects(m_log, m_memory, m_smVecObjects);
}

int32_t NetWorkerApiExecutor::Initialize(const char* clientName, const char* serverName) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::Initialize";
    NWX_TRACE_METHOD(m_log, kMethod);
    try {
        const int32_t status = m_wrapper->Initialize();
        if (status != 0) {
            RaiseTarnError(m_log, status, kMethod, L"Initialize failure");
        }
        m_cancel.store(false, std::memory_order_relaxed);
        m_inGetObject.store(false, std::memory_order_relaxed);
        m_quitDuringGetObject.store(false, std::memory_order_relaxed);

        // Names must leave room for the terminator in the 255-character buffers.
        if (!CopyName(serverName, m_serverName)) {
            RaiseTarnError(m_log, NetWorkerStatus::InvalidArgument, kMethod,
                           L"Server name missing or longer than 254 characters");
        }
        if (!CopyName(clientName, m_clientName)) {
            RaiseTarnError(m_log, NetWorkerStatus::InvalidArgument, kMethod,
                           L"Client name missing or longer than 254 characters");
        }

        // The version is only reported; no version is refused.
        BSA_ApiVersion version{};
        m_wrapper->BSAQueryApiVersion(&version);
        m_log->Info(kMethod, L"Networker API Issue %d Version %d level %d\n",
                    static_cast<int>(version.issue), static_cast<int>(version.version),
                    static_cast<int>(version.level));

        m_handle = 0;
        BSA_SecurityToken token{};
        BSA_ObjectOwner owner{};
        std::strcpy(owner.bsa_ObjectOwner, "MSEXCH");
        std::strcpy(owner.app_ObjectOwner, "msexch");

        m_clientEntry = MakeEnvironmentEntry(kClientPrefix, m_clientName);
        m_serverEntry = MakeEnvironmentEntry(kServerPrefix, m_serverName);
        m_environment[0] = m_clientEntry.get();
        m_environment[1] = g_debugLevelEntry;
        m_environment[2] = m_serverEntry.get();
        m_environment[3] = g_noBusyErrorsEntry;
        m_environment[4] = nullptr;

        // Every BSAInit failure reaches the host as the same status; hosts test for it.
        if (m_wrapper->BSAInit(&m_handle, &token, &owner, m_environment) != 0) {
            RaiseTarnError(m_log, NetWorkerStatus::BadEnvironment, kMethod, L"BSAInit Failed");
        }
        if (Cancelled()) {
            RaiseTarnError(m_log, NetWorkerStatus::Cancelled, kMethod, kCancelledMessage);
        }
        // The session is never terminated explicitly (no BSATerminate), as hosts expect.
        return status;
    } catch (TarnError error) {
        return error.code;
    }
}

int32_t NetWorkerApiExecutor::Quit() {
    NWX_TRACE_METHOD(m_log, L"NetWorkerApiExecutor::Quit");
    int32_t result = NetWorkerStatus::Success;
    // Only the first Quit during one BSAGetObject is told that it interrupted the transfer.
    if (!m_quitDuringGetObject.load(std::memory_order_relaxed) &&
        m_inGetObject.load(std::memory_order_relaxed)) {
        m_inGetObject.store(false, std::memory_order_relaxed);
        m_quitDuringGetObject.store(true, std::memory_order_relaxed);
        result = NetWorkerStatus::QuitDuringGetObject;
    }
    SetCancelled(true);
    return result;
}

bool NetWorkerApiExecutor::FireFileFoundEvent(INetWorkerFileFoundCallBack* fileFound,
                                              const std::tm& createTime, uint64_t size,
                                              uint32_t index, BSA_UInt64 restoreOrder,
                                              const char* path) {
    NWX_TRACE_METHOD(m_log, L"NetWorkerApiExecutor::FireFileFoundEvent");
    NetWorkerFileInfo info{};
    info.index = index;
    info.backupTime = BackupTimeOf(createTime);
    info.path = path;
    info.size = size;
    info.restoreOrder = JoinUInt64(restoreOrder);
    return fileFound->NetWorkerFileFound(&info);
}

int32_t NetWorkerApiExecutor::Catalog(const FILETIME* timeBefore, const FILETIME* timeAfter,
                                      INetWorkerFileFoundCallBack* fileFound,
                                      INetWorkerErrorCallBack* error) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::Catalog";
    NWX_TRACE_METHOD(m_log, kMethod);

    // Restart from index 0 in the same storage. The previous entries' strings are not freed:
    // hosts keep the path pointers of earlier catalogues, so they must stay valid.
    m_smVecObjects.clear();
    uint32_t accepted = 0;
    // Ended on every way out: after the failures reported below, and also when a host's
    // callback throws or the time window is refused; that exception then goes on unchanged.
    ScopeExit endTransaction([this] { m_wrapper->BSAEndTxn(m_handle); });
    try {
        int32_t rc = m_wrapper->BSABeginTxn(m_handle);
        int32_t status = BSAError2HResult(rc, m_log);
        if (status < 0) {
            ReportError(error, NwErrorBeginTxn);
            RaiseTarnError(m_log, status, kMethod, L"BSABeginTxn failed");
        }
        if (Cancelled()) {
            RaiseTarnError(m_log, NetWorkerStatus::Cancelled, kMethod, kCancelledMessage);
        }

        BSA_QueryDescriptor query = ExchangeQueryDescriptor();
        BSA_ObjectDescriptor descriptor{};
        rc = m_wrapper->BSAQueryObject(m_handle, &query, &descriptor);
        status = BSAError2HResult(rc, m_log);
        if (status < 0) {
            ReportError(error,
                        rc == BSA_RC_AUTHENTICATION_FAILURE ? NwErrorQueryAccess : NwErrorQuery);
            RaiseTarnError(m_log, status, kMethod, L"BSAQueryObject failed");
        }
        if (status == NetWorkerStatus::NoMatch) {
            RaiseTarnError(m_log, NetWorkerStatus::NoMatch, kMethod, L"No Exchange Objects");
        }

        for (;;) {
            // Checked on every pass, accepted or not: the catalogue grows 10240 entries at a time.
            if (accepted % kCatalogueGrowth == 0) {
                try {
                    m_memory.Reserve(m_smVecObjects, accepted + kCatalogueGrowth);
                } catch (const std::bad_alloc&) {
                    NetWorkerAllocationInfo info{};
                    info.reason = AllocationReasonCatalogueGrowth;
                    info.itemsFound = accepted;
                    info.catalogueSize = m_smVecObjects.size();
                    info.catalogueCapacity = m_smVecObjects.capacity();
                    ReportAllocation(error, info);
                    break;
                }
            }
            if (PassesTimeWindow(descriptor.createTime, timeBefore, timeAfter) &&
                IsExchangeFile(descriptor)) {
                CatalogueEntry entry;
                if (LoadSmVecObjects(m_log, m_memory, descriptor, &entry) == 0) {
                    NetWorkerAllocationInfo info{};
                    info.reason = AllocationReasonEntryStrings;
                    info.itemsFound = accepted;
                    ReportAllocation(error, info);
                    break;
                }
                m_smVecObjects.push_back(entry);  // room was reserved above: cannot throw
                const uint64_t size = AnnouncedSize(entry.pathName, descriptor.size);
                if (fileFound != nullptr) {
                    // A false answer also clears a Quit that arrived meanwhile; hosts rely on
                    // their answer being the one that counts.
                    SetCancelled(FireFileFoundEvent(fileFound, descriptor.createTime, size,
                                                    accepted, descriptor.restoreOrder,
                                                    m_smVecObjects.back().pathName));
                }
                ++accepted;
            }
            rc = m_wrapper->BSAGetNextQueryObject(m_handle, &descriptor);
            status = BSAError2HResult(rc, m_log);
            if (status < 0) {
                ReportError(error, NwErrorQuery);
                RaiseTarnError(m_log, status, kMethod, L"BSAGetNextQueryObject failed");
            }
            if (rc == kNoMoreData || Cancelled()) {
                break;
            }
        }
    } catch (TarnError) {
        // Reported through the log and the error callback; the catalogue so far stays.
    }
    endTransaction.RunNow();
    m_log->Info(kMethod, L"Found %u items. m_smVecObjects  size = %u, capacity = %u.\n",
                static_cast<unsigned>(accepted), static_cast<unsigned>(m_smVecObjects.size()),
                static_cast<unsigned>(m_smVecObjects.capacity()));
    // Failures reach the host through the error callback; the status is 0 regardless, as
    // hosts expect.
    return NetWorkerStatus::Success;
}

int32_t NetWorkerApiExecutor::GetFileSize(uint32_t index, bool correctSize, uint64_t* size) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::GetFileSize";
    NWX_TRACE_METHOD(m_log, kMethod);
    try {
        if (size == nullptr) {
            RaiseTarnError(m_log, NetWorkerStatus::InvalidArgument, kMethod, L"Null size");
        }
        *size = 0;
        if (index >= m_smVecObjects.size()) {
            RaiseTarnError(m_log, NetWorkerStatus::InvalidArgument, kMethod,
                           L"Catalogue index %u out of range (%u entries)",
                           static_cast<unsigned>(index),
                           static_cast<unsigned>(m_smVecObjects.size()));
        }
    } catch (TarnError error) {
        return error.code;
    }

    BSA_ObjectDescriptor descriptor{};
    const CatalogueEntry entry = m_smVecObjects[index];
    LoadLrgVecObjects(m_log, entry, &descriptor);

    uint64_t corrected = 0;
    int32_t status = NetWorkerStatus::Success;
    if (correctSize) {
        status = m_wrapper->CorrectFileSize(&descriptor, &corrected, m_serverName, m_clientName);
    }
    // Without a correction only the low 32 bits of the catalogue's size are trusted; hosts
    // depend on this value (the announcement itself uses all 64 bits).
    *size = corrected != 0 ? corrected : descriptor.size.right;
    return status;
}

int32_t NetWorkerApiExecutor::BeginExtract() {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::BeginExtract";
    NWX_TRACE_METHOD(m_log, kMethod);
    m_inGetObject.store(false, std::memory_order_relaxed);
    m_quitDuringGetObject.store(false, std::memory_order_relaxed);
    try {
        const int32_t status = BSAError2HResult(m_wrapper->BSABeginTxn(m_handle), m_log);
        if (status < 0) {
            RaiseTarnError(m_log, status, kMethod, L"BSABeginTxn failed");
        }
        return status;
    } catch (TarnError error) {
        return error.code;
    }
}

int32_t NetWorkerApiExecutor::EndExtract() {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::EndExtract";
    NWX_TRACE_METHOD(m_log, kMethod);
    try {
        const int32_t status = BSAError2HResult(m_wrapper->BSAEndTxn(m_handle), m_log);
        if (status < 0) {
            RaiseTarnError(m_log, status, kMethod, L"BSAEndTxn failed");
        }
        return status;
    } catch (TarnError error) {
        return error.code;
    }
}

int32_t NetWorkerApiExecutor::WriteBlock(HANDLE file, const uint8_t* data, uint32_t size,
                                         int32_t status, INetWorkerErrorCallBack* error,
                                         uint32_t* written) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::ExtractFile";
    *written = 0;
    // A short write goes on with the rest, so a block is never half-kept.
    while (*written < size) {
        uint32_t done = 0;
        if (m_system.WriteFile(file, data + *written, size - *written, &done)) {
            *written += done;
            if (done == 0) {
                RaiseTarnError(m_log, NetWorkerStatus::Fail, kMethod, L"WriteFile Failed");
            }
            continue;
        }
        if (ReadLastError() != NetWorkerWinError::DiskFull) {
            RaiseTarnError(m_log, NetWorkerStatus::Fail, kMethod, L"WriteFile Failed");
        }
        // The host may free space and answer 1246 to retry; its answer becomes the block's
        // status, so a successful retry on the last block returns 1246 (hosts check for it).
        status = static_cast<int32_t>(ReportError(error, NwErrorDiskFull));
        if (status != static_cast<int32_t>(NetWorkerWinError::Continue)) {
            SetCancelled(true);
            break;
        }
    }
    return status;
}

int32_t NetWorkerApiExecutor::ExtractFile(uint32_t index, const wchar_t* directory,
                                          const wchar_t* fileName,
                                          INetWorkerUpdateProgressCallBack* progress,
                                          INetWorkerErrorCallBack* error) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::ExtractFile";
    NWX_TRACE_METHOD(m_log, kMethod);

    UniqueFileHandle file;
    bool fileAttempted = false;
    bool keepFile = false;  // decided only when the extraction ends with a status
    // Both run on every way out, in this order: the file is closed and, unless it was
    // extracted completely, deleted; then the object's data is ended, also when it was never
    // opened. An exception of any type (a host's callback that throws) still reaches the caller.
    ScopeExit endData([this] {
        const int32_t endStatus = BSAError2HResult(m_wrapper->BSAEndData(m_handle), m_log);
        if (endStatus < 0) {
            m_log->Error(kMethod, L"BSAEndData failed with error %08lx.\n",
                         static_cast<unsigned long>(static_cast<uint32_t>(endStatus)));
        }
    });
    ScopeExit removeIncompleteFile([&] {
        file.reset();
        if (fileAttempted && !keepFile) {
            DeleteExtractionFile(directory, fileName);
        }
    });

    std::unique_ptr<uint8_t[]> buffer(new uint8_t[kTransferBufferSize]);
    uint32_t bufferSize = kTransferBufferSize;
    bool completed = false;
    uint32_t pendingBytes = 0;
    int32_t status = NetWorkerStatus::Success;
    try {
        // Checked before the destination is touched, so a host's file of that name survives.
        if (index >= m_smVecObjects.size()) {
            RaiseTarnError(m_log, NetWorkerStatus::InvalidArgument, kMethod,
                           L"Catalogue index %u out of range (%u entries)",
                           static_cast<unsigned>(index),
                           static_cast<unsigned>(m_smVecObjects.size()));
        }
        fileAttempted = true;
        file.reset(CreateExtractionFile(directory, fileName));
        if (!file) {
            RaiseTarnError(m_log, NetWorkerStatus::Fail, kMethod, L"Could not Create File");
        }

        BSA_DataBlock32 block{};
        BSA_ObjectDescriptor descriptor{};
        const CatalogueEntry entry = m_smVecObjects[index];
        LoadLrgVecObjects(m_log, entry, &descriptor);

        m_inGetObject.store(true, std::memory_order_relaxed);
        const int32_t openRc = m_wrapper->BSAGetObject(m_handle, &descriptor, &block);
        m_inGetObject.store(false, std::memory_order_relaxed);
        status = BSAError2HResult(openRc, m_log);
        if (status < 0) {
            RaiseTarnError(m_log, status, kMethod, L"BSAGetObject failed");
        }

        // Lengths in the data block are used as 16-bit values: a buffer never exceeds 65535.
        const uint16_t wanted = static_cast<uint16_t>(block.bufferLen);
        if (wanted > kTransferBufferSize) {
            buffer.reset();
            buffer.reset(new uint8_t[wanted]);
            bufferSize = wanted;
        }

        uint32_t lastReport = 0;  // the first block is therefore reported at once
        if (progress != nullptr) {
            m_progress.state = 1;
            m_progress.bytesDone = 0;
            // This first answer also replaces a pending cancellation.
            SetCancelled(progress->UpdateProgress(&m_progress));
        }

        int32_t rc = 0;
        do {
            if (Cancelled()) {
                RaiseTarnError(m_log, NetWorkerStatus::Cancelled, kMethod, kCancelledMessage);
            }
            block.bufferLen = bufferSize;
            block.numBytes = bufferSize;
            block.bufferPtr = buffer.get();
            rc = m_wrapper->BSAGetData(m_handle, &block);
            status = BSAError2HResult(rc, m_log);
            if (status < 0) {
                RaiseTarnError(m_log, status, kMethod, L"BSAGetData failed");
            }
            const uint16_t delivered = static_cast<uint16_t>(block.numBytes);
            if (delivered > bufferSize) {
                RaiseTarnError(m_log, NetWorkerStatus::Fail, kMethod,
                               L"BSAGetData delivered more than the buffer holds");
            }
            uint32_t written = 0;
            status = WriteBlock(file.get(), buffer.get(), delivered, status, error, &written);

            if (progress != nullptr) {
                pendingBytes += written;
                const uint32_t now = m_system.TickCount();
                if (now - lastReport >= kProgressIntervalMs) {
                    lastReport = now;
                    m_progress.bytesDone = pendingBytes;
                    if (progress->UpdateProgress(&m_progress)) {
                        SetCancelled(true);
                    }
                    pendingBytes = 0;
                }
            }
        } while (status >= 0 && rc != kNoMoreData);
        completed = true;
    } catch (TarnError raised) {
        status = raised.code;
    }

    if (completed && progress != nullptr && pendingBytes != 0) {
        m_progress.bytesDone = pendingBytes;
        if (progress->UpdateProgress(&m_progress)) {
            SetCancelled(true);  // too late to change this file's result
        }
    }

    keepFile = !(status < 0 || status == NetWorkerStatus::Cancelled);
    removeIncompleteFile.RunNow();
    endData.RunNow();
    return status;
}

HANDLE NetWorkerApiExecutor::CreateExtractionFile(const wchar_t* directory,
                                                  const wchar_t* fileName) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::CreateExtractionFile";
    NWX_TRACE_METHOD(m_log, kMethod);
    const int32_t directoryStatus = RecursiveCreateDirectory(directory);
    if (directoryStatus != 0) {
        WriteLastError(static_cast<uint32_t>(directoryStatus));
        return INVALID_HANDLE_VALUE;
    }
    std::wstring path;
    if (!BuildDestinationPath(directory, fileName, &path)) {
        m_log->Error(kMethod, L"Unable to create file %s. GetLastError() = %#08lx.\n",
                     directory != nullptr ? directory : L"",
                     static_cast<unsigned long>(ERROR_FILENAME_EXCED_RANGE));
        WriteLastError(ERROR_FILENAME_EXCED_RANGE);
        return INVALID_HANDLE_VALUE;
    }
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                CREATE_ALWAYS, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const uint32_t lastError = ReadLastError();
        m_log->Error(kMethod, L"Unable to create file %s. GetLastError() = %#08lx.\n", path.c_str(),
                     static_cast<unsigned long>(lastError));
        WriteLastError(lastError != 0 ? lastError : NetWorkerWinError::WriteFault);
    }
    return file;
}

int32_t NetWorkerApiExecutor::DeleteExtractionFile(const wchar_t* directory,
                                                   const wchar_t* fileName) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::DeleteExtractionFile";
    NWX_TRACE_METHOD(m_log, kMethod);
    try {
        std::wstring path;
        if (!BuildDestinationPath(directory, fileName, &path)) {
            WriteLastError(ERROR_FILENAME_EXCED_RANGE);
            RaiseTarnError(m_log, ERROR_FILENAME_EXCED_RANGE, kMethod, L"DeleteFile failed\n");
        }
        if (!::DeleteFileW(path.c_str())) {
            const uint32_t lastError = ReadLastError();
            RaiseTarnError(
                m_log,
                static_cast<int32_t>(lastError != 0 ? lastError : NetWorkerWinError::WriteFault),
                kMethod, L"DeleteFile failed\n");
        }
    } catch (TarnError) {
        // Logged; the caller's result stands.
    }
    return 0;
}

int32_t NetWorkerApiExecutor::RecursiveCreateDirectory(const wchar_t* directory) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::RecursiveCreateDirectory";
    NWX_TRACE_METHOD(m_log, kMethod);
    if (directory == nullptr) {
        m_log->Error(kMethod, L"Null Path.\n");
        return NetWorkerStatus::InvalidArgument;
    }
    DirectoryPlan plan;
    const DirectoryPlanResult planned = PlanDirectoryCreation(directory, &plan);
    if (planned == DirectoryPlanResult::TooShort) {
        m_log->Error(kMethod, L"Path too short.\n");
        return NetWorkerStatus::Fail;
    }
    m_log->Info(kMethod, L"Path is %s.\n", directory);
    if (planned != DirectoryPlanResult::Ok) {
        m_log->Error(kMethod, L"Path not long enough.\n");
        return NetWorkerStatus::Fail;
    }

    std::wstring current = plan.root;
    for (const std::wstring& level : plan.levels) {
        const std::wstring target = current + level;
        if (!m_system.CreateDirectory(target.c_str())) {
            const uint32_t lastError = ReadLastError();
            if (lastError != ERROR_ALREADY_EXISTS) {
                m_log->Error(kMethod, L"Unable to create directory %#08lx.\n",
                             static_cast<unsigned long>(lastError));
                // A real failure still returns 0: it surfaces one step later as "Unable to
                // create file", which is the report hosts know.
                return lastError == 0 ? static_cast<int32_t>(NetWorkerWinError::WriteFault) : 0;
            }
        }
        current = target;
        current.push_back(L'\\');
    }
    return 0;
}
