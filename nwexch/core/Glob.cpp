#include "Glob.h"

#include <cstddef>

namespace {

wchar_t Fold(wchar_t c) {
    if (c >= L'A' && c <= L'Z') {
        return static_cast<wchar_t>(c - L'A' + L'a');
    }
    if (c == L'\\') {
        return L'/';
    }
    return c;
}

// Matches one character against the class that starts at pattern[start] ('['). Returns false
// when the class is not closed, so that the caller can treat '[' literally.
bool MatchClass(const std::wstring& pattern, size_t start, wchar_t c, bool* matched, size_t* next) {
    size_t i = start + 1;
    bool negate = false;
    if (i < pattern.size() && (pattern[i] == L'!' || pattern[i] == L'^')) {
        negate = true;
        ++i;
    }
    const size_t first = i;
    bool found = false;
    const wchar_t folded = Fold(c);
    while (i < pattern.size() && (pattern[i] != L']' || i == first)) {
        wchar_t low = Fold(pattern[i]);
        wchar_t high = low;
        if (i + 2 < pattern.size() && pattern[i + 1] == L'-' && pattern[i + 2] != L']') {
            high = Fold(pattern[i + 2]);
            i += 3;
        } else {
            i += 1;
        }
        if (low <= folded && folded <= high) {
            found = true;
        }
    }
    if (i >= pattern.size()) {
        return false;
    }
    *matched = found != negate;
    *next = i + 1;
    return true;
}

}  // namespace

bool GlobMatch(const std::wstring& pattern, const std::wstring& text) {
    // Iterative matcher with one backtrack point for the last '*': linear in practice and
    // never recursive, so hostile patterns cannot exhaust the stack.
    size_t p = 0;
    size_t t = 0;
    size_t starP = std::wstring::npos;
    size_t starT = 0;
    while (t < text.size()) {
        bool advanced = false;
        if (p < pattern.size()) {
            const wchar_t pc = pattern[p];
            if (pc == L'*') {
                starP = p++;
                starT = t;
                continue;
            }
            if (pc == L'?') {
                ++p;
                ++t;
                advanced = true;
            } else if (pc == L'[') {
                bool matched = false;
                size_t next = 0;
                if (MatchClass(pattern, p, text[t], &matched, &next)) {
                    if (matched) {
                        p = next;
                        ++t;
                        advanced = true;
                    }
                } else if (Fold(text[t]) == L'[') {
                    ++p;
                    ++t;
                    advanced = true;
                }
            } else if (Fold(pc) == Fold(text[t])) {
                ++p;
                ++t;
                advanced = true;
            }
        }
        if (advanced) {
            continue;
        }
        if (starP == std::wstring::npos) {
            return false;
        }
        p = starP + 1;
        t = ++starT;
    }
    while (p < pattern.size() && pattern[p] == L'*') {
        ++p;
    }
    return p == pattern.size();
}
