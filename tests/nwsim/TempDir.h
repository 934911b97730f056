#pragma once
// A fresh directory under the system's temporary directory, removed with everything in it.

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <system_error>

namespace nwsimtest {

class TempDir {
public:
    TempDir() {
        static std::atomic<unsigned> counter{0};
        const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
        m_path = std::filesystem::temp_directory_path() /
                 ("nwsim-test-" + std::to_string(stamp) + "-" + std::to_string(counter++));
        std::filesystem::create_directories(m_path);
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(m_path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& Path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

}  // namespace nwsimtest
