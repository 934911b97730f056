// A service configuration above the announced 4,086 bytes, in its own test program: the failed
// read deliberately leaves the service handle open, so "nsrexecd" cannot be deleted until this
// process ends, and no other test may run after it in the same process.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "RecordingLog.h"
#include "WinTestPaths.h"
#include "interfaces/NetWorkerStatus.h"
#include "networker/NetWorkerApiWrapper.h"

TEST(ServiceConfigLimitTest, ConfigurationAbove4086BytesIsNotReadAlthoughTheBufferHolds4096) {
    TestLoggers::Reset();
    ScopedNsrexecdService service(L"C:\\placeholder.exe");
    ASSERT_FALSE(BinaryPathNeeding(service, 4088).empty());
    {
        NetWorkerApiWrapper wrapper;
        // The lookup's 1627 is positive, so loading goes on from the empty directory.
        EXPECT_EQ(NetWorkerStatus::DllNotFound, wrapper.Initialize());
    }
    std::vector<std::wstring> errors;
    for (const LogLine& line : TestLoggers::History(L"NetWorkerApiWrapper")) {
        if (line.level == LogLevelError) {
            errors.push_back(line.text);
        }
    }
    ASSERT_EQ(4u, errors.size());
    EXPECT_EQ(L"QueryServiceConfig failed", errors[0]);
    EXPECT_EQ(L"HRESULT 0000065b GetLastError() 122", errors[1]);
    EXPECT_EQ(L"LoadLibrary Failed: liblocal.dll", errors[2]);
    service.ExpectHandleLeftOpen();
}
