#include "networker/InstallDirectory.h"

#include <gtest/gtest.h>

TEST(InstallDirectoryTest, QuotedBinaryPathYieldsItsDirectory) {
    EXPECT_EQ(L"C:\\A\\B", InstallDirectoryFromBinaryPath(L"\"C:\\A\\B\\nsrexecd.exe\""));
}

TEST(InstallDirectoryTest, ProgramInTheRootYieldsDriveAndColonOnly) {
    EXPECT_EQ(L"C:", InstallDirectoryFromBinaryPath(L"C:\\nsrexecd.exe"));
}

TEST(InstallDirectoryTest, NoBackslashYieldsEmpty) {
    EXPECT_EQ(L"", InstallDirectoryFromBinaryPath(L"nsrexecd.exe"));
    EXPECT_EQ(L"", InstallDirectoryFromBinaryPath(L"C:nsrexecd.exe"));
    EXPECT_EQ(L"", InstallDirectoryFromBinaryPath(L""));
}

TEST(InstallDirectoryTest, NoColonIsKeptWhole) {
    EXPECT_EQ(L"\\\\srv\\share\\nsr", StripBeforeDriveLetter(L"\\\\srv\\share\\nsr"));
    EXPECT_EQ(L"\\\\srv\\share", InstallDirectoryFromBinaryPath(L"\\\\srv\\share\\nsrexecd.exe"));
    EXPECT_EQ(L"\"\\nsr\\bin", InstallDirectoryFromBinaryPath(L"\"\\nsr\\bin\\nsrexecd.exe\""));
}

TEST(InstallDirectoryTest, StripKeepsFromTheCharacterBeforeTheFirstColon) {
    EXPECT_EQ(L"C:\\x.exe\"", StripBeforeDriveLetter(L"\"C:\\x.exe\""));
    EXPECT_EQ(L"D:\\a", StripBeforeDriveLetter(L"  xyD:\\a"));
    EXPECT_EQ(L"C:\\a", StripBeforeDriveLetter(L"C:\\a"));
    EXPECT_EQ(L":\\a", StripBeforeDriveLetter(L":\\a"));
    // Only the first colon counts.
    EXPECT_EQ(L"C:\\a -d E:\\b", StripBeforeDriveLetter(L"\"C:\\a -d E:\\b"));
}

TEST(InstallDirectoryTest, BackslashInArgumentsMovesTheCut) {
    EXPECT_EQ(L"C:\\A\\nsrexecd.exe\" -log C:\\logs",
              InstallDirectoryFromBinaryPath(L"\"C:\\A\\nsrexecd.exe\" -log C:\\logs\\x.raw"));
    EXPECT_EQ(L"C:\\A", InstallDirectoryFromBinaryPath(L"\"C:\\A\\nsrexecd.exe\" -debug"));
}

TEST(InstallDirectoryTest, CutAtLastBackslashDropsTheFileName) {
    EXPECT_EQ(L"C:\\Program Files\\EMC NetWorker\\nsr\\bin",
              CutAtLastBackslash(L"C:\\Program Files\\EMC NetWorker\\nsr\\bin\\nsrexecd.exe"));
    EXPECT_EQ(L"", CutAtLastBackslash(L"\\nsrexecd.exe"));
    EXPECT_EQ(L"", CutAtLastBackslash(L"nsrexecd.exe"));
}
