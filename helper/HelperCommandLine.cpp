#include "HelperCommandLine.h"

#include <cwctype>

namespace {

bool IsBlank(wchar_t c) {
    return c == L' ' || c == L'\t';
}

std::wstring Lower(std::wstring text) {
    for (wchar_t& c : text) {
        c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    }
    return text;
}

std::wstring FileNamePart(const std::wstring& path) {
    const size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? path : path.substr(slash + 1);
}

std::wstring WithoutExe(const std::wstring& lowered) {
    const std::wstring exe = L".exe";
    if (lowered.size() > exe.size() &&
        lowered.compare(lowered.size() - exe.size(), exe.size(), exe) == 0) {
        return lowered.substr(0, lowered.size() - exe.size());
    }
    return lowered;
}

bool NamesThisProgram(const std::wstring& token, const std::wstring& moduleFileName) {
    const std::wstring ours = WithoutExe(Lower(FileNamePart(moduleFileName)));
    return !ours.empty() && WithoutExe(Lower(FileNamePart(token))) == ours;
}

}  // namespace

std::wstring PipeNameFromCommandLine(const std::wstring& commandLine,
                                     const std::wstring& moduleFileName) {
    size_t start = 0;
    while (start < commandLine.size() && IsBlank(commandLine[start])) {
        ++start;
    }
    std::wstring token;
    size_t end = start;
    if (end < commandLine.size() && commandLine[end] == L'"') {
        const size_t close = commandLine.find(L'"', end + 1);
        token = commandLine.substr(
            end + 1, close == std::wstring::npos ? std::wstring::npos : close - end - 1);
        end = close == std::wstring::npos ? commandLine.size() : close + 1;
    } else {
        while (end < commandLine.size() && !IsBlank(commandLine[end])) {
            ++end;
        }
        token = commandLine.substr(start, end - start);
    }
    if (!NamesThisProgram(token, moduleFileName)) {
        return commandLine;
    }
    while (end < commandLine.size() && IsBlank(commandLine[end])) {
        ++end;
    }
    std::wstring rest = commandLine.substr(end);
    while (!rest.empty() && IsBlank(rest.back())) {
        rest.pop_back();
    }
    if (rest.size() >= 2 && rest.front() == L'"' && rest.back() == L'"') {
        rest = rest.substr(1, rest.size() - 2);
    }
    return rest;
}
