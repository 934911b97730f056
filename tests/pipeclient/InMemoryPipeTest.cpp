// The in-memory pipe that the service tests, the fuzzer and the host-side tests rely on.

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <thread>

#include "InMemoryPipe.h"

namespace {

PipeBytes Bytes(std::initializer_list<unsigned char> values) {
    return PipeBytes(values);
}

std::string ThrownText(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "(nothing thrown)";
}

}  // namespace

TEST(InMemoryPipe, PreservesMessageBoundariesInOrder) {
    InMemoryPipe pipe;
    pipe.ServerEnd().SendBytes(Bytes({1, 2, 3}));
    pipe.ServerEnd().SendBytes(Bytes({}));
    pipe.ServerEnd().SendBytes(Bytes({4}));
    unsigned char buffer[16];
    uint32_t length = sizeof buffer;
    ASSERT_TRUE(pipe.ClientEnd().Receive(buffer, &length));
    EXPECT_EQ(PipeBytes(buffer, buffer + length), Bytes({1, 2, 3}));
    length = sizeof buffer;
    ASSERT_TRUE(pipe.ClientEnd().Receive(buffer, &length));
    EXPECT_EQ(length, 0u);
    length = sizeof buffer;
    ASSERT_TRUE(pipe.ClientEnd().Receive(buffer, &length));
    EXPECT_EQ(PipeBytes(buffer, buffer + length), Bytes({4}));
    EXPECT_EQ(pipe.ServerEnd().Sent().size(), 3u);
    EXPECT_TRUE(pipe.ClientEnd().Sent().empty());
}

TEST(InMemoryPipe, ReceiveBlocksUntilThePeerSendsFromAnotherThread) {
    InMemoryPipe pipe;
    std::thread peer([&] {
        unsigned char buffer[8];
        uint32_t length = sizeof buffer;
        ASSERT_TRUE(pipe.ClientEnd().Receive(buffer, &length));
        pipe.ClientEnd().Send(buffer, length);  // echo
    });
    pipe.ServerEnd().SendBytes(Bytes({7, 7}));
    unsigned char buffer[8];
    uint32_t length = sizeof buffer;
    ASSERT_TRUE(pipe.ServerEnd().Receive(buffer, &length));
    EXPECT_EQ(PipeBytes(buffer, buffer + length), Bytes({7, 7}));
    peer.join();
}

TEST(InMemoryPipe, CloseWakesABlockedReceiverWhichReturnsFalse) {
    InMemoryPipe pipe;
    bool received = true;
    uint32_t length = 5;
    std::thread reader([&] {
        unsigned char buffer[8];
        received = pipe.ClientEnd().Receive(buffer, &length);
    });
    pipe.ServerEnd().Close();
    reader.join();
    EXPECT_FALSE(received);
    EXPECT_EQ(length, 5u);
}

TEST(InMemoryPipe, QueuedMessagesAreStillDeliveredAfterAClose) {
    InMemoryPipe pipe;
    pipe.ServerEnd().SendBytes(Bytes({9}));
    pipe.ServerEnd().Close();
    unsigned char buffer[8];
    uint32_t length = sizeof buffer;
    EXPECT_TRUE(pipe.ClientEnd().Receive(buffer, &length));
    length = 3;
    EXPECT_FALSE(pipe.ClientEnd().Receive(buffer, &length));
    EXPECT_EQ(length, 3u);
    // The peer has hung up: writing to it fails like a real pipe.
    EXPECT_EQ(ThrownText([&] { pipe.ClientEnd().SendBytes(Bytes({1})); }),
              "WriteFile to pipe failed. GetLastError()=232");
    // This end is closed: it is no longer connected.
    EXPECT_EQ(ThrownText([&] { pipe.ServerEnd().SendBytes(Bytes({1})); }),
              "Named pipe is not connected!");
}

TEST(InMemoryPipe, CloseWhenDrainedStillAcceptsThePeersMessages) {
    InMemoryPipe pipe;
    pipe.ServerEnd().SendBytes(Bytes({1}));
    pipe.ServerEnd().CloseWhenDrained();
    unsigned char buffer[8];
    uint32_t length = sizeof buffer;
    EXPECT_TRUE(pipe.ClientEnd().Receive(buffer, &length));
    pipe.ClientEnd().SendBytes(Bytes({2}));
    length = sizeof buffer;
    EXPECT_FALSE(pipe.ClientEnd().Receive(buffer, &length));
    EXPECT_EQ(pipe.ServerEnd().PendingCount(), 1u);
    EXPECT_EQ(pipe.ServerEnd().ReceiveFor(std::chrono::milliseconds(0)), Bytes({2}));
}

TEST(InMemoryPipe, MessageLongerThanTheBufferFailsAndIsConsumed) {
    InMemoryPipe pipe;
    pipe.ServerEnd().SendBytes(Bytes({1, 2, 3, 4}));
    unsigned char buffer[4];
    uint32_t length = 3;
    EXPECT_EQ(ThrownText([&] { pipe.ClientEnd().Receive(buffer, &length); }),
              "ReadFile from pipe failed. GetLastError()=234");
    EXPECT_EQ(pipe.ClientEnd().PendingCount(), 0u);
}

TEST(InMemoryPipe, ReceiveForGivesNothingWhenNothingArrives) {
    InMemoryPipe pipe;
    EXPECT_FALSE(pipe.ClientEnd().ReceiveFor(std::chrono::milliseconds(1)).has_value());
}

TEST(InMemoryPipe, OpeningCallsAreRecordedAndCanBeScriptedToFail) {
    InMemoryPipe pipe;
    pipe.ServerEnd().OpenNewPipe(L"p1");
    pipe.ServerEnd().WaitForConnection();
    pipe.ClientEnd().OpenExisting(L"p1", 10000);
    EXPECT_EQ(pipe.ServerEnd().OpenNewPipeNames(), std::vector<std::wstring>{L"p1"});
    EXPECT_EQ(pipe.ServerEnd().WaitForConnectionCalls(), 1);
    EXPECT_EQ(pipe.ClientEnd().OpenExistingNames(), std::vector<std::wstring>{L"p1"});
    EXPECT_EQ(pipe.ClientEnd().OpenExistingTimeouts(), std::vector<uint32_t>{10000});

    pipe.ServerEnd().FailNextOpenNewPipe("Failed to create new pipe. GetLastError()=5");
    EXPECT_EQ(ThrownText([&] { pipe.ServerEnd().OpenNewPipe(L"p2"); }),
              "Failed to create new pipe. GetLastError()=5");
    EXPECT_NO_THROW(pipe.ServerEnd().OpenNewPipe(L"p3"));  // only the next call fails
    pipe.ServerEnd().FailNextWaitForConnection("boom");
    EXPECT_EQ(ThrownText([&] { pipe.ServerEnd().WaitForConnection(); }), "boom");
    pipe.ClientEnd().FailNextOpenExisting("Could not open pipe. GetLastError()=2");
    EXPECT_EQ(ThrownText([&] { pipe.ClientEnd().OpenExisting(L"p1", 1); }),
              "Could not open pipe. GetLastError()=2");
}
