#include <gtest/gtest.h>

#include "common/AsciiText.h"

TEST(TrimBlanks, OnlySpacesAndTabsAtEitherEnd) {
    EXPECT_EQ(TrimBlanks(L" \t a b\t "), L"a b");
    EXPECT_EQ(TrimBlanks(L" \t "), L"");
    EXPECT_EQ(TrimBlanks(L"\na\r"), L"\na\r");
}

TEST(KeywordAsTyped, TrimsAndLowersAsciiLettersOnly) {
    EXPECT_EQ(KeywordAsTyped(L"  TrUe\t"), L"true");
    // Letters beyond ASCII keep their case in every locale.
    EXPECT_EQ(KeywordAsTyped(L"\u00C4N\u212A"), L"\u00C4n\u212A");
}

TEST(ParseDecimalUint32, DecimalNumbersOnly) {
    uint32_t id = 7;
    EXPECT_TRUE(ParseDecimalUint32(L"4242", &id));
    EXPECT_EQ(id, 4242u);
    EXPECT_TRUE(ParseDecimalUint32(L"4294967295", &id));
    EXPECT_EQ(id, 4294967295u);
    id = 7;
    for (const wchar_t* text : {L"", L"-1", L"12a", L" 12", L"4294967296", L"0x10"}) {
        EXPECT_FALSE(ParseDecimalUint32(text, &id)) << text;
    }
    EXPECT_FALSE(ParseDecimalUint32(nullptr, &id));
    EXPECT_EQ(id, 7u);
}
