#include "PipeHardening.h"

#include <cwctype>

namespace {

std::wstring TrimmedLowerCase(const wchar_t* value) {
    std::wstring text(value);
    const size_t first = text.find_first_not_of(L" \t");
    if (first == std::wstring::npos) {
        return std::wstring();
    }
    const size_t last = text.find_last_not_of(L" \t");
    text = text.substr(first, last - first + 1);
    for (wchar_t& character : text) {
        character = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(character)));
    }
    return text;
}

}  // namespace

PipeHardening ParsePipeHardening(const wchar_t* value) {
    if (value == nullptr) {
        return PipeHardening::Off;
    }
    const std::wstring text = TrimmedLowerCase(value);
    if (text.empty() || text == L"0" || text == L"false" || text == L"no" || text == L"off") {
        return PipeHardening::Off;
    }
    if (text == L"1" || text == L"true" || text == L"yes" || text == L"on") {
        return PipeHardening::On;
    }
    // A misspelt switch for a security setting errs on the safe side.
    return PipeHardening::Unrecognised;
}

std::wstring CurrentUserOnlyPipeSddl(const std::wstring& userSid) {
    // P: inherited entries never widen it; GA: everything, creating new instances included.
    return L"D:P(A;;GA;;;SY)(A;;GA;;;" + userSid + L")";
}

bool ParseProcessId(const wchar_t* text, uint32_t* processId) {
    if (text == nullptr || *text == L'\0') {
        return false;
    }
    uint64_t value = 0;
    for (const wchar_t* p = text; *p != L'\0'; ++p) {
        if (*p < L'0' || *p > L'9') {
            return false;
        }
        value = value * 10 + static_cast<uint64_t>(*p - L'0');
        if (value > UINT32_MAX) {
            return false;
        }
    }
    *processId = static_cast<uint32_t>(value);
    return true;
}
