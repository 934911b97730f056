// Random directories for the root split and the destination path, and random descriptor texts
// for the Exchange-file test. Checks the invariants the executor relies on.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "executor/ExchangeObjectRules.h"
#include "executor/ExtractionPaths.h"

namespace {

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void FuzzDirectory(const uint8_t* data, size_t size) {
    std::wstring directory;
    for (size_t i = 0; i + 1 < size; i += 2) {
        // A small alphabet makes separators, drive colons and names frequent.
        static const wchar_t kAlphabet[] = L"\\\\\\:Cabc. \x00e9\x4e2d";
        const uint16_t unit = static_cast<uint16_t>(data[i] | (data[i + 1] << 8));
        const wchar_t c = (unit & 0x8000)
                              ? static_cast<wchar_t>(unit & 0x7fff)
                              : kAlphabet[unit % (sizeof kAlphabet / sizeof(wchar_t) - 1)];
        if (c != L'\0') {
            directory.push_back(c);
        }
    }

    DirectoryPlan plan;
    const DirectoryPlanResult result = PlanDirectoryCreation(directory.c_str(), &plan);
    if (result != DirectoryPlanResult::Ok) {
        Check(plan.root.empty() && plan.levels.empty());
        Check(result != DirectoryPlanResult::TooShort || directory.size() < 3);
    } else {
        Check(directory.size() >= 3);
        Check(!plan.root.empty() && plan.root.back() == L'\\');
        Check(directory.compare(0, plan.root.size(), plan.root) == 0);
        std::wstring rebuilt = plan.root;
        for (const std::wstring& level : plan.levels) {
            Check(!level.empty());
            Check(level.find(L'\\') == std::wstring::npos);
            rebuilt += level;
            rebuilt += L'\\';
        }
        // Without the doubled separators, the levels give back the path.
        std::wstring squeezed = directory.substr(plan.root.size());
        std::wstring expected = plan.root;
        for (wchar_t c : squeezed) {
            if (c != L'\\' || (!expected.empty() && expected.back() != L'\\')) {
                expected.push_back(c);
            }
        }
        if (expected.back() != L'\\') {
            expected.push_back(L'\\');
        }
        Check(rebuilt == expected);
    }

    std::wstring path;
    const std::wstring name = L"priv1.edb";
    if (BuildDestinationPath(directory.c_str(), name.c_str(), &path)) {
        Check(path.size() < kDestinationPathCapacity);
        Check(path.size() >= name.size() + 1);
        Check(path.compare(path.size() - name.size(), name.size(), name) == 0);
        Check(path[path.size() - name.size() - 1] == L'\\');
    } else {
        Check(path.empty());
    }
}

void FuzzDescriptor(const uint8_t* data, size_t size) {
    BSA_ObjectDescriptor descriptor{};
    const size_t typeBytes = size > 0 ? data[0] % (sizeof descriptor.resourceType + 1) : 0;
    data += size > 0 ? 1 : 0;
    size -= size > 0 ? 1 : 0;
    const size_t forType = typeBytes < size ? typeBytes : size;
    std::memcpy(descriptor.resourceType, data, forType);
    data += forType;
    size -= forType;
    const size_t forPath =
        size < sizeof descriptor.objectName.pathName ? size : sizeof descriptor.objectName.pathName;
    std::memcpy(descriptor.objectName.pathName, data, forPath);

    const bool accepted = IsExchangeFile(descriptor);
    const std::string_view type(descriptor.resourceType,
                                strnlen(descriptor.resourceType, sizeof descriptor.resourceType));
    const std::string_view pathName(
        descriptor.objectName.pathName,
        strnlen(descriptor.objectName.pathName, sizeof descriptor.objectName.pathName));
    Check(accepted == IsExchangeFile(type, pathName));
    if (accepted) {
        Check(type == "D" || type == "L");
        Check(pathName.size() >= 4 && pathName[pathName.size() - 4] == '.');
        Check(pathName.find("Private Mailboxes") == std::string_view::npos);
    }
    const uint64_t announced = AnnouncedSize(pathName, BSA_UInt64{1, 2});
    Check(announced == 0 || announced == kAnnouncedLogSize || announced == 0x100000002ULL);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    if (data[0] & 1) {
        FuzzDirectory(data + 1, size - 1);
    } else {
        FuzzDescriptor(data + 1, size - 1);
    }
    return 0;
}
