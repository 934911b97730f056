#include "NetWorkerApiExecutor.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "ExchangeObjectRules.h"
#include "ExecutorSystem.h"
#include "ExtractionPaths.h"
#include "PaddedXbsaRecord.h"
#include "common/HostCallGuard.h"
#include "common/LastError.h"
#include "common/MethodTracer.h"
#include "common/ScopeExit.h"
#include "common/TarnError.h"
#include "common/WinError.h"
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
    return error != nullptr ? CallHost([&] { return error->NetWorkerError(code); }) : 0;
}

void ReportAllocation(INetWorkerErrorCallBack* error, const NetWorkerAllocationInfo& info) {
    if (error != nullptr) {
        CallHost([&] { return error->AllocationError(&info); });
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

// The progress reports of one extracted file: the first at once with 0 bytes, then after a
// block when at least kProgressIntervalMs have passed since the last report, and a last one
// for what is still pending; each carries only the bytes written since the previous report.
// Without a progress callback it reports nothing and reads no clock.
class ProgressThrottle {
public:
    ProgressThrottle(INetWorkerUpdateProgressCallBack* progress, NetWorkerProgressInfo& record,
                     ExecutorSystem& system)
        : m_progress(progress), m_record(record), m_system(system) {}

    bool Active() const { return m_progress != nullptr; }

    // The host's answer to the first report (true: stop).
    bool Start() {
        m_record.state = 1;
        m_record.bytesDone = 0;
        return CallHost([&] { return m_progress->UpdateProgress(&m_record); });
    }

    // True when a report was due and the host answered stop.
    bool AfterBlock(uint32_t written) {
        if (!Active()) {
            return false;
        }
        m_pending += written;
        const uint32_t now = m_system.TickCount();
        // Unsigned difference: the tick count may wrap between two reports.
        if (now - m_lastReport < NetWorkerApiExecutor::kProgressIntervalMs) {
            return false;
        }
        m_lastReport = now;
        return Report();
    }

    // True when a last report was needed and the host answered stop.
    bool Finish() { return Active() && m_pending != 0 && Report(); }

private:
    bool Report() {
        m_record.bytesDone = m_pending;
        m_pending = 0;
        return CallHost([&] { return m_progress->UpdateProgress(&m_record); });
    }

    INetWorkerUpdateProgressCallBack* m_progress;
    NetWorkerProgressInfo& m_record;
    ExecutorSystem& m_system;
    uint32_t m_pending = 0;
    uint32_t m_lastReport = 0;  // so the first block is reported at once
};

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
      m_system(seams.system != nullptr ? *seams.system : DefaultExecutorSystem()),
      m_logger(AcquireLoggerOrThrow(L"NetWorkerApiExecutor")),
      m_log(m_logger.get()) {}

NetWorkerApiExecutor::~NetWorkerApiExecutor() {
    ClearM_smVecObjects(m_log, m_memory, m_smVecObjects);
}

int32_t NetWorkerApiExecutor::Initialize(const char* clientName, const char* serverName) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::Initialize";
    NWX_TRACE_METHOD(m_log, kMethod);
    return RunAsStatus([&] {
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
        if (TakeCancel()) {
            RaiseTarnError(m_log, NetWorkerStatus::Cancelled, kMethod, kCancelledMessage);
        }
        // No BSATerminate, ever (kept on purpose: docs/compatibility.md, "no BSATerminate").
        return status;
    });
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
    return CallHost([&] { return fileFound->NetWorkerFileFound(&info); });
}

int32_t NetWorkerApiExecutor::Catalog(const FILETIME* timeBefore, const FILETIME* timeAfter,
                                      INetWorkerFileFoundCallBack* fileFound,
                                      INetWorkerErrorCallBack* error) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::Catalog";
    NWX_TRACE_METHOD(m_log, kMethod);

    uint32_t accepted = 0;
    // Ended on every way out: after the failures reported below, and also when a host's
    // callback throws or the time window is refused; that exception then goes on unchanged.
    ScopeExit endTransaction([this] { m_wrapper->BSAEndTxn(m_handle); });
    // A failure raised inside was reported through the log and the error callback, and the
    // catalogue so far stays; the status is 0 regardless (kept on purpose: docs/compatibility.md,
    // "catalogue status 0").
    (void)RunAsStatus([&] {
        int32_t rc = m_wrapper->BSABeginTxn(m_handle);
        int32_t status = BSAError2HResult(rc, m_log);
        if (status < 0) {
            ReportError(error, NwErrorBeginTxn);
            RaiseTarnError(m_log, status, kMethod, L"BSABeginTxn failed");
        }
        // A Quit that came between operations ends this catalogue and is spent on it.
        if (TakeCancel()) {
            RaiseTarnError(m_log, NetWorkerStatus::Cancelled, kMethod, kCancelledMessage);
        }

        // The catalogue is replaced once the query runs: a catalogue that ended before it keeps
        // the previous one, whose indexes stay valid. It restarts at index 0 in the same storage;
        // the earlier entries' strings are not freed (kept on purpose: docs/compatibility.md,
        // "leaked catalogue strings").
        m_smVecObjects.clear();
        PaddedXbsaRecord<BSA_QueryDescriptor> query(ExchangeQueryDescriptor());
        PaddedXbsaRecord<BSA_ObjectDescriptor> paddedDescriptor;
        BSA_ObjectDescriptor& descriptor = *paddedDescriptor;
        rc = m_wrapper->BSAQueryObject(m_handle, query.get(), &descriptor);
        status = BSAError2HResult(rc, m_log);
        if (status < 0) {
            ReportError(error,
                        rc == BSA_RC_AUTHENTICATION_FAILURE ? NwErrorQueryAccess : NwErrorQuery);
            RaiseTarnError(m_log, status, kMethod, L"BSAQueryObject failed");
        }
        if (status == NetWorkerStatus::NoMatch) {
            RaiseTarnError(m_log, NetWorkerStatus::NoMatch, kMethod, L"No Exchange Objects");
        }

        bool stop = false;  // the host's answer: its stop ends this catalogue only
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
                CatalogueEntry entry{};
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
                    stop =
                        FireFileFoundEvent(fileFound, descriptor.createTime, size, accepted,
                                           descriptor.restoreOrder, m_smVecObjects.back().pathName);
                    // The answer also clears a Quit that arrived meanwhile (kept on purpose:
                    // docs/compatibility.md, "the host's answer wins").
                    SetCancelled(false);
                }
                ++accepted;
            }
            rc = m_wrapper->BSAGetNextQueryObject(m_handle, &descriptor);
            status = BSAError2HResult(rc, m_log);
            if (status < 0) {
                ReportError(error, NwErrorQuery);
                RaiseTarnError(m_log, status, kMethod, L"BSAGetNextQueryObject failed");
            }
            if (rc == kNoMoreData || stop || TakeCancel()) {
                break;
            }
        }
        return NetWorkerStatus::Success;
    });
    endTransaction.RunNow();
    m_log->Info(kMethod, L"Found %u items. m_smVecObjects  size = %u, capacity = %u.\n",
                static_cast<unsigned>(accepted), static_cast<unsigned>(m_smVecObjects.size()),
                static_cast<unsigned>(m_smVecObjects.capacity()));
    return NetWorkerStatus::Success;
}

