#pragma once
// The Windows side of the hardened pipe mode: reading the switch, the pipe's current-user-only
// security descriptor, the process ids on both ends, and the helper processes that a host's
// built-in launcher has started and is waiting for. Windows only.

#include <windows.h>

#include <string>

#include "common/UniqueHandle.h"
#include "pipe/PipeHardening.h"

// NWX_PIPE_HARDENING of this process, read at each call.
PipeHardening ReadPipeHardening();

// The current user's SID as a string ("S-1-5-21-..."); false with *error otherwise.
bool CurrentUserSid(std::wstring* sid, DWORD* error);

// SECURITY_ATTRIBUTES whose descriptor lets only the current user and LocalSystem in.
class CurrentUserOnlySecurity {
public:
    CurrentUserOnlySecurity() = default;
    CurrentUserOnlySecurity(const CurrentUserOnlySecurity&) = delete;
    CurrentUserOnlySecurity& operator=(const CurrentUserOnlySecurity&) = delete;

    // False with *error when the descriptor cannot be built.
    bool Build(DWORD* error);
    SECURITY_ATTRIBUTES* Attributes() { return &m_attributes; }

private:
    UniqueLocalMemory m_descriptor;
    SECURITY_ATTRIBUTES m_attributes{};
};

// The id of the process that started this one (0 when it cannot be found).
DWORD ParentProcessId();

// A helper process started by the built-in launcher of a hardened host, for the pipe it was
// started for. The host keeps the process handle until the helper has connected, so that its
// id cannot pass to another process in the meantime.
struct ExpectedPipeClient {
    UniqueHandle process;
    DWORD processId = 0;
};

// Remembers (replacing any earlier one) the helper started for the pipe named pipeName
// (without "\\.\pipe\").
void ExpectPipeClient(const std::wstring& pipeName, ExpectedPipeClient client);
// Hands over and forgets the helper remembered for pipeName; false when there is none.
bool TakeExpectedPipeClient(const std::wstring& pipeName, ExpectedPipeClient* client);
