#include "EnvironmentBlock.h"

#include <cwchar>

#include "AsciiText.h"

namespace {

// True when entry is "name=..." for this name.
bool EntryNames(const wchar_t* entry, size_t length, const std::wstring& name) {
    if (length <= name.size() || entry[name.size()] != L'=') {
        return false;
    }
    for (size_t i = 0; i < name.size(); ++i) {
        if (AsciiLower(entry[i]) != AsciiLower(name[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::wstring EnvironmentBlockWith(const wchar_t* current, const std::wstring& name,
                                  const std::wstring& value) {
    std::wstring block;
    if (current != nullptr) {
        // Entries such as "=C:=C:\\dir" start with '=' and are kept like any other.
        for (const wchar_t* entry = current; *entry != L'\0';) {
            const size_t length = std::wcslen(entry);
            if (!EntryNames(entry, length, name)) {
                block.append(entry, length);
                block.push_back(L'\0');
            }
            entry += length + 1;
        }
    }
    block += name;
    block.push_back(L'=');
    block += value;
    block.push_back(L'\0');
    block.push_back(L'\0');
    return block;
}
