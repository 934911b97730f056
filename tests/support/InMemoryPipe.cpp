#include "InMemoryPipe.h"

#include <cstring>
#include <stdexcept>

namespace {

void ThrowIfScripted(std::optional<std::string>& failure) {
    if (failure) {
        std::string text = std::move(*failure);
        failure.reset();
        throw std::runtime_error(text);
    }
}

}  // namespace

InMemoryPipe::InMemoryPipe() : m_server(this, 0), m_client(this, 1) {}

void InMemoryPipeEnd::OpenNewPipe(const wchar_t* name) {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    auto& side = m_pipe->m_sides[m_side];
    side.openNewNames.emplace_back(name != nullptr ? name : L"");
    ThrowIfScripted(side.failOpenNew);
}

void InMemoryPipeEnd::WaitForConnection() {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    auto& side = m_pipe->m_sides[m_side];
    ++side.waitCalls;
    ThrowIfScripted(side.failWait);
}

void InMemoryPipeEnd::OpenExisting(const wchar_t* name, uint32_t timeout) {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    auto& side = m_pipe->m_sides[m_side];
    side.openExistingNames.emplace_back(name != nullptr ? name : L"");
    side.openExistingTimeouts.push_back(timeout);
    ThrowIfScripted(side.failOpenExisting);
}

bool InMemoryPipeEnd::Receive(unsigned char* buffer, uint32_t* length) {
    std::unique_lock<std::mutex> lock(m_pipe->m_mutex);
    auto& self = m_pipe->m_sides[m_side];
    auto& peer = m_pipe->m_sides[1 - m_side];
    if (self.closed) {
        throw std::runtime_error("Named pipe is not connected!");
    }
    m_pipe->m_changed.wait(lock, [&] {
        return !self.inbox.empty() || peer.closed || peer.closeWhenDrained || self.closed;
    });
    if (self.closed) {
        throw std::runtime_error("Named pipe is not connected!");
    }
    if (self.inbox.empty()) {
        return false;  // the peer has gone and everything it sent has been read
    }
    PipeBytes message = std::move(self.inbox.front());
    self.inbox.pop_front();
    if (message.size() > *length) {
        throw std::runtime_error("ReadFile from pipe failed. GetLastError()=234");
    }
    if (!message.empty()) {
        std::memcpy(buffer, message.data(), message.size());
    }
    *length = static_cast<uint32_t>(message.size());
    return true;
}

uint32_t InMemoryPipeEnd::Send(const unsigned char* buffer, uint32_t length) {
    {
        std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
        auto& self = m_pipe->m_sides[m_side];
        auto& peer = m_pipe->m_sides[1 - m_side];
        if (self.closed) {
            throw std::runtime_error("Named pipe is not connected!");
        }
        if (peer.closed) {
            throw std::runtime_error("WriteFile to pipe failed. GetLastError()=232");
        }
        PipeBytes message(buffer, buffer + length);
        self.sent.push_back(message);
        peer.inbox.push_back(std::move(message));
    }
    m_pipe->m_changed.notify_all();
    return length;
}

void InMemoryPipeEnd::SendBytes(const PipeBytes& bytes) {
    Send(bytes.data(), static_cast<uint32_t>(bytes.size()));
}

void InMemoryPipeEnd::Close() {
    {
        std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
        m_pipe->m_sides[m_side].closed = true;
    }
    m_pipe->m_changed.notify_all();
}

void InMemoryPipeEnd::CloseWhenDrained() {
    {
        std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
        m_pipe->m_sides[m_side].closeWhenDrained = true;
    }
    m_pipe->m_changed.notify_all();
}

bool InMemoryPipeEnd::IsClosed() const {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    return m_pipe->m_sides[m_side].closed;
}

std::optional<PipeBytes> InMemoryPipeEnd::ReceiveFor(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_pipe->m_mutex);
    auto& self = m_pipe->m_sides[m_side];
    auto& peer = m_pipe->m_sides[1 - m_side];
    m_pipe->m_changed.wait_for(
        lock, timeout, [&] { return !self.inbox.empty() || peer.closed || peer.closeWhenDrained; });
    if (self.inbox.empty()) {
        return std::nullopt;
    }
    PipeBytes message = std::move(self.inbox.front());
    self.inbox.pop_front();
    return message;
}

size_t InMemoryPipeEnd::PendingCount() const {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    return m_pipe->m_sides[m_side].inbox.size();
}

std::vector<PipeBytes> InMemoryPipeEnd::Sent() const {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    return m_pipe->m_sides[m_side].sent;
}

std::vector<std::wstring> InMemoryPipeEnd::OpenNewPipeNames() const {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    return m_pipe->m_sides[m_side].openNewNames;
}

std::vector<std::wstring> InMemoryPipeEnd::OpenExistingNames() const {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    return m_pipe->m_sides[m_side].openExistingNames;
}

std::vector<uint32_t> InMemoryPipeEnd::OpenExistingTimeouts() const {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    return m_pipe->m_sides[m_side].openExistingTimeouts;
}

int InMemoryPipeEnd::WaitForConnectionCalls() const {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    return m_pipe->m_sides[m_side].waitCalls;
}

void InMemoryPipeEnd::FailNextOpenNewPipe(std::string text) {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    m_pipe->m_sides[m_side].failOpenNew = std::move(text);
}

void InMemoryPipeEnd::FailNextWaitForConnection(std::string text) {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    m_pipe->m_sides[m_side].failWait = std::move(text);
}

void InMemoryPipeEnd::FailNextOpenExisting(std::string text) {
    std::lock_guard<std::mutex> lock(m_pipe->m_mutex);
    m_pipe->m_sides[m_side].failOpenExisting = std::move(text);
}
