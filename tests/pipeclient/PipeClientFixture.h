#pragma once
// Runs NetWorkerNamedPipeClient over an in-memory pipe whose host end is scripted up front:
// every host message is queued, the host hangs up once they are read, and Run is called on the
// test thread.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "InMemoryPipe.h"
#include "RecordingLog.h"
#include "ScriptedExecutor.h"
#include "pipe/PipeMessageBuilders.h"
#include "pipeclient/NetWorkerNamedPipeClient.h"

inline uint32_t TypeOf(const PipeBytes& message) {
    return IpcReceivedType(message.data(), static_cast<uint32_t>(message.size()));
}

template <typename Message>
Message As(const PipeBytes& bytes) {
    EXPECT_EQ(bytes.size(), sizeof(Message));
    Message message;
    std::memset(&message, 0, sizeof message);
    std::memcpy(&message, bytes.data(), std::min(bytes.size(), sizeof message));
    return message;
}

template <typename Message>
PipeBytes BytesOf(const Message& message) {
    const unsigned char* bytes = IpcBytes(message);
    return PipeBytes(bytes, bytes + sizeof message);
}

inline PipeBytes Truncated(PipeBytes bytes, size_t size) {
    bytes.resize(size);
    return bytes;
}

// A message whose header's size field is `declaredSize` (the bytes written stay sizeof).
template <typename Message>
PipeBytes WithSizeField(Message message, uint32_t declaredSize) {
    message.header.messageSize = declaredSize;
    return BytesOf(message);
}

inline size_t CountMethod(const std::vector<LogLine>& lines, const std::wstring& method) {
    size_t count = 0;
    for (const auto& line : lines) {
        count += line.method == method ? 1 : 0;
    }
    return count;
}

class PipeClientTest : public ::testing::Test {
protected:
    void SetUp() override { TestLoggers::Reset(); }
    void TearDown() override { TestLoggers::Reset(); }

    void HostSends(const PipeBytes& bytes) { host().SendBytes(bytes); }
    template <typename Message>
    void HostSendsMessage(const Message& message) {
        host().SendMessage(message);
    }
    void HostSendsBeginInitialize() {
        HostSendsMessage(IpcBuildBeginInitialize("client-A", "server-B"));
    }

    // Hangs the host end up once the scripted messages are read, and runs the service.
    void RunClient() {
        host().CloseWhenDrained();
        NetWorkerNamedPipeClient client(L"pipe-1", &pipe.ClientEnd(), &executor, &log);
        client.Run();
    }

    // The same, expecting Run to throw; returns the exception text.
    template <typename Exception = std::exception>
    std::string RunClientExpectingThrow() {
        try {
            RunClient();
        } catch (const Exception& error) {
            return error.what();
        }
        ADD_FAILURE() << "Run did not throw";
        return {};
    }

    // Everything the helper sent, the IpcFinishInitialize reply included.
    std::vector<PipeBytes> Sent() { return pipe.ClientEnd().Sent(); }
    // What the helper sent after its IpcFinishInitialize.
    std::vector<PipeBytes> SentAfterInitialize() {
        auto sent = Sent();
        EXPECT_FALSE(sent.empty());
        EXPECT_EQ(TypeOf(sent.front()), 2u);
        sent.erase(sent.begin());
        return sent;
    }

    InMemoryPipeEnd& host() { return pipe.ServerEnd(); }

    InMemoryPipe pipe;
    ScriptedExecutor executor;
    RecordingLog log{L"NetWorkerNamedPipeClient"};
};
