#include "WinTestSupport.h"

#include <thread>
#include <vector>

#include "common/UniqueHandle.h"

namespace nwsimtest {

namespace {

void Drain(HANDLE pipe, std::string& out) {
    char buffer[65536];
    DWORD read = 0;
    while (ReadFile(pipe, buffer, sizeof(buffer), &read, nullptr) && read != 0) {
        out.append(buffer, read);
    }
}

template <typename Start>
ProcessResult RunWith(Start start) {
    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
    UniqueHandle outRead, outWrite, errRead, errWrite;
    CreatePipe(outRead.put(), outWrite.put(), &inherit, 0);
    CreatePipe(errRead.put(), errWrite.put(), &inherit, 0);
    SetHandleInformation(outRead.get(), HANDLE_FLAG_INHERIT, 0);
    SetHandleInformation(errRead.get(), HANDLE_FLAG_INHERIT, 0);
    PROCESS_INFORMATION process = {};
    ProcessResult result;
    if (!start(outWrite.get(), errWrite.get(), process)) {
        result.exitCode = 0xFFFFFFFF;
        result.errors = "could not start: error " + std::to_string(GetLastError());
        return result;
    }
    UniqueHandle processHandle(process.hProcess);
    UniqueHandle threadHandle(process.hThread);
    outWrite.reset();
    errWrite.reset();
    std::thread errors([&] { Drain(errRead.get(), result.errors); });
    Drain(outRead.get(), result.output);
    errors.join();
    WaitForSingleObject(processHandle.get(), INFINITE);
    GetExitCodeProcess(processHandle.get(), &result.exitCode);
    return result;
}

}  // namespace

std::filesystem::path TestExeDirectory() {
    wchar_t buffer[MAX_PATH * 4];
    const DWORD length = GetModuleFileNameW(nullptr, buffer, MAX_PATH * 4);
    return std::filesystem::path(std::wstring(buffer, length)).parent_path();
}

std::filesystem::path ImageDirectory() {
    return (TestExeDirectory().parent_path() / L"nwsim" / L"install").make_preferred();
}

std::filesystem::path VariantsDirectory() {
    return (TestExeDirectory().parent_path() / L"nwsim" / L"variants").make_preferred();
}

std::filesystem::path AdminExe() {
    return TestExeDirectory() / L"nwsim-admin.exe";
}

std::wstring Quote(const std::filesystem::path& path) {
    return L"\"" + path.wstring() + L"\"";
}

ProcessResult RunCommand(const std::wstring& commandLine) {
    return RunWith([&](HANDLE out, HANDLE err, PROCESS_INFORMATION& process) {
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = out;
        startup.hStdError = err;
        std::vector<wchar_t> line(commandLine.begin(), commandLine.end());
        line.push_back(0);
        return CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                              nullptr, nullptr, &startup, &process) != 0;
    });
}

ProcessResult RunWithApplicationName(const std::string& application, const std::string& arguments) {
    return RunWith([&](HANDLE out, HANDLE err, PROCESS_INFORMATION& process) {
        STARTUPINFOA startup = {};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = out;
        startup.hStdError = err;
        std::vector<char> line(arguments.begin(), arguments.end());
        line.push_back(0);
        return CreateProcessA(application.c_str(), line.data(), nullptr, nullptr, TRUE,
                              CREATE_NO_WINDOW, nullptr, nullptr, &startup, &process) != 0;
    });
}

ProcessResult Admin(const std::wstring& arguments) {
    return RunCommand(Quote(AdminExe()) + L" " + arguments);
}

}  // namespace nwsimtest
