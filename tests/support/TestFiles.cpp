#include "TestFiles.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

TempDirectory::TempDirectory(const std::string& purpose) {
    static std::atomic<unsigned> counter{0};
    const std::filesystem::path base = std::filesystem::temp_directory_path();
    for (int attempt = 0; attempt < 1000; ++attempt) {
        const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
        const std::filesystem::path candidate =
            base /
            ("nwx-" + purpose + "-" + std::to_string(stamp) + "-" + std::to_string(counter++));
        std::error_code error;
        if (std::filesystem::create_directory(candidate, error)) {
            m_path = candidate;
            return;
        }
    }
    throw std::runtime_error("no fresh temporary directory for " + purpose);
}

TempDirectory::~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::wstring TempDirectory::Child(const std::wstring& name) const {
    return (m_path / name).wstring();
}

std::string ReadWholeFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool WriteWholeFile(const std::filesystem::path& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    return static_cast<bool>(out);
}

bool FileExists(const std::filesystem::path& path) {
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored);
}

std::vector<std::wstring> FilesBelow(const std::filesystem::path& directory) {
    std::vector<std::wstring> files;
    std::error_code error;
    for (std::filesystem::recursive_directory_iterator it(directory, error), end;
         !error && it != end; it.increment(error)) {
        if (it->is_regular_file(error)) {
            files.push_back(it->path().wstring());
        }
    }
    return files;
}

bool DirectoryExists(const std::filesystem::path& path) {
    std::error_code ignored;
    return std::filesystem::is_directory(path, ignored);
}
