#pragma once
// The one set-up of the simulated NetWorker (nwsim) for tests and benchmarks: installs the
// image into a fresh temporary directory with the chosen variant, registers the "nsrexecd"
// service of the test's Wine prefix, seeds the Exchange backup of docs/nwsim.md, points
// NWSIM_ROOT and NWSIM_JOURNAL of this process (and so of the programs it starts) at its own
// store and journal, and undoes all of it on destruction (service deleted, directories removed,
// environment restored). A test program that needs one installation for all its tests keeps the
// fixture in a global test environment. Windows only.
//
// Every test that uses it changes the one "nsrexecd" service of the prefix: give such ctest
// entries the property RESOURCE_LOCK nsrexecd so they never run side by side.
// The test executable must sit in the same directory as nwsim-admin.exe (<build>/bin) and depend
// on the target nwsim-admin.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class TempDirectory;

struct SimulatorOptions {
    std::wstring xbsaName;                  // empty: libbsa.dll; or L"libnsrbsa.dll"
    std::vector<std::wstring> omitFiles;    // installed names left out, e.g. L"librap.dll"
    std::vector<std::wstring> omitExports;  // e.g. L"BSAGetData": the variant DLL without it
    std::wstring binaryPath;      // exact service binary path; empty: "\"D\\nsrexecd.exe\""
    bool registerService = true;  // false: the service is deleted, not registered
    bool seedExchange = true;     // seed-exchange for server/client below
    unsigned objects = 0;         // seed-exchange --objects (0: the 31 seeded objects)
    uint64_t databaseSize = 0;    // seed-exchange --db-size (0: its default)
    std::wstring server = L"srv";
    std::wstring client = L"cli";
};

class SimulatorFixture {
public:
    explicit SimulatorFixture(SimulatorOptions options = SimulatorOptions());
    ~SimulatorFixture();
    SimulatorFixture(const SimulatorFixture&) = delete;
    SimulatorFixture& operator=(const SimulatorFixture&) = delete;

    // True when installation and seeding succeeded; otherwise Failure() says what went wrong.
    bool Ready() const { return m_ready; }
    const std::string& Failure() const { return m_failure; }

    const std::wstring& InstallDirectory() const {
        return m_installDir;
    }  // absolute, no '\' at end
    const std::wstring& StoreRoot() const { return m_storeRoot; }
    const std::wstring& JournalPath() const { return m_journalPath; }

    // The journal's lines so far (without line ends), and forgetting them.
    std::vector<std::string> JournalLines() const;
    std::vector<std::string> JournalLinesOf(const std::string& call) const;  // lines "<call> ..."
    void ClearJournal() const;

    // NWSIM_FAULTS for this process and the children it starts; empty clears it.
    void SetFaults(const std::wstring& faults) const;

    // nwsim-admin verify of `object` (an id or a path) of the fixture's server and client
    // against `file`: true when byte for byte equal; output: what the tool printed.
    bool Verify(const std::wstring& object, const std::wstring& file,
                std::string* output = nullptr) const;
    // Runs nwsim-admin's install again as the constructor did (after a test uninstalled it).
    bool Reinstall() const;

    // Runs nwsim-admin.exe with the given arguments (the fixture's --root is not added) and
    // returns its exit code, or -1 when it could not be started. Output: stdout and stderr.
    static int RunAdmin(const std::wstring& arguments, std::string* output = nullptr);
    static std::wstring AdminPath();

private:
    bool Fail(const std::string& what);

    bool m_ready = false;
    std::string m_failure;
    std::unique_ptr<TempDirectory> m_base;
    std::wstring m_installCommand;
    std::wstring m_server;
    std::wstring m_client;
    std::wstring m_installDir;
    std::wstring m_storeRoot;
    std::wstring m_journalPath;
    struct SavedVariable {
        std::wstring name;
        bool present;
        std::wstring value;
    };
    std::vector<SavedVariable> m_saved;
};
