#pragma once
// Starts NetWorker64BitClient.exe from nwexch.exe's own directory (never from the current
// directory) for the out-of-process mode, and keeps an eye on it until it has connected. Each
// helper is known by the name of its pipe: a restore with --jobs runs one per session.

#include <windows.h>

#include <string>

// The launcher handed to AllocateNetWorkerNamedPipeExecutor: the pipe name is the helper's
// whole command line. Returns 0, or the HRESULT of the Windows error.
long LaunchHelperFromOwnDirectory(const wchar_t* pipeName);

namespace helper_process {

// Full path of the helper program beside nwexch.exe.
std::wstring HelperPath();

// Call once the executor's Initialize has returned: from then on the helper is watched only
// through the pipe.
void MarkConnected(const std::wstring& pipeName);

// True when the helper ended before it connected (the pipe was then opened and closed by the
// watcher, so that the waiting executor is released); *exitCode receives its exit code.
bool EndedBeforeConnecting(const std::wstring& pipeName, DWORD* exitCode);

// Windows error of a failed start (0 when it started or was never asked to).
DWORD StartError(const std::wstring& pipeName);

// After the pipe has been closed: give the helper time to finish, then make sure it is gone.
void WaitForExit(const std::wstring& pipeName);

}  // namespace helper_process
