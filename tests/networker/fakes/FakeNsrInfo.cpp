// Test double of nsrinfo.exe. Environment:
//   FAKE_NSRINFO_RECORD  file that receives this process's command line, byte for byte
//   FAKE_NSRINFO_STDOUT  file whose bytes are written to standard output
//   FAKE_NSRINFO_STDERR  file whose bytes are written to standard error
//   FAKE_NSRINFO_EXIT    exit code, decimal (0 when unset)
#include <windows.h>

#include <cstdlib>
#include <string>

namespace {

std::string Variable(const char* name) {
    char value[MAX_PATH] = {};
    const DWORD length = GetEnvironmentVariableA(name, value, MAX_PATH);
    return length > 0 && length < MAX_PATH ? std::string(value, length) : std::string();
}

void WriteAll(HANDLE target, const char* data, DWORD length) {
    while (length > 0) {
        DWORD written = 0;
        if (!WriteFile(target, data, length, &written, nullptr) || written == 0) {
            return;
        }
        data += written;
        length -= written;
    }
}

void CopyFileTo(const std::string& path, HANDLE target) {
    if (path.empty()) {
        return;
    }
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return;
    }
    char buffer[4096];
    DWORD got = 0;
    while (ReadFile(file, buffer, sizeof(buffer), &got, nullptr) && got > 0) {
        WriteAll(target, buffer, got);
    }
    CloseHandle(file);
}

}  // namespace

int main() {
    const std::string record = Variable("FAKE_NSRINFO_RECORD");
    if (!record.empty()) {
        HANDLE file = CreateFileA(record.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file != INVALID_HANDLE_VALUE) {
            const char* commandLine = GetCommandLineA();
            WriteAll(file, commandLine, static_cast<DWORD>(std::string(commandLine).size()));
            CloseHandle(file);
        }
    }
    CopyFileTo(Variable("FAKE_NSRINFO_STDOUT"), GetStdHandle(STD_OUTPUT_HANDLE));
    CopyFileTo(Variable("FAKE_NSRINFO_STDERR"), GetStdHandle(STD_ERROR_HANDLE));
    const std::string exitCode = Variable("FAKE_NSRINFO_EXIT");
    return exitCode.empty() ? 0 : std::atoi(exitCode.c_str());
}
