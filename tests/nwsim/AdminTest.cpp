// nwsim-admin.exe run as a program: installing the image, registering the "nsrexecd" service in
// this Wine prefix, and the store commands.

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <vector>

#include "SyntheticContent.h"
#include "TestFiles.h"
#include "WinTestSupport.h"
#include "common/UniqueHandle.h"

namespace {

using namespace nwsimtest;
namespace fs = std::filesystem;

// The service's binary path as the service control manager reports it, or the error.
std::wstring ServiceBinaryPath(DWORD& error) {
    error = 0;
    UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, GENERIC_READ));
    if (!manager) {
        error = GetLastError();
        return std::wstring();
    }
    UniqueServiceHandle service(OpenServiceW(manager.get(), L"nsrexecd", SERVICE_QUERY_CONFIG));
    if (!service) {
        error = GetLastError();
        return std::wstring();
    }
    std::vector<unsigned char> buffer(8192);
    DWORD needed = 0;
    auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
    if (!QueryServiceConfigW(service.get(), config, static_cast<DWORD>(buffer.size()), &needed)) {
        error = GetLastError();
        return std::wstring();
    }
    return config->lpBinaryPathName ? config->lpBinaryPathName : L"";
}

std::vector<std::string> Files(const fs::path& dir) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string ReadText(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

class AdminTest : public ::testing::Test {
protected:
    void TearDown() override { Admin(L"uninstall"); }

    std::wstring Root() const { return Quote(dir.Path() / L"store"); }
    ProcessResult Seeded(const std::wstring& extra = L"") {
        return Admin(L"seed-exchange --root " + Root() + L" --server srv --client cli" + extra);
    }

    TempDirectory dir{"nwsim"};
    fs::path install = dir.Path() / L"NetWorker" / L"nsr" / L"bin";
};

TEST_F(AdminTest, EveryCommandHasHelp) {
    for (const wchar_t* command :
         {L"install", L"uninstall", L"seed-exchange", L"add", L"list", L"verify"}) {
        const ProcessResult result = Admin(std::wstring(command) + L" --help");
        EXPECT_EQ(result.exitCode, 0u) << fs::path(command).string();
        EXPECT_NE(result.output.find("usage: nwsim-admin " + fs::path(command).string()),
                  std::string::npos)
            << result.output;
    }
    EXPECT_EQ(Admin(L"--help").exitCode, 0u);
    EXPECT_EQ(Admin(L"").exitCode, 2u);
    EXPECT_EQ(Admin(L"frobnicate").exitCode, 2u);
    const ProcessResult unknown = Admin(L"list --bogus 1");
    EXPECT_EQ(unknown.exitCode, 2u);
    EXPECT_NE(unknown.errors.find("unknown option --bogus"), std::string::npos);
}

TEST_F(AdminTest, InstallCopiesTheImageAndRegistersTheQuotedBinaryPath) {
    const ProcessResult result = Admin(L"install --dir " + Quote(install) + L" --root " + Root());
    ASSERT_EQ(result.exitCode, 0u) << result.errors;
    EXPECT_EQ(Files(install),
              (std::vector<std::string>{"libasm.dll", "libbsa.dll", "liblocal.dll", "libnsr.dll",
                                        "librap.dll", "librpc.dll", "nsrexecd.exe", "nsrinfo.exe",
                                        "nwsim.ini"}));
    EXPECT_EQ(ReadText(install / L"nwsim.ini"),
              "[nwsim]\r\nroot=" + (dir.Path() / "store").string() + "\r\n");
    DWORD error = 0;
    EXPECT_EQ(ServiceBinaryPath(error), L"\"" + (install / L"nsrexecd.exe").wstring() + L"\"");
    EXPECT_EQ(error, 0u);
}

TEST_F(AdminTest, ReinstallReconfiguresAndDropsOmittedFiles) {
    ASSERT_EQ(Admin(L"install --dir " + Quote(install) + L" --root " + Root()).exitCode, 0u);
    const fs::path second = dir.Path() / L"second";
    const ProcessResult result = Admin(L"install --dir " + Quote(second) + L" --root " + Root() +
                                       L" --xbsa-name libnsrbsa.dll --omit librap.dll");
    ASSERT_EQ(result.exitCode, 0u) << result.errors;
    DWORD error = 0;
    EXPECT_EQ(ServiceBinaryPath(error), L"\"" + (second / L"nsrexecd.exe").wstring() + L"\"");
    EXPECT_TRUE(fs::exists(second / L"libnsrbsa.dll"));
    EXPECT_FALSE(fs::exists(second / L"libbsa.dll"));
    EXPECT_FALSE(fs::exists(second / L"librap.dll"));
    // Into the first directory again, now without nsrinfo.exe: the old copy must go.
    ASSERT_EQ(
        Admin(L"install --dir " + Quote(install) + L" --root " + Root() + L" --omit nsrinfo.exe")
            .exitCode,
        0u);
    EXPECT_FALSE(fs::exists(install / L"nsrinfo.exe"));
    EXPECT_TRUE(fs::exists(install / L"libbsa.dll"));
}

TEST_F(AdminTest, ArbitraryBinaryPathIsRegisteredExactly) {
    const ProcessResult result = Admin(L"install --dir " + Quote(install) + L" --root " + Root() +
                                       L" --binpath \"C:\\nsrexecd.exe -x \\\\y\"");
    ASSERT_EQ(result.exitCode, 0u) << result.errors;
    DWORD error = 0;
    EXPECT_EQ(ServiceBinaryPath(error), L"C:\\nsrexecd.exe -x \\\\y");
}

TEST_F(AdminTest, OmitExportInstallsTheVariant) {
    const ProcessResult result = Admin(L"install --dir " + Quote(install) + L" --root " + Root() +
                                       L" --omit-export BSAGetData --omit-export _lginit");
    ASSERT_EQ(result.exitCode, 0u) << result.errors;
    UniqueModule bsa(LoadLibraryW((install / L"libbsa.dll").c_str()));
    ASSERT_TRUE(bsa);
    EXPECT_EQ(GetProcAddress(bsa.get(), "BSAGetData"), nullptr);
    EXPECT_NE(GetProcAddress(bsa.get(), "BSAEndData"), nullptr);
    UniqueModule local(LoadLibraryW((install / L"liblocal.dll").c_str()));
    ASSERT_TRUE(local);
    EXPECT_EQ(GetProcAddress(local.get(), "_lginit"), nullptr);
    EXPECT_EQ(Admin(L"install --dir " + Quote(install) + L" --omit-export BSAFoo").exitCode, 2u);
    EXPECT_EQ(Admin(L"install --dir " + Quote(install) +
                    L" --omit-export BSAInit --omit-export BSAGetData")
                  .exitCode,
              2u);
}

TEST_F(AdminTest, ServiceStartsAndStops) {
    ASSERT_EQ(Admin(L"install --dir " + Quote(install) + L" --root " + Root()).exitCode, 0u);
    UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    ASSERT_TRUE(manager);
    UniqueServiceHandle service(OpenServiceW(manager.get(), L"nsrexecd", SERVICE_ALL_ACCESS));
    ASSERT_TRUE(service);
    ASSERT_TRUE(StartServiceW(service.get(), 0, nullptr)) << GetLastError();
    auto waitFor = [&](DWORD state) {
        SERVICE_STATUS status = {};
        for (int poll = 0; poll < 300; ++poll) {
            if (QueryServiceStatus(service.get(), &status) && status.dwCurrentState == state) {
                return true;
            }
            Sleep(100);
        }
        return false;
    };
    EXPECT_TRUE(waitFor(SERVICE_RUNNING));
    SERVICE_STATUS status = {};
    EXPECT_TRUE(ControlService(service.get(), SERVICE_CONTROL_STOP, &status)) << GetLastError();
    EXPECT_TRUE(waitFor(SERVICE_STOPPED));
}

TEST_F(AdminTest, UninstallDeletesTheServiceAndTheDirectory) {
    ASSERT_EQ(Admin(L"install --dir " + Quote(install) + L" --root " + Root()).exitCode, 0u);
    const ProcessResult result = Admin(L"uninstall --dir " + Quote(install));
    ASSERT_EQ(result.exitCode, 0u) << result.errors;
    DWORD error = 0;
    ServiceBinaryPath(error);
    EXPECT_EQ(error, static_cast<DWORD>(ERROR_SERVICE_DOES_NOT_EXIST));
    EXPECT_FALSE(fs::exists(install));
    const ProcessResult again = Admin(L"uninstall");
    EXPECT_EQ(again.exitCode, 0u);
    EXPECT_NE(again.output.find("not installed"), std::string::npos);
}

TEST_F(AdminTest, SeedListAndBulkCatalogue) {
    ProcessResult result = Seeded();
    ASSERT_EQ(result.exitCode, 0u) << result.errors;
    result = Admin(L"list --root " + Root() + L" --server srv --client cli");
    ASSERT_EQ(result.exitCode, 0u) << result.errors;
    std::istringstream lines(result.output);
    std::string line;
    int count = 0;
    while (std::getline(lines, line)) {
        ++count;
    }
    EXPECT_EQ(count, 31);
    EXPECT_NE(result.output.find("path=\"/First Storage Group/Mailbox Store (EX01).edb\" "
                                 "resourceType=\"D\" createTime=\"2024-05-08 23:59:30\""),
              std::string::npos);
    result = Seeded(L" --objects 100000");
    ASSERT_EQ(result.exitCode, 0u) << result.errors;
    EXPECT_NE(result.output.find("seeded 100000 objects"), std::string::npos);
    EXPECT_EQ(Seeded(L" --objects 12").exitCode, 1u);
    EXPECT_EQ(Seeded(L" --objects many").exitCode, 2u);
    EXPECT_EQ(Admin(L"list --root " + Root() + L" --server srv --client nobody").exitCode, 1u);
    EXPECT_EQ(Admin(L"seed-exchange --server srv --client cli").exitCode == 0u,
              GetEnvironmentVariableW(L"NWSIM_ROOT", nullptr, 0) != 0);
}

TEST_F(AdminTest, AddSetsEveryField) {
    ASSERT_EQ(Seeded().exitCode, 0u);
    ProcessResult result =
        Admin(L"add --root " + Root() +
              L" --server srv --client cli --path \"/Extra/db 1.edb\" --size 5000000000 --seed 9"
              L" --object-space \\X --bsa-owner OWN --app-owner own --resource-type L"
              L" --create-time \"2025-01-02 03:04:05\" --copy-type 2 --copy-id 8589934593"
              L" --restore-order 77 --object-type 3 --status 2 --info \"some info\""
              L" --description \"a description\"");
    ASSERT_EQ(result.exitCode, 0u) << result.errors;
    EXPECT_EQ(result.output, "32\r\n");
    result = Admin(L"list --root " + Root() + L" --server srv --client cli");
    EXPECT_NE(result.output.find(
                  "id=32 bsaOwner=\"OWN\" appOwner=\"own\" objectSpace=\"\\X\" path=\"/Extra/db "
                  "1.edb\" resourceType=\"L\" createTime=\"2025-01-02 03:04:05\" copyType=2 "
                  "copyId=8589934593 (left=2 right=1) restoreOrder=77 size=5000000000 "
                  "objectType=3 objectStatus=2 objectInfo=\"some info\" description=\"a "
                  "description\" content=synthetic:9"),
              std::string::npos)
        << result.output;
    EXPECT_EQ(Admin(L"add --root " + Root() + L" --server srv --client cli --path /x").exitCode,
              2u);
    EXPECT_EQ(Admin(L"add --root " + Root() +
                    L" --server srv --client cli --path /x --size 1 --create-time yesterday")
                  .exitCode,
              2u);
}

TEST_F(AdminTest, VerifyReportsTheFirstDifference) {
    ASSERT_EQ(Seeded().exitCode, 0u);
    // Object 24, 65,536 bytes of synthetic content with seed 3 << 32 | 16.
    std::vector<char> good(65536);
    nwsim::SyntheticContent((3ull << 32) | 16).Fill(0, good.data(), good.size());
    const fs::path file = dir.Path() / L"E01000A2.log";
    auto write = [&](const std::vector<char>& bytes) {
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    };
    const std::wstring verify = L"verify --root " + Root() +
                                L" --server srv --client cli --object "
                                L"\"/Second Storage Group/E01000A2.log\" --file " +
                                Quote(file);
    write(good);
    ProcessResult result = Admin(verify);
    EXPECT_EQ(result.exitCode, 0u) << result.errors;
    std::vector<char> lost(good.begin(), good.begin() + 16384);
    lost.insert(lost.end(), good.begin() + 32768, good.end());
    write(lost);
    result = Admin(verify);
    EXPECT_EQ(result.exitCode, 3u);
    EXPECT_NE(result.errors.find("at offset 16384"), std::string::npos) << result.errors;
    EXPECT_EQ(Admin(L"verify --root " + Root() + L" --server srv --client cli --object 24 --file " +
                    Quote(file))
                  .exitCode,
              3u);
    EXPECT_EQ(Admin(L"verify --root " + Root() +
                    L" --server srv --client cli --object 999 --file " + Quote(file))
                  .exitCode,
              1u);
}

TEST_F(AdminTest, AddFromARealFileAndVerifyIt) {
    const fs::path source = dir.Path() / L"source.bin";
    {
        std::ofstream out(source, std::ios::binary);
        out << "real content\n";
    }
    ProcessResult result =
        Admin(L"add --root " + Root() + L" --server srv --client cli --path /real.edb --file " +
              Quote(source));
    ASSERT_EQ(result.exitCode, 0u) << result.errors;
    EXPECT_EQ(result.output, "1\r\n");
    result = Admin(L"verify --root " + Root() + L" --server srv --client cli --object /real.edb" +
                   L" --file " + Quote(source));
    EXPECT_EQ(result.exitCode, 0u) << result.errors;
    EXPECT_NE(result.output.find("(13 bytes)"), std::string::npos) << result.output;
}

}  // namespace
