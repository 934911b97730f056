#pragma once
// The nsrinfo.exe command line and the parse of its output. Platform-neutral.

#include <cstddef>
#include <cstdint>
#include <string_view>

// Capacity of every narrow text buffer of the size lookup, terminator included.
constexpr size_t kNsrInfoTextCapacity = 2048;
// The tool's output is read once, at most this many bytes.
constexpr size_t kNsrInfoReadLimit = 1024;

// "\"<objectSpace>:<pathName>\"" into out (capacity bytes, always terminated, truncated to fit).
// Returns the length written.
size_t FormatQuotedObjectName(char* out, size_t capacity, std::string_view objectSpace,
                              std::string_view pathName);

// "-v -V -s <server> -n msexch -N <quotedName> <client>" into out, as above. This is the whole
// command line handed to the child: the program name is not in front of it (kept on purpose:
// docs/compatibility.md, "nsrinfo.exe without its name").
size_t FormatNsrInfoArguments(char* out, size_t capacity, std::string_view serverName,
                              std::string_view quotedName, std::string_view clientName);

// Signed 64-bit decimal conversion with the C runtime's _atoi64 rules: leading white space
// skipped, optional sign, digits up to the first non-digit, 0 when there are none; a value out
// of range gives INT64_MAX or INT64_MIN.
int64_t ParseAtoi64(std::string_view text);

enum class NsrInfoSizeOutcome {
    Parsed,    // size holds the value
    NoMarker,  // neither "size=" nor "size =" in what was read (also an empty read)
    TooLong,   // the value did not end at ',' or ' ' within 19 characters
};

struct NsrInfoSize {
    NsrInfoSizeOutcome outcome;
    uint64_t size;
};

// The size in the tool's output. Only the first kNsrInfoReadLimit bytes are looked at; the
// markers are searched up to the first zero byte. The value starts 5 characters past the first
// "size=", else past the first "size =" (whose value therefore starts at '=' and yields 0;
// kept on purpose: docs/compatibility.md, "spaced size marker"), and must end at ',' or ' '
// within 19 characters; line breaks and the end of the output do not end it.
NsrInfoSize ParseNsrInfoSize(std::string_view output);
