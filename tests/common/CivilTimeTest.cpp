#include <gtest/gtest.h>

#include <cstdint>

#include "common/CivilTime.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace {

SYSTEMTIME MakeTime(uint16_t year, uint16_t month, uint16_t day, uint16_t hour = 0,
                    uint16_t minute = 0, uint16_t second = 0, uint16_t ms = 0) {
    SYSTEMTIME st{};
    st.wYear = year;
    st.wMonth = month;
    st.wDay = day;
    st.wHour = hour;
    st.wMinute = minute;
    st.wSecond = second;
    st.wMilliseconds = ms;
    return st;
}

uint64_t Ticks(const SYSTEMTIME& st) {
    FILETIME ft{};
    EXPECT_TRUE(CivilSystemTimeToFileTime(st, &ft));
    return FileTimeToTicks(ft);
}

constexpr uint64_t kTicksPerDay = 864000000000ULL;

}  // namespace

TEST(CivilTime, EpochIsZero) {
    EXPECT_EQ(Ticks(MakeTime(1601, 1, 1)), 0u);
}

TEST(CivilTime, UnixEpoch) {
    EXPECT_EQ(Ticks(MakeTime(1970, 1, 1)), 116444736000000000ULL);
}

TEST(CivilTime, TimeOfDayAndMilliseconds) {
    EXPECT_EQ(Ticks(MakeTime(1601, 1, 1, 1, 2, 3, 4)),
              ((1 * 3600 + 2 * 60 + 3) * 1000ULL + 4) * 10000ULL);
    EXPECT_EQ(Ticks(MakeTime(1601, 1, 1, 23, 59, 59, 999)), kTicksPerDay - 10000ULL);
}

TEST(CivilTime, LeapDays) {
    EXPECT_EQ(Ticks(MakeTime(2000, 3, 1)) - Ticks(MakeTime(2000, 2, 28)), 2 * kTicksPerDay);
    EXPECT_EQ(Ticks(MakeTime(1900, 3, 1)) - Ticks(MakeTime(1900, 2, 28)), kTicksPerDay);
    EXPECT_EQ(Ticks(MakeTime(2024, 3, 1)) - Ticks(MakeTime(2024, 2, 28)), 2 * kTicksPerDay);
}

TEST(CivilTime, DayOfWeekIsIgnoredOnInput) {
    SYSTEMTIME st = MakeTime(2026, 11, 21);
    const uint64_t plain = Ticks(st);
    st.wDayOfWeek = 3;
    EXPECT_EQ(Ticks(st), plain);
}

TEST(CivilTime, RejectsFieldsOutOfRangeAndLeavesOutputAlone) {
    const SYSTEMTIME bad[] = {
        MakeTime(1600, 12, 31),         MakeTime(30828, 1, 1),
        MakeTime(2026, 0, 1),           MakeTime(2026, 13, 1),
        MakeTime(2026, 1, 0),           MakeTime(2026, 4, 31),
        MakeTime(2100, 2, 29),          MakeTime(2023, 2, 29),
        MakeTime(2026, 1, 1, 24),       MakeTime(2026, 1, 1, 0, 60),
        MakeTime(2026, 1, 1, 0, 0, 60), MakeTime(2026, 1, 1, 0, 0, 0, 1000),
    };
    for (const SYSTEMTIME& st : bad) {
        FILETIME ft{0x12345678u, 0x9ABCDEFu};
        EXPECT_FALSE(CivilSystemTimeToFileTime(st, &ft))
            << st.wYear << "-" << st.wMonth << "-" << st.wDay << " " << st.wHour << ":"
            << st.wMinute << ":" << st.wSecond << "." << st.wMilliseconds;
        EXPECT_EQ(ft.dwLowDateTime, 0x12345678u);
        EXPECT_EQ(ft.dwHighDateTime, 0x9ABCDEFu);
    }
}

TEST(CivilTime, LastRepresentableYearIsAccepted) {
    FILETIME ft{};
    EXPECT_TRUE(CivilSystemTimeToFileTime(MakeTime(30827, 12, 31, 23, 59, 59, 999), &ft));
    EXPECT_TRUE(CivilSystemTimeToFileTime(MakeTime(2000, 2, 29), &ft));
}

