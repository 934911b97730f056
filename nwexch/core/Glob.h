#pragma once
// Glob matching of backup paths the way an administrator types them on Windows.

#include <string>

// '*' matches any run of characters, '/' included; '?' one character; "[abc]", "[a-z]" and
// "[!a-z]" (or "[^a-z]") one character of (or not of) a class. Letters compare without regard
// to case, as Windows paths do, and '/' and '\' are the same separator in pattern and text.
// A '[' without its closing ']' stands for itself.
bool GlobMatch(const std::wstring& pattern, const std::wstring& text);
