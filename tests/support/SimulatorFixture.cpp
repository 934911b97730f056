#include "SimulatorFixture.h"

#include <windows.h>

#include <vector>

#include "TestFiles.h"
#include "common/UniqueHandle.h"

namespace {

std::wstring ProgramDirectory() {
    std::vector<wchar_t> path(32768);
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    std::wstring program(path.data(), length);
    return program.substr(0, program.rfind(L'\\'));
}

std::string Narrow(const std::wstring& text) {
    if (text.empty()) {
        return std::string();
    }
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                           nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &result[0], length,
                        nullptr, nullptr);
    return result;
}

std::wstring Quoted(const std::wstring& text) {
    return L"\"" + text + L"\"";
}

}  // namespace

std::wstring SimulatorFixture::AdminPath() {
    return ProgramDirectory() + L"\\nwsim-admin.exe";
}

int SimulatorFixture::RunAdmin(const std::wstring& arguments, std::string* output) {
    SECURITY_ATTRIBUTES inheritable = {};
    inheritable.nLength = sizeof(inheritable);
    inheritable.bInheritHandle = TRUE;
    UniqueHandle readEnd;
    UniqueHandle writeEnd;
    if (!CreatePipe(readEnd.put(), writeEnd.put(), &inheritable, 0)) {
        return -1;
    }
    SetHandleInformation(readEnd.get(), HANDLE_FLAG_INHERIT, 0);

    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = writeEnd.get();
    startup.hStdError = writeEnd.get();
    std::wstring commandLine = Quoted(AdminPath()) + L" " + arguments;
    PROCESS_INFORMATION child = {};
    if (!CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, TRUE, CREATE_NO_WINDOW, nullptr,
                        nullptr, &startup, &child)) {
        return -1;
    }
    UniqueHandle process(child.hProcess);
    UniqueHandle thread(child.hThread);
    writeEnd.reset();  // the read below ends when the child's copies close

    std::string text;
    char buffer[4096];
    DWORD got = 0;
    while (ReadFile(readEnd.get(), buffer, sizeof(buffer), &got, nullptr) && got > 0) {
        text.append(buffer, got);
    }
    WaitForSingleObject(process.get(), INFINITE);
    DWORD exitCode = static_cast<DWORD>(-1);
    GetExitCodeProcess(process.get(), &exitCode);
    if (output != nullptr) {
        *output = text;
    }
    return static_cast<int>(exitCode);
}

bool SimulatorFixture::Fail(const std::string& what) {
    m_failure = what;
    m_ready = false;
    return false;
}