int32_t NetWorkerApiExecutor::GetFileSize(uint32_t index, bool correctSize, uint64_t* size) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::GetFileSize";
    NWX_TRACE_METHOD(m_log, kMethod);
    const int32_t refused = RunAsStatus([&] {
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
        return NetWorkerStatus::Success;
    });
    if (refused != NetWorkerStatus::Success) {
        return refused;
    }

    PaddedXbsaRecord<BSA_ObjectDescriptor> descriptor;
    const CatalogueEntry entry = m_smVecObjects[index];
    LoadLrgVecObjects(m_log, entry, descriptor.get());

    uint64_t corrected = 0;
    int32_t status = NetWorkerStatus::Success;
    if (correctSize) {
        status =
            m_wrapper->CorrectFileSize(descriptor.get(), &corrected, m_serverName, m_clientName);
    }
    // Without a correction only the low 32 bits of the catalogue's size count (kept on
    // purpose: docs/compatibility.md, "low 32 bits").
    *size = corrected != 0 ? corrected : descriptor->size.right;
    return status;
}

int32_t NetWorkerApiExecutor::BeginExtract() {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::BeginExtract";
    NWX_TRACE_METHOD(m_log, kMethod);
    m_inGetObject.store(false, std::memory_order_relaxed);
    m_quitDuringGetObject.store(false, std::memory_order_relaxed);
    return RunAsStatus([&] {
        const int32_t status = BSAError2HResult(m_wrapper->BSABeginTxn(m_handle), m_log);
        if (status < 0) {
            RaiseTarnError(m_log, status, kMethod, L"BSABeginTxn failed");
        }
        return status;
    });
}

