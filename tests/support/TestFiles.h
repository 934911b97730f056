#pragma once
// Real files for tests: a fresh temporary directory per test, and whole-file reads and writes.
// Built natively and under Wine (std::filesystem; under Wine the prefix's temporary folder).

#include <filesystem>
#include <string>
#include <vector>

// A fresh, empty directory under the system's temporary directory, removed with everything in
// it on destruction. Its name carries the purpose, the clock and a counter, and an existing
// directory is never reused, so a test never finds the leftovers of an earlier run (Wine
// hands out the same process ids run after run).
class TempDirectory {
public:
    explicit TempDirectory(const std::string& purpose = "test");
    ~TempDirectory();
    TempDirectory(const TempDirectory&) = delete;
    TempDirectory& operator=(const TempDirectory&) = delete;

    const std::filesystem::path& Path() const { return m_path; }
    // Path() joined with `name` (which may hold separators), as a wide string.
    std::wstring Child(const std::wstring& name) const;

private:
    std::filesystem::path m_path;
};

// The file's bytes; empty when it cannot be read.
std::string ReadWholeFile(const std::filesystem::path& path);
// Creates or overwrites the file; false when it cannot be written.
bool WriteWholeFile(const std::filesystem::path& path, const std::string& content);
bool FileExists(const std::filesystem::path& path);
// Every file below `directory`, at any depth; none for a missing directory.
std::vector<std::wstring> FilesBelow(const std::filesystem::path& directory);
bool DirectoryExists(const std::filesystem::path& path);
