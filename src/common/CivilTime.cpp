#include "CivilTime.h"

namespace {

constexpr uint64_t kTicksPerSecond = 10000000ULL;
constexpr uint64_t kTicksPerMillisecond = 10000ULL;
constexpr uint64_t kSecondsPerDay = 86400ULL;

bool IsLeapYear(int64_t year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int DaysInMonth(int64_t year, int month) {
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// Days since 1970-01-01 of a proleptic Gregorian date (Howard Hinnant's algorithm).
int64_t DaysFromCivil(int64_t year, int64_t month, int64_t day) {
    year -= month <= 2 ? 1 : 0;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

void CivilFromDays(int64_t days, int64_t* year, int* month, int* day) {
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const int64_t dayOfEra = days - era * 146097;
    const int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t mp = (5 * dayOfYear + 2) / 153;
    *day = static_cast<int>(dayOfYear - (153 * mp + 2) / 5 + 1);
    *month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    *year = yearOfEra + era * 400 + (*month <= 2 ? 1 : 0);
}

const int64_t kDaysFrom1601To1970 = -DaysFromCivil(1601, 1, 1);

}  // namespace

bool CivilSystemTimeToFileTime(const SYSTEMTIME& st, FILETIME* fileTime) {
    if (st.wYear < 1601 || st.wYear > 30827 || st.wMonth < 1 || st.wMonth > 12 || st.wDay < 1 ||
        st.wDay > DaysInMonth(st.wYear, st.wMonth) || st.wHour > 23 || st.wMinute > 59 ||
        st.wSecond > 59 || st.wMilliseconds > 999) {
        return false;
    }
    const int64_t days = DaysFromCivil(st.wYear, st.wMonth, st.wDay) + kDaysFrom1601To1970;
    const uint64_t seconds = static_cast<uint64_t>(days) * kSecondsPerDay + st.wHour * 3600ULL +
                             st.wMinute * 60ULL + st.wSecond;
    *fileTime =
        TicksToFileTime(seconds * kTicksPerSecond + st.wMilliseconds * kTicksPerMillisecond);
    return true;
}

bool CivilFileTimeToSystemTime(const FILETIME& fileTime, SYSTEMTIME* st) {
    const uint64_t ticks = FileTimeToTicks(fileTime);
    if (ticks > 0x7FFFFFFFFFFFFFFFULL) {
        return false;
    }
    const uint64_t totalSeconds = ticks / kTicksPerSecond;
    const int64_t days = static_cast<int64_t>(totalSeconds / kSecondsPerDay);
    const uint64_t secondOfDay = totalSeconds % kSecondsPerDay;
    int64_t year = 0;
    int month = 0;
    int day = 0;
    CivilFromDays(days - kDaysFrom1601To1970, &year, &month, &day);
    st->wYear = static_cast<uint16_t>(year);
    st->wMonth = static_cast<uint16_t>(month);
    st->wDay = static_cast<uint16_t>(day);
    // 1601-01-01 was a Monday.
    st->wDayOfWeek = static_cast<uint16_t>((days + 1) % 7);
    st->wHour = static_cast<uint16_t>(secondOfDay / 3600);
    st->wMinute = static_cast<uint16_t>(secondOfDay / 60 % 60);
    st->wSecond = static_cast<uint16_t>(secondOfDay % 60);
    st->wMilliseconds = static_cast<uint16_t>(ticks % kTicksPerSecond / kTicksPerMillisecond);
    return true;
}
