#include "AsciiText.h"

std::wstring TrimBlanks(const std::wstring& text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && IsBlank(text[begin])) {
        ++begin;
    }
    while (end > begin && IsBlank(text[end - 1])) {
        --end;
    }
    return text.substr(begin, end - begin);
}

std::wstring KeywordAsTyped(const std::wstring& text) {
    std::wstring word = TrimBlanks(text);
    for (wchar_t& c : word) {
        c = AsciiLower(c);
    }
    return word;
}

bool ParseDecimalUint32(const wchar_t* text, uint32_t* value) {
    if (text == nullptr || *text == L'\0') {
        return false;
    }
    uint64_t number = 0;
    for (const wchar_t* p = text; *p != L'\0'; ++p) {
        if (*p < L'0' || *p > L'9') {
            return false;
        }
        number = number * 10 + static_cast<uint64_t>(*p - L'0');
        if (number > UINT32_MAX) {
            return false;
        }
    }
    *value = static_cast<uint32_t>(number);
    return true;
}
