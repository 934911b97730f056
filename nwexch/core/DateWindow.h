#pragma once
// --after / --before: parsing dates as administrators write them and deciding which backup
// times lie in the window.

#include <cstdint>
#include <optional>
#include <string>

#include "interfaces/WinTypes.h"

// A parsed DATE: "YYYY-MM-DD" or an ISO-8601 time "YYYY-MM-DDTHH:MM[:SS[.fff]][Z|+HH:MM|-HH:MM]"
// (a space may stand for the T). Backup times are compared as the server reports them, so a
// time without a zone is taken on that same clock and a zone offset is converted to UTC.
struct DateArgument {
    uint64_t ticks = 0;     // FILETIME ticks of the instant (midnight for a date)
    bool dateOnly = false;  // true for "YYYY-MM-DD"
};

// Returns the parsed value, or nothing with *error set to a one-line reason.
std::optional<DateArgument> ParseDateArgument(const std::wstring& text, std::wstring* error);

// The closed window [after, before]. A date-only bound covers its whole day: "--before
// 2026-11-20" keeps everything made on the 20th, "--after 2026-11-20" everything from its
// midnight on. The comparison is exact to the backup time's second; the library's own
// window only compares calendar dates, which is why the tool filters by itself.
class DateWindow {
public:
    DateWindow() = default;
    DateWindow(std::optional<DateArgument> after, std::optional<DateArgument> before);

    bool IsOpen() const { return !m_lowest && !m_highest; }
    // False when the window is empty because after lies past before.
    bool IsConsistent() const;
    // A time that cannot be converted (fields out of range) lies in no bounded window.
    bool Contains(const SYSTEMTIME& time) const;

private:
    std::optional<uint64_t> m_lowest;
    std::optional<uint64_t> m_highest;
};

// "2026-11-20 22:05:09": how the tool shows a backup time (no zone: as the server reports it).
std::wstring FormatBackupTime(const SYSTEMTIME& time);
// "2026-11-20T22:05:09": the same in ISO-8601 form for JSON.
std::wstring FormatBackupTimeIso(const SYSTEMTIME& time);
