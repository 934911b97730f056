// The host executor and the helper's pipe service talking over an in-memory pipe: the helper
// runs NetWorkerNamedPipeClient on a thread over a scripted executor, the test is the host.
// Checks that both ends of the protocol agree, without processes.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "InMemoryPipe.h"
#include "RecordingLog.h"
#include "ScriptedExecutor.h"
#include "pipeclient/NetWorkerNamedPipeClient.h"
#include "pipeexecutor/NetWorkerNamedPipeExecutor.h"

namespace {

long NoLaunch(const wchar_t*) {
    return 0;
}

class RoundTripTest : public ::testing::Test {
protected:
    void SetUp() override {
        TestLoggers::Reset();
        m_helper = std::thread([this] {
            NetWorkerNamedPipeClient client(L"roundtrip", &m_pipe.ClientEnd(), &m_remote,
                                            &m_helperLog);
            try {
                client.Run();
            } catch (const std::exception& e) {
                m_helperFailure = e.what();
            }
            // The helper program ends here, and its end of the pipe with it.
            m_pipe.ClientEnd().Close();
        });
        m_host = std::make_unique<NetWorkerNamedPipeExecutor>(L"roundtrip", &m_pipe.ServerEnd(),
                                                              NoLaunch);
    }

    void TearDown() override {
        m_host.reset();
        m_pipe.ServerEnd().Close();  // the host frees its connection: the helper's loop ends
        m_helper.join();
        EXPECT_EQ(m_helperFailure, "");
    }

