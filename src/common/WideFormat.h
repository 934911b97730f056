#pragma once
// printf-style wide formatting in the Microsoft convention, whatever the C runtime:
// %s and %ls (%ws) take a wide string, %S and %hs a narrow one; %c wide, %C narrow;
// sizes h, l, ll, I, I32, I64, z, j, t; flags - + space # 0; width and precision with *.
// Narrow text is widened byte by byte. Platform-neutral.

#include <cstdarg>
#include <cstddef>
#include <string>

// Formats into out (capacity in characters, terminator included; out may be null when
// capacity is 0). Returns the length of the full result, excluding the terminator, so a
// call with capacity 0 measures. The output is always terminated when capacity > 0.
size_t FormatWideV(wchar_t* out, size_t capacity, const wchar_t* format, va_list args);
size_t FormatWide(wchar_t* out, size_t capacity, const wchar_t* format, ...);

std::wstring FormatWideStringV(const wchar_t* format, va_list args);
std::wstring FormatWideString(const wchar_t* format, ...);

// `text` as a format that prints `text` unchanged: every '%' doubled. For finished text that is
// handed to a logger as its format (the library's loggers take formats only), so that data in
// it, such as a path with a '%', is never read as a conversion.
std::wstring AsLiteralFormat(const std::wstring& text);
