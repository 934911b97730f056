// Random nsrinfo.exe output for the size parse, and random binary paths for the
// install-directory cuts.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "networker/InstallDirectory.h"
#include "networker/NsrInfoOutput.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);

    const NsrInfoSize parsed = ParseNsrInfoSize(bytes);
    if (parsed.outcome != NsrInfoSizeOutcome::Parsed && parsed.size != 0) {
        std::abort();
    }
    const std::string_view delivered = bytes.substr(0, kNsrInfoReadLimit);
    const std::string_view text = delivered.substr(0, delivered.find('\0'));
    const bool hasMarker = text.find("size=") != std::string_view::npos ||
                           text.find("size =") != std::string_view::npos;
    if ((parsed.outcome == NsrInfoSizeOutcome::NoMarker) == hasMarker) {
        std::abort();
    }

    std::wstring path;
    for (size_t i = 0; i + 1 < size; i += 2) {
        path.push_back(static_cast<wchar_t>(data[i] | (data[i + 1] << 8)));
    }
    const std::wstring stripped = StripBeforeDriveLetter(path);
    const std::wstring dir = InstallDirectoryFromBinaryPath(path);
    // Each cut only shortens, and keeps a suffix / a prefix of what it was given.
    if (stripped.size() > path.size() ||
        path.compare(path.size() - stripped.size(), stripped.size(), stripped) != 0) {
        std::abort();
    }
    if (dir.size() > stripped.size() || stripped.compare(0, dir.size(), dir) != 0) {
        std::abort();
    }
    const size_t lastBackslash = stripped.rfind(L'\\');
    if (lastBackslash == std::wstring::npos ? !dir.empty() : dir.size() != lastBackslash) {
        std::abort();
    }

    char arguments[kNsrInfoTextCapacity];
    FormatNsrInfoArguments(arguments, sizeof(arguments), bytes, bytes, bytes);
    char quoted[kNsrInfoTextCapacity];
    FormatQuotedObjectName(quoted, sizeof(quoted), bytes, bytes);
    return 0;
}
