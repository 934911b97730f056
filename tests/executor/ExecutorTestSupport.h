#pragma once
// Recording callbacks and a fixture around NetWorkerApiExecutor with the scripted wrapper and
// the in-memory system. Platform-neutral: natively under the sanitizers and under Wine.

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "FakeApiWrapper.h"
#include "FakeExecutorSystem.h"
#include "RecordingLog.h"
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

// The directory under which the tests extract; it exists in every test's file system.
extern const wchar_t kTestRoot[];

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

    // kTestRoot + "\\" + name.
    static std::wstring UnderRoot(const std::wstring& name);

    FakeApiWrapper m_wrapper;
    FakeSystem m_system;
    CatalogueMemory* m_memory = nullptr;
    std::unique_ptr<NetWorkerApiExecutor> m_executor;
    RecordingFileFound m_found;
    RecordingError m_error;
    RecordingProgress m_progress;
};

std::wstring HResultLine(uint32_t code, uint32_t lastError);
