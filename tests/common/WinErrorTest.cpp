#include <gtest/gtest.h>

#include "common/WinError.h"
#include "interfaces/NetWorkerStatus.h"

TEST(WinError, StatusesOfTheWin32FacilityAreRecognised) {
    EXPECT_TRUE(IsHResultFromWin32(static_cast<int32_t>(0x80070002)));
    EXPECT_TRUE(IsHResultFromWin32(NetWorkerStatus::AccessDenied));
    EXPECT_FALSE(IsHResultFromWin32(NetWorkerStatus::Fail));
    EXPECT_FALSE(IsHResultFromWin32(NetWorkerStatus::PipeClosed));
    EXPECT_FALSE(IsHResultFromWin32(0));
}
