#pragma once
// Where each chosen backup object goes on local disk. Backup paths come from the server
// ("/First Storage Group/priv1.edb", forward slashes) and are never trusted: every piece must
// be a plain Windows name, so nothing can land outside the destination directory.

#include <cstdint>
#include <string>
#include <vector>

// While a file is being written it carries this suffix; only a complete file gets its name.
extern const wchar_t kPartialSuffix[];

// The library keeps destination paths in 1024 characters, terminator included.
constexpr size_t kMaxDestinationPath = 1023;

struct RestoreSource {
    uint32_t index = 0;
    std::wstring backupPath;
};

struct PlannedFile {
    uint32_t index = 0;
    std::wstring backupPath;
    std::wstring directory;  // absolute, without a trailing separator unless it is a root
    std::wstring fileName;

    std::wstring FullPath() const;
    std::wstring PartialName() const { return fileName + kPartialSuffix; }
};

struct RestorePlan {
    std::vector<PlannedFile> files;
    std::vector<std::wstring> problems;  // one line each; a plan with problems is not run

    bool Ok() const { return problems.empty(); }
};

// Splits a backup path into safe names. Separators are '/' and '\', empty pieces (a leading
// or doubled slash) are skipped; ".", "..", drive letters, names with characters Windows
// forbids, names ending in a dot or space and device names (CON, NUL, COM1...) are refused.
bool SplitBackupPath(const std::wstring& backupPath, std::vector<std::wstring>* names,
                     std::wstring* problem);

// Joins a directory and a name with exactly one backslash.
std::wstring JoinWindowsPath(const std::wstring& directory, const std::wstring& name);

// destinationRoot must already be absolute (the program resolves --to first). With `flat`
// every file goes straight into destinationRoot; otherwise under its backup path. Two files
// that would land on the same name (compared without case, as Windows does) are a problem.
RestorePlan PlanRestore(const std::wstring& destinationRoot,
                        const std::vector<RestoreSource>& sources, bool flat);
