#include <cstring>

#include "ExecutorTestSupport.h"
#include "common/LastError.h"
#include "interfaces/NetWorkerStatus.h"

using LogTexts = std::vector<std::pair<LogLevel, std::wstring>>;

class FileSizeTest : public ExecutorTest {
protected:
    void SetUp() override {
        ExecutorTest::SetUp();
        StartSession();
        m_wrapper.objects = {MakeDescriptor("\\sg\\priv1.edb", "D", 5000000000ULL),
                             MakeDescriptor("\\sg\\E01.log", "L", 1048576)};
        CatalogAll();
    }
};

TEST_F(FileSizeTest, WithoutCorrectionOnlyTheLow32BitsCount) {
    uint64_t size = 1;
    EXPECT_EQ(0, m_executor->GetFileSize(0, false, &size));
    EXPECT_EQ(705032704u, size);
    EXPECT_TRUE(m_wrapper.calls.empty()) << "no XBSA call, no transaction";
    EXPECT_TRUE(Lines().empty());
    EXPECT_EQ((std::vector<std::wstring>{L"NetWorkerApiExecutor::GetFileSize|Method Start",
                                         L"NetWorkerApiExecutor::LoadLrgVecObjects|Method Start",
                                         L"NetWorkerApiExecutor::LoadLrgVecObjects|Method End",
                                         L"NetWorkerApiExecutor::GetFileSize|Method End"}),
              Traces());
}

TEST_F(FileSizeTest, CorrectedSizeComesFromTheWrapperWithTheSessionNames) {
    m_wrapper.correctedSize = 5000000000ULL;
    uint64_t size = 0;
    EXPECT_EQ(0, m_executor->GetFileSize(0, true, &size));
    EXPECT_EQ(5000000000ULL, size);
    EXPECT_EQ(std::vector<std::string>{"CorrectFileSize"}, m_wrapper.calls);
    EXPECT_EQ("srv", m_wrapper.correctServer);
    EXPECT_EQ("cli", m_wrapper.correctClient);
    EXPECT_STREQ("\\sg\\priv1.edb", m_wrapper.correctDescriptor.objectName.pathName);
    EXPECT_STREQ("\\Microsoft Information Store",
                 m_wrapper.correctDescriptor.objectName.objectSpaceName);
    EXPECT_EQ(1u, m_wrapper.correctDescriptor.size.left);
}

TEST_F(FileSizeTest, ZeroCorrectionFallsBackAndKeepsTheWrapperStatus) {
    m_wrapper.correctedSize = 0;
    m_wrapper.correctResult = 1627;
    uint64_t size = 0;
    EXPECT_EQ(1627, m_executor->GetFileSize(0, true, &size));
    EXPECT_EQ(705032704u, size);
}

TEST_F(FileSizeTest, NonZeroCorrectionIsUsedEvenWithAFailureStatus) {
    m_wrapper.correctedSize = 42;
    m_wrapper.correctResult = 1627;
    uint64_t size = 0;
    EXPECT_EQ(1627, m_executor->GetFileSize(0, true, &size));
    EXPECT_EQ(42u, size);
}

TEST_F(FileSizeTest, LogFilesReportTheCatalogueSizeNotTheAnnouncedOne) {
    uint64_t size = 0;
    EXPECT_EQ(0, m_executor->GetFileSize(1, false, &size));
    EXPECT_EQ(1048576u, size);
}

TEST_F(FileSizeTest, IndexOutOfRangeIsInvalidArgument) {
    uint64_t size = 77;
    WriteLastError(0);
    EXPECT_EQ(static_cast<int32_t>(0x80070057), m_executor->GetFileSize(2, true, &size));
    EXPECT_EQ(0u, size);
    EXPECT_TRUE(m_wrapper.calls.empty());
    EXPECT_EQ((LogTexts{{LogLevelError, L"Catalogue index 2 out of range (2 entries)"},
                        {LogLevelError, HResultLine(0x80070057, 0)}}),
              Lines());
}

TEST_F(FileSizeTest, NullSizeIsInvalidArgument) {
    EXPECT_EQ(static_cast<int32_t>(0x80070057), m_executor->GetFileSize(0, false, nullptr));
    EXPECT_EQ(L"Null size", Lines().at(0).second);
}

TEST_F(FileSizeTest, QuitDoesNotAffectGetFileSize) {
    m_executor->Quit();
    uint64_t size = 0;
    EXPECT_EQ(0, m_executor->GetFileSize(0, false, &size));
    EXPECT_EQ(705032704u, size);
}
