// Our own calendar arithmetic must give exactly what the Windows functions give.
#include <gtest/gtest.h>

#include <windows.h>

#include "common/CivilTime.h"

namespace {

int DaysIn(int year, int month) {
    static const int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : kDays[month - 1];
}

bool SameSystemTime(const SYSTEMTIME& a, const SYSTEMTIME& b) {
    return a.wYear == b.wYear && a.wMonth == b.wMonth && a.wDayOfWeek == b.wDayOfWeek &&
           a.wDay == b.wDay && a.wHour == b.wHour && a.wMinute == b.wMinute &&
           a.wSecond == b.wSecond && a.wMilliseconds == b.wMilliseconds;
}

}  // namespace

TEST(CivilTimeWindowsTest, EveryDayFrom1601To2100MatchesWindows) {
    static const WORD kTimes[][4] = {
        {0, 0, 0, 0}, {23, 59, 59, 999}, {12, 30, 15, 500}, {1, 2, 3, 4}};
    int checkedDays = 0;
    for (WORD year = 1601; year <= 2100; ++year) {
        for (WORD month = 1; month <= 12; ++month) {
            for (WORD day = 1; day <= DaysIn(year, month); ++day) {
                for (size_t t = 0; t < 4; ++t) {
                    // Every day at midnight; the other times of day on every fifth day.
                    if (t != 0 && day % 5 != 0) {
                        continue;
                    }
                    SYSTEMTIME input{};
                    input.wYear = year;
                    input.wMonth = month;
                    input.wDay = day;
                    input.wHour = kTimes[t][0];
                    input.wMinute = kTimes[t][1];
                    input.wSecond = kTimes[t][2];
                    input.wMilliseconds = kTimes[t][3];
                    FILETIME windows{0xdeadbeef, 0xdeadbeef};
                    FILETIME ours{0xdeadbeef, 0xdeadbeef};
                    const bool windowsOk = SystemTimeToFileTime(&input, &windows) != FALSE;
                    const bool oursOk = CivilSystemTimeToFileTime(input, &ours);
                    ASSERT_TRUE(windowsOk) << year << "-" << month << "-" << day;
                    ASSERT_TRUE(oursOk) << year << "-" << month << "-" << day;
                    if (t == 0) {
                        ++checkedDays;
                    }
                    ASSERT_EQ(windows.dwLowDateTime, ours.dwLowDateTime)
                        << year << "-" << month << "-" << day;
                    ASSERT_EQ(windows.dwHighDateTime, ours.dwHighDateTime);

                    SYSTEMTIME windowsBack{};
                    SYSTEMTIME oursBack{};
                    ASSERT_TRUE(FileTimeToSystemTime(&windows, &windowsBack));
                    ASSERT_TRUE(CivilFileTimeToSystemTime(windows, &oursBack));
                    ASSERT_TRUE(SameSystemTime(windowsBack, oursBack))
                        << year << "-" << month << "-" << day << " weekday "
                        << windowsBack.wDayOfWeek << " vs " << oursBack.wDayOfWeek;
                }
            }
        }
    }
    // 500 years, of which 121 leap years.
    EXPECT_EQ(500 * 365 + 121, checkedDays);
}

TEST(CivilTimeWindowsTest, RejectionsMatchWindows) {
    // Wine is more lenient than Windows about the day of the month and the last year, so only
    // the field ranges that both check alike are compared here.
    const SYSTEMTIME cases[] = {
        {1600, 12, 0, 31, 0, 0, 0, 0},  {2026, 0, 0, 1, 0, 0, 0, 0},
        {2026, 13, 0, 1, 0, 0, 0, 0},   {2024, 2, 0, 29, 0, 0, 0, 0},
        {2026, 1, 0, 0, 0, 0, 0, 0},    {2026, 1, 0, 1, 24, 0, 0, 0},
        {2026, 1, 0, 1, 0, 60, 0, 0},   {2026, 1, 0, 1, 0, 0, 60, 0},
        {2026, 1, 0, 1, 0, 0, 0, 1000}, {30827, 12, 0, 31, 23, 59, 59, 999},
    };
    for (const SYSTEMTIME& input : cases) {
        FILETIME windows{};
        FILETIME ours{};
        EXPECT_EQ(SystemTimeToFileTime(&input, &windows) != FALSE,
                  CivilSystemTimeToFileTime(input, &ours))
            << input.wYear << "-" << input.wMonth << "-" << input.wDay;
    }
}
