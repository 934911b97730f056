// The default launcher of the out-of-process mode, on Windows.
#include <windows.h>

#include <gtest/gtest.h>

#include "TestFiles.h"
#include "pipeexecutor/NetWorkerNamedPipeExecutor.h"

namespace {

TEST(StartClientProcess, MissingProgramGivesTheHresultOfFileNotFound) {
    // The test runs in the build's bin directory via a different current directory.
    wchar_t previous[MAX_PATH];
    ASSERT_GT(GetCurrentDirectoryW(MAX_PATH, previous), 0u);
    const TempDirectory temp("launcher");
    ASSERT_TRUE(SetCurrentDirectoryW(temp.Path().c_str()));
    const long status = NetWorkerNamedPipeExecutor::StartClientProcess(L"nwx-missing");
    SetCurrentDirectoryW(previous);
    EXPECT_EQ(static_cast<unsigned long>(status), 0x80070002ul);
}

}  // namespace
