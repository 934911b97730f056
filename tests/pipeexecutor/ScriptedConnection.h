#pragma once
// An INamedPipeConnection on which the test plays the helper: the messages the helper would
// send are queued in advance (the protocol alternates strictly, so the order is known), and
// every message the executor sends is kept for inspection.

#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "interfaces/INamedPipeConnection.h"

using Bytes = std::vector<unsigned char>;

template <typename Message>
Bytes ToBytes(const Message& message) {
    Bytes bytes(sizeof message);
    std::memcpy(bytes.data(), &message, sizeof message);
    return bytes;
}

template <typename Message>
Message FromBytes(const Bytes& bytes) {
    Message message;
    std::memset(&message, 0, sizeof message);
    std::memcpy(&message, bytes.data(),
                bytes.size() < sizeof message ? bytes.size() : sizeof message);
    return message;
}

class ScriptedConnection final : public INamedPipeConnection {
public:
    void OpenNewPipe(const wchar_t* name) override;
    void WaitForConnection() override;
    void OpenExisting(const wchar_t* name, uint32_t timeout) override;
    bool Receive(unsigned char* buffer, uint32_t* length) override;
    uint32_t Send(const unsigned char* buffer, uint32_t length) override;

    // The helper's next message.
    void Queue(Bytes message) { m_incoming.push_back(Incoming{false, std::move(message)}); }
    template <typename Message>
    void Queue(const Message& message) {
        Queue(ToBytes(message));
    }
    // The helper closes its end: the next Receive reports the pipe closed.
    void QueueClose() { m_incoming.push_back(Incoming{true, {}}); }
    // The next Send throws std::runtime_error with this text.
    void FailNextSend(std::string text) { m_sendFailure = std::move(text); }

    const std::vector<Bytes>& Sent() const { return m_sent; }
    const std::vector<std::wstring>& Calls() const { return m_calls; }
    size_t PendingIncoming() const { return m_incoming.size(); }
    // Buffer capacity the executor offered on its last Receive.
    uint32_t LastReceiveCapacity() const { return m_lastCapacity; }

private:
    struct Incoming {
        bool closed;
        Bytes bytes;
    };
    std::deque<Incoming> m_incoming;
    std::vector<Bytes> m_sent;
    std::vector<std::wstring> m_calls;
    std::string m_sendFailure;
    uint32_t m_lastCapacity = 0;
};
