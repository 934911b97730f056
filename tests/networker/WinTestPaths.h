#pragma once
// Paths and service registration for the wrapper's tests under Wine.

#include <windows.h>

#include <string>

// Directory of the running test program, without a trailing backslash.
std::wstring ProgramDirectory();

// A fake NetWorker installation built beside the tests: "full", "nsrbsa", "nobsa", "nolibasm",
// "nogetdata". Absolute, without a trailing backslash.
std::wstring FakeInstallation(const wchar_t* variant);

// Registers the service "nsrexecd" with the given binary path for the life of the object and
// deletes it afterwards. A leftover registration from an earlier run is replaced.
class ScopedNsrexecdService {
public:
    explicit ScopedNsrexecdService(const std::wstring& binaryPath);
    ~ScopedNsrexecdService();
    ScopedNsrexecdService(const ScopedNsrexecdService&) = delete;
    ScopedNsrexecdService& operator=(const ScopedNsrexecdService&) = delete;

    void ChangeBinaryPath(const std::wstring& binaryPath);

    // The code under test keeps a handle to the service open: at the end the deletion is
    // expected to stay pending until this process exits.
    void ExpectHandleLeftOpen() { m_handleLeftOpen = true; }

private:
    bool m_handleLeftOpen = false;
};

// A binary path to the fake installation "full" whose service configuration needs exactly
// `bytes` bytes (arguments without a backslash pad it); empty when that cannot be made.
std::wstring BinaryPathNeeding(ScopedNsrexecdService& service, unsigned long bytes);

// Bytes QueryServiceConfigW needs for the registered "nsrexecd"; 0 when it cannot tell.
unsigned long NsrexecdConfigBytesNeeded();

// Deletes "nsrexecd" if it is registered; true when it is gone afterwards.
bool RemoveNsrexecdService();
