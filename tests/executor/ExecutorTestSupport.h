#pragma once
// Recording callbacks, a steerable ExecutorSystem and a fixture around NetWorkerApiExecutor.

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "FakeApiWrapper.h"
#include "RecordingLog.h"
#include "executor/ExecutorSystem.h"
#include "executor/NetWorkerApiExecutor.h"
#include "interfaces/INetWorkerCallBacks.h"

struct FoundFile {
    NetWorkerFileInfo info;
    std::string path;  // copied during the call
};

class RecordingFileFound : public INetWorkerFileFoundCallBack {
public:
    bool NetWorkerFileFound(const NetWorkerFileInfo* file) override;
    std::vector<FoundFile> files;
    std::function<bool(const NetWorkerFileInfo&)> answer;  // default: false (go on)
};

class RecordingError : public INetWorkerErrorCallBack {
public:
    uint32_t NetWorkerError(uint32_t code) override;
    uint32_t AllocationError(const NetWorkerAllocationInfo* info) override;
    std::vector<uint32_t> codes;
    std::vector<NetWorkerAllocationInfo> allocations;
    std::deque<uint32_t> answers;  // answers to NetWorkerError in turn; 0 when exhausted
    std::function<void()> onDiskFull;
};

class RecordingProgress : public INetWorkerUpdateProgressCallBack {
public:
    bool UpdateProgress(NetWorkerProgressInfo* progress) override;
    std::vector<NetWorkerProgressInfo> reports;
    std::vector<const NetWorkerProgressInfo*> records;
    std::function<bool(size_t report)> answer;  // default: false (go on)
};

// Steerable clock, writes and directory creation; defaults to the real kernel32 services.
class FakeSystem : public ExecutorSystem {
public:
    uint32_t TickCount() override;
    bool WriteFile(HANDLE file, const void* data, uint32_t size, uint32_t* written) override;
    bool CreateDirectory(const wchar_t* path) override;

    std::deque<uint32_t> ticks;  // next TickCount answers; the last one repeats
    // Write calls (from 0) that fail with the given last error instead of writing.
    std::map<int, uint32_t> failWriteAt;
    // Write calls that write only part of the block (at most this many bytes).
    std::map<int, uint32_t> shortWriteAt;
    std::function<void(int call)> beforeWrite;
    int writeCalls = 0;
    std::vector<uint32_t> writeSizes;
    // CreateDirectory: paths that fail with the given last error.
    std::map<std::wstring, uint32_t> failDirectory;
    std::vector<std::wstring> directoriesAsked;
};

// A fresh directory under the Wine prefix's temporary folder, removed with everything in it.
class TempDirectory {
public:
    TempDirectory();
    ~TempDirectory();
    const std::wstring& Path() const { return m_path; }
    std::wstring Child(const std::wstring& name) const { return m_path + L"\\" + name; }

private:
    std::wstring m_path;
};

std::string ReadWholeFile(const std::wstring& path);
bool FileExists(const std::wstring& path);
bool DirectoryExists(const std::wstring& path);
void WriteWholeFile(const std::wstring& path, const std::string& content);
std::string PatternData(size_t size, uint32_t seed = 1);
FILETIME MidnightOf(int year, int month, int day);

// Each test gets a fresh logger registry, fake wrapper, fake system and executor.
class ExecutorTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    RecordingLog& Log();
    // Non-trace lines only, as (level, text).
    std::vector<std::pair<LogLevel, std::wstring>> Lines();
    std::vector<std::wstring> Traces();  // "method|text" of the trace lines
    void ClearLog() { Log().Clear(); }

    // Initialize with cli/srv and clear the calls and the log.
    void StartSession();
    // Catalog everything with the scripted objects; clears the calls and the log after.
    void CatalogAll();

    FakeApiWrapper m_wrapper;
    FakeSystem m_system;
    CatalogueMemory* m_memory = nullptr;
    std::unique_ptr<NetWorkerApiExecutor> m_executor;
    RecordingFileFound m_found;
    RecordingError m_error;
    RecordingProgress m_progress;
};

std::wstring HResultLine(uint32_t code, uint32_t lastError);
