#pragma once
// One journal line per simulated call:  <call> key=value key=value ...
// Numbers are bare decimal, pointers bare "0x" hexadecimal, texts in double quotes with
// \" \\ \t \r \n escapes. The line ends with '\n' when written.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace nwsim {

class JournalLine {
public:
    explicit JournalLine(std::string_view call) : m_text(call) {}

    JournalLine& Text(std::string_view key, std::string_view value);
    // A fixed-size char field: read up to its first zero or its capacity, whichever comes first.
    JournalLine& Field(std::string_view key, const char* field, size_t capacity);
    JournalLine& Number(std::string_view key, uint64_t value);
    JournalLine& Signed(std::string_view key, int64_t value);
    JournalLine& Pointer(std::string_view key, const void* value);

    const std::string& Str() const { return m_text; }

private:
    void Key(std::string_view key);

    std::string m_text;
};

struct ParsedJournalLine {
    std::string call;
    std::vector<std::pair<std::string, std::string>> fields;  // values unquoted and unescaped

    // The value of the first field named key, or nullptr.
    const std::string* Find(std::string_view key) const;
};

bool ParseJournalLine(std::string_view line, ParsedJournalLine& out);

// Receives finished lines (the image appends them to the NWSIM_JOURNAL file).
class JournalSink {
public:
    virtual void Append(const std::string& line) = 0;

protected:
    ~JournalSink() = default;
};

}  // namespace nwsim
