#include <gtest/gtest.h>

#include "common/WideFormat.h"

TEST(WideFormat, WideAndNarrowStringsFollowMicrosoftConvention) {
    EXPECT_EQ(FormatWideString(L"%s|%S|%ls|%hs", L"wide", "narrow", L"ls", "hs"),
              L"wide|narrow|ls|hs");
}

TEST(WideFormat, HexWithAlternateFormAndZeroPadding) {
    EXPECT_EQ(FormatWideString(L"%#08lx", 0x70UL), L"0x000070");
    EXPECT_EQ(FormatWideString(L"%08lx", 0x80004005UL), L"80004005");
    EXPECT_EQ(FormatWideString(L"%I64u", 5000000000ULL), L"5000000000");
}
