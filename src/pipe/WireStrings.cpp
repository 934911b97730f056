#include "WireStrings.h"

#include <cstdint>
#include <cstring>
#include <stdexcept>

namespace {

[[noreturn]] void ThrowTooLong(const char* fieldName, size_t capacity, const char* unit) {
    throw std::length_error(std::string(fieldName) + " does not fit its pipe field: at most " +
                            std::to_string(capacity - 1) + " " + unit + " are allowed");
}

void ThrowIfNull(const void* text, const char* fieldName) {
    if (text == nullptr) {
        throw std::invalid_argument(std::string(fieldName) + " must not be null");
    }
}

void StoreUnit(unsigned char* field, size_t index, uint16_t unit) {
    // The wire is little-endian whatever the host.
    field[index * 2] = static_cast<unsigned char>(unit & 0xFF);
    field[index * 2 + 1] = static_cast<unsigned char>(unit >> 8);
}

uint16_t LoadUnit(const unsigned char* field, size_t index) {
    return static_cast<uint16_t>(field[index * 2] | (field[index * 2 + 1] << 8));
}

// Appends the UTF-16 units of one wchar_t to out (count units, at most 2).
size_t EncodeUnits(wchar_t character, uint16_t out[2]) {
    if constexpr (sizeof(wchar_t) == 2) {
        out[0] = static_cast<uint16_t>(character);
        return 1;
    } else {
        const uint32_t codePoint = static_cast<uint32_t>(character);
        if (codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
            throw std::invalid_argument("wide text holds a value that is not a Unicode character");
        }
        if (codePoint < 0x10000) {
            out[0] = static_cast<uint16_t>(codePoint);
            return 1;
        }
        const uint32_t offset = codePoint - 0x10000;
        out[0] = static_cast<uint16_t>(0xD800 + (offset >> 10));
        out[1] = static_cast<uint16_t>(0xDC00 + (offset & 0x3FF));
        return 2;
    }
}

}  // namespace

void CopyNarrowToField(const char* text, char* field, size_t capacity, const char* fieldName) {
    ThrowIfNull(text, fieldName);
    const size_t length = std::strlen(text);
    if (length >= capacity) {
        ThrowTooLong(fieldName, capacity, "characters");
    }
    std::memset(field, 0, capacity);
    std::memcpy(field, text, length);
}

size_t WideWireLength(const wchar_t* text) {
    size_t units = 0;
    uint16_t encoded[2];
    for (const wchar_t* p = text; *p != L'\0'; ++p) {
        units += EncodeUnits(*p, encoded);
    }
    return units;
}

void CopyWideToField(const wchar_t* text, void* field, size_t capacity, const char* fieldName) {
    ThrowIfNull(text, fieldName);
    if (WideWireLength(text) >= capacity) {
        ThrowTooLong(fieldName, capacity, "UTF-16 units");
    }
    auto* bytes = static_cast<unsigned char*>(field);
    std::memset(bytes, 0, capacity * 2);
    size_t index = 0;
    uint16_t encoded[2];
    for (const wchar_t* p = text; *p != L'\0'; ++p) {
        const size_t count = EncodeUnits(*p, encoded);
        for (size_t i = 0; i < count; ++i) {
            StoreUnit(bytes, index++, encoded[i]);
        }
    }
}

size_t WideFieldLength(const void* field, size_t capacity) {
    const auto* bytes = static_cast<const unsigned char*>(field);
    size_t length = 0;
    while (length < capacity && LoadUnit(bytes, length) != 0) {
        ++length;
    }
    return length;
}

std::wstring WideFieldToString(const void* field, size_t capacity) {
    const auto* bytes = static_cast<const unsigned char*>(field);
    const size_t length = WideFieldLength(field, capacity);
    std::wstring text;
    text.reserve(length);
    for (size_t i = 0; i < length; ++i) {
        const uint16_t unit = LoadUnit(bytes, i);
        if constexpr (sizeof(wchar_t) == 2) {
            text.push_back(static_cast<wchar_t>(unit));
        } else {
            if (unit >= 0xD800 && unit <= 0xDBFF && i + 1 < length) {
                const uint16_t low = LoadUnit(bytes, i + 1);
                if (low >= 0xDC00 && low <= 0xDFFF) {
                    const uint32_t codePoint =
                        0x10000 + ((static_cast<uint32_t>(unit) - 0xD800) << 10) + (low - 0xDC00);
                    text.push_back(static_cast<wchar_t>(codePoint));
                    ++i;
                    continue;
                }
            }
            text.push_back(static_cast<wchar_t>(unit));
        }
    }
    return text;
}
