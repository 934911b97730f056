#pragma once
// An ExecutorSystem over an in-memory file system, with a steerable clock and failures on
// demand. It answers like kernel32 where the executor can tell: an existing directory is 183,
// a missing parent 3, a directory where a file should be 5, an open file (no sharing) 32, a
// missing file 2; errors go to the thread's last error. Paths compare exactly (no case
// folding, no normalisation beyond a trailing backslash on directories); drive roots ("C:"),
// network shares ("\\server\share") and a path's empty parent always exist.
// Platform-neutral: the executor's tests use it natively and under Wine, and so does its fuzzer.

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "executor/ExecutorSystem.h"

class FakeSystem : public ExecutorSystem {
public:
    uint32_t TickCount() override;
    std::unique_ptr<ExecutorFile> CreateDestinationFile(const wchar_t* path) override;
    bool DeleteDestinationFile(const wchar_t* path) override;
    bool MakeDirectory(const wchar_t* path) override;

    bool FileExists(const std::wstring& path) const;
    bool DirectoryExists(const std::wstring& path) const;
    // The file's bytes; empty for a missing file.
    std::string Content(const std::wstring& path) const;
    void AddDirectory(const std::wstring& path);  // with every missing parent
    void AddFile(const std::wstring& path, const std::string& content);  // parents too

    // --- the file system ---
    std::set<std::wstring> directories;  // without a trailing backslash
    std::map<std::wstring, std::string> files;
    std::multiset<std::wstring> openFiles;  // paths with an ExecutorFile not yet destroyed

    // --- script ---
    std::deque<uint32_t> ticks;  // next TickCount answers; the last one repeats (none: 0)
    // Write calls (from 0) that fail with the given last error instead of writing.
    std::map<int, uint32_t> failWriteAt;
    // Write calls that write only part of the block (at most this many bytes).
    std::map<int, uint32_t> shortWriteAt;
    std::function<void(int call)> beforeWrite;
    // MakeDirectory: paths that fail with the given last error.
    std::map<std::wstring, uint32_t> failDirectory;
    // CreateDestinationFile and DeleteDestinationFile: paths that fail with the given error.
    std::map<std::wstring, uint32_t> failCreate;
    std::map<std::wstring, uint32_t> failDelete;

    // --- record ---
    int writeCalls = 0;
    std::vector<uint32_t> writeSizes;
    std::vector<std::wstring> directoriesAsked;
    std::vector<std::wstring> filesCreated;
    std::vector<std::wstring> filesDeleted;

private:
    class File;
    bool ParentExists(const std::wstring& path) const;
    bool Write(const std::wstring& path, const void* data, uint32_t size, uint32_t* written);
};
