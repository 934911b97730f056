#pragma once
// The hardened pipe mode, switched on for host and helper by one environment variable that
// the helper inherits: NWX_PIPE_HARDENING. Off by default, so that the pipe behaves as hosts
// have always known it. What the mode changes is in docs/security.md. Platform-neutral: the
// decisions and texts are here, the Windows calls in PipeSecurity.

#include <cstdint>
#include <stdexcept>
#include <string>

constexpr wchar_t kPipeHardeningVariable[] = L"NWX_PIPE_HARDENING";
// Set by a launcher in the helper's environment: the id of the process that started the
// helper and serves its pipe. A hardened helper serves only that process, and only when it is
// its parent.
constexpr wchar_t kPipeServerProcessVariable[] = L"NWX_PIPE_SERVER_PROCESS";

enum class PipeHardening {
    Off,           // unset, empty, "0", "false", "no", "off"
    On,            // "1", "true", "yes", "on"
    Unrecognised,  // anything else: hardened all the same, with an Error line
};

// Any case, blanks around the value ignored; null means unset.
PipeHardening ParsePipeHardening(const wchar_t* value);

inline bool IsHardened(PipeHardening hardening) {
    return hardening != PipeHardening::Off;
}

// The pipe's security descriptor in SDDL: a protected DACL that lets only the given user
// (a SID string, "S-1-5-21-...") and LocalSystem open the pipe or create its instances.
std::wstring CurrentUserOnlyPipeSddl(const std::wstring& userSid);

// A hardened host found its pipe name taken by another process: the pipe is not served beside
// it. Carries the Windows error number of the refusal.
class PipeNameTakenError : public std::runtime_error {
public:
    PipeNameTakenError(const std::string& text, uint32_t windowsError)
        : std::runtime_error(text), m_windowsError(windowsError) {}
    uint32_t WindowsError() const { return m_windowsError; }

private:
    uint32_t m_windowsError;
};
