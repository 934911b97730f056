// Feeds arbitrary format strings to FormatWide. The argument pack is safe for any directive:
// eight doubles (floating conversions take those first), then pointers to a buffer that reads
// as a short narrow string and as a short wide string alike, so any other conversion can take
// any of them. The pack is the same on every call, so every result is deterministic. '*' is
// replaced (a pointer's bits would make an absurd width) and the number of directives is
// bounded so that no directive runs past the arguments given.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "common/WideFormat.h"

namespace {

// "ab" then zeros: as char* it is "ab", as wchar_t* one non-zero unit then a terminator.
alignas(16) const char kEither[64] = "ab";

constexpr size_t kMaxDirectives = 16;  // each takes at most two argument slots (%Lf)

#define NWX_ARGS8 kEither, kEither, kEither, kEither, kEither, kEither, kEither, kEither
#define NWX_DOUBLES 1.5, -2.25, 0.0, 1e300, 3.0, 4.0, 5.0, 6.0
#define NWX_ARGS NWX_DOUBLES, NWX_ARGS8, NWX_ARGS8, NWX_ARGS8, NWX_ARGS8, NWX_ARGS8

std::wstring FormatFromInput(const uint8_t* data, size_t size) {
    std::wstring format;
    size_t percents = 0;
    for (size_t i = 0; i + 1 < size; i += 2) {
        wchar_t unit = static_cast<wchar_t>(data[i] | (data[i + 1] << 8));
        if (unit == L'\0') {
            unit = L' ';
        } else if (unit == L'*') {
            unit = L'7';
        } else if (unit == L'%' && ++percents > kMaxDirectives) {
            break;
        }
        format.push_back(unit);
    }
    return format;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) {
        return 0;
    }
    const size_t capacity = data[0] % 40;
    const std::wstring format = FormatFromInput(data + 1, size - 1);

    const size_t measured = FormatWide(nullptr, 0, format.c_str(), NWX_ARGS);
    const std::wstring full = FormatWideString(format.c_str(), NWX_ARGS);
    if (full.size() != measured) {
        std::abort();
    }

    wchar_t bounded[40];
    const size_t reported = FormatWide(bounded, capacity, format.c_str(), NWX_ARGS);
    if (reported != measured) {
        std::abort();
    }
    if (capacity > 0) {
        const size_t kept = measured < capacity - 1 ? measured : capacity - 1;
        if (bounded[kept] != L'\0' || full.compare(0, kept, bounded, kept) != 0) {
            std::abort();
        }
    }
    return 0;
}