int32_t NetWorkerApiExecutor::EndExtract() {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::EndExtract";
    NWX_TRACE_METHOD(m_log, kMethod);
    return RunAsStatus([&] {
        const int32_t status = BSAError2HResult(m_wrapper->BSAEndTxn(m_handle), m_log);
        if (status < 0) {
            RaiseTarnError(m_log, status, kMethod, L"BSAEndTxn failed");
        }
        return status;
    });
}

int32_t NetWorkerApiExecutor::ExtractFile(uint32_t index, const wchar_t* directory,
                                          const wchar_t* fileName,
                                          INetWorkerUpdateProgressCallBack* progress,
                                          INetWorkerErrorCallBack* error) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::ExtractFile";
    NWX_TRACE_METHOD(m_log, kMethod);

    std::unique_ptr<ExecutorFile> file;  // set only once this call has created the file
    // Set once the transfer ends with a status that keeps the file; when an exception passes (a
    // host's callback that threw) after that, the file stays, as a "stop" answered at that point
    // would have left it.
    bool keepFile = false;
    // Both run on every way out, in this order: the file is closed and, if this call created it
    // and did not extract it completely, deleted; then the object's data is ended, also when it
    // was never opened. A file that this call did not create is never deleted: a failure before
    // the creation (a refused directory, a file locked by another program, a bad index) leaves
    // a host's file of that name as it was (docs/compatibility.md, "only a file it created").
    // An exception of any type (a host's callback that throws) still reaches the caller.
    ScopeExit endData([this] {
        const int32_t endStatus = BSAError2HResult(m_wrapper->BSAEndData(m_handle), m_log);
        if (endStatus < 0) {
            m_log->Error(kMethod, L"BSAEndData failed with error %08lx.\n",
                         static_cast<unsigned long>(static_cast<uint32_t>(endStatus)));
        }
    });
    ScopeExit removeIncompleteFile([&] {
        if (file == nullptr) {
            return;
        }
        file.reset();
        if (!keepFile) {
            DeleteExtractionFile(directory, fileName);
        }
    });

    const int32_t status = RunAsStatus([&] {
        if (index >= m_smVecObjects.size()) {
            RaiseTarnError(m_log, NetWorkerStatus::InvalidArgument, kMethod,
                           L"Catalogue index %u out of range (%u entries)",
                           static_cast<unsigned>(index),
                           static_cast<unsigned>(m_smVecObjects.size()));
        }
        file = CreateExtractionFile(directory, fileName);
        if (file == nullptr) {
            RaiseTarnError(m_log, NetWorkerStatus::Fail, kMethod, L"Could not Create File");
        }
        return CopyObjectToFile(index, *file, progress, error, &keepFile);
    });

    removeIncompleteFile.RunNow();
    endData.RunNow();
    return status;
}

uint32_t NetWorkerApiExecutor::OpenObject(uint32_t index, BSA_DataBlock32* block) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::ExtractFile";
    PaddedXbsaRecord<BSA_ObjectDescriptor> descriptor;
    const CatalogueEntry entry = m_smVecObjects[index];
    LoadLrgVecObjects(m_log, entry, descriptor.get());

    m_inGetObject.store(true, std::memory_order_relaxed);
    const int32_t rc = m_wrapper->BSAGetObject(m_handle, descriptor.get(), block);
    m_inGetObject.store(false, std::memory_order_relaxed);
    const int32_t status = BSAError2HResult(rc, m_log);
    if (status < 0) {
        RaiseTarnError(m_log, status, kMethod, L"BSAGetObject failed");
    }
    // Lengths in the data block are used as 16-bit values: a buffer never exceeds 65535.
    const uint16_t wanted = static_cast<uint16_t>(block->bufferLen);
    return wanted > kTransferBufferSize ? wanted : kTransferBufferSize;
}

