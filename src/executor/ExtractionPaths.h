#pragma once
// Paths of extracted files: the destination path and the plan for creating the missing
// directories below a path's root. Platform-neutral.

#include <cstddef>
#include <string>
#include <vector>

// The destination buffer holds this many wide characters, terminator included.
constexpr size_t kDestinationPathCapacity = 1024;

// directory + "\" (unless directory already ends in one) + fileName. False when the result
// would not fit kDestinationPathCapacity with its terminator; *path is then left empty.
// A null fileName counts as empty.
bool BuildDestinationPath(const wchar_t* directory, const wchar_t* fileName, std::wstring* path);

enum class DirectoryPlanResult {
    Ok,
    NullPath,       // "Null Path.\n"
    TooShort,       // fewer than 3 characters: "Path too short.\n"
    NotLongEnough,  // no level below the root: "Path not long enough.\n"
};

struct DirectoryPlan {
    // "C:\" for drive paths, "\\server\share\" for network paths, else up to the first "\".
    std::wstring root;
    // The names below the root, left to right. Empty names (doubled separators) are skipped.
    std::vector<std::wstring> levels;
};

DirectoryPlanResult PlanDirectoryCreation(const wchar_t* directory, DirectoryPlan* plan);
