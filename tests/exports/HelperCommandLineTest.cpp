#include <gtest/gtest.h>

#include "HelperCommandLine.h"

namespace {

const std::wstring kModule = L"C:\\Program Files\\Tarn\\NetWorker64BitClient.exe";

TEST(HelperCommandLine, BareNameAsStartedByTheHostIsTheWholeLine) {
    EXPECT_EQ(PipeNameFromCommandLine(L"nwx-1234", kModule), L"nwx-1234");
    EXPECT_EQ(PipeNameFromCommandLine(L"pipe with blanks", kModule), L"pipe with blanks");
}

TEST(HelperCommandLine, ConventionalLineDropsTheProgramName) {
    EXPECT_EQ(PipeNameFromCommandLine(L"NetWorker64BitClient.exe nwx-1", kModule), L"nwx-1");
    EXPECT_EQ(PipeNameFromCommandLine(L"networker64bitclient nwx-1", kModule), L"nwx-1");
    EXPECT_EQ(PipeNameFromCommandLine(
                  L"\"C:\\Program Files\\Tarn\\NetWorker64BitClient.exe\"  nwx-2  ", kModule),
              L"nwx-2");
    EXPECT_EQ(PipeNameFromCommandLine(L"C:\\x\\NetWorker64BitClient.exe \"a b\"", kModule), L"a b");
}

TEST(HelperCommandLine, ProgramNameAloneGivesNoName) {
    EXPECT_EQ(PipeNameFromCommandLine(L"NetWorker64BitClient.exe", kModule), L"");
    EXPECT_EQ(PipeNameFromCommandLine(L"\"NetWorker64BitClient.exe\"   ", kModule), L"");
    EXPECT_EQ(PipeNameFromCommandLine(L"", kModule), L"");
}

TEST(HelperCommandLine, AnotherProgramNameInFrontIsPartOfTheName) {
    EXPECT_EQ(PipeNameFromCommandLine(L"other.exe nwx-1", kModule), L"other.exe nwx-1");
    EXPECT_EQ(PipeNameFromCommandLine(L"NetWorker64BitClientX nwx", kModule),
              L"NetWorker64BitClientX nwx");
}

}  // namespace
