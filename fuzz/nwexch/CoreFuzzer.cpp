// Feeds arbitrary text to nwexch's parsers and checks what must always hold: a restore plan
// never leaves its destination, JSON is plain ASCII, a literal pattern matches itself.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "DateWindow.h"
#include "Formatting.h"
#include "Glob.h"
#include "RestorePlan.h"

namespace {

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

std::vector<std::wstring> Split(const uint8_t* data, size_t size) {
    // Bytes as code units; 0 separates pieces.
    std::vector<std::wstring> pieces(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == 0) {
            pieces.emplace_back();
        } else {
            pieces.back().push_back(static_cast<wchar_t>(data[i]));
        }
    }
    return pieces;
}

bool HasGlobCharacters(const std::wstring& text) {
    return text.find_first_of(L"*?[") != std::wstring::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::wstring> pieces = Split(data, size);
    const std::wstring& first = pieces[0];
    const std::wstring& second = pieces.size() > 1 ? pieces[1] : first;

    std::wstring error;
    if (auto date = ParseDateArgument(first, &error)) {
        Check(DateWindow(date, date).IsConsistent());
    } else {
        Check(!error.empty());
    }

    GlobMatch(first, second);
    if (!HasGlobCharacters(first)) {
        Check(GlobMatch(first, first));
    }

    const std::string json = JsonEscape(first);
    for (char c : json) {
        Check(c >= 0x20 && c < 0x7F);
    }

    const std::wstring root = L"C:\\restore";
    for (bool flat : {false, true}) {
        const RestorePlan plan = PlanRestore(root, {{0, first}, {1, second}}, flat);
        for (const PlannedFile& file : plan.files) {
            const std::wstring path = file.FullPath();
            Check(path.compare(0, root.size() + 1, root + L"\\") == 0);
            std::vector<std::wstring> names;
            std::wstring problem;
            Check(SplitBackupPath(path.substr(root.size()), &names, &problem));
            for (const std::wstring& name : names) {
                Check(name != L".." && name != L"." && name.find(L':') == std::wstring::npos);
            }
        }
    }

    ParseCommandLine(pieces);
    return 0;
}
