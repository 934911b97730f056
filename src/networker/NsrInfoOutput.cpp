#include "NsrInfoOutput.h"

#include <cstdio>
#include <limits>

namespace {

size_t ClampedLength(int written, size_t capacity) {
    if (written < 0 || capacity == 0) {
        return 0;
    }
    const size_t length = static_cast<size_t>(written);
    return length < capacity ? length : capacity - 1;
}

int ViewLength(std::string_view text) {
    const size_t limit = static_cast<size_t>(std::numeric_limits<int>::max());
    return static_cast<int>(text.size() < limit ? text.size() : limit);
}

bool IsCrtSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

}  // namespace

size_t FormatQuotedObjectName(char* out, size_t capacity, std::string_view objectSpace,
                              std::string_view pathName) {
    const int written = std::snprintf(out, capacity, "\"%.*s:%.*s\"", ViewLength(objectSpace),
                                      objectSpace.data(), ViewLength(pathName), pathName.data());
    return ClampedLength(written, capacity);
}

size_t FormatNsrInfoArguments(char* out, size_t capacity, std::string_view serverName,
                              std::string_view quotedName, std::string_view clientName) {
    const int written =
        std::snprintf(out, capacity, "-v -V -s %.*s -n msexch -N %.*s %.*s", ViewLength(serverName),
                      serverName.data(), ViewLength(quotedName), quotedName.data(),
                      ViewLength(clientName), clientName.data());
    return ClampedLength(written, capacity);
}

int64_t ParseAtoi64(std::string_view text) {
    size_t i = 0;
    while (i < text.size() && IsCrtSpace(text[i])) {
        ++i;
    }
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    // Accumulate the magnitude; one past INT64_MAX is INT64_MIN's magnitude.
    const uint64_t limit =
        static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + (negative ? 1u : 0u);
    uint64_t magnitude = 0;
    bool overflow = false;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        const uint64_t digit = static_cast<uint64_t>(text[i] - '0');
        if (overflow || magnitude > (limit - digit) / 10) {
            overflow = true;
            continue;
        }
        magnitude = magnitude * 10 + digit;
    }
    if (overflow) {
        return negative ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    }
    if (negative) {
        return magnitude == limit ? std::numeric_limits<int64_t>::min()
                                  : -static_cast<int64_t>(magnitude);
    }
    return static_cast<int64_t>(magnitude);
}

NsrInfoSize ParseNsrInfoSize(std::string_view output) {
    // What the single read delivered, as the zero-filled read buffer holds it.
    const std::string_view delivered = output.substr(0, kNsrInfoReadLimit);
    const auto at = [&delivered](size_t index) -> char {
        return index < delivered.size() ? delivered[index] : '\0';
    };

    // The markers are searched as in a C string: up to the first zero byte.
    const std::string_view text = delivered.substr(0, delivered.find('\0'));
    size_t marker = text.find("size=");
    if (marker == std::string_view::npos) {
        marker = text.find("size =");
    }
    if (marker == std::string_view::npos) {
        return NsrInfoSize{NsrInfoSizeOutcome::NoMarker, 0};
    }

    const size_t start = marker + 5;
    size_t p = start;
    size_t n = 0;
    if (at(p) != ',') {
        for (;;) {
            if (at(p) == ' ') {
                break;
            }
            if (n >= 20) {
                return NsrInfoSize{NsrInfoSizeOutcome::TooLong, 0};
            }
            ++p;
            ++n;
            if (at(p) == ',') {
                break;
            }
        }
    }
    if (n >= 20) {
        return NsrInfoSize{NsrInfoSizeOutcome::TooLong, 0};
    }

    // The value is the text from start up to the terminator at p, read up to a zero byte.
    std::string_view value = delivered.substr(start < delivered.size() ? start : delivered.size());
    value = value.substr(0, p - start);
    const size_t zero = value.find('\0');
    if (zero != std::string_view::npos) {
        value = value.substr(0, zero);
    }
    return NsrInfoSize{NsrInfoSizeOutcome::Parsed, static_cast<uint64_t>(ParseAtoi64(value))};
}
