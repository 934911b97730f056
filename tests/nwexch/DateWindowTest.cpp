#include <gtest/gtest.h>

#include "DateWindow.h"
#include "common/CivilTime.h"

namespace {

SYSTEMTIME Time(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
    SYSTEMTIME t{};
    t.wYear = static_cast<uint16_t>(y);
    t.wMonth = static_cast<uint16_t>(mo);
    t.wDay = static_cast<uint16_t>(d);
    t.wHour = static_cast<uint16_t>(h);
    t.wMinute = static_cast<uint16_t>(mi);
    t.wSecond = static_cast<uint16_t>(s);
    return t;
}

uint64_t Ticks(const SYSTEMTIME& t) {
    FILETIME f{};
    EXPECT_TRUE(CivilSystemTimeToFileTime(t, &f));
    return FileTimeToTicks(f);
}

DateArgument Parse(const std::wstring& text) {
    std::wstring error;
    auto value = ParseDateArgument(text, &error);
    EXPECT_TRUE(value.has_value()) << text << ": " << std::string(error.begin(), error.end());
    return value.value_or(DateArgument{});
}

bool Rejected(const std::wstring& text) {
    std::wstring error;
    const bool rejected = !ParseDateArgument(text, &error).has_value();
    if (rejected) {
        EXPECT_FALSE(error.empty());
    }
    return rejected;
}

}  // namespace

TEST(ParseDateArgument, DateOnly) {
    const DateArgument d = Parse(L"2026-11-20");
    EXPECT_TRUE(d.dateOnly);
    EXPECT_EQ(d.ticks, Ticks(Time(2026, 11, 20)));
}

TEST(ParseDateArgument, FullTimesWithAndWithoutSeconds) {
    EXPECT_EQ(Parse(L"2026-11-20T22:05:09").ticks, Ticks(Time(2026, 11, 20, 22, 5, 9)));
    EXPECT_EQ(Parse(L"2026-11-20 22:05").ticks, Ticks(Time(2026, 11, 20, 22, 5)));
    EXPECT_FALSE(Parse(L"2026-11-20T22:05").dateOnly);
    EXPECT_EQ(Parse(L"2026-11-20T22:05:09.5").ticks, Ticks(Time(2026, 11, 20, 22, 5, 9)) + 5000000);
}

TEST(ParseDateArgument, ZoneOffsetsAreConvertedToUtc) {
    EXPECT_EQ(Parse(L"2026-11-20T22:00Z").ticks, Ticks(Time(2026, 11, 20, 22)));
    EXPECT_EQ(Parse(L"2026-11-20T23:30+01:30").ticks, Ticks(Time(2026, 11, 20, 22)));
    EXPECT_EQ(Parse(L"2026-11-20T20:00-0200").ticks, Ticks(Time(2026, 11, 20, 22)));
    EXPECT_EQ(Parse(L"2026-11-21T01:00+03").ticks, Ticks(Time(2026, 11, 20, 22)));
}

TEST(ParseDateArgument, RejectsMalformedAndImpossibleDates) {
    EXPECT_TRUE(Rejected(L""));
    EXPECT_TRUE(Rejected(L"2026-11"));
    EXPECT_TRUE(Rejected(L"2026/11/20"));
    EXPECT_TRUE(Rejected(L"2026-02-30"));
    EXPECT_TRUE(Rejected(L"2026-13-01"));
    EXPECT_TRUE(Rejected(L"2026-11-20T24:00"));
    EXPECT_TRUE(Rejected(L"2026-11-20T22:00:00x"));
    EXPECT_TRUE(Rejected(L"2026-11-20T22"));
    EXPECT_TRUE(Rejected(L"1500-01-01"));
    EXPECT_TRUE(Rejected(L"2026-11-20T22:00+25:00"));
    EXPECT_TRUE(Rejected(L"2026-11-20 "));
}

TEST(DateWindow, DateOnlyBeforeCoversTheWholeDay) {
    const DateWindow window(std::nullopt, Parse(L"2026-11-20"));
    EXPECT_TRUE(window.Contains(Time(2026, 11, 20, 23, 59, 59)));
    EXPECT_TRUE(window.Contains(Time(2026, 11, 20, 0, 0, 0)));
    EXPECT_FALSE(window.Contains(Time(2026, 11, 21, 0, 0, 0)));
}

TEST(DateWindow, AfterWithATimeIsExactNotJustTheDate) {
    const DateWindow window(Parse(L"2026-11-20T12:00"), std::nullopt);
    EXPECT_FALSE(window.Contains(Time(2026, 11, 20, 11, 59, 59)));
    EXPECT_TRUE(window.Contains(Time(2026, 11, 20, 12, 0, 0)));
    EXPECT_TRUE(window.Contains(Time(2026, 11, 20, 15, 0, 0)));
}

TEST(DateWindow, BoundsAreInclusiveAndSameDayWorks) {
    const DateWindow window(Parse(L"2026-11-20"), Parse(L"2026-11-20"));
    EXPECT_TRUE(window.IsConsistent());
    EXPECT_TRUE(window.Contains(Time(2026, 11, 20, 12)));
    EXPECT_FALSE(window.Contains(Time(2026, 11, 19, 23, 59, 59)));
    const DateWindow exact(Parse(L"2026-11-20T10:00"), Parse(L"2026-11-20T10:00"));
    EXPECT_TRUE(exact.Contains(Time(2026, 11, 20, 10)));
    EXPECT_FALSE(exact.Contains(Time(2026, 11, 20, 10, 0, 1)));
}

TEST(DateWindow, InconsistentAndOpenWindows) {
    EXPECT_FALSE(DateWindow(Parse(L"2026-11-21"), Parse(L"2026-11-20")).IsConsistent());
    EXPECT_FALSE(
        DateWindow(Parse(L"2026-11-20T10:00:01"), Parse(L"2026-11-20T10:00")).IsConsistent());
    const DateWindow open;
    EXPECT_TRUE(open.IsOpen());
    SYSTEMTIME invalid{};
    EXPECT_TRUE(open.Contains(invalid));
    EXPECT_FALSE(DateWindow(Parse(L"2000-01-01"), std::nullopt).Contains(invalid));
}

TEST(FormatBackupTime, PadsEveryField) {
    EXPECT_EQ(FormatBackupTime(Time(2026, 1, 2, 3, 4, 5)), L"2026-01-02 03:04:05");
    EXPECT_EQ(FormatBackupTimeIso(Time(2026, 1, 2, 3, 4, 5)), L"2026-01-02T03:04:05");
}
