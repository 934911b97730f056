#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/EnvironmentBlock.h"

namespace {

// The entries of a block, without their terminators; fails when the block is not ended by
// an empty entry.
std::vector<std::wstring> Entries(const std::wstring& block) {
    std::vector<std::wstring> entries;
    size_t at = 0;
    while (at < block.size() && block[at] != L'\0') {
        const size_t end = block.find(L'\0', at);
        EXPECT_NE(end, std::wstring::npos);
        entries.push_back(block.substr(at, end - at));
        at = end + 1;
    }
    EXPECT_EQ(at + 1, block.size()) << "the block must end with one empty entry";
    return entries;
}

const wchar_t kHostBlock[] = L"=C:=C:\\work\0PATH=C:\\bin\0nwx_pipe_server_process=77\0Z=1\0";

}  // namespace

TEST(EnvironmentBlockWith, AddsTheVariableAfterTheHostsEntries) {
    const wchar_t host[] = L"A=1\0B=two\0";
    EXPECT_EQ(Entries(EnvironmentBlockWith(host, L"NAME", L"42")),
              (std::vector<std::wstring>{L"A=1", L"B=two", L"NAME=42"}));
}

TEST(EnvironmentBlockWith, ReplacesAnEntryOfTheSameNameInAnyCase) {
    EXPECT_EQ(Entries(EnvironmentBlockWith(kHostBlock, L"NWX_PIPE_SERVER_PROCESS", L"12")),
              (std::vector<std::wstring>{L"=C:=C:\\work", L"PATH=C:\\bin", L"Z=1",
                                         L"NWX_PIPE_SERVER_PROCESS=12"}));
}

TEST(EnvironmentBlockWith, KeepsEntriesThatOnlyStartWithTheName) {
    const wchar_t host[] = L"NAMED=1\0NAME\0NAM=2\0";
    EXPECT_EQ(Entries(EnvironmentBlockWith(host, L"NAME", L"x")),
              (std::vector<std::wstring>{L"NAMED=1", L"NAME", L"NAM=2", L"NAME=x"}));
}

TEST(EnvironmentBlockWith, EmptyOrMissingEnvironmentGivesTheOneVariable) {
    EXPECT_EQ(Entries(EnvironmentBlockWith(nullptr, L"NAME", L"")),
              (std::vector<std::wstring>{L"NAME="}));
    EXPECT_EQ(Entries(EnvironmentBlockWith(L"\0", L"NAME", L"v")),
              (std::vector<std::wstring>{L"NAME=v"}));
}
