#include "PipeSecurity.h"

#include <sddl.h>
#include <tlhelp32.h>

#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "common/EnvironmentVariable.h"

namespace {

class ExpectedPipeClients {
public:
    void Put(const std::wstring& pipeName, ExpectedPipeClient client) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_clients[pipeName] = std::move(client);
    }
    bool Take(const std::wstring& pipeName, ExpectedPipeClient* client) {
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto found = m_clients.find(pipeName);
        if (found == m_clients.end()) {
            return false;
        }
        *client = std::move(found->second);
        m_clients.erase(found);
        return true;
    }

private:
    std::mutex m_mutex;
    std::map<std::wstring, ExpectedPipeClient> m_clients;
};

ExpectedPipeClients& Expected() {
    static ExpectedPipeClients clients;
    return clients;
}

}  // namespace

PipeHardening ReadPipeHardening() {
    std::wstring value;
    if (!ReadEnvironmentVariable(kPipeHardeningVariable, &value)) {
        return PipeHardening::Off;
    }
    return ParsePipeHardening(value.c_str());
}

bool CurrentUserSid(std::wstring* sid, DWORD* error) {
    HANDLE rawToken = nullptr;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &rawToken)) {
        *error = ::GetLastError();
        return false;
    }
    const UniqueHandle token(rawToken);
    DWORD size = 0;
    (void)::GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
    std::vector<unsigned char> user(size == 0 ? sizeof(TOKEN_USER) : size);
    if (!::GetTokenInformation(token.get(), TokenUser, user.data(), static_cast<DWORD>(user.size()),
                               &size)) {
        *error = ::GetLastError();
        return false;
    }
    wchar_t* text = nullptr;
    if (!::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(user.data())->User.Sid, &text)) {
        *error = ::GetLastError();
        return false;
    }
    const UniqueLocalMemory owned(text);
    *sid = text;
    return true;
}

bool CurrentUserOnlySecurity::Build(DWORD* error) {
    std::wstring sid;
    if (!CurrentUserSid(&sid, error)) {
        return false;
    }
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(
            CurrentUserOnlyPipeSddl(sid).c_str(), SDDL_REVISION_1, &descriptor, nullptr)) {
        *error = ::GetLastError();
        return false;
    }
    m_descriptor.reset(descriptor);
    m_attributes.nLength = sizeof m_attributes;
    m_attributes.lpSecurityDescriptor = m_descriptor.get();
    m_attributes.bInheritHandle = FALSE;
    return true;
}

DWORD ParentProcessId() {
    const UniqueFileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot.valid()) {
        return 0;
    }
    const DWORD self = ::GetCurrentProcessId();
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Process32FirstW(snapshot.get(), &entry); more != FALSE;
         more = ::Process32NextW(snapshot.get(), &entry)) {
        if (entry.th32ProcessID == self) {
            return entry.th32ParentProcessID;
        }
    }
    return 0;
}

void ExpectPipeClient(const std::wstring& pipeName, ExpectedPipeClient client) {
    Expected().Put(pipeName, std::move(client));
}

bool TakeExpectedPipeClient(const std::wstring& pipeName, ExpectedPipeClient* client) {
    return Expected().Take(pipeName, client);
}
