// Disk full for real: the destination is a 1 MiB tmpfs reached through drive Z:, named by
// NWX_DISKFULL_DIR (run-with-tmpfs.sh mounts it). A filler file leaves too little room for the
// object; the host either frees the space and answers 1246, or gives up with 0.

#include <cstdlib>

#include "SimulatedExecutor.h"

namespace {

// Object 19, "/First Storage Group/E00000103.log": 524,287 bytes, catalogue index 7.
constexpr uint32_t kIndex = 7;
constexpr int kObjectId = 19;
constexpr size_t kFillerBytes = 700 * 1024;

std::wstring DiskFullDirectory() {
    const wchar_t* value = _wgetenv(L"NWX_DISKFULL_DIR");
    return value != nullptr ? value : L"";
}

class DiskFullTest : public SimulatedExecutorTest {
protected:
    void SetUp() override {
        SimulatedExecutorTest::SetUp();
        m_root = DiskFullDirectory();
        if (m_root.empty()) {
            GTEST_SKIP() << "NWX_DISKFULL_DIR is not set (run through run-with-tmpfs.sh)";
        }
        Install();
        ASSERT_EQ(0, Open());
        ASSERT_EQ(14u, CatalogAll().size());
        ASSERT_EQ(0, m_executor->BeginExtract());
        m_filler = m_root + L"\\filler.bin";
        WriteWholeFile(m_filler, std::string(kFillerBytes, 'f'));
        ASSERT_EQ(kFillerBytes, ReadWholeFile(m_filler).size());
        m_directory = m_root + L"\\restore";
        m_file = m_directory + L"\\E00000103.log";
    }
    void TearDown() override {
        DeleteFileW(m_file.c_str());
        DeleteFileW(m_filler.c_str());
        RemoveDirectoryW(m_directory.c_str());
        SimulatedExecutorTest::TearDown();
    }

    std::wstring m_root;
    std::wstring m_filler;
    std::wstring m_directory;
    std::wstring m_file;
};

}  // namespace

TEST_F(DiskFullTest, HostFreesSpaceAndAnswersContinue) {
    m_error.answers = {1246};
    m_error.onDiskFull = [&] { DeleteFileW(m_filler.c_str()); };
    const int32_t status = m_executor->ExtractFile(kIndex, m_directory.c_str(), L"E00000103.log",
                                                   &m_progress, &m_error);
    EXPECT_EQ(std::vector<uint32_t>{11}, m_error.codes);
    // 1246 only when the retry happened on the very last block.
    EXPECT_TRUE(status == 0 || status == 1246) << status;
    std::string output;
    EXPECT_TRUE(Verify(kObjectId, m_file, &output)) << output;
    uint64_t total = 0;
    for (size_t r = 1; r < m_progress.reports.size(); ++r) {
        total += m_progress.reports[r].bytesDone;
    }
    EXPECT_EQ(524287u, total);
}

TEST_F(DiskFullTest, HostAnswersZeroAndThePartialFileGoes) {
    m_error.answers = {0};
    const int32_t status =
        m_executor->ExtractFile(kIndex, m_directory.c_str(), L"E00000103.log", nullptr, &m_error);
    EXPECT_EQ(std::vector<uint32_t>{11}, m_error.codes);
    EXPECT_EQ(1223, status);
    EXPECT_FALSE(FileExists(m_file));
    bool cancelled = false;
    for (const auto& line : Lines()) {
        cancelled = cancelled || line.second == L"User Canceled the extraction process";
    }
    EXPECT_TRUE(cancelled);
}
