#include <gtest/gtest.h>

#include "Glob.h"

TEST(GlobMatch, StarCrossesSeparators) {
    EXPECT_TRUE(GlobMatch(L"*.edb", L"/First Storage Group/priv1.edb"));
    EXPECT_TRUE(GlobMatch(L"/First Storage Group/*", L"/First Storage Group/E00.log"));
    EXPECT_FALSE(GlobMatch(L"/First Storage Group/*", L"/Second Storage Group/E01.log"));
    EXPECT_TRUE(GlobMatch(L"*", L""));
    EXPECT_FALSE(GlobMatch(L"?", L""));
}

TEST(GlobMatch, IgnoresCaseAndSlashDirection) {
    EXPECT_TRUE(GlobMatch(L"*.EDB", L"/sg/priv1.edb"));
    EXPECT_TRUE(GlobMatch(L"\\first storage group\\*", L"/First Storage Group/priv1.edb"));
}

TEST(GlobMatch, QuestionMarkIsExactlyOneCharacter) {
    EXPECT_TRUE(GlobMatch(L"/sg/E0?.log", L"/sg/E01.log"));
    EXPECT_FALSE(GlobMatch(L"/sg/E0?.log", L"/sg/E012.log"));
}

TEST(GlobMatch, CharacterClassesRangesAndNegation) {
    EXPECT_TRUE(GlobMatch(L"/sg/priv[0-9].edb", L"/sg/priv1.edb"));
    EXPECT_FALSE(GlobMatch(L"/sg/priv[0-9].edb", L"/sg/privX.edb"));
    EXPECT_TRUE(GlobMatch(L"/sg/priv[!0-9].edb", L"/sg/privX.edb"));
    EXPECT_FALSE(GlobMatch(L"/sg/priv[^0-9].edb", L"/sg/priv1.edb"));
    EXPECT_TRUE(GlobMatch(L"*.[ES][DT][BM]", L"/sg/pub1.stm"));
    EXPECT_TRUE(GlobMatch(L"[]]", L"]"));
    EXPECT_TRUE(GlobMatch(L"[*]", L"*"));
    EXPECT_FALSE(GlobMatch(L"[*]", L"a"));
}

TEST(GlobMatch, UnclosedBracketIsLiteral) {
    EXPECT_TRUE(GlobMatch(L"a[b", L"a[b"));
    EXPECT_FALSE(GlobMatch(L"a[b", L"ab"));
}

TEST(GlobMatch, BacktracksOverSeveralStars) {
    EXPECT_TRUE(GlobMatch(L"*a*b*c", L"xxaxxbxxbxxc"));
    EXPECT_FALSE(GlobMatch(L"*a*b*c", L"xxaxxbxxbxxd"));
    EXPECT_TRUE(GlobMatch(L"**", L"anything"));
}

TEST(GlobMatch, PathologicalPatternFinishes) {
    const std::wstring text(2000, L'a');
    EXPECT_FALSE(GlobMatch(L"*a*a*a*a*a*a*a*a*b", text));
}
