#include "TestPrograms.h"

#include <vector>

#include "../exports/ExportsTestSupport.h"
#include "TestFiles.h"
#include "common/UniqueHandle.h"

int RunTestProgram(const std::wstring& program, const std::wstring& arguments, bool quiet) {
    const std::wstring path = TestProgramDirectory() + L"\\" + program;
    std::wstring commandLine = L"\"" + path + L"\" " + arguments;
    std::vector<wchar_t> writable(commandLine.begin(), commandLine.end());
    writable.push_back(L'\0');
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    const TempDirectory sinkDirectory("output");  // outlives the sink's handle
    UniqueFileHandle output;
    if (quiet) {
        // A scratch file that goes away with its last handle takes the program's output.
        SECURITY_ATTRIBUTES inheritable{sizeof inheritable, nullptr, TRUE};
        const std::wstring sink = sinkDirectory.Child(L"output.txt");
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
