#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/WideFormat.h"

TEST(WideFormat, WideAndNarrowStringsFollowMicrosoftConvention) {
    EXPECT_EQ(FormatWideString(L"%s|%S|%ls|%hs", L"wide", "narrow", L"ls", "hs"),
              L"wide|narrow|ls|hs");
}

TEST(WideFormat, ExplicitSizeOverridesTheCaseOfS) {
    EXPECT_EQ(FormatWideString(L"%lS|%hS|%ws", L"wideS", "narrowS", L"ws"), L"wideS|narrowS|ws");
}

TEST(WideFormat, HexWithAlternateFormAndZeroPadding) {
    EXPECT_EQ(FormatWideString(L"%#08lx", 0x70UL), L"0x000070");
    EXPECT_EQ(FormatWideString(L"%08lx", 0x80004005UL), L"80004005");
    EXPECT_EQ(FormatWideString(L"%I64u", 5000000000ULL), L"5000000000");
}

TEST(WideFormat, SignedDecimal) {
    EXPECT_EQ(FormatWideString(L"%d", 0), L"0");
    EXPECT_EQ(FormatWideString(L"%d", -42), L"-42");
    EXPECT_EQ(FormatWideString(L"%i", INT32_MAX), L"2147483647");
    EXPECT_EQ(FormatWideString(L"%d", INT32_MIN), L"-2147483648");
    EXPECT_EQ(FormatWideString(L"%ld", -7L), L"-7");
    EXPECT_EQ(FormatWideString(L"%I64d", INT64_MIN), L"-9223372036854775808");
    EXPECT_EQ(FormatWideString(L"%lld", INT64_MAX), L"9223372036854775807");
    EXPECT_EQ(FormatWideString(L"%I32d", -5), L"-5");
}

TEST(WideFormat, UnsignedDecimal) {
    EXPECT_EQ(FormatWideString(L"%u", 4294967295u), L"4294967295");
    EXPECT_EQ(FormatWideString(L"%lu", 4294967295UL), L"4294967295");
    EXPECT_EQ(FormatWideString(L"%I64u", UINT64_MAX), L"18446744073709551615");
    EXPECT_EQ(FormatWideString(L"%llu", 1ULL), L"1");
    EXPECT_EQ(FormatWideString(L"%zu|%Iu", size_t{12}, size_t{34}), L"12|34");
}

TEST(WideFormat, ShortAndCharSizesTruncate) {
    EXPECT_EQ(FormatWideString(L"%hd", 65537), L"1");
    EXPECT_EQ(FormatWideString(L"%hd", 0xFFFF), L"-1");
    EXPECT_EQ(FormatWideString(L"%hu", 0x1FFFF), L"65535");
    EXPECT_EQ(FormatWideString(L"%hhu", 257), L"1");
}

TEST(WideFormat, HexAndOctal) {
    EXPECT_EQ(FormatWideString(L"%x|%X", 0xBEEFu, 0xbeefu), L"beef|BEEF");
    EXPECT_EQ(FormatWideString(L"%08lx", 0x7AUL), L"0000007a");
    EXPECT_EQ(FormatWideString(L"%#08lx", 0x80070005UL), L"0x80070005");
    EXPECT_EQ(FormatWideString(L"%#X", 0xABu), L"0XAB");
    EXPECT_EQ(FormatWideString(L"%#x", 0u), L"0");
    EXPECT_EQ(FormatWideString(L"%o|%#o", 8u, 8u), L"10|010");
    EXPECT_EQ(FormatWideString(L"%I64x", 0x123456789ABCDEFULL), L"123456789abcdef");
}

TEST(WideFormat, PointerIsUpperCaseHexFilledToPointerWidth) {
    EXPECT_EQ(FormatWideString(L"%p", reinterpret_cast<void*>(uintptr_t{0xABC123})),
              L"0000000000ABC123");
    EXPECT_EQ(FormatWideString(L"%p", static_cast<void*>(nullptr)), L"0000000000000000");
}

