// The executor's system on Windows: what kernel32 answers for the calls the executor makes,
// on real files. The in-memory system of the other executor tests answers the same way.
#include <windows.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "TestFiles.h"
#include "executor/ExecutorSystem.h"

namespace {

std::unique_ptr<ExecutorFile> Create(const std::wstring& path) {
    return DefaultExecutorSystem().CreateDestinationFile(path.c_str());
}

bool WriteText(ExecutorFile& file, const std::string& text) {
    uint32_t written = 0;
    return file.Write(text.data(), static_cast<uint32_t>(text.size()), &written) &&
           written == text.size();
}

}  // namespace

TEST(KernelExecutorSystem, CreatesWritesOverwritesAndDeletesAFile) {
    TempDirectory temp("kernelsystem");
    const std::wstring path = temp.Child(L"db.edb");
    {
        std::unique_ptr<ExecutorFile> file = Create(path);
        ASSERT_NE(file, nullptr) << GetLastError();
        EXPECT_TRUE(WriteText(*file, "first content"));
    }
    EXPECT_EQ(ReadWholeFile(path), "first content");
    {
        std::unique_ptr<ExecutorFile> file = Create(path);
        ASSERT_NE(file, nullptr);
        EXPECT_TRUE(WriteText(*file, "second"));
    }
    EXPECT_EQ(ReadWholeFile(path), "second") << "an existing file is overwritten";
    EXPECT_TRUE(DefaultExecutorSystem().DeleteDestinationFile(path.c_str()));
    EXPECT_FALSE(FileExists(path));
}

TEST(KernelExecutorSystem, AnOpenFileIsNotSharedUntilItIsDestroyed) {
    TempDirectory temp("kernelsystem");
    const std::wstring path = temp.Child(L"db.edb");
    std::unique_ptr<ExecutorFile> file = Create(path);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(Create(path), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_FALSE(DefaultExecutorSystem().DeleteDestinationFile(path.c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    file.reset();
    EXPECT_TRUE(DefaultExecutorSystem().DeleteDestinationFile(path.c_str()));
}

TEST(KernelExecutorSystem, FailuresSetTheLastError) {
    TempDirectory temp("kernelsystem");
    EXPECT_EQ(Create(temp.Child(L"missing\\db.edb")), nullptr);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(Create(temp.Path().wstring()), nullptr) << "a directory of that name";
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_FALSE(DefaultExecutorSystem().DeleteDestinationFile(temp.Child(L"none").c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(KernelExecutorSystem, MakesOneDirectoryLevel) {
    TempDirectory temp("kernelsystem");
    ExecutorSystem& system = DefaultExecutorSystem();
    EXPECT_TRUE(system.MakeDirectory(temp.Child(L"a").c_str()));
    EXPECT_TRUE(DirectoryExists(temp.Child(L"a")));
    EXPECT_FALSE(system.MakeDirectory(temp.Child(L"a").c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_FALSE(system.MakeDirectory(temp.Child(L"b\\c").c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
}

TEST(KernelExecutorSystem, TicksAreTheSystemsMilliseconds) {
    const uint32_t before = GetTickCount();
    const uint32_t now = DefaultExecutorSystem().TickCount();
    EXPECT_LT(now - before, 60000u);
}
