#include "LogLineFormat.h"

#include <cwchar>

#include "common/AsciiText.h"

namespace tarnlog {

namespace {

void AppendCodePoint(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

constexpr uint32_t kReplacement = 0xFFFD;

bool IsHighSurrogate(uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void AppendTwoDigits(std::string& out, unsigned value) {
    out.push_back(static_cast<char>('0' + (value / 10) % 10));
    out.push_back(static_cast<char>('0' + value % 10));
}

}  // namespace

bool ParseLogLevel(const std::wstring& text, int* level) {
    const std::wstring word = KeywordAsTyped(text);
    static const struct {
        const wchar_t* name;
        int level;
    } kLevels[] = {
        {L"trace", LogLevelTrace},     {L"debug", LogLevelDebug}, {L"info", LogLevelInfo},
        {L"warning", LogLevelWarning}, {L"error", LogLevelError}, {L"off", LogLevelOff},
    };
    for (const auto& entry : kLevels) {
        if (word == entry.name) {
            *level = entry.level;
            return true;
        }
    }
    return false;
}

const char* LevelLabel(int level) {
    switch (level) {
        case LogLevelTrace:
            return "TRACE";
        case LogLevelDebug:
            return "DEBUG";
        case LogLevelInfo:
            return "INFO";
        case LogLevelWarning:
            return "WARNING";
        case LogLevelError:
            return "ERROR";
        case LogLevelOff:
            return "OFF";
        default:
            return "?";
    }
}

std::vector<std::wstring> ParseNameList(const std::wstring& text) {
    std::vector<std::wstring> names;
    size_t start = 0;
    while (start <= text.size()) {
        size_t comma = text.find(L',', start);
        if (comma == std::wstring::npos) {
            comma = text.size();
        }
        std::wstring name = TrimBlanks(text.substr(start, comma - start));
        if (!name.empty()) {
            names.push_back(std::move(name));
        }
        start = comma + 1;
    }
    return names;
}

void AppendEscapedUtf8(std::string& out, const wchar_t* text) {
    if (text != nullptr) {
        AppendEscapedUtf8(out, text, std::wcslen(text));
    }
}

void AppendEscapedUtf8(std::string& out, const wchar_t* text, size_t length) {
    if (text == nullptr) {
        return;
    }
    for (size_t i = 0; i < length; ++i) {
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): a wide character, not a char
        const uint32_t unit = static_cast<uint32_t>(text[i]);
        if (unit == L'\n') {
            out += "\\n";
        } else if (unit == L'\r') {
            out += "\\r";
        } else if (IsHighSurrogate(unit)) {
            const uint32_t next = i + 1 < length ? static_cast<uint32_t>(text[i + 1]) : 0;
            if (IsLowSurrogate(next)) {
                AppendCodePoint(out, 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00));
                ++i;
            } else {
                AppendCodePoint(out, kReplacement);
            }
        } else if (IsLowSurrogate(unit) || unit > 0x10FFFF) {
            AppendCodePoint(out, kReplacement);
        } else {
            AppendCodePoint(out, unit);
        }
    }
}

void AppendTimestamp(std::string& out, const LocalTimestamp& time) {
    AppendTwoDigits(out, time.year / 100);
    AppendTwoDigits(out, time.year % 100);
    out.push_back('-');
    AppendTwoDigits(out, time.month);
    out.push_back('-');
    AppendTwoDigits(out, time.day);
    out.push_back('T');
    AppendTwoDigits(out, time.hour);
    out.push_back(':');
    AppendTwoDigits(out, time.minute);
    out.push_back(':');
    AppendTwoDigits(out, time.second);
    out.push_back('.');
    out.push_back(static_cast<char>('0' + (time.milliseconds / 100) % 10));
    AppendTwoDigits(out, time.milliseconds % 100);
}

std::string BuildLogLine(const LocalTimestamp& time, int level, const wchar_t* logger,
                         const wchar_t* method, const wchar_t* text, size_t textLength) {
    std::string line;
    line.reserve(64 + textLength);
    AppendTimestamp(line, time);
    line.push_back('\t');
    line += LevelLabel(level);
    line.push_back('\t');
    AppendEscapedUtf8(line, logger);
    line.push_back('\t');
    AppendEscapedUtf8(line, method);
    line.push_back('\t');
    AppendEscapedUtf8(line, text, textLength);
    line.push_back('\n');
    return line;
}

std::wstring LogFileLockName(const std::wstring& fileKey) {
    // Each character is hashed as its two UTF-16 bytes, so that the name is the same whatever
    // the width of wchar_t.
    uint64_t hash = 14695981039346656037ULL;
    const auto mix = [&hash](uint8_t byte) {
        hash ^= byte;
        hash *= 1099511628211ULL;
    };
    for (size_t i = 0; i < fileKey.size(); ++i) {
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): a wide character, not a char
        const auto unit = static_cast<uint16_t>(fileKey[i]);
        mix(static_cast<uint8_t>(unit & 0xFFU));
        mix(static_cast<uint8_t>(unit >> 8U));
    }
    static const wchar_t kDigits[] = L"0123456789ABCDEF";
    std::wstring name = L"Local\\TarnLogFile-";
    for (int shift = 60; shift >= 0; shift -= 4) {
        name.push_back(kDigits[(hash >> static_cast<unsigned>(shift)) & 0xFU]);
    }
    return name;
}

}  // namespace tarnlog
