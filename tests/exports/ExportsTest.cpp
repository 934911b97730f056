// The exported factories, linked in statically with recording loggers.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ExportsTestSupport.h"
#include "RefusedAllocations.h"
#include "RecordingLog.h"
#include "TestFiles.h"
#include "exports/NetWorkerXbsa.h"

namespace {

std::vector<std::wstring> g_launched;
long FailingLauncher(const wchar_t* pipeName) {
    g_launched.push_back(pipeName);
    return static_cast<long>(0x80004004);  // E_ABORT
}

class ExportsTest : public ::testing::Test {
protected:
    void SetUp() override {
        TestLoggers::Reset();
        g_launched.clear();
    }
    void TearDown() override {
        TestLoggers::FailNames({});
        TestLoggers::NullNames({});
    }
};

TEST_F(ExportsTest, FreeingNullDoesNothing) {
    FreeNamedPipeConnection(nullptr);
    FreeNetWorkerApiWrapper(nullptr);
    FreeNetWorkerExecutor(nullptr);
    FreeNetWorkerNamedPipeClient(nullptr);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(ExportsTest, ConnectionWithoutLoggerGivesFalseAndNull) {
    TestLoggers::FailNames({L"NamedPipeConnection"});
    auto* connection = reinterpret_cast<INamedPipeConnection*>(0x1);
    EXPECT_FALSE(AllocateNamedPipeConnection(&connection));
    EXPECT_EQ(connection, nullptr);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(ExportsTest, WrapperWithoutLoggerGivesFalseAndNull) {
    TestLoggers::FailNames({L"NetWorkerApiWrapper"});
    auto* wrapper = reinterpret_cast<INetWorkerApiWrapper*>(0x1);
    EXPECT_FALSE(AllocateNetWorkerApiWrapper(&wrapper));
    EXPECT_EQ(wrapper, nullptr);
}

TEST_F(ExportsTest, LoggerNullDespiteSuccessGivesFalseAndNull) {
    TestLoggers::NullNames({L"NamedPipeConnection", L"NetWorkerApiWrapper"});
    ExpectConnectionAndWrapperRefused();
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(ExportsTest, ApiExecutorWithoutLoggerGivesFalseAndNull) {
    INetWorkerApiWrapper* wrapper = nullptr;
    ASSERT_TRUE(AllocateNetWorkerApiWrapper(&wrapper));
    TestLoggers::FailNames({L"NetWorkerApiExecutor"});
    auto* executor = reinterpret_cast<INetWorkerExecutor*>(0x1);
    EXPECT_FALSE(AllocateNetWorkerApiExecutor(&executor, wrapper));
    EXPECT_EQ(executor, nullptr);
    FreeNetWorkerApiWrapper(wrapper);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(ExportsTest, PipeExecutorWithoutLoggerGivesFalseAndNullForBothOverloads) {
    INamedPipeConnection* connection = nullptr;
    ASSERT_TRUE(AllocateNamedPipeConnection(&connection));
    TestLoggers::FailNames({L"NetWorkerNamedPipeExecutor"});
    auto* executor = reinterpret_cast<INetWorkerExecutor*>(0x1);
    EXPECT_FALSE(AllocateNetWorkerNamedPipeExecutor(&executor, L"p", connection));
    EXPECT_EQ(executor, nullptr);
    executor = reinterpret_cast<INetWorkerExecutor*>(0x1);
    EXPECT_FALSE(AllocateNetWorkerNamedPipeExecutor(&executor, L"p", connection, FailingLauncher));
    EXPECT_EQ(executor, nullptr);
    FreeNamedPipeConnection(connection);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(ExportsTest, NullPipeNameGivesFalseAndNull) {
    auto* executor = reinterpret_cast<INetWorkerExecutor*>(0x1);
    EXPECT_FALSE(AllocateNetWorkerNamedPipeExecutor(&executor, nullptr, nullptr));
    EXPECT_EQ(executor, nullptr);
    RecordingLog log;
    auto* client = reinterpret_cast<INetWorkerNamedPipeClient*>(0x1);
    EXPECT_FALSE(AllocateNetWorkerNamedPipeClient(nullptr, nullptr, nullptr, &log, &client));
    EXPECT_EQ(client, nullptr);
}

TEST_F(ExportsTest, MissingConnectionOrLauncherGivesFalseAndNull) {
    INamedPipeConnection* connection = nullptr;
    ASSERT_TRUE(AllocateNamedPipeConnection(&connection));
    auto* executor = reinterpret_cast<INetWorkerExecutor*>(0x1);
    EXPECT_FALSE(AllocateNetWorkerNamedPipeExecutor(&executor, L"p", connection, nullptr));
    EXPECT_EQ(executor, nullptr);
    executor = reinterpret_cast<INetWorkerExecutor*>(0x1);
    EXPECT_FALSE(AllocateNetWorkerNamedPipeExecutor(&executor, L"p", nullptr, FailingLauncher));
    EXPECT_EQ(executor, nullptr);
    FreeNamedPipeConnection(connection);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(ExportsTest, MissingWrapperGivesFalseAndNull) {
    auto* executor = reinterpret_cast<INetWorkerExecutor*>(0x1);
    EXPECT_FALSE(AllocateNetWorkerApiExecutor(&executor, nullptr));
    EXPECT_EQ(executor, nullptr);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(ExportsTest, NullOutPointerGivesFalse) {
    EXPECT_FALSE(AllocateNamedPipeConnection(nullptr));
    EXPECT_FALSE(AllocateNetWorkerApiWrapper(nullptr));
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(ExportsTest, FreeNetWorkerExecutorDestroysBothExecutors) {
    INetWorkerApiWrapper* wrapper = nullptr;
    INamedPipeConnection* connection = nullptr;
    INetWorkerExecutor* direct = nullptr;
    INetWorkerExecutor* piped = nullptr;
    ASSERT_TRUE(AllocateNetWorkerApiWrapper(&wrapper));
    ASSERT_TRUE(AllocateNamedPipeConnection(&connection));
    ASSERT_TRUE(AllocateNetWorkerApiExecutor(&direct, wrapper));
    ASSERT_TRUE(AllocateNetWorkerNamedPipeExecutor(&piped, L"p", connection));
    ASSERT_NE(TestLoggers::Find(L"NetWorkerApiExecutor"), nullptr);
    ASSERT_NE(TestLoggers::Find(L"NetWorkerNamedPipeExecutor"), nullptr);

    FreeNetWorkerExecutor(direct);
    EXPECT_EQ(TestLoggers::Find(L"NetWorkerApiExecutor"), nullptr);
    FreeNetWorkerExecutor(piped);
    EXPECT_EQ(TestLoggers::Find(L"NetWorkerNamedPipeExecutor"), nullptr);
    FreeNamedPipeConnection(connection);
    FreeNetWorkerApiWrapper(wrapper);
    EXPECT_EQ(TestLoggers::LiveCount(), 0u);
}

TEST_F(ExportsTest, FourArgumentExecutorCallsOnlyTheGivenLauncher) {
    INamedPipeConnection* connection = nullptr;
    INetWorkerExecutor* executor = nullptr;
    const std::wstring name = UniquePipeName(L"launcher");
    ASSERT_TRUE(AllocateNamedPipeConnection(&connection));
    ASSERT_TRUE(
        AllocateNetWorkerNamedPipeExecutor(&executor, name.c_str(), connection, FailingLauncher));
    {
        // Even where the helper program could be found, only the launcher is asked.
        ScopedCurrentDirectory inBin(TestProgramDirectory());
        EXPECT_EQ(executor->Initialize("client", "server"), static_cast<int32_t>(0x80004004));
    }
    EXPECT_EQ(g_launched, std::vector<std::wstring>{name});
    EXPECT_EQ(TestLoggers::Find(L"NetWorkerNamedPipeExecutor")->TextsAt(LogLevelError),
              std::vector<std::wstring>{
                  L"Failed to create 'NetWorker64BitClient.exe' process. Error: 80004004."});
    FreeNetWorkerExecutor(executor);
    FreeNamedPipeConnection(connection);
}

TEST_F(ExportsTest, ThreeArgumentExecutorStartsTheHelperFromTheCurrentDirectory) {
    INamedPipeConnection* connection = nullptr;
    INetWorkerExecutor* executor = nullptr;
    ASSERT_TRUE(AllocateNamedPipeConnection(&connection));
    ASSERT_TRUE(AllocateNetWorkerNamedPipeExecutor(&executor, UniquePipeName(L"default").c_str(),
                                                   connection));
    const TempDirectory temp("default");
    {
        // A directory without the helper: the bare program name is not searched for.
        ScopedCurrentDirectory inTemp(temp.Path().c_str());
        EXPECT_EQ(executor->Initialize("client", "server"), static_cast<int32_t>(0x80070002));
    }
    EXPECT_EQ(TestLoggers::Find(L"NetWorkerNamedPipeExecutor")->TextsAt(LogLevelError),
              std::vector<std::wstring>{
                  L"Failed to create 'NetWorker64BitClient.exe' process. Error: 80070002."});
    FreeNetWorkerExecutor(executor);
    FreeNamedPipeConnection(connection);
}

TEST_F(ExportsTest, PipeClientUsesTheCallersLogAndTakesNoLoggerOfItsOwn) {
    INamedPipeConnection* connection = nullptr;
    INetWorkerApiWrapper* wrapper = nullptr;
    INetWorkerExecutor* executor = nullptr;
    ASSERT_TRUE(AllocateNamedPipeConnection(&connection));
    ASSERT_TRUE(AllocateNetWorkerApiWrapper(&wrapper));
    ASSERT_TRUE(AllocateNetWorkerApiExecutor(&executor, wrapper));
    const size_t live = TestLoggers::LiveCount();
    RecordingLog log(L"caller");
    INetWorkerNamedPipeClient* client = nullptr;
    ASSERT_TRUE(AllocateNetWorkerNamedPipeClient(L"p", connection, executor, &log, &client));
    EXPECT_NE(client, nullptr);
    EXPECT_EQ(TestLoggers::LiveCount(), live);
    FreeNetWorkerNamedPipeClient(client);
    EXPECT_FALSE(log.Lines().empty());  // the client traced its construction to the caller's log
    FreeNetWorkerExecutor(executor);
    FreeNetWorkerApiWrapper(wrapper);
    FreeNamedPipeConnection(connection);
}

}  // namespace
