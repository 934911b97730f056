#include <gtest/gtest.h>

#include "pipe/PipeHardening.h"

TEST(ParsePipeHardening, UnsetAndTheOffSpellingsLeaveThePipeAsItWas) {
    EXPECT_EQ(ParsePipeHardening(nullptr), PipeHardening::Off);
    for (const wchar_t* value : {L"", L"  ", L"0", L"false", L"No", L" OFF "}) {
        EXPECT_EQ(ParsePipeHardening(value), PipeHardening::Off) << value;
    }
}

TEST(ParsePipeHardening, TheOnSpellingsHardenIt) {
    for (const wchar_t* value : {L"1", L"true", L"YES", L" on\t"}) {
        EXPECT_EQ(ParsePipeHardening(value), PipeHardening::On) << value;
    }
}

TEST(ParsePipeHardening, AnythingElseHardensItTooButIsToldApart) {
    for (const wchar_t* value : {L"2", L"ture", L"disabled", L"1 0"}) {
        EXPECT_EQ(ParsePipeHardening(value), PipeHardening::Unrecognised) << value;
        EXPECT_TRUE(IsHardened(ParsePipeHardening(value))) << value;
    }
    EXPECT_FALSE(IsHardened(PipeHardening::Off));
}

TEST(CurrentUserOnlyPipeSddl, ProtectedDaclForLocalSystemAndTheUser) {
    EXPECT_EQ(CurrentUserOnlyPipeSddl(L"S-1-5-21-1-2-3-1000"),
              L"D:P(A;;GA;;;SY)(A;;GA;;;S-1-5-21-1-2-3-1000)");
}

TEST(PipeNameTakenError, CarriesTheTextAndTheWindowsError) {
    const PipeNameTakenError error("Failed to create new pipe. GetLastError()=5", 5);
    EXPECT_STREQ(error.what(), "Failed to create new pipe. GetLastError()=5");
    EXPECT_EQ(error.WindowsError(), 5u);
}
