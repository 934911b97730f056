#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::wstring BinDirectory() {
    wchar_t path[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring program(path, length);
    return program.substr(0, program.find_last_of(L"\\/") + 1);
}

// One binary's version resource, read the way Explorer's Details tab reads it.
class VersionResource {
public:
    explicit VersionResource(const std::wstring& path) {
        DWORD handle = 0;
        const DWORD size = GetFileVersionInfoSizeW(path.c_str(), &handle);
        if (size == 0) {
            return;
        }
        m_data.resize(size);
        if (!GetFileVersionInfoW(path.c_str(), 0, size, m_data.data())) {
            m_data.clear();
        }
    }

    bool Present() const { return !m_data.empty(); }

    const VS_FIXEDFILEINFO* Fixed() const {
        void* value = nullptr;
        UINT length = 0;
        if (!VerQueryValueW(m_data.data(), L"\\", &value, &length) ||
            length < sizeof(VS_FIXEDFILEINFO)) {
            return nullptr;
        }
        return static_cast<const VS_FIXEDFILEINFO*>(value);
    }

    std::wstring Text(const wchar_t* name) const {
        const std::wstring key = std::wstring(L"\\StringFileInfo\\040904B0\\") + name;
        void* value = nullptr;
        UINT length = 0;
        if (!VerQueryValueW(m_data.data(), key.c_str(), &value, &length) || length == 0) {
            return std::wstring();
        }
        return std::wstring(static_cast<const wchar_t*>(value));
    }

private:
    std::vector<unsigned char> m_data;
};

struct Shipped {
    const wchar_t* relativePath;  // from the build's bin directory
    const wchar_t* fileName;
    DWORD fileType;
};

const Shipped kShipped[] = {
    {L"NetWorkerXbsa.dll", L"NetWorkerXbsa.dll", VFT_DLL},
    {L"TarnLog.dll", L"TarnLog.dll", VFT_DLL},
    {L"NetWorker64BitClient.exe", L"NetWorker64BitClient.exe", VFT_APP},
    {L"nwexch.exe", L"nwexch.exe", VFT_APP},
    {L"nwsim-admin.exe", L"nwsim-admin.exe", VFT_APP},
    {L"..\\nwsim\\install\\nsrinfo.exe", L"nsrinfo.exe", VFT_APP},
    {L"..\\nwsim\\install\\nsrexecd.exe", L"nsrexecd.exe", VFT_APP},
};

}  // namespace

TEST(VersionResources, EveryShippedBinaryCarriesTheProjectVersion) {
    const DWORD expectedMs = MAKELONG(NWX_EXPECTED_MINOR, NWX_EXPECTED_MAJOR);
    const DWORD expectedLs = MAKELONG(0, NWX_EXPECTED_PATCH);
    for (const Shipped& shipped : kShipped) {
        const std::wstring path = BinDirectory() + shipped.relativePath;
        SCOPED_TRACE(std::string(path.begin(), path.end()));
        const VersionResource resource(path);
        ASSERT_TRUE(resource.Present()) << "no version resource";
        const VS_FIXEDFILEINFO* fixed = resource.Fixed();
        ASSERT_NE(fixed, nullptr);
        EXPECT_EQ(fixed->dwSignature, 0xFEEF04BDu);
        EXPECT_EQ(fixed->dwFileVersionMS, expectedMs);
        EXPECT_EQ(fixed->dwFileVersionLS, expectedLs);
        EXPECT_EQ(fixed->dwProductVersionMS, expectedMs);
        EXPECT_EQ(fixed->dwProductVersionLS, expectedLs);
        EXPECT_EQ(fixed->dwFileType, shipped.fileType);
        EXPECT_EQ(resource.Text(L"FileVersion"), NWX_EXPECTED_VERSION);
        EXPECT_EQ(resource.Text(L"ProductVersion"), NWX_EXPECTED_VERSION);
        EXPECT_EQ(resource.Text(L"ProductName"), L"NetWorkerXbsa");
        EXPECT_EQ(resource.Text(L"OriginalFilename"), shipped.fileName);
        EXPECT_FALSE(resource.Text(L"FileDescription").empty());
    }
}
