#include "DateWindow.h"

#include <cwchar>

#include "common/CivilTime.h"

namespace {

constexpr uint64_t kTicksPerSecond = 10000000ULL;
constexpr uint64_t kTicksPerMinute = 60 * kTicksPerSecond;
constexpr uint64_t kTicksPerDay = 24 * 60 * kTicksPerMinute;

// Reads exactly `count` decimal digits at text[*pos].
bool ReadDigits(const std::wstring& text, size_t* pos, size_t count, int* value) {
    if (*pos + count > text.size()) {
        return false;
    }
    int result = 0;
    for (size_t i = 0; i < count; ++i) {
        const wchar_t c = text[*pos + i];
        if (c < L'0' || c > L'9') {
            return false;
        }
        result = result * 10 + (c - L'0');
    }
    *pos += count;
    *value = result;
    return true;
}

bool Expect(const std::wstring& text, size_t* pos, wchar_t c) {
    if (*pos < text.size() && text[*pos] == c) {
        ++*pos;
        return true;
    }
    return false;
}

std::wstring Pad(int value, int width) {
    std::wstring digits = std::to_wstring(value);
    while (static_cast<int>(digits.size()) < width) {
        digits.insert(digits.begin(), L'0');
    }
    return digits;
}

}  // namespace

std::optional<DateArgument> ParseDateArgument(const std::wstring& text, std::wstring* error) {
    const std::wstring expected =
        L"expected YYYY-MM-DD or YYYY-MM-DDTHH:MM[:SS][Z|+HH:MM], got \"" + text + L"\"";
    size_t pos = 0;
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millis = 0;
    if (!ReadDigits(text, &pos, 4, &year) || !Expect(text, &pos, L'-') ||
        !ReadDigits(text, &pos, 2, &month) || !Expect(text, &pos, L'-') ||
        !ReadDigits(text, &pos, 2, &day)) {
        *error = expected;
        return std::nullopt;
    }
    DateArgument result;
    result.dateOnly = pos == text.size();
    int64_t offsetMinutes = 0;
    if (!result.dateOnly) {
        if (!(Expect(text, &pos, L'T') || Expect(text, &pos, L't') || Expect(text, &pos, L' ')) ||
            !ReadDigits(text, &pos, 2, &hour) || !Expect(text, &pos, L':') ||
            !ReadDigits(text, &pos, 2, &minute)) {
            *error = expected;
            return std::nullopt;
        }
        if (Expect(text, &pos, L':')) {
            if (!ReadDigits(text, &pos, 2, &second)) {
                *error = expected;
                return std::nullopt;
            }
            if (Expect(text, &pos, L'.') || Expect(text, &pos, L',')) {
                // Keep milliseconds; further digits are below the backup times' resolution.
                size_t digits = 0;
                int scale = 100;
                while (pos < text.size() && text[pos] >= L'0' && text[pos] <= L'9') {
                    if (digits < 3) {
                        millis += (text[pos] - L'0') * scale;
                        scale /= 10;
                    }
                    ++digits;
                    ++pos;
                }
                if (digits == 0) {
                    *error = expected;
                    return std::nullopt;
                }
            }
        }
        if (Expect(text, &pos, L'Z') || Expect(text, &pos, L'z')) {
            offsetMinutes = 0;
        } else if (pos < text.size() && (text[pos] == L'+' || text[pos] == L'-')) {
            const int sign = text[pos] == L'-' ? -1 : 1;
            ++pos;
            int offsetHours = 0, offsetMins = 0;
            if (!ReadDigits(text, &pos, 2, &offsetHours)) {
                *error = expected;
                return std::nullopt;
            }
            if (Expect(text, &pos, L':')) {
                if (!ReadDigits(text, &pos, 2, &offsetMins)) {
                    *error = expected;
                    return std::nullopt;
                }
            } else if (pos < text.size()) {
                if (!ReadDigits(text, &pos, 2, &offsetMins)) {
                    *error = expected;
                    return std::nullopt;
                }
            }
            if (offsetHours > 23 || offsetMins > 59) {
                *error = L"zone offset out of range in \"" + text + L"\"";
                return std::nullopt;
            }
            offsetMinutes = sign * (offsetHours * 60 + offsetMins);
        }
        if (pos != text.size()) {
            *error = expected;
            return std::nullopt;
        }
    }
    SYSTEMTIME time{};
    time.wYear = static_cast<uint16_t>(year);
    time.wMonth = static_cast<uint16_t>(month);
    time.wDay = static_cast<uint16_t>(day);
    time.wHour = static_cast<uint16_t>(hour);
    time.wMinute = static_cast<uint16_t>(minute);
    time.wSecond = static_cast<uint16_t>(second);
    time.wMilliseconds = static_cast<uint16_t>(millis);
    FILETIME fileTime{};
    if (!CivilSystemTimeToFileTime(time, &fileTime)) {
        *error = L"no such date or time: \"" + text + L"\"";
        return std::nullopt;
    }
    const int64_t ticks = static_cast<int64_t>(FileTimeToTicks(fileTime)) -
                          offsetMinutes * static_cast<int64_t>(kTicksPerMinute);
    if (ticks < 0) {
        *error = L"date before 1601: \"" + text + L"\"";
        return std::nullopt;
    }
    result.ticks = static_cast<uint64_t>(ticks);
    return result;
}

DateWindow::DateWindow(std::optional<DateArgument> after, std::optional<DateArgument> before) {
    if (after) {
        m_lowest = after->ticks;
    }
    if (before) {
        // A date means the whole day: everything before the next midnight.
        m_highest = before->dateOnly ? before->ticks + kTicksPerDay - 1 : before->ticks;
    }
}

bool DateWindow::IsConsistent() const {
    return !m_lowest || !m_highest || *m_lowest <= *m_highest;
}

bool DateWindow::Contains(const SYSTEMTIME& time) const {
    if (IsOpen()) {
        return true;
    }
    SYSTEMTIME copy = time;
    copy.wDayOfWeek = 0;
    FILETIME fileTime{};
    if (!CivilSystemTimeToFileTime(copy, &fileTime)) {
        return false;
    }
    const uint64_t ticks = FileTimeToTicks(fileTime);
    return (!m_lowest || ticks >= *m_lowest) && (!m_highest || ticks <= *m_highest);
}

std::wstring FormatBackupTime(const SYSTEMTIME& time) {
    return Pad(time.wYear, 4) + L"-" + Pad(time.wMonth, 2) + L"-" + Pad(time.wDay, 2) + L" " +
           Pad(time.wHour, 2) + L":" + Pad(time.wMinute, 2) + L":" + Pad(time.wSecond, 2);
}

std::wstring FormatBackupTimeIso(const SYSTEMTIME& time) {
    std::wstring text = FormatBackupTime(time);
    text[10] = L'T';
    return text;
}
