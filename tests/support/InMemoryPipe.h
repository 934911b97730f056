#pragma once
// An in-memory, message-preserving pipe: two connected INamedPipeConnection ends for tests and
// fuzzers (platform-neutral, usable from two threads).
//
//   InMemoryPipe pipe;
//   INamedPipeConnection& host = pipe.ServerEnd();   // e.g. given to the pipe executor
//   INamedPipeConnection& helper = pipe.ClientEnd(); // e.g. given to the pipe client
//
// Each Send queues one message for the peer; Receive blocks until a message is queued for
// this end, or returns false (length untouched) once the peer has closed and nothing is left
// to read. Messages queued before a close are still delivered. Close() hangs up at once (the
// peer's Send then fails); CloseWhenDrained() lets the peer go on sending and only makes its
// Receive return false once it has read everything queued, so a test can script one side
// completely up front (queue every message, then CloseWhenDrained()) and run the other side
// on the test thread alone. The ends are usable at once; OpenNewPipe,
// WaitForConnection and OpenExisting only record their calls (or throw a scripted failure).
//
// Failures mimic NamedPipeConnection's texts: after Close() on this end, Receive and Send
// throw std::runtime_error("Named pipe is not connected!"); Send to a closed peer throws
// "WriteFile to pipe failed. GetLastError()=232"; a message longer than *length throws
// "ReadFile from pipe failed. GetLastError()=234" (the message is consumed).

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "interfaces/INamedPipeConnection.h"

using PipeBytes = std::vector<unsigned char>;

class InMemoryPipe;

class InMemoryPipeEnd final : public INamedPipeConnection {
public:
    void OpenNewPipe(const wchar_t* name) override;
    void WaitForConnection() override;
    void OpenExisting(const wchar_t* name, uint32_t timeout) override;
    bool Receive(unsigned char* buffer, uint32_t* length) override;
    uint32_t Send(const unsigned char* buffer, uint32_t length) override;

    // Closes this end: the peer's Receive returns false once it has read what is queued.
    void Close();
    // The peer's Receive returns false once it has read what is queued; its Send still works.
    void CloseWhenDrained();
    bool IsClosed() const;

    // Queues a message from this end to the peer (Send without the closed checks' texts).
    template <typename Message>
    void SendMessage(const Message& message) {
        Send(reinterpret_cast<const unsigned char*>(&message),
             static_cast<uint32_t>(sizeof message));
    }
    void SendBytes(const PipeBytes& bytes);

    // For the test thread: the next message for this end, waiting at most `timeout`; nothing
    // when none arrived in time or the peer closed with nothing queued.
    std::optional<PipeBytes> ReceiveFor(std::chrono::milliseconds timeout);
    // Messages queued for this end and not yet received.
    size_t PendingCount() const;
    // Every message this end sent, in order.
    std::vector<PipeBytes> Sent() const;

    // Recorded calls of the opening operations.
    std::vector<std::wstring> OpenNewPipeNames() const;
    std::vector<std::wstring> OpenExistingNames() const;
    std::vector<uint32_t> OpenExistingTimeouts() const;
    int WaitForConnectionCalls() const;

    // The next call of that operation throws std::runtime_error(text) instead.
    void FailNextOpenNewPipe(std::string text);
    void FailNextWaitForConnection(std::string text);
    void FailNextOpenExisting(std::string text);

private:
    friend class InMemoryPipe;
    InMemoryPipeEnd(InMemoryPipe* pipe, int side) : m_pipe(pipe), m_side(side) {}

    InMemoryPipe* m_pipe;
    int m_side;
};

class InMemoryPipe {
public:
    InMemoryPipe();
    InMemoryPipe(const InMemoryPipe&) = delete;
    InMemoryPipe& operator=(const InMemoryPipe&) = delete;

    InMemoryPipeEnd& ServerEnd() { return m_server; }
    InMemoryPipeEnd& ClientEnd() { return m_client; }

private:
    friend class InMemoryPipeEnd;

    struct Side {
        std::deque<PipeBytes> inbox;  // messages for this end
        std::vector<PipeBytes> sent;  // messages this end sent
        bool closed = false;
        bool closeWhenDrained = false;
        std::vector<std::wstring> openNewNames;
        std::vector<std::wstring> openExistingNames;
        std::vector<uint32_t> openExistingTimeouts;
        int waitCalls = 0;
        std::optional<std::string> failOpenNew;
        std::optional<std::string> failWait;
        std::optional<std::string> failOpenExisting;
    };

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    Side m_sides[2];
    InMemoryPipeEnd m_server;
    InMemoryPipeEnd m_client;
};