    InMemoryPipe m_pipe;
    ScriptedExecutor m_remote;
    RecordingLog m_helperLog{L"NetWorker64BitClient"};
    std::string m_helperFailure;
    std::thread m_helper;
    std::unique_ptr<NetWorkerNamedPipeExecutor> m_host;
};

TEST_F(RoundTripTest, InitializeReachesTheHelpersExecutorWithBothNames) {
    m_remote.initializeStatus = 1169;
    EXPECT_EQ(m_host->Initialize("exchange01", "backup01"), 1169);
    ASSERT_EQ(m_remote.initializeNames.size(), 1u);
    EXPECT_EQ(m_remote.initializeNames[0].first, "exchange01");
    EXPECT_EQ(m_remote.initializeNames[0].second, "backup01");
}

TEST_F(RoundTripTest, CatalogueEntriesAndAnswersCrossBothWays) {
    ASSERT_EQ(m_host->Initialize("c", "s"), 0);
    std::vector<bool> helperSawStop;
    m_remote.onCatalog = [&](INetWorkerFileFoundCallBack* found, INetWorkerErrorCallBack* error) {
        SYSTEMTIME when{2024, 5, 0, 8, 23, 59, 30, 0};
        for (uint32_t i = 0; i < 3; ++i) {
            const std::string path = "/SG/file" + std::to_string(i) + ".edb";
            NetWorkerFileInfo info{i, when, path.c_str(), 10u + i, 3000000u + i};
            const bool stop = found->NetWorkerFileFound(&info);
            helperSawStop.push_back(stop);
            if (stop) {
                break;
            }
        }
        EXPECT_EQ(error->NetWorkerError(NwErrorQuery), 42u);
        return 0;
    };
    class Host : public INetWorkerFileFoundCallBack, public INetWorkerErrorCallBack {
    public:
        bool NetWorkerFileFound(const NetWorkerFileInfo* file) override {
            paths.push_back(file->path);
            days.push_back(file->backupTime.wDayOfWeek);
            return paths.size() == 2;
        }
        uint32_t NetWorkerError(uint32_t code) override { return code == NwErrorQuery ? 42 : 0; }
        uint32_t AllocationError(const NetWorkerAllocationInfo*) override { return 0; }
        std::vector<std::string> paths;
        std::vector<int> days;
    } host;
    FILETIME bound{0x12345678u, 0x01DA0000u};
    EXPECT_EQ(m_host->Catalog(&bound, nullptr, &host, &host), 0);
    EXPECT_EQ(host.paths, (std::vector<std::string>{"/SG/file0.edb", "/SG/file1.edb"}));
    EXPECT_EQ(host.days, (std::vector<int>{3, 3}));  // 2024-05-08 was a Wednesday
    EXPECT_EQ(helperSawStop, (std::vector<bool>{false, true}));
    ASSERT_EQ(m_remote.catalogCalls.size(), 1u);
    EXPECT_EQ(m_remote.catalogCalls[0].timeBefore, 0x01DA000012345678ull);
    EXPECT_FALSE(m_remote.catalogCalls[0].timeAfter.has_value());
}

TEST_F(RoundTripTest, HandlerWithoutALoggerEndsTheHelperAndTheHostGets109) {
    ASSERT_EQ(m_host->Initialize("c", "s"), 0);
    // The logging library answers 0 but hands out no logger for the catalogue's handler.
    TestLoggers::NullNames({L"CatalogHandler"});
    EXPECT_EQ(m_host->Catalog(nullptr, nullptr, nullptr, nullptr), 109);
    EXPECT_EQ(m_remote.calls, std::vector<std::string>{"Initialize"});
}

TEST_F(RoundTripTest, FailedSizeLookupArrivesAsSizeZeroWithSuccess) {
    ASSERT_EQ(m_host->Initialize("c", "s"), 0);
    m_remote.onGetFileSize = [](uint32_t, bool, uint64_t* size) {
        *size = 0;
        return static_cast<int32_t>(0x80004005);
    };
    uint64_t size = 7;
    EXPECT_EQ(m_host->GetFileSize(4, true, &size), 0);
    EXPECT_EQ(size, 0u);
    ASSERT_EQ(m_remote.getFileSizeCalls.size(), 1u);
    EXPECT_EQ(m_remote.getFileSizeCalls[0].index, 4u);
    EXPECT_TRUE(m_remote.getFileSizeCalls[0].correctSize);
}

TEST_F(RoundTripTest, ExtractionRelaysProgressAndTheDiskFullAnswer) {
    ASSERT_EQ(m_host->Initialize("c", "s"), 0);
    m_remote.onExtractFile = [](INetWorkerUpdateProgressCallBack* progress,
                                INetWorkerErrorCallBack* error) -> int32_t {
        NetWorkerProgressInfo info{1, 0};
        if (progress->UpdateProgress(&info)) {
            return 1223;
        }
        if (error->NetWorkerError(NwErrorDiskFull) != 1246) {
            return 1223;
        }
        info.bytesDone = 16384;
        return progress->UpdateProgress(&info) ? 1223 : 0;
    };
    class Host : public INetWorkerUpdateProgressCallBack, public INetWorkerErrorCallBack {
    public:
        bool UpdateProgress(NetWorkerProgressInfo* progress) override {
            done.push_back(progress->bytesDone);
            return false;
        }
        uint32_t NetWorkerError(uint32_t) override { return 1246; }
        uint32_t AllocationError(const NetWorkerAllocationInfo*) override { return 0; }
        std::vector<uint32_t> done;
    } host;
    ASSERT_EQ(m_host->BeginExtract(), 0);
    EXPECT_EQ(m_host->ExtractFile(9, L"C:\\restore", L"db.edb", &host, &host), 0);
    EXPECT_EQ(m_host->EndExtract(), 0);
    EXPECT_EQ(host.done, (std::vector<uint32_t>{0, 16384}));
    ASSERT_EQ(m_remote.extractFileCalls.size(), 1u);
    EXPECT_EQ(m_remote.extractFileCalls[0].directory, L"C:\\restore");
    EXPECT_EQ(m_remote.extractFileCalls[0].fileName, L"db.edb");
    EXPECT_EQ(m_remote.calls, (std::vector<std::string>{"Initialize", "BeginExtract", "ExtractFile",
                                                        "EndExtract"}));
}

}  // namespace