TEST(CivilTime, FileTimeToSystemTimeFillsDayOfWeek) {
    SYSTEMTIME st{};
    ASSERT_TRUE(CivilFileTimeToSystemTime(TicksToFileTime(116444736000000000ULL), &st));
    EXPECT_EQ(st.wYear, 1970);
    EXPECT_EQ(st.wMonth, 1);
    EXPECT_EQ(st.wDay, 1);
    EXPECT_EQ(st.wDayOfWeek, 4);  // Thursday
    ASSERT_TRUE(CivilFileTimeToSystemTime(TicksToFileTime(0), &st));
    EXPECT_EQ(st.wDayOfWeek, 1);  // Monday
}

TEST(CivilTime, RoundTripKeepsEveryField) {
    const SYSTEMTIME original = MakeTime(2026, 11, 21, 14, 5, 9, 42);
    SYSTEMTIME back{};
    ASSERT_TRUE(CivilFileTimeToSystemTime(TicksToFileTime(Ticks(original)), &back));
    EXPECT_EQ(back.wYear, 2026);
    EXPECT_EQ(back.wMonth, 11);
    EXPECT_EQ(back.wDay, 21);
    EXPECT_EQ(back.wDayOfWeek, 6);  // Saturday
    EXPECT_EQ(back.wHour, 14);
    EXPECT_EQ(back.wMinute, 5);
    EXPECT_EQ(back.wSecond, 9);
    EXPECT_EQ(back.wMilliseconds, 42);
}

TEST(CivilTime, FileTimesAboveTheSignedRangeAreRejected) {
    SYSTEMTIME st{};
    EXPECT_TRUE(CivilFileTimeToSystemTime(TicksToFileTime(0x7FFFFFFFFFFFFFFFULL), &st));
    EXPECT_FALSE(CivilFileTimeToSystemTime(TicksToFileTime(0x8000000000000000ULL), &st));
}

TEST(CivilTime, TicksSplitIntoTwoWords) {
    const FILETIME ft = TicksToFileTime(0x0123456789ABCDEFULL);
    EXPECT_EQ(ft.dwLowDateTime, 0x89ABCDEFu);
    EXPECT_EQ(ft.dwHighDateTime, 0x01234567u);
    EXPECT_EQ(FileTimeToTicks(ft), 0x0123456789ABCDEFULL);
}

#ifdef _WIN32
// Our arithmetic against the Windows functions for every day from 1601 to 2100.
TEST(CivilTimeAgainstWindows, EveryDayFrom1601To2100) {
    SYSTEMTIME day = MakeTime(1601, 1, 1, 13, 47, 21, 512);
    FILETIME ours{};
    ASSERT_TRUE(CivilSystemTimeToFileTime(day, &ours));
    uint64_t ticks = FileTimeToTicks(ours);
    int checked = 0;
    for (;;) {
        SYSTEMTIME windows{};
        SYSTEMTIME civil{};
        const FILETIME ft = TicksToFileTime(ticks);
        ASSERT_TRUE(FileTimeToSystemTime(&ft, &windows));
        ASSERT_TRUE(CivilFileTimeToSystemTime(ft, &civil));
        ASSERT_EQ(memcmp(&windows, &civil, sizeof windows), 0)
            << windows.wYear << "-" << windows.wMonth << "-" << windows.wDay;
        FILETIME back{};
        FILETIME windowsBack{};
        ASSERT_TRUE(CivilSystemTimeToFileTime(civil, &back));
        ASSERT_TRUE(SystemTimeToFileTime(&windows, &windowsBack));
        ASSERT_EQ(FileTimeToTicks(back), FileTimeToTicks(windowsBack));
        ASSERT_EQ(FileTimeToTicks(back), ticks);
        ++checked;
        if (civil.wYear == 2100 && civil.wMonth == 12 && civil.wDay == 31) {
            break;
        }
        ticks += kTicksPerDay;
    }
    EXPECT_EQ(checked, 182621);  // days from 1601-01-01 to 2100-12-31 inclusive
}

TEST(CivilTimeAgainstWindows, InvalidDatesAreRejectedAlike) {
    for (uint16_t month = 1; month <= 12; ++month) {
        for (uint16_t day = 28; day <= 32; ++day) {
            for (uint16_t year : {1900, 2000, 2023, 2024, 2100}) {
                const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
                if (month == 2 && day == 29 && !leap) {
                    continue;  // Wine accepts February 29 of every year; Windows does not
                }
                const SYSTEMTIME st = MakeTime(year, month, day);
                FILETIME ours{};
                FILETIME windows{};
                EXPECT_EQ(CivilSystemTimeToFileTime(st, &ours),
                          SystemTimeToFileTime(&st, &windows) != FALSE)
                    << year << "-" << month << "-" << day;
            }
        }
    }
}
#endif
