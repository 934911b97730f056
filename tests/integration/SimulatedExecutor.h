#pragma once
// NetWorkerApiExecutor over the real NetWorkerApiWrapper and the simulated NetWorker
// installation (nwsim): what the seeded Exchange backup must look like through the executor.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ExecutorTestSupport.h"
#include "SimulatorFixture.h"
#include "TestFiles.h"
#include "networker/NetWorkerApiWrapper.h"

// One object of the seeded backup that the catalogue keeps, in catalogue order.
struct SeededObject {
    int id;  // the simulator's object id
    const char* path;
    uint64_t size;       // the catalogue's size
    uint64_t announced;  // what NetWorkerFileFound is told
};

const std::vector<SeededObject>& SeededCatalogue();

// The file name of a seeded path (after its last '/'), and its storage group folder.
std::wstring FileNameOf(const std::string& path);
std::wstring GroupOf(const std::string& path);

class SimulatedExecutorTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Installs the simulator (seeded for server "srv", client "cli").
    void Install();
    // A fresh wrapper and executor, initialised for cli/srv; returns Initialize's status.
    int32_t Open();
    void Close();
    RecordingLog& Log();
    void ClearLog() { Log().Clear(); }
    std::vector<std::pair<LogLevel, std::wstring>> Lines();
    // Catalogues everything; returns the files found.
    std::vector<FoundFile> CatalogAll();
    // nwsim-admin verify of object `id` against `file`; true when byte for byte equal.
    bool Verify(int id, const std::wstring& file, std::string* output = nullptr);
    // Rewrites one field (1-based) of an object's catalogue line in the simulator's store.
    void SetStoreField(int id, int field, const std::string& value);

    std::unique_ptr<SimulatorFixture> m_simulator;
    std::unique_ptr<NetWorkerApiWrapper> m_wrapper;
    std::unique_ptr<NetWorkerApiExecutor> m_executor;
    RecordingFileFound m_found;
    RecordingError m_error;
    RecordingProgress m_progress;
};
