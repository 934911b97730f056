#include "Journal.h"

#include <cstdio>
#include <cstring>

namespace nwsim {

void JournalLine::Key(std::string_view key) {
    m_text += ' ';
    m_text += key;
    m_text += '=';
}

JournalLine& JournalLine::Text(std::string_view key, std::string_view value) {
    Key(key);
    m_text += '"';
    for (char c : value) {
        switch (c) {
            case '"':
                m_text += "\\\"";
                break;
            case '\\':
                m_text += "\\\\";
                break;
            case '\t':
                m_text += "\\t";
                break;
            case '\r':
                m_text += "\\r";
                break;
            case '\n':
                m_text += "\\n";
                break;
            default:
                m_text += c;
                break;
        }
    }
    m_text += '"';
    return *this;
}

JournalLine& JournalLine::Field(std::string_view key, const char* field, size_t capacity) {
    if (field == nullptr) {
        Key(key);
        m_text += "null";
        return *this;
    }
    const void* zero = std::memchr(field, 0, capacity);
    const size_t length =
        zero ? static_cast<size_t>(static_cast<const char*>(zero) - field) : capacity;
    return Text(key, std::string_view(field, length));
}

JournalLine& JournalLine::Number(std::string_view key, uint64_t value) {
    Key(key);
    m_text += std::to_string(value);
    return *this;
}

JournalLine& JournalLine::Signed(std::string_view key, int64_t value) {
    Key(key);
    m_text += std::to_string(value);
    return *this;
}

JournalLine& JournalLine::Pointer(std::string_view key, const void* value) {
    Key(key);
    char text[32];
    std::snprintf(text, sizeof(text), "0x%llx",
                  static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(value)));
    m_text += text;
    return *this;
}

const std::string* ParsedJournalLine::Find(std::string_view key) const {
    for (const auto& field : fields) {
        if (field.first == key) {
            return &field.second;
        }
    }
    return nullptr;
}

bool ParseJournalLine(std::string_view line, ParsedJournalLine& out) {
    out = ParsedJournalLine();
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) {
        line.remove_suffix(1);
    }
    size_t i = line.find(' ');
    out.call = std::string(line.substr(0, i));
    if (out.call.empty()) {
        return false;
    }
    while (i != std::string_view::npos && i < line.size()) {
        ++i;  // the blank
        const size_t equals = line.find('=', i);
        if (equals == std::string_view::npos) {
            return false;
        }
        std::string key(line.substr(i, equals - i));
        std::string value;
        i = equals + 1;
        if (i < line.size() && line[i] == '"') {
            ++i;
            bool closed = false;
            while (i < line.size()) {
                const char c = line[i++];
                if (c == '"') {
                    closed = true;
                    break;
                }
                if (c != '\\') {
                    value += c;
                    continue;
                }
                if (i >= line.size()) {
                    return false;
                }
                const char e = line[i++];
                value += e == 't' ? '\t' : e == 'r' ? '\r' : e == 'n' ? '\n' : e;
            }
            if (!closed) {
                return false;
            }
            if (i < line.size() && line[i] != ' ') {
                return false;
            }
        } else {
            const size_t end = line.find(' ', i);
            value = std::string(line.substr(i, end == std::string_view::npos ? end : end - i));
            i = end == std::string_view::npos ? line.size() : end;
        }
        out.fields.emplace_back(std::move(key), std::move(value));
        if (i >= line.size()) {
            break;
        }
    }
    return true;
}

}  // namespace nwsim