TEST(WideFormat, PercentPercent) {
    EXPECT_EQ(FormatWideString(L"100%%"), L"100%");
    EXPECT_EQ(FormatWideString(L"%%d %d", 3), L"%d 3");
}

TEST(WideFormat, WidthAndAlignment) {
    EXPECT_EQ(FormatWideString(L"[%5d]", 42), L"[   42]");
    EXPECT_EQ(FormatWideString(L"[%-5d]", 42), L"[42   ]");
    EXPECT_EQ(FormatWideString(L"[%05d]", -42), L"[-0042]");
    EXPECT_EQ(FormatWideString(L"[%-05d]", 42), L"[42   ]");
    EXPECT_EQ(FormatWideString(L"[%8s]", L"abc"), L"[     abc]");
    EXPECT_EQ(FormatWideString(L"[%-8S]", "abc"), L"[abc     ]");
    EXPECT_EQ(FormatWideString(L"[%2d]", 12345), L"[12345]");
}

TEST(WideFormat, SignFlags) {
    EXPECT_EQ(FormatWideString(L"%+d|%+d", 5, -5), L"+5|-5");
    EXPECT_EQ(FormatWideString(L"% d|% d", 5, -5), L" 5|-5");
    EXPECT_EQ(FormatWideString(L"%+u", 5u), L"5");
}

TEST(WideFormat, Precision) {
    EXPECT_EQ(FormatWideString(L"%.3d", 7), L"007");
    EXPECT_EQ(FormatWideString(L"%.3d", -7), L"-007");
    EXPECT_EQ(FormatWideString(L"[%.0d]", 0), L"[]");
    EXPECT_EQ(FormatWideString(L"%8.3d", 7), L"     007");
    EXPECT_EQ(FormatWideString(L"%08.3d", 7), L"     007");
    EXPECT_EQ(FormatWideString(L"%.2s|%.2S", L"abcdef", "abcdef"), L"ab|ab");
    EXPECT_EQ(FormatWideString(L"%.10s", L"abc"), L"abc");
}

TEST(WideFormat, StarTakesWidthAndPrecisionFromArguments) {
    EXPECT_EQ(FormatWideString(L"[%*d]", 6, 42), L"[    42]");
    EXPECT_EQ(FormatWideString(L"[%*d]", -6, 42), L"[42    ]");
    EXPECT_EQ(FormatWideString(L"[%.*s]", 3, L"abcdef"), L"[abc]");
    EXPECT_EQ(FormatWideString(L"[%*.*S]", 5, 2, "abcdef"), L"[   ab]");
    EXPECT_EQ(FormatWideString(L"[%-*d|%d]", 4, 1, 2), L"[1   |2]");
}

TEST(WideFormat, NullStringsPrintNull) {
    EXPECT_EQ(FormatWideString(L"%s|%S", static_cast<const wchar_t*>(nullptr),
                               static_cast<const char*>(nullptr)),
              L"(null)|(null)");
    EXPECT_EQ(FormatWideString(L"%.3s", static_cast<const wchar_t*>(nullptr)), L"(nu");
}

TEST(WideFormat, Characters) {
    EXPECT_EQ(FormatWideString(L"%c%C%lc%hc", L'A', 'b', L'C', 'd'), L"AbCd");
    EXPECT_EQ(FormatWideString(L"[%3c]", L'x'), L"[  x]");
    EXPECT_EQ(FormatWideString(L"%c", L'\u20ac'), L"\u20ac");
}

TEST(WideFormat, NarrowTextIsWidenedBytewise) {
    EXPECT_EQ(FormatWideString(L"%S", "caf\xe9"), L"caf\u00e9");
}

TEST(WideFormat, FloatingPoint) {
    EXPECT_EQ(FormatWideString(L"%f", 1.5), L"1.500000");
    EXPECT_EQ(FormatWideString(L"%.2f|%8.1f", 3.14159, -2.5), L"3.14|    -2.5");
    EXPECT_EQ(FormatWideString(L"%e", 12345.0), L"1.234500e+04");
}

