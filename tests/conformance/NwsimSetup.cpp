#include "NwsimSetup.h"

#include <vector>

#include "../exports/ExportsTestSupport.h"
#include "common/UniqueHandle.h"

int RunTestProgram(const std::wstring& program, const std::wstring& arguments, bool quiet) {
    const std::wstring path = TestProgramDirectory() + L"\\" + program;
    std::wstring commandLine = L"\"" + path + L"\" " + arguments;
    std::vector<wchar_t> writable(commandLine.begin(), commandLine.end());
    writable.push_back(L'\0');
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    UniqueFileHandle output;
    if (quiet) {
        // A scratch file that goes away with its last handle takes the program's output.
        SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
        const std::wstring sink = MakeScratchDirectory(L"output") + L"\\output.txt";
        output.reset(CreateFileW(sink.c_str(), GENERIC_WRITE,
                                 FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                 &inheritable, CREATE_ALWAYS,
                                 FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = output.get();
        startup.hStdError = output.get();
    }
    PROCESS_INFORMATION info{};
    if (!CreateProcessW(path.c_str(), writable.data(), nullptr, nullptr, quiet ? TRUE : FALSE, 0,
                        nullptr, nullptr, &startup, &info)) {
        return -1;
    }
    UniqueHandle process(info.hProcess);
    UniqueHandle thread(info.hThread);
    WaitForSingleObject(process.get(), INFINITE);
    DWORD exitCode = 0;
    GetExitCodeProcess(process.get(), &exitCode);
    return static_cast<int>(exitCode);
}

ScopedEnvironment::ScopedEnvironment(const wchar_t* name, const std::wstring& value)
    : m_name(name) {
    SetEnvironmentVariableW(name, value.c_str());
}

ScopedEnvironment::~ScopedEnvironment() {
    SetEnvironmentVariableW(m_name, nullptr);
}

std::wstring MakeScratchDirectory(const wchar_t* purpose) {
    wchar_t temp[MAX_PATH];
    GetTempPathW(MAX_PATH, temp);
    const std::wstring directory = std::wstring(temp) + UniquePipeName(purpose);
    CreateDirectoryW(directory.c_str(), nullptr);
    return directory;
}

bool InstallSeededNwsim(const wchar_t* purpose, unsigned objects, NwsimInstallation* out,
                        std::wstring* reason, bool quiet) {
    const std::wstring base = MakeScratchDirectory(purpose);
    out->directory = base + L"\\nw";
    out->storeRoot = base + L"\\store";
    CreateDirectoryW(out->storeRoot.c_str(), nullptr);
    const int installed = RunTestProgram(
        L"nwsim-admin.exe",
        L"install --dir \"" + out->directory + L"\" --root \"" + out->storeRoot + L"\"", quiet);
    if (installed != 0) {
        *reason = L"nwsim-admin install exited " + std::to_wstring(installed);
        return false;
    }
    std::wstring seed =
        L"seed-exchange --server srv --client cli --root \"" + out->storeRoot + L"\"";
    if (objects != 0) {
        seed += L" --objects " + std::to_wstring(objects);
    }
    const int seeded = RunTestProgram(L"nwsim-admin.exe", seed, quiet);
    if (seeded != 0) {
        *reason = L"nwsim-admin seed-exchange exited " + std::to_wstring(seeded);
        return false;
    }
    SetEnvironmentVariableW(L"NWSIM_ROOT", out->storeRoot.c_str());
    return true;
}

bool VerifyAgainstStore(const NwsimInstallation& nwsim, unsigned objectId,
                        const std::wstring& file) {
    return RunTestProgram(L"nwsim-admin.exe", L"verify --server srv --client cli --object " +
                                                  std::to_wstring(objectId) + L" --file \"" + file +
                                                  L"\" --root \"" + nwsim.storeRoot + L"\"") == 0;
}
