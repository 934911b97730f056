#include "ScriptedConnection.h"

#include <algorithm>
#include <stdexcept>

void ScriptedConnection::OpenNewPipe(const wchar_t* name) {
    m_calls.push_back(std::wstring(L"OpenNewPipe:") + name);
}

void ScriptedConnection::WaitForConnection() {
    m_calls.push_back(L"WaitForConnection");
}

void ScriptedConnection::OpenExisting(const wchar_t* name, uint32_t timeout) {
    m_calls.push_back(std::wstring(L"OpenExisting:") + name + L":" + std::to_wstring(timeout));
}

bool ScriptedConnection::Receive(unsigned char* buffer, uint32_t* length) {
    m_lastCapacity = *length;
    // An exhausted script behaves like a helper that has gone away.
    if (m_incoming.empty() || m_incoming.front().closed) {
        if (!m_incoming.empty()) {
            m_incoming.pop_front();
        }
        return false;
    }
    Bytes message = std::move(m_incoming.front().bytes);
    m_incoming.pop_front();
    if (message.size() > *length) {
        throw std::runtime_error("ReadFile from pipe failed. GetLastError()=234");
    }
    std::copy(message.begin(), message.end(), buffer);
    *length = static_cast<uint32_t>(message.size());
    return true;
}

uint32_t ScriptedConnection::Send(const unsigned char* buffer, uint32_t length) {
    if (!m_sendFailure.empty()) {
        const std::string text = std::move(m_sendFailure);
        m_sendFailure.clear();
        throw std::runtime_error(text);
    }
    m_sent.emplace_back(buffer, buffer + length);
    return length;
}
