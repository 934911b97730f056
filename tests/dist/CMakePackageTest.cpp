// The host that a Visual C++ team builds with CMake against the SDK archive (find_package,
// NetWorkerXbsa::NetWorkerXbsa, networkerxbsa_copy_runtime; built by check-dist.sh): whole
// sessions in process and through the helper against the simulated NetWorker, every restored
// byte verified.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "HostProgram.h"
#include "SimulatorFixture.h"
#include "TestFiles.h"

namespace {

std::wstring HostDirectory() {
    std::wstring directory = NWX_CMAKE_HOST_DIRECTORY;
    for (wchar_t& c : directory) {
        if (c == L'/') {
            c = L'\\';
        }
    }
    return directory;
}

class CMakePackage : public ::testing::Test {
protected:
    static void SetUpTestSuite() { s_simulator = std::make_unique<SimulatorFixture>(); }
    static void TearDownTestSuite() { s_simulator.reset(); }

    void ExpectWholeSession(const wchar_t* mode) {
        ASSERT_TRUE(s_simulator->Ready()) << s_simulator->Failure();
        const std::wstring restored = m_scratch.Child(std::wstring(L"restored-") + mode);
        const HostRun run = RunHost(HostDirectory(), L"cmake_host.exe",
                                    std::wstring(mode) + L" \"" + restored + L"\"");
        EXPECT_EQ(run.exitCode, 0u) << run.output;
        EXPECT_TRUE(run.Has("initialize status=0")) << run.output;
        EXPECT_TRUE(run.Has("catalog status=0 files=14")) << run.output;
        EXPECT_TRUE(run.Has("end-extract status=0")) << run.output;
        for (const auto& [object, file] :
             {std::pair<const wchar_t*, const wchar_t*>{
                  L"/Second Storage Group/Mailbox Store 2 (EX01).stm",
                  L"Mailbox Store 2 (EX01).stm"},
              {L"/Second Storage Group/E01000A2.log", L"E01000A2.log"}}) {
            std::string output;
            EXPECT_TRUE(s_simulator->Verify(object, restored + L"\\" + file, &output)) << output;
        }
    }

    static std::unique_ptr<SimulatorFixture> s_simulator;
    TempDirectory m_scratch{"cmake-package"};
};

std::unique_ptr<SimulatorFixture> CMakePackage::s_simulator;

TEST_F(CMakePackage, HostBuiltWithFindPackageRunsInProcess) {
    ExpectWholeSession(L"in-process");
}

TEST_F(CMakePackage, HostBuiltWithFindPackageRunsThroughTheHelper) {
    ExpectWholeSession(L"helper");
}

}  // namespace
