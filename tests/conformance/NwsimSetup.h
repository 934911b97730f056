#pragma once
// A simulated NetWorker installation for host-level tests: nwsim-admin (built beside the test
// programs) installs the image and registers "nsrexecd" in this Wine prefix, then seeds the
// Exchange backup of client "cli" on server "srv". NWSIM_ROOT is set in this process's
// environment, so the helper program inherits it.

#include <windows.h>

#include <string>

// Runs a program of the test program's directory with these arguments; returns its exit code,
// or -1 when it could not be started. Quiet: its output is thrown away (benchmarks print one line).
int RunTestProgram(const std::wstring& program, const std::wstring& arguments, bool quiet = false);

// A scoped environment variable of this process (children inherit it).
class ScopedEnvironment {
public:
    ScopedEnvironment(const wchar_t* name, const std::wstring& value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const wchar_t* m_name;
};

struct NwsimInstallation {
    std::wstring directory;  // the installed image
    std::wstring storeRoot;  // the store
};

// Installs and seeds once per test program (objects = 0: the 31 seeded objects). Returns
// false with a reason when nwsim-admin failed.
bool InstallSeededNwsim(const wchar_t* purpose, unsigned objects, NwsimInstallation* out,
                        std::wstring* reason, bool quiet = false);

// nwsim-admin verify: true when file holds exactly the object's content.
bool VerifyAgainstStore(const NwsimInstallation& nwsim, unsigned objectId,
                        const std::wstring& file);

// A fresh empty directory under the temporary directory.
std::wstring MakeScratchDirectory(const wchar_t* purpose);
