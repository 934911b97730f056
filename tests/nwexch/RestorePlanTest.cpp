#include <gtest/gtest.h>

#include "RestorePlan.h"

TEST(RestorePlan, KeepsBackupPathUnderDestination) {
    const RestorePlan plan = PlanRestore(
        L"C:\\restore",
        {{0, L"/First Storage Group/priv1.edb"}, {3, L"/First Storage Group/E00.log"}}, false);
    ASSERT_TRUE(plan.Ok());
    ASSERT_EQ(plan.files.size(), 2u);
    EXPECT_EQ(plan.files[0].directory, L"C:\\restore\\First Storage Group");
    EXPECT_EQ(plan.files[0].fileName, L"priv1.edb");
    EXPECT_EQ(plan.files[0].FullPath(), L"C:\\restore\\First Storage Group\\priv1.edb");
    EXPECT_EQ(plan.files[0].PartialName(), L"priv1.edb.nwexch-partial");
    EXPECT_EQ(plan.files[1].index, 3u);
}

TEST(RestorePlan, RootWithTrailingSeparatorGetsNoDoubleSeparator) {
    const RestorePlan plan = PlanRestore(L"C:\\", {{0, L"/sg/priv1.edb"}}, false);
    ASSERT_TRUE(plan.Ok());
    EXPECT_EQ(plan.files[0].FullPath(), L"C:\\sg\\priv1.edb");
}

TEST(RestorePlan, FlatPutsEverythingInTheDestination) {
    const RestorePlan plan =
        PlanRestore(L"D:\\out", {{0, L"/sg1/priv1.edb"}, {1, L"/sg2/priv2.edb"}}, true);
    ASSERT_TRUE(plan.Ok());
    EXPECT_EQ(plan.files[0].directory, L"D:\\out");
    EXPECT_EQ(plan.files[1].FullPath(), L"D:\\out\\priv2.edb");
}

TEST(RestorePlan, FlatRefusesTwoFilesWithTheSameNameIgnoringCase) {
    const RestorePlan plan =
        PlanRestore(L"D:\\out", {{0, L"/sg1/E00.log"}, {1, L"/sg2/e00.LOG"}}, true);
    EXPECT_FALSE(plan.Ok());
    ASSERT_EQ(plan.problems.size(), 1u);
    EXPECT_NE(plan.problems[0].find(L"would both be written to D:\\out\\e00.LOG"),
              std::wstring::npos);
}

TEST(RestorePlan, RefusesEscapingAndUnsafeNames) {
    const std::wstring bad[] = {L"/sg/../../windows/system32/x.dll",
                                L"/sg/./x.edb",
                                L"C:/x.edb",
                                L"/sg/C:x.edb",
                                L"\\\\server\\share\\..\\x.edb",
                                L"/sg/a\\..\\..\\x.edb",
                                L"/sg/nul.edb",
                                L"/COM1/x.edb",
                                L"/sg/x.edb ",
                                L"/sg/x.",
                                L"/sg/x?.edb",
                                L"/sg/x\x01.edb",
                                L"/sg/",
                                L"",
                                L"///"};
    for (const std::wstring& path : bad) {
        const RestorePlan plan = PlanRestore(L"C:\\restore", {{7, path}}, false);
        EXPECT_FALSE(plan.Ok()) << std::string(path.begin(), path.end());
        EXPECT_TRUE(plan.files.empty());
        if (!plan.problems.empty()) {
            EXPECT_EQ(plan.problems[0].rfind(L"index 7: ", 0), 0u);
        }
    }
}

TEST(RestorePlan, SkipsEmptyPiecesAndAcceptsBackslashes) {
    std::vector<std::wstring> names;
    std::wstring problem;
    ASSERT_TRUE(SplitBackupPath(L"//sg//sub\\priv1.edb", &names, &problem));
    EXPECT_EQ(names, (std::vector<std::wstring>{L"sg", L"sub", L"priv1.edb"}));
    ASSERT_TRUE(SplitBackupPath(L"..edb", &names, &problem));  // dots inside a name are fine
}

TEST(RestorePlan, RefusesPathsTooLongForTheLibrary) {
    const std::wstring longName(1000, L'x');
    const RestorePlan plan = PlanRestore(L"C:\\restore", {{0, L"/" + longName + L".edb"}}, false);
    EXPECT_FALSE(plan.Ok());
    EXPECT_NE(plan.problems[0].find(L"too long"), std::wstring::npos);
}

TEST(RestorePlan, GoodFilesArePlannedEvenWhenOthersHaveProblems) {
    const RestorePlan plan = PlanRestore(L"C:\\r", {{0, L"/sg/../x"}, {1, L"/sg/ok.edb"}}, false);
    EXPECT_EQ(plan.problems.size(), 1u);
    ASSERT_EQ(plan.files.size(), 1u);
    EXPECT_EQ(plan.files[0].index, 1u);
}
