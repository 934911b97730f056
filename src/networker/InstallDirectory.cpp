#include "InstallDirectory.h"

std::wstring StripBeforeDriveLetter(const std::wstring& path) {
    const size_t colon = path.find(L':');
    if (colon == std::wstring::npos || colon == 0) {
        return path;
    }
    return path.substr(colon - 1);
}

std::wstring CutAtLastBackslash(const std::wstring& path) {
    const size_t backslash = path.rfind(L'\\');
    if (backslash == std::wstring::npos) {
        return std::wstring();
    }
    return path.substr(0, backslash);
}

std::wstring InstallDirectoryFromBinaryPath(const std::wstring& binaryPath) {
    return CutAtLastBackslash(StripBeforeDriveLetter(binaryPath));
}