TEST(WideFormat, UnknownDirectivesAreWrittenAsTheyStandWithoutTakingArguments) {
    EXPECT_EQ(FormatWideString(L"%y %d", 5), L"%y 5");
    EXPECT_EQ(FormatWideString(L"%-5k|%d", 6), L"%-5k|6");
    EXPECT_EQ(FormatWideString(L"%Iq|%d", 7), L"%Iq|7");
}

TEST(WideFormat, IncompleteDirectiveAtTheEndIsWrittenAsItStands) {
    EXPECT_EQ(FormatWideString(L"50%"), L"50%");
    EXPECT_EQ(FormatWideString(L"x%5"), L"x%5");
    EXPECT_EQ(FormatWideString(L"x%-08.3l"), L"x%-08.3l");
}

TEST(WideFormat, PercentNWritesNothing) {
    int target = 1234;
    EXPECT_EQ(FormatWideString(L"ab%ncd%d", &target, 9), L"abcd9");
    EXPECT_EQ(target, 1234);
}

TEST(WideFormat, MeasuresWithoutBuffer) {
    EXPECT_EQ(FormatWide(nullptr, 0, L"%s-%d", L"abc", 12345), 9u);
}

TEST(WideFormat, TruncatesButReportsFullLengthAndTerminates) {
    wchar_t buffer[5] = {L'#', L'#', L'#', L'#', L'#'};
    EXPECT_EQ(FormatWide(buffer, 5, L"%d", 1234567), 7u);
    EXPECT_EQ(std::wstring(buffer), L"1234");
}

TEST(WideFormat, ExactFitIsNotTruncated) {
    wchar_t buffer[4];
    EXPECT_EQ(FormatWide(buffer, 4, L"abc"), 3u);
    EXPECT_EQ(std::wstring(buffer), L"abc");
}

TEST(WideFormat, NullFormatGivesEmptyText) {
    wchar_t buffer[4] = {L'#', L'#', L'#', L'#'};
    EXPECT_EQ(FormatWide(buffer, 4, nullptr), 0u);
    EXPECT_EQ(buffer[0], L'\0');
}

TEST(WideFormat, LongResultsBeyondTheSmallBuffer) {
    const std::wstring chunk(300, L'z');
    const std::wstring text = FormatWideString(L"<%s|%s>", chunk.c_str(), chunk.c_str());
    EXPECT_EQ(text, L"<" + chunk + L"|" + chunk + L">");
}

TEST(WideFormat, LibraryMessagesComeOutExactly) {
    EXPECT_EQ(FormatWideString(L"Networker API Issue %d Version %d level %d\n", 1, 2, 3),
              L"Networker API Issue 1 Version 2 level 3\n");
    EXPECT_EQ(FormatWideString(L"Found %u items. m_smVecObjects  size = %u, capacity = %u.\n", 3u,
                               3u, 4u),
              L"Found 3 items. m_smVecObjects  size = 3, capacity = 4.\n");
    EXPECT_EQ(FormatWideString(L"Unable to create file %s. GetLastError() = %#08lx.\n",
                               L"C:\\out\\db.edb", 5UL),
              L"Unable to create file C:\\out\\db.edb. GetLastError() = 0x000005.\n");
    EXPECT_EQ(FormatWideString(L"BSAEndData failed with error %08lx.\n", 3UL),
              L"BSAEndData failed with error 00000003.\n");
}

TEST(AsLiteralFormat, DoublesEveryPercentSign) {
    EXPECT_EQ(AsLiteralFormat(L""), L"");
    EXPECT_EQ(AsLiteralFormat(L"no conversion"), L"no conversion");
    EXPECT_EQ(AsLiteralFormat(L"%"), L"%%");
    EXPECT_EQ(AsLiteralFormat(L"a%sb%%c%n"), L"a%%sb%%%%c%%n");
}

TEST(AsLiteralFormat, FormattingTheResultGivesTheTextBack) {
    for (const wchar_t* text :
         {L"C:\\nw%s%n\\nsrinfo.exe", L"100%", L"%%%", L"%-08.3ls%I64u%*d", L"plain"}) {
        const std::wstring format = AsLiteralFormat(text);
        EXPECT_EQ(FormatWideString(format.c_str()), text);
    }
}
