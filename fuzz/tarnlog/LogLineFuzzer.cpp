// Arbitrary UTF-16 text (lone surrogates included) through the log line layout: every line
// must be valid UTF-8, hold exactly four tabs of its own plus those of the text, and end in
// its only line feed. Also feeds the same text to the configuration parsers.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "LogLineFormat.h"

namespace {

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// Strict UTF-8: shortest forms only, no surrogates, nothing above U+10FFFF.
bool IsValidUtf8(const std::string& text) {
    size_t i = 0;
    while (i < text.size()) {
        const unsigned char lead = static_cast<unsigned char>(text[i]);
        size_t extra = 0;
        uint32_t cp = 0;
        if (lead < 0x80) {
            ++i;
            continue;
        } else if ((lead & 0xE0) == 0xC0) {
            extra = 1;
            cp = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            extra = 2;
            cp = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            extra = 3;
            cp = lead & 0x07;
        } else {
            return false;
        }
        if (i + extra >= text.size()) {
            return false;
        }
        for (size_t k = 1; k <= extra; ++k) {
            const unsigned char next = static_cast<unsigned char>(text[i + k]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            cp = (cp << 6) | (next & 0x3F);
        }
        const uint32_t minimum[] = {0, 0x80, 0x800, 0x10000};
        if (cp < minimum[extra] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            return false;
        }
        i += extra + 1;
    }
    return true;
}

size_t Count(const std::string& text, char c) {
    size_t count = 0;
    for (char k : text) {
        count += k == c ? 1 : 0;
    }
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::wstring text;
    for (size_t i = 0; i + 1 < size; i += 2) {
        text.push_back(static_cast<wchar_t>(data[i] | (data[i + 1] << 8)));
    }
    size_t textTabs = 0;
    for (wchar_t c : text) {
        textTabs += c == L'\t' ? 1 : 0;
    }

    const std::string line =
        tarnlog::BuildLogLine(tarnlog::LocalTimestamp{2026, 1, 2, 3, 4, 5, 6}, LogLevelWarning,
                              L"Logger", L"Class::Method", text.c_str(), text.size());
    Check(IsValidUtf8(line));
    Check(!line.empty() && line.back() == '\n');
    Check(Count(line, '\n') == 1);
    Check(Count(line, '\r') == 0);
    Check(Count(line, '\t') == 4 + textTabs);

    int level = -1;
    if (tarnlog::ParseLogLevel(text, &level)) {
        Check(level >= LogLevelTrace && level <= LogLevelOff);
    } else {
        Check(level == -1);
    }
    for (const std::wstring& name : tarnlog::ParseNameList(text)) {
        Check(!name.empty());
        Check(name.find(L',') == std::wstring::npos);
        Check(name.front() != L' ' && name.back() != L' ');
    }
    return 0;
}