SimulatorFixture::SimulatorFixture(SimulatorOptions options) {
    for (const wchar_t* name : {L"NWSIM_ROOT", L"NWSIM_JOURNAL", L"NWSIM_FAULTS"}) {
        std::vector<wchar_t> value(32768);
        SetLastError(0);
        const DWORD length =
            GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
        const bool present = length > 0 || GetLastError() != ERROR_ENVVAR_NOT_FOUND;
        m_saved.push_back(SavedVariable{name, present, std::wstring(value.data(), length)});
    }
    SetEnvironmentVariableW(L"NWSIM_FAULTS", nullptr);

    m_server = options.server;
    m_client = options.client;
    m_base = std::make_unique<TempDirectory>("sim");
    m_installDir = m_base->Child(L"nw");
    m_storeRoot = m_base->Child(L"store");
    m_journalPath = m_base->Child(L"journal.txt");
    if (!CreateDirectoryW(m_storeRoot.c_str(), nullptr)) {
        Fail("cannot create the store directory");
        return;
    }
    SetEnvironmentVariableW(L"NWSIM_ROOT", m_storeRoot.c_str());
    SetEnvironmentVariableW(L"NWSIM_JOURNAL", m_journalPath.c_str());

    std::wstring install =
        L"install --dir " + Quoted(m_installDir) + L" --root " + Quoted(m_storeRoot);
    if (!options.xbsaName.empty()) {
        install += L" --xbsa-name " + options.xbsaName;
    }
    for (const std::wstring& file : options.omitFiles) {
        install += L" --omit " + file;
    }
    for (const std::wstring& name : options.omitExports) {
        install += L" --omit-export " + name;
    }
    if (!options.binaryPath.empty()) {
        // The admin tool splits its command line with the C runtime's rules.
        std::wstring escaped;
        for (wchar_t c : options.binaryPath) {
            if (c == L'"') {
                escaped += L'\\';
            }
            escaped += c;
        }
        install += L" --binpath \"" + escaped + L"\"";
    }
    if (!options.registerService) {
        install += L" --no-service";
    }

    m_installCommand = install;
    std::string output;
    if (!options.registerService) {
        const int removed = RunAdmin(L"uninstall", &output);
        if (removed != 0) {
            Fail("nwsim-admin uninstall failed (" + std::to_string(removed) + "): " + output);
            return;
        }
    }
    const int installed = RunAdmin(install, &output);
    if (installed != 0) {
        Fail("nwsim-admin " + Narrow(install) + " failed (" + std::to_string(installed) +
             "): " + output);
        return;
    }
    if (options.seedExchange) {
        std::wstring seed = L"seed-exchange --root " + Quoted(m_storeRoot) + L" --server " +
                            options.server + L" --client " + options.client;
        if (options.objects != 0) {
            seed += L" --objects " + std::to_wstring(options.objects);
        }
        if (options.databaseSize != 0) {
            seed += L" --db-size " + std::to_wstring(options.databaseSize);
        }
        const int seeded = RunAdmin(seed, &output);
        if (seeded != 0) {
            Fail("nwsim-admin seed-exchange failed (" + std::to_string(seeded) + "): " + output);
            return;
        }
    }
    m_ready = true;
}

SimulatorFixture::~SimulatorFixture() {
    if (!m_installDir.empty()) {
        RunAdmin(L"uninstall --dir " + Quoted(m_installDir));
    }
    m_base.reset();  // the directories, with everything in them
    for (const SavedVariable& saved : m_saved) {
        SetEnvironmentVariableW(saved.name.c_str(), saved.present ? saved.value.c_str() : nullptr);
    }
}

std::vector<std::string> SimulatorFixture::JournalLines() const {
    std::vector<std::string> lines;
    UniqueFileHandle file(CreateFileW(m_journalPath.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return lines;
    }
    std::string text;
    char buffer[4096];
    DWORD got = 0;
    while (ReadFile(file.get(), buffer, sizeof(buffer), &got, nullptr) && got > 0) {
        text.append(buffer, got);
    }
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos) {
            end = text.size();
        }
        std::string line = text.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (!line.empty()) {
            lines.push_back(line);
        }
        start = end + 1;
    }
    return lines;
}

std::vector<std::string> SimulatorFixture::JournalLinesOf(const std::string& call) const {
    std::vector<std::string> result;
    for (const std::string& line : JournalLines()) {
        if (line.compare(0, call.size() + 1, call + " ") == 0) {
            result.push_back(line);
        }
    }
    return result;
}

bool SimulatorFixture::Verify(const std::wstring& object, const std::wstring& file,
                              std::string* output) const {
    return RunAdmin(L"verify --root " + Quoted(m_storeRoot) + L" --server " + m_server +
                        L" --client " + m_client + L" --object " + Quoted(object) + L" --file " +
                        Quoted(file),
                    output) == 0;
}

bool SimulatorFixture::Reinstall() const {
    return RunAdmin(m_installCommand) == 0;
}

void SimulatorFixture::ClearJournal() const {
    DeleteFileW(m_journalPath.c_str());
}

void SimulatorFixture::SetFaults(const std::wstring& faults) const {
    SetEnvironmentVariableW(L"NWSIM_FAULTS", faults.empty() ? nullptr : faults.c_str());
}
