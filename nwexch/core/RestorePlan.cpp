#include "RestorePlan.h"

#include <map>

const wchar_t kPartialSuffix[] = L".nwexch-partial";

namespace {

std::wstring Lower(const std::wstring& text) {
    std::wstring result = text;
    for (wchar_t& c : result) {
        if (c >= L'A' && c <= L'Z') {
            c = static_cast<wchar_t>(c - L'A' + L'a');
        }
    }
    return result;
}

bool IsDeviceName(const std::wstring& name) {
    // Windows treats these as devices whatever extension follows ("nul.txt" too).
    std::wstring stem = Lower(name.substr(0, name.find(L'.')));
    while (!stem.empty() && stem.back() == L' ') {
        stem.pop_back();
    }
    static const wchar_t* const kDevices[] = {L"con", L"prn",    L"aux",
                                              L"nul", L"conin$", L"conout$"};
    for (const wchar_t* device : kDevices) {
        if (stem == device) {
            return true;
        }
    }
    if (stem.size() == 4 && (stem.compare(0, 3, L"com") == 0 || stem.compare(0, 3, L"lpt") == 0) &&
        stem[3] >= L'0' && stem[3] <= L'9') {
        return true;
    }
    return false;
}

bool CheckName(const std::wstring& name, std::wstring* problem) {
    if (name == L"." || name == L"..") {
        *problem = L"contains \"" + name + L"\"";
        return false;
    }
    for (wchar_t c : name) {
        if (c < 32 || c == 127) {
            *problem = L"contains a control character";
            return false;
        }
        if (c == L':') {
            *problem = L"contains a drive letter or stream name (\"" + name + L"\")";
            return false;
        }
        if (c == L'<' || c == L'>' || c == L'"' || c == L'|' || c == L'?' || c == L'*') {
            *problem = L"contains a character Windows does not allow in names (\"" + name + L"\")";
            return false;
        }
    }
    if (name.back() == L'.' || name.back() == L' ') {
        *problem = L"has a name ending in a dot or space (\"" + name + L"\")";
        return false;
    }
    if (IsDeviceName(name)) {
        *problem = L"has a device name (\"" + name + L"\")";
        return false;
    }
    return true;
}

}  // namespace

bool SplitBackupPath(const std::wstring& backupPath, std::vector<std::wstring>* names,
                     std::wstring* problem) {
    names->clear();
    std::wstring current;
    const bool endsWithSeparator =
        !backupPath.empty() && (backupPath.back() == L'/' || backupPath.back() == L'\\');
    for (size_t i = 0; i <= backupPath.size(); ++i) {
        const bool end = i == backupPath.size();
        if (end || backupPath[i] == L'/' || backupPath[i] == L'\\') {
            if (!current.empty()) {
                if (!CheckName(current, problem)) {
                    names->clear();
                    return false;
                }
                names->push_back(current);
                current.clear();
            }
        } else {
            current.push_back(backupPath[i]);
        }
    }
    if (names->empty() || endsWithSeparator) {
        *problem = L"has no file name";
        names->clear();
        return false;
    }
    return true;
}

std::wstring JoinWindowsPath(const std::wstring& directory, const std::wstring& name) {
    if (directory.empty()) {
        return name;
    }
    if (directory.back() == L'\\' || directory.back() == L'/') {
        return directory + name;
    }
    return directory + L"\\" + name;
}

std::wstring PlannedFile::FullPath() const {
    return JoinWindowsPath(directory, fileName);
}

RestorePlan PlanRestore(const std::wstring& destinationRoot,
                        const std::vector<RestoreSource>& sources, bool flat) {
    RestorePlan plan;
    std::map<std::wstring, std::wstring> taken;  // lower-cased destination -> backup path
    for (const RestoreSource& source : sources) {
        std::vector<std::wstring> names;
        std::wstring problem;
        if (!SplitBackupPath(source.backupPath, &names, &problem)) {
            plan.problems.push_back(L"index " + std::to_wstring(source.index) + L": \"" +
                                    source.backupPath + L"\" " + problem);
            continue;
        }
        PlannedFile file;
        file.index = source.index;
        file.backupPath = source.backupPath;
        file.fileName = names.back();
        file.directory = destinationRoot;
        if (!flat) {
            for (size_t i = 0; i + 1 < names.size(); ++i) {
                file.directory = JoinWindowsPath(file.directory, names[i]);
            }
        }
        const std::wstring fullPath = file.FullPath();
        if (JoinWindowsPath(file.directory, file.PartialName()).size() > kMaxDestinationPath) {
            plan.problems.push_back(L"index " + std::to_wstring(source.index) +
                                    L": destination path too long: " + fullPath);
            continue;
        }
        const auto inserted = taken.emplace(Lower(fullPath), source.backupPath);
        if (!inserted.second) {
            plan.problems.push_back(L"\"" + source.backupPath + L"\" and \"" +
                                    inserted.first->second + L"\" would both be written to " +
                                    fullPath);
            continue;
        }
        plan.files.push_back(file);
    }
    return plan;
}
