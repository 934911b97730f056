#include "common/EnvironmentVariable.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr wchar_t kName[] = L"NWX_ENVIRONMENT_VARIABLE_TEST";

class EnvironmentVariableTest : public ::testing::Test {
protected:
    void TearDown() override { ::SetEnvironmentVariableW(kName, nullptr); }
};

TEST_F(EnvironmentVariableTest, UnsetVariableIsNotRead) {
    ::SetEnvironmentVariableW(kName, nullptr);
    std::wstring value = L"left over";
    EXPECT_FALSE(ReadEnvironmentVariable(kName, &value));
    EXPECT_EQ(L"", value);
}

TEST_F(EnvironmentVariableTest, EmptyValueCountsAsSet) {
    ASSERT_TRUE(::SetEnvironmentVariableW(kName, L""));
    std::wstring value = L"left over";
    EXPECT_TRUE(ReadEnvironmentVariable(kName, &value));
    EXPECT_EQ(L"", value);
}

TEST_F(EnvironmentVariableTest, ShortValueIsReadWhole) {
    ASSERT_TRUE(::SetEnvironmentVariableW(kName, L"1"));
    std::wstring value;
    EXPECT_TRUE(ReadEnvironmentVariable(kName, &value));
    EXPECT_EQ(L"1", value);
}

TEST_F(EnvironmentVariableTest, ValuesAroundAndBeyondTheFirstBufferAreReadWhole) {
    for (const size_t length : {511u, 512u, 513u, 5000u}) {
        std::wstring expected;
        for (size_t i = 0; i < length; ++i) {
            expected.push_back(static_cast<wchar_t>(L'a' + i % 26));
        }
        ASSERT_TRUE(::SetEnvironmentVariableW(kName, expected.c_str()));
        std::wstring value;
        EXPECT_TRUE(ReadEnvironmentVariable(kName, &value)) << length;
        EXPECT_EQ(expected, value) << length;
    }
}

}  // namespace
