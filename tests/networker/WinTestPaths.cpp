#include "WinTestPaths.h"

#include <gtest/gtest.h>

#include <vector>

#include "common/UniqueHandle.h"

std::wstring ProgramDirectory() {
    wchar_t path[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring program(path, length);
    return program.substr(0, program.rfind(L'\\'));
}

std::wstring FakeInstallation(const wchar_t* variant) {
    const std::wstring relative = ProgramDirectory() + L"\\..\\networker-fakes\\" + variant;
    wchar_t full[MAX_PATH] = {};
    GetFullPathNameW(relative.c_str(), MAX_PATH, full, nullptr);
    return full;
}

namespace {

UniqueServiceHandle OpenManager() {
    return UniqueServiceHandle(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
}

bool ServiceExists(SC_HANDLE manager) {
    UniqueServiceHandle service(OpenServiceW(manager, L"nsrexecd", SERVICE_QUERY_CONFIG));
    return service.valid();
}

}  // namespace

unsigned long NsrexecdConfigBytesNeeded() {
    UniqueServiceHandle manager = OpenManager();
    UniqueServiceHandle service(
        manager ? OpenServiceW(manager.get(), L"nsrexecd", SERVICE_QUERY_CONFIG) : nullptr);
    DWORD needed = 0;
    if (!service || QueryServiceConfigW(service.get(), nullptr, 0, &needed) ||
        GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
        return 0;
    }
    return needed;
}

bool RemoveNsrexecdService() {
    UniqueServiceHandle manager = OpenManager();
    if (!manager) {
        return false;
    }
    {
        UniqueServiceHandle service(OpenServiceW(manager.get(), L"nsrexecd", DELETE));
        if (service) {
            DeleteService(service.get());
        }
    }
    // Deletion completes once the last handle to the service is closed.
    for (int i = 0; i < 100 && ServiceExists(manager.get()); ++i) {
        Sleep(20);
    }
    return !ServiceExists(manager.get());
}

namespace {

void RegisterNsrexecd(const std::wstring& binaryPath) {
    EXPECT_TRUE(RemoveNsrexecdService());
    UniqueServiceHandle manager = OpenManager();
    ASSERT_TRUE(manager.valid()) << GetLastError();
    UniqueServiceHandle service(CreateServiceW(
        manager.get(), L"nsrexecd", L"NetWorker Remote Exec Service", SERVICE_ALL_ACCESS,
        SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE, binaryPath.c_str(),
        nullptr, nullptr, nullptr, nullptr, nullptr));
    ASSERT_TRUE(service.valid()) << GetLastError();
}

}  // namespace

ScopedNsrexecdService::ScopedNsrexecdService(const std::wstring& binaryPath) {
    RegisterNsrexecd(binaryPath);
}

ScopedNsrexecdService::~ScopedNsrexecdService() {
    EXPECT_NE(m_handleLeftOpen, RemoveNsrexecdService());
}

std::wstring BinaryPathNeeding(ScopedNsrexecdService& service, unsigned long bytes) {
    const std::wstring program = L"\"" + FakeInstallation(L"full") + L"\\nsrexecd.exe\" -p";
    service.ChangeBinaryPath(program);
    const unsigned long base = NsrexecdConfigBytesNeeded();
    if (base == 0 || bytes < base || (bytes - base) % sizeof(wchar_t) != 0) {
        return std::wstring();
    }
    const std::wstring path = program + std::wstring((bytes - base) / sizeof(wchar_t), L'x');
    service.ChangeBinaryPath(path);
    return NsrexecdConfigBytesNeeded() == bytes ? path : std::wstring();
}

void ScopedNsrexecdService::ChangeBinaryPath(const std::wstring& binaryPath) {
    UniqueServiceHandle manager = OpenManager();
    ASSERT_TRUE(manager.valid());
    UniqueServiceHandle service(OpenServiceW(manager.get(), L"nsrexecd", SERVICE_CHANGE_CONFIG));
    ASSERT_TRUE(service.valid());
    ASSERT_TRUE(ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                     SERVICE_NO_CHANGE, binaryPath.c_str(), nullptr, nullptr,
                                     nullptr, nullptr, nullptr, nullptr));
}
