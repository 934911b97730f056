#include "ExtractionPaths.h"

#include <cwchar>
#include <string_view>

bool BuildDestinationPath(const wchar_t* directory, const wchar_t* fileName, std::wstring* path) {
    path->clear();
    const std::wstring_view dir = directory != nullptr ? directory : L"";
    const std::wstring_view name = fileName != nullptr ? fileName : L"";
    const bool needsSeparator = dir.empty() || dir.back() != L'\\';
    const size_t length = dir.size() + (needsSeparator ? 1 : 0) + name.size();
    if (length >= kDestinationPathCapacity) {
        return false;
    }
    path->reserve(length);
    path->append(dir);
    if (needsSeparator) {
        path->push_back(L'\\');
    }
    path->append(name);
    return true;
}

DirectoryPlanResult PlanDirectoryCreation(const wchar_t* directory, DirectoryPlan* plan) {
    plan->root.clear();
    plan->levels.clear();
    if (directory == nullptr) {
        return DirectoryPlanResult::NullPath;
    }
    const std::wstring_view path = directory;
    if (path.size() < 3) {
        return DirectoryPlanResult::TooShort;
    }

    size_t rootEnd;  // index of the backslash that ends the root
    if (path[0] == L'\\' && path[1] == L'\\') {
        const size_t serverEnd = path.find(L'\\', 2);
        if (serverEnd == std::wstring_view::npos || serverEnd + 1 >= path.size()) {
            return DirectoryPlanResult::NotLongEnough;
        }
        rootEnd = path.find(L'\\', serverEnd + 1);
    } else {
        rootEnd = path.find(L'\\');
    }
    if (rootEnd == std::wstring_view::npos || rootEnd + 1 >= path.size()) {
        return DirectoryPlanResult::NotLongEnough;
    }

    plan->root.assign(path.substr(0, rootEnd + 1));
    std::wstring_view rest = path.substr(rootEnd + 1);
    while (!rest.empty()) {
        const size_t end = rest.find(L'\\');
        const std::wstring_view level = rest.substr(0, end);
        if (!level.empty()) {
            plan->levels.emplace_back(level);
        }
        if (end == std::wstring_view::npos) {
            break;
        }
        rest.remove_prefix(end + 1);
    }
    return DirectoryPlanResult::Ok;
}
