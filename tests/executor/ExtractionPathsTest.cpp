#include <gtest/gtest.h>

#include <string>

#include "executor/ExtractionPaths.h"

TEST(DestinationPathTest, AddsSeparatorOnlyWhenMissing) {
    std::wstring path;
    ASSERT_TRUE(BuildDestinationPath(L"C:\\restore", L"priv1.edb", &path));
    EXPECT_EQ(L"C:\\restore\\priv1.edb", path);
    ASSERT_TRUE(BuildDestinationPath(L"C:\\restore\\", L"priv1.edb", &path));
    EXPECT_EQ(L"C:\\restore\\priv1.edb", path);
    ASSERT_TRUE(BuildDestinationPath(L"C:\\restore", nullptr, &path));
    EXPECT_EQ(L"C:\\restore\\", path);
}

TEST(DestinationPathTest, BoundedTo1023Characters) {
    std::wstring path;
    const std::wstring directory(1000, L'd');
    EXPECT_TRUE(BuildDestinationPath(directory.c_str(), std::wstring(22, L'f').c_str(), &path));
    EXPECT_EQ(1023u, path.size());
    EXPECT_FALSE(BuildDestinationPath(directory.c_str(), std::wstring(23, L'f').c_str(), &path));
    EXPECT_TRUE(path.empty());
}

TEST(DirectoryPlanTest, DrivePathCreatesEveryLevelBelowTheRoot) {
    DirectoryPlan plan;
    ASSERT_EQ(DirectoryPlanResult::Ok, PlanDirectoryCreation(L"C:\\a\\b\\c", &plan));
    EXPECT_EQ(L"C:\\", plan.root);
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"b", L"c"}), plan.levels);
}

TEST(DirectoryPlanTest, TrailingBackslashMakesNoDifference) {
    DirectoryPlan withSlash;
    DirectoryPlan without;
    ASSERT_EQ(DirectoryPlanResult::Ok, PlanDirectoryCreation(L"C:\\a\\b\\c\\", &withSlash));
    ASSERT_EQ(DirectoryPlanResult::Ok, PlanDirectoryCreation(L"C:\\a\\b\\c", &without));
    EXPECT_EQ(without.root, withSlash.root);
    EXPECT_EQ(without.levels, withSlash.levels);
}

TEST(DirectoryPlanTest, NetworkPathRootIsServerAndShare) {
    DirectoryPlan plan;
    ASSERT_EQ(DirectoryPlanResult::Ok, PlanDirectoryCreation(L"\\\\srv\\share\\x\\y", &plan));
    EXPECT_EQ(L"\\\\srv\\share\\", plan.root);
    EXPECT_EQ((std::vector<std::wstring>{L"x", L"y"}), plan.levels);
}

TEST(DirectoryPlanTest, RefusedPaths) {
    DirectoryPlan plan;
    EXPECT_EQ(DirectoryPlanResult::NullPath, PlanDirectoryCreation(nullptr, &plan));
    EXPECT_EQ(DirectoryPlanResult::TooShort, PlanDirectoryCreation(L"", &plan));
    EXPECT_EQ(DirectoryPlanResult::TooShort, PlanDirectoryCreation(L"C:", &plan));
    EXPECT_EQ(DirectoryPlanResult::NotLongEnough, PlanDirectoryCreation(L"C:\\", &plan));
    EXPECT_EQ(DirectoryPlanResult::NotLongEnough, PlanDirectoryCreation(L"C:restore", &plan));
    EXPECT_EQ(DirectoryPlanResult::NotLongEnough, PlanDirectoryCreation(L"\\\\srv", &plan));
    EXPECT_EQ(DirectoryPlanResult::NotLongEnough, PlanDirectoryCreation(L"\\\\srv\\", &plan));
    EXPECT_EQ(DirectoryPlanResult::NotLongEnough, PlanDirectoryCreation(L"\\\\srv\\share", &plan));
    EXPECT_EQ(DirectoryPlanResult::NotLongEnough,
              PlanDirectoryCreation(L"\\\\srv\\share\\", &plan));
    EXPECT_TRUE(plan.root.empty());
    EXPECT_TRUE(plan.levels.empty());
}

TEST(DirectoryPlanTest, RelativeAndRootedPathsSplitAtTheFirstBackslash) {
    DirectoryPlan plan;
    ASSERT_EQ(DirectoryPlanResult::Ok, PlanDirectoryCreation(L"out\\a", &plan));
    EXPECT_EQ(L"out\\", plan.root);
    EXPECT_EQ(std::vector<std::wstring>{L"a"}, plan.levels);
    ASSERT_EQ(DirectoryPlanResult::Ok, PlanDirectoryCreation(L"\\a\\b", &plan));
    EXPECT_EQ(L"\\", plan.root);
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"b"}), plan.levels);
}

TEST(DirectoryPlanTest, DoubledSeparatorsGiveNoEmptyLevel) {
    DirectoryPlan plan;
    ASSERT_EQ(DirectoryPlanResult::Ok, PlanDirectoryCreation(L"C:\\a\\\\b\\", &plan));
    EXPECT_EQ((std::vector<std::wstring>{L"a", L"b"}), plan.levels);
}
