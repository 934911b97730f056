#pragma once
// The in-process executor: talks to NetWorker's XBSA library through an INetWorkerApiWrapper
// on the caller's thread. Quit may come from a second thread; it only flips flags that the
// working thread polls once per catalogue object and once per data block. Platform-neutral:
// files, directories and the clock are reached through ExecutorSystem.

#include <atomic>
#include <cstdint>
#include <memory>

#include "CatalogueEntry.h"
#include "common/UniqueLogger.h"
#include "interfaces/INetWorkerApiWrapper.h"
#include "interfaces/INetWorkerExecutor.h"

class ExecutorFile;
class ExecutorSystem;

// Substitutes for tests; null members mean the executor's own string pool and
// DefaultExecutorSystem() (kernel32 on Windows).
struct ExecutorSeams {
    CatalogueMemory* memory = nullptr;
    ExecutorSystem* system = nullptr;
};

class NetWorkerApiExecutor final : public INetWorkerExecutor {
public:
    // The wrapper is borrowed. Throws std::runtime_error("Failed to Initialize the logger.")
    // when the logger "NetWorkerApiExecutor" cannot be obtained.
    explicit NetWorkerApiExecutor(INetWorkerApiWrapper* wrapper,
                                  ExecutorSeams seams = ExecutorSeams());
    ~NetWorkerApiExecutor() override;

    NetWorkerApiExecutor(const NetWorkerApiExecutor&) = delete;
    NetWorkerApiExecutor& operator=(const NetWorkerApiExecutor&) = delete;

    int32_t Initialize(const char* clientName, const char* serverName) override;
    int32_t Catalog(const FILETIME* timeBefore, const FILETIME* timeAfter,
                    INetWorkerFileFoundCallBack* fileFound,
                    INetWorkerErrorCallBack* error) override;
    int32_t GetFileSize(uint32_t index, bool correctSize, uint64_t* size) override;
    int32_t BeginExtract() override;
    int32_t ExtractFile(uint32_t index, const wchar_t* directory, const wchar_t* fileName,
                        INetWorkerUpdateProgressCallBack* progress,
                        INetWorkerErrorCallBack* error) override;
    int32_t EndExtract() override;
    int32_t Quit() override;

    // Catalogue size and reserved room, in entries.
    size_t CatalogueSize() const { return m_smVecObjects.size(); }
    size_t CatalogueCapacity() const { return m_smVecObjects.capacity(); }

    static constexpr size_t kNameCapacity = 255;  // terminator included
    static constexpr size_t kCatalogueGrowth = 10240;
    static constexpr uint32_t kTransferBufferSize = 16384;
    static constexpr uint32_t kProgressIntervalMs = 750;

private:
    bool FireFileFoundEvent(INetWorkerFileFoundCallBack* fileFound, const std::tm& createTime,
                            uint64_t size, uint32_t index, BSA_UInt64 restoreOrder,
                            const char* path);
    // Null (with the thread's last error set) when the directory or the file cannot be made.
    std::unique_ptr<ExecutorFile> CreateExtractionFile(const wchar_t* directory,
                                                       const wchar_t* fileName);
    int32_t DeleteExtractionFile(const wchar_t* directory, const wchar_t* fileName);
    int32_t RecursiveCreateDirectory(const wchar_t* directory);
    // Opens catalogue entry `index` with BSAGetObject; returns the transfer buffer's size.
    uint32_t OpenObject(uint32_t index, BSA_DataBlock32* block);
    // Opens the object and copies its data block by block into `file`, reporting progress;
    // returns the last block's status. Sets `keep` when the transfer ends with a status that
    // keeps the file (neither negative nor 1223); a failure raised here leaves it false.
    int32_t CopyObjectToFile(uint32_t index, ExecutorFile& file,
                             INetWorkerUpdateProgressCallBack* progress,
                             INetWorkerErrorCallBack* error, bool* keep);
    // Writes one block, asking the host when the disk is full; returns the block's status and
    // sets `stop` when the host answered anything but a retry.
    int32_t WriteBlock(ExecutorFile& file, const uint8_t* data, uint32_t size, int32_t status,
                       INetWorkerErrorCallBack* error, uint32_t* written, bool* stop);

    // A Quit ends at most one operation: the check that sees it spends it.
    bool TakeCancel() { return m_cancel.exchange(false, std::memory_order_relaxed); }
    void SetCancelled(bool cancel) { m_cancel.store(cancel, std::memory_order_relaxed); }

    INetWorkerApiWrapper* m_wrapper;
    char m_serverName[kNameCapacity];
    char m_clientName[kNameCapacity];
    CatalogueEntries m_smVecObjects;
    NetWorkerProgressInfo m_progress;
    std::unique_ptr<char[]> m_clientEntry;
    std::unique_ptr<char[]> m_serverEntry;
    char* m_environment[5];
    BSA_Handle m_handle;
    // Shared with Quit on a second thread; relaxed ordering is enough, nothing else is
    // published through them.
    std::atomic<bool> m_cancel;
    std::atomic<bool> m_inGetObject;
    std::atomic<bool> m_quitDuringGetObject;
    CatalogueStringPool m_stringPool;
    CatalogueMemory& m_memory;
    ExecutorSystem& m_system;
    UniqueLogger m_logger;
    ILog* m_log;
};
