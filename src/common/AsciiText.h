#pragma once
// Words of configuration values and command lines, which matter only in ASCII: blanks are space
// and tab, case folding touches A-Z alone (the same answer in every locale, on every platform),
// numbers are plain decimal digits. Platform-neutral.

#include <cstdint>
#include <string>

inline bool IsBlank(wchar_t c) {
    return c == L' ' || c == L'\t';
}

inline wchar_t AsciiLower(wchar_t c) {
    return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

// `text` without the blanks at either end.
std::wstring TrimBlanks(const std::wstring& text);

// `text` without the blanks at either end and with A-Z lowered: a keyword as a user typed it,
// ready to be compared with its lower-case spelling.
std::wstring KeywordAsTyped(const std::wstring& text);

// A decimal number, one or more digits and nothing else, that fits in 32 bits; false otherwise
// (null included), and then *value is left as it was.
bool ParseDecimalUint32(const wchar_t* text, uint32_t* value);
