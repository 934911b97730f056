// The exported factories through the real NetWorkerXbsa.dll and TarnLog.dll.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ExportsTestSupport.h"
#include "RefusedAllocations.h"
#include "ScopedEnvironment.h"
#include "common/UniqueHandle.h"
#include "exports/NetWorkerXbsa.h"

namespace {

TEST(ExportsDll, FreeingNullDoesNothing) {
    FreeNamedPipeConnection(nullptr);
    FreeNetWorkerApiWrapper(nullptr);
    FreeNetWorkerExecutor(nullptr);
    FreeNetWorkerNamedPipeClient(nullptr);
    SUCCEED();
}

TEST(ExportsDll, RefusedLoggersGiveFalseAndNull) {
    {
        ScopedEnvironment refuse(L"TARNLOG_FAIL_NAMES", L"NamedPipeConnection,NetWorkerApiWrapper");
        ExpectConnectionAndWrapperRefused();
    }
    // The executors' own loggers refused, with everything else in place.
    INamedPipeConnection* connection = nullptr;
    INetWorkerApiWrapper* wrapper = nullptr;
    ASSERT_TRUE(AllocateNamedPipeConnection(&connection));
    ASSERT_TRUE(AllocateNetWorkerApiWrapper(&wrapper));
    {
        ScopedEnvironment refuse(L"TARNLOG_FAIL_NAMES",
                                 L"NetWorkerApiExecutor,NetWorkerNamedPipeExecutor");
        auto* executor = reinterpret_cast<INetWorkerExecutor*>(0x1);
        EXPECT_FALSE(AllocateNetWorkerApiExecutor(&executor, wrapper));
        EXPECT_EQ(executor, nullptr);
        executor = reinterpret_cast<INetWorkerExecutor*>(0x1);
        EXPECT_FALSE(AllocateNetWorkerNamedPipeExecutor(&executor, L"p", connection));
        EXPECT_EQ(executor, nullptr);
    }
    FreeNetWorkerApiWrapper(wrapper);
    FreeNamedPipeConnection(connection);
}

TEST(ExportsDll, ThreeArgumentExecutorRunsTheHelperWhichAnswersLikeTheDirectExecutor) {
    // What the in-process executor answers on this machine...
    INetWorkerApiWrapper* wrapper = nullptr;
    INetWorkerExecutor* direct = nullptr;
    ASSERT_TRUE(AllocateNetWorkerApiWrapper(&wrapper));
    ASSERT_TRUE(AllocateNetWorkerApiExecutor(&direct, wrapper));
    const int32_t directStatus = direct->Initialize("exchange01", "backup01");
    FreeNetWorkerExecutor(direct);
    FreeNetWorkerApiWrapper(wrapper);

    // ...is what the helper answers through the pipe.
    INamedPipeConnection* connection = nullptr;
    INetWorkerExecutor* piped = nullptr;
    ASSERT_TRUE(AllocateNamedPipeConnection(&connection));
    ASSERT_TRUE(
        AllocateNetWorkerNamedPipeExecutor(&piped, UniquePipeName(L"dll").c_str(), connection));
    const std::vector<DWORD> helpersBefore = FindProcessesNamed(L"NetWorker64BitClient.exe");
    int32_t pipedStatus = 0;
    {
        ScopedCurrentDirectory inBin(TestProgramDirectory());
        pipedStatus = piped->Initialize("exchange01", "backup01");
    }
    std::vector<UniqueHandle> ours;
    for (DWORD id : FindProcessesNamed(L"NetWorker64BitClient.exe")) {
        if (std::find(helpersBefore.begin(), helpersBefore.end(), id) == helpersBefore.end()) {
            ours.emplace_back(OpenProcess(SYNCHRONIZE, FALSE, id));
        }
    }
    EXPECT_EQ(pipedStatus, directStatus);
    FreeNetWorkerExecutor(piped);
    FreeNamedPipeConnection(connection);
    // Our helper is gone once the pipe is closed (or already was, after a failed start).
    for (const UniqueHandle& process : ours) {
        if (process) {
            EXPECT_EQ(WaitForSingleObject(process.get(), 20000), WAIT_OBJECT_0);
        }
    }
}

}  // namespace