int32_t NetWorkerApiExecutor::CopyObjectToFile(uint32_t index, ExecutorFile& file,
                                               INetWorkerUpdateProgressCallBack* progress,
                                               INetWorkerErrorCallBack* error, bool* keep) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::ExtractFile";
    PaddedXbsaRecord<BSA_DataBlock32> paddedBlock;
    BSA_DataBlock32& block = *paddedBlock;
    const uint32_t bufferSize = OpenObject(index, &block);
    std::unique_ptr<uint8_t[]> buffer(new uint8_t[bufferSize]);
    // Freed also when a Visual C++ exception from a progress callback passes this frame, whose
    // destructors it skips.
    ScopeExit freeBuffer([&buffer] { buffer.reset(); });

    ProgressThrottle reports(progress, m_progress, m_system);
    // This extraction's own stop (a progress answer, a refused disk-full retry): it ends this
    // file only. A Quit is spent by the check that sees it.
    bool stop = false;
    if (reports.Active()) {
        stop = reports.Start();
        // This first answer also replaces a pending Quit (kept on purpose:
        // docs/compatibility.md, "the host's answer wins").
        SetCancelled(false);
    }
    int32_t status = NetWorkerStatus::Success;
    int32_t rc = 0;
    do {
        if (stop || TakeCancel()) {
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
        status = WriteBlock(file, buffer.get(), delivered, status, error, &written, &stop);
        // The status of the block that ends the transfer decides the file: a stop answered to a
        // later report, or a failure there, comes too late to change that.
        if (rc == kNoMoreData || status < 0) {
            *keep = !(status < 0 || status == NetWorkerStatus::Cancelled);
        }
        if (reports.AfterBlock(written)) {
            stop = true;
        }
    } while (status >= 0 && rc != kNoMoreData);

    (void)reports.Finish();
    return status;
}

int32_t NetWorkerApiExecutor::WriteBlock(ExecutorFile& file, const uint8_t* data, uint32_t size,
                                         int32_t status, INetWorkerErrorCallBack* error,
                                         uint32_t* written, bool* stop) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::ExtractFile";
    *written = 0;
    // A short write goes on with the rest, so a block is never half-kept.
    while (*written < size) {
        uint32_t done = 0;
        if (file.Write(data + *written, size - *written, &done)) {
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
        // status (kept on purpose: docs/compatibility.md, "1246 after a retry").
        status = static_cast<int32_t>(ReportError(error, NwErrorDiskFull));
        if (status != static_cast<int32_t>(NetWorkerWinError::Continue)) {
            *stop = true;
            break;
        }
    }
    return status;
}

std::unique_ptr<ExecutorFile> NetWorkerApiExecutor::CreateExtractionFile(const wchar_t* directory,
                                                                         const wchar_t* fileName) {
    static constexpr wchar_t kMethod[] = L"NetWorkerApiExecutor::CreateExtractionFile";
    NWX_TRACE_METHOD(m_log, kMethod);
    const int32_t directoryStatus = RecursiveCreateDirectory(directory);
    if (directoryStatus != 0) {
        WriteLastError(static_cast<uint32_t>(directoryStatus));
        return nullptr;
    }
    std::wstring path;
    if (!BuildDestinationPath(directory, fileName, &path)) {
        m_log->Error(kMethod, L"Unable to create file %s. GetLastError() = %#08lx.\n",
                     directory != nullptr ? directory : L"",
                     static_cast<unsigned long>(WinError::FilenameExcedRange));
        WriteLastError(WinError::FilenameExcedRange);
        return nullptr;
    }
    std::unique_ptr<ExecutorFile> file = m_system.CreateDestinationFile(path.c_str());
    if (file == nullptr) {
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
    // A failure is logged as a raised error, caught at once; the caller's result stands
    // (kept on purpose: docs/compatibility.md, "delete failure as a Windows number").
    (void)RunAsStatus([&] {
        std::wstring path;
        if (!BuildDestinationPath(directory, fileName, &path)) {
            WriteLastError(WinError::FilenameExcedRange);
            RaiseTarnError(m_log, static_cast<int32_t>(WinError::FilenameExcedRange), kMethod,
                           L"DeleteFile failed\n");
        }
        if (!m_system.DeleteDestinationFile(path.c_str())) {
            const uint32_t lastError = ReadLastError();
            RaiseTarnError(
                m_log,
                static_cast<int32_t>(lastError != 0 ? lastError : NetWorkerWinError::WriteFault),
                kMethod, L"DeleteFile failed\n");
        }
        return NetWorkerStatus::Success;
    });
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
        if (!m_system.MakeDirectory(target.c_str())) {
            const uint32_t lastError = ReadLastError();
            if (lastError != WinError::AlreadyExists) {
                m_log->Error(kMethod, L"Unable to create directory %#08lx.\n",
                             static_cast<unsigned long>(lastError));
                // A real failure still returns 0 (kept on purpose: docs/compatibility.md,
                // "directory failure one step later").
                return lastError == 0 ? static_cast<int32_t>(NetWorkerWinError::WriteFault) : 0;
            }
        }
        current = target;
        current.push_back(L'\\');
    }
    return 0;
}
