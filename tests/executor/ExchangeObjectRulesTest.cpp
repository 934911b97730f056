#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "common/CivilTime.h"
#include "executor/ExchangeObjectRules.h"

namespace {

std::tm Day(int year, int month, int day, int hour = 0, int minute = 0, int second = 0) {
    std::tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = second;
    return time;
}

FILETIME Midnight(int year, int month, int day) {
    SYSTEMTIME time{};
    time.wYear = static_cast<uint16_t>(year);
    time.wMonth = static_cast<uint16_t>(month);
    time.wDay = static_cast<uint16_t>(day);
    FILETIME result{};
    EXPECT_TRUE(CivilSystemTimeToFileTime(time, &result));
    return result;
}

FILETIME Plus(FILETIME time, uint64_t ticks) {
    return TicksToFileTime(FileTimeToTicks(time) + ticks);
}

BSA_UInt64 Split(uint64_t value) {
    return BSA_UInt64{static_cast<uint32_t>(value >> 32), static_cast<uint32_t>(value)};
}

}  // namespace

TEST(ExchangeFileTest, AcceptsDatabaseLogStreamingAndCheckpointFiles) {
    EXPECT_TRUE(IsExchangeFile("D", "\\First Storage Group\\priv1.edb"));
    EXPECT_TRUE(IsExchangeFile("D", "\\First Storage Group\\priv1.stm"));
    EXPECT_TRUE(IsExchangeFile("L", "\\First Storage Group\\E0000001.log"));
    EXPECT_TRUE(IsExchangeFile("L", "\\First Storage Group\\E00.chk"));
    EXPECT_TRUE(IsExchangeFile("D", ".abc"));
    EXPECT_FALSE(IsExchangeFile("D", "a.bc"));
}

TEST(ExchangeFileTest, ResourceTypeMustBeExactlyDOrL) {
    EXPECT_FALSE(IsExchangeFile("", "\\sg\\priv1.edb"));
    EXPECT_FALSE(IsExchangeFile("d", "\\sg\\priv1.edb"));
    EXPECT_FALSE(IsExchangeFile("l", "\\sg\\E01.log"));
    EXPECT_FALSE(IsExchangeFile("DL", "\\sg\\priv1.edb"));
    EXPECT_FALSE(IsExchangeFile("X", "\\sg\\priv1.edb"));
}

TEST(ExchangeFileTest, ContainerObjectsAreRefusedInAnyCase) {
    for (const char* path :
         {"/Directory", "/DIRECTORY", "/directory", "/dIrEcToRy", "/Private Information Store",
          "/PRIVATE INFORMATION STORE", "/Public Information Store", "/public information store"}) {
        EXPECT_FALSE(IsExchangeFile("D", path)) << path;
    }
    // Only the exact container names are refused.
    EXPECT_TRUE(IsExchangeFile("D", "/Directory.edb"));
}

TEST(ExchangeFileTest, PrivateMailboxesAreRefusedCaseSensitively) {
    EXPECT_FALSE(IsExchangeFile("D", "/sg/Private Mailboxes/x.edb"));
    EXPECT_TRUE(IsExchangeFile("D", "/sg/private mailboxes/x.edb"));
}

TEST(ExchangeFileTest, NeedsFourCharactersAndAThreeLetterExtension) {
    EXPECT_FALSE(IsExchangeFile("D", "a.b"));
    EXPECT_FALSE(IsExchangeFile("D", ""));
    EXPECT_FALSE(IsExchangeFile("D", "/sg/priv1.ed"));
    EXPECT_FALSE(IsExchangeFile("D", "/sg/priv1.edbx"));
    EXPECT_FALSE(IsExchangeFile("D", "/sg/priv1_edb"));
}

TEST(ExchangeFileTest, DescriptorTextNeedNotBeTerminated) {
    BSA_ObjectDescriptor descriptor{};
    std::memset(descriptor.objectName.pathName, 'a', sizeof descriptor.objectName.pathName);
    std::memcpy(descriptor.objectName.pathName + sizeof descriptor.objectName.pathName - 4, ".edb",
                4);
    std::strcpy(descriptor.resourceType, "D");
    EXPECT_TRUE(IsExchangeFile(descriptor));
    std::memset(descriptor.resourceType, 'D', sizeof descriptor.resourceType);
    EXPECT_FALSE(IsExchangeFile(descriptor));
}

TEST(AnnouncedSizeTest, DatabasesZeroLogsFiveMebibytesOthersOwnSize) {
    const BSA_UInt64 size = Split(5000000000ULL);
    EXPECT_EQ(0u, AnnouncedSize("/sg/priv1.edb", size));
    EXPECT_EQ(0u, AnnouncedSize("/sg/PRIV1.EDB", size));
    EXPECT_EQ(0u, AnnouncedSize("/sg/priv1.stm", size));
    EXPECT_EQ(0u, AnnouncedSize("/sg/PRIV1.STM", size));
    EXPECT_EQ(5242880u, AnnouncedSize("/sg/E01.log", size));
    EXPECT_EQ(5242880u, AnnouncedSize("/sg/E01.LOG", size));
    EXPECT_EQ(5000000000ULL, AnnouncedSize("/sg/E00.chk", size));
}

