#pragma once
// A simulated NetWorker installation (nwsim) for one test: installs the image into a fresh
// temporary directory with the chosen variant, registers the "nsrexecd" service of the test's
// Wine prefix, seeds the Exchange backup of docs/nwsim.md, points NWSIM_ROOT and NWSIM_JOURNAL of
// this process at its own store and journal, and undoes all of it on destruction (service
// deleted, directories removed, environment restored). Windows only.
//
// Every test that uses it changes the one "nsrexecd" service of the prefix: give such ctest
// entries the property RESOURCE_LOCK nsrexecd so they never run side by side.
// The test executable must sit in the same directory as nwsim-admin.exe (<build>/bin) and depend
// on the target nwsim-admin.

#include <string>
#include <vector>

struct SimulatorOptions {
    std::wstring xbsaName;                  // empty: libbsa.dll; or L"libnsrbsa.dll"
    std::vector<std::wstring> omitFiles;    // installed names left out, e.g. L"librap.dll"
    std::vector<std::wstring> omitExports;  // e.g. L"BSAGetData": the variant DLL without it
    std::wstring binaryPath;      // exact service binary path; empty: "\"D\\nsrexecd.exe\""
    bool registerService = true;  // false: the service is deleted, not registered
    bool seedExchange = true;     // seed-exchange for server/client below
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

    // Runs nwsim-admin.exe with the given arguments (the fixture's --root is not added) and
    // returns its exit code, or -1 when it could not be started. Output: stdout and stderr.
    static int RunAdmin(const std::wstring& arguments, std::string* output = nullptr);
    static std::wstring AdminPath();

private:
    bool Fail(const std::string& what);

    bool m_ready = false;
    std::string m_failure;
    std::wstring m_baseDir;
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
