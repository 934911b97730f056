#pragma once
// What a host sees when the library's objects cannot get their loggers: false and a null object
// from the connection and wrapper factories, whatever the out-pointer held before.

#include <gtest/gtest.h>

#include "exports/NetWorkerXbsa.h"

inline void ExpectConnectionAndWrapperRefused() {
    auto* connection = reinterpret_cast<INamedPipeConnection*>(0x1);
    EXPECT_FALSE(AllocateNamedPipeConnection(&connection));
    EXPECT_EQ(connection, nullptr);
    auto* wrapper = reinterpret_cast<INetWorkerApiWrapper*>(0x1);
    EXPECT_FALSE(AllocateNetWorkerApiWrapper(&wrapper));
    EXPECT_EQ(wrapper, nullptr);
}
