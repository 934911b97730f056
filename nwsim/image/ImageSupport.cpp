#include "ImageSupport.h"

#include <fstream>
#include <sstream>
#include <vector>

#include "common/UniqueHandle.h"

namespace nwsim {

std::filesystem::path ModuleDirectory(const void* address) {
    HMODULE module = nullptr;
    if (!GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            static_cast<LPCWSTR>(address), &module)) {
        return std::filesystem::path();
    }
    std::vector<wchar_t> buffer(MAX_PATH);
    while (true) {
        const DWORD length =
            GetModuleFileNameW(module, buffer.data(), static_cast<DWORD>(buffer.size()));
        if (length == 0) {
            return std::filesystem::path();
        }
        if (length < buffer.size()) {
            return std::filesystem::path(std::wstring(buffer.data(), length)).parent_path();
        }
        buffer.resize(buffer.size() * 2);
    }
}

std::wstring ReadEnvironment(const wchar_t* name) {
    const DWORD needed = GetEnvironmentVariableW(name, nullptr, 0);
    if (needed == 0) {
        return std::wstring();
    }
    std::wstring value(needed, L'\0');
    const DWORD length = GetEnvironmentVariableW(name, value.data(), needed);
    value.resize(length < needed ? length : 0);
    return value;
}

std::filesystem::path FindStoreRoot(const std::filesystem::path& directory, std::string& error) {
    const std::wstring fromEnvironment = ReadEnvironment(L"NWSIM_ROOT");
    if (!fromEnvironment.empty()) {
        return std::filesystem::path(fromEnvironment);
    }
    const std::filesystem::path ini = directory / L"nwsim.ini";
    std::ifstream in(ini, std::ios::binary);
    if (!in) {
        error = "NWSIM_ROOT is not set and " + ini.string() + " cannot be read";
        return std::filesystem::path();
    }
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.rfind("root=", 0) == 0 && line.size() > 5) {
            const std::string root = line.substr(5);
            const int length = MultiByteToWideChar(CP_ACP, 0, root.data(),
                                                   static_cast<int>(root.size()), nullptr, 0);
            std::wstring wide(static_cast<size_t>(length), L'\0');
            MultiByteToWideChar(CP_ACP, 0, root.data(), static_cast<int>(root.size()), wide.data(),
                                length);
            return std::filesystem::path(wide);
        }
    }
    error = ini.string() + " has no root= line";
    return std::filesystem::path();
}

std::string ReadFaultText(const std::filesystem::path& storeRoot) {
    std::string text;
    if (!storeRoot.empty()) {
        std::ifstream in(storeRoot / L"faults.txt", std::ios::binary);
        if (in) {
            std::ostringstream content;
            content << in.rdbuf();
            text = content.str();
        }
    }
    const std::wstring fromEnvironment = ReadEnvironment(L"NWSIM_FAULTS");
    if (!fromEnvironment.empty()) {
        const int length = WideCharToMultiByte(CP_ACP, 0, fromEnvironment.data(),
                                               static_cast<int>(fromEnvironment.size()), nullptr, 0,
                                               nullptr, nullptr);
        std::string narrow(static_cast<size_t>(length), '\0');
        WideCharToMultiByte(CP_ACP, 0, fromEnvironment.data(),
                            static_cast<int>(fromEnvironment.size()), narrow.data(), length,
                            nullptr, nullptr);
        text += "\n";
        text += narrow;
    }
    return text;
}

bool JournalEnabled() {
    return GetEnvironmentVariableW(L"NWSIM_JOURNAL", nullptr, 0) != 0;
}

void AppendJournal(const std::string& line) {
    const std::wstring path = ReadEnvironment(L"NWSIM_JOURNAL");
    if (path.empty()) {
        return;
    }
    const std::string text = line + "\n";
    // Another process may hold the file for a moment: retry a sharing violation briefly.
    for (int attempt = 0; attempt < 200; ++attempt) {
        UniqueFileHandle file(CreateFileW(path.c_str(), FILE_APPEND_DATA,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                          nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
        if (!file) {
            if (GetLastError() == ERROR_SHARING_VIOLATION) {
                Sleep(5);
                continue;
            }
            return;
        }
        DWORD written = 0;
        WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
        return;
    }
}

}  // namespace nwsim