TEST(AnnouncedSizeTest, OnlyTheListedSpellingsCountAnywhereInThePath) {
    const BSA_UInt64 size = Split(1234);
    EXPECT_EQ(1234u, AnnouncedSize("/sg/priv1.Edb", size));
    EXPECT_EQ(1234u, AnnouncedSize("/sg/E01.Log", size));
    EXPECT_EQ(0u, AnnouncedSize("/x.edb.d/E01.log", size));  // database marker wins
    EXPECT_EQ(5242880u, AnnouncedSize("/x.log/y.chk", size));
}

TEST(TimeWindowTest, BothBoundsNullAcceptAnything) {
    EXPECT_TRUE(PassesTimeWindow(Day(1990, 1, 1), nullptr, nullptr));
    std::tm impossible{};
    impossible.tm_year = -5000;
    EXPECT_TRUE(PassesTimeWindow(impossible, nullptr, nullptr));
}

TEST(TimeWindowTest, BoundsOnTheSameMidnightAcceptTheWholeDay) {
    const FILETIME midnight = Midnight(2026, 3, 14);
    EXPECT_TRUE(PassesTimeWindow(Day(2026, 3, 14, 0, 0, 0), &midnight, &midnight));
    EXPECT_TRUE(PassesTimeWindow(Day(2026, 3, 14, 23, 59, 59), &midnight, &midnight));
    EXPECT_FALSE(PassesTimeWindow(Day(2026, 3, 13, 23, 59, 59), &midnight, &midnight));
    EXPECT_FALSE(PassesTimeWindow(Day(2026, 3, 15, 0, 0, 0), &midnight, &midnight));
}

TEST(TimeWindowTest, OnlyTheDateIsCompared) {
    // An upper bound at noon still admits an object made in the evening of that day.
    const FILETIME noon = Plus(Midnight(2026, 3, 14), 12ULL * 3600 * 10000000);
    EXPECT_TRUE(PassesTimeWindow(Day(2026, 3, 14, 23, 0, 0), &noon, nullptr));
    // A lower bound at noon refuses even an evening object of that day: it counts as midnight.
    EXPECT_FALSE(PassesTimeWindow(Day(2026, 3, 14, 23, 0, 0), nullptr, &noon));
    EXPECT_TRUE(PassesTimeWindow(Day(2026, 3, 15, 1, 0, 0), nullptr, &noon));
}

TEST(TimeWindowTest, OpenBoundsOnOneSide) {
    const FILETIME bound = Midnight(2020, 6, 1);
    EXPECT_TRUE(PassesTimeWindow(Day(2020, 6, 1), nullptr, &bound));
    EXPECT_TRUE(PassesTimeWindow(Day(2030, 1, 1), nullptr, &bound));
    EXPECT_FALSE(PassesTimeWindow(Day(2020, 5, 31), nullptr, &bound));
    EXPECT_TRUE(PassesTimeWindow(Day(2020, 6, 1), &bound, nullptr));
    EXPECT_TRUE(PassesTimeWindow(Day(1999, 1, 1), &bound, nullptr));
    EXPECT_FALSE(PassesTimeWindow(Day(2020, 6, 2), &bound, nullptr));
}

TEST(TimeWindowTest, AfterLaterThanBeforeThrowsInvalidArgument) {
    const FILETIME before = Midnight(2020, 6, 1);
    const FILETIME after = Plus(before, 1);
    try {
        PassesTimeWindow(Day(2020, 6, 1), &before, &after);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ("timeAfter cannot be later than timeBefore", error.what());
    }
}

TEST(TimeWindowTest, ImpossibleDateComparesAsEarliest) {
    std::tm impossible = Day(2020, 2, 30);
    const FILETIME bound = Midnight(2020, 1, 1);
    EXPECT_EQ(0u, FileTimeToTicks(CreationDateAsFileTime(impossible)));
    EXPECT_TRUE(PassesTimeWindow(impossible, &bound, nullptr));
    EXPECT_FALSE(PassesTimeWindow(impossible, nullptr, &bound));
}

TEST(BackupTimeTest, YearAndMonthShiftedTimeKeptNoWeekdayNoMilliseconds) {
    const SYSTEMTIME time = BackupTimeOf(Day(2026, 11, 21, 14, 5, 9));
    EXPECT_EQ(2026, time.wYear);
    EXPECT_EQ(11, time.wMonth);
    EXPECT_EQ(0, time.wDayOfWeek);
    EXPECT_EQ(21, time.wDay);
    EXPECT_EQ(14, time.wHour);
    EXPECT_EQ(5, time.wMinute);
    EXPECT_EQ(9, time.wSecond);
    EXPECT_EQ(0, time.wMilliseconds);
}

TEST(JoinUInt64Test, LeftHalfIsHigh) {
    EXPECT_EQ(0x0000000100000002ULL, JoinUInt64(BSA_UInt64{1, 2}));
}

TEST(ExchangeQueryTest, MostRecentBackupFilesOfTheExchangeOwnerAndNothingElse) {
    BSA_QueryDescriptor expected{};
    std::strcpy(expected.owner.bsa_ObjectOwner, "MSEXCH");
    std::strcpy(expected.owner.app_ObjectOwner, "msexch");
    expected.copyType = BSA_CopyType_BACKUP;
    expected.objectType = BSA_ObjectType_FILE;
    expected.status = BSA_ObjectStatus_MOST_RECENT;
    const BSA_QueryDescriptor query = ExchangeQueryDescriptor();
    EXPECT_EQ(0, std::memcmp(&expected, &query, sizeof query));
}
