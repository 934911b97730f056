#include "WideFormat.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>

namespace {

// Writes into a bounded buffer while counting the full length.
class WideSink {
public:
    WideSink(wchar_t* out, size_t capacity) : m_out(out), m_capacity(capacity) {}

    void Put(wchar_t c) {
        if (m_out != nullptr && m_length + 1 < m_capacity) {
            m_out[m_length] = c;
        }
        ++m_length;
    }
    void Repeat(wchar_t c, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            Put(c);
        }
    }
    size_t Finish() {
        if (m_out != nullptr && m_capacity > 0) {
            m_out[m_length < m_capacity ? m_length : m_capacity - 1] = L'\0';
        }
        return m_length;
    }

private:
    wchar_t* m_out;
    size_t m_capacity;
    size_t m_length = 0;
};

enum class Size { Default, Short, Char, Long, LongLong, SizeT, IntMax, PtrDiff, LongDouble };

struct Directive {
    bool leftAlign = false;
    bool plusSign = false;
    bool spaceSign = false;
    bool alternate = false;
    bool zeroPad = false;
    int width = 0;
    int precision = -1;
    Size size = Size::Default;
    bool wideExplicit = false;    // l or w in front of s/c
    bool narrowExplicit = false;  // h in front of s/c
};

void PadAndEmit(WideSink& sink, const Directive& directive, const wchar_t* prefix,
                size_t prefixLength, const wchar_t* body, size_t bodyLength, size_t zeros) {
    const size_t content = prefixLength + zeros + bodyLength;
    const size_t width = directive.width > 0 ? static_cast<size_t>(directive.width) : 0;
    const size_t pad = width > content ? width - content : 0;
    if (!directive.leftAlign) {
        sink.Repeat(L' ', pad);
    }
    for (size_t i = 0; i < prefixLength; ++i) {
        sink.Put(prefix[i]);
    }
    sink.Repeat(L'0', zeros);
    for (size_t i = 0; i < bodyLength; ++i) {
        sink.Put(body[i]);
    }
    if (directive.leftAlign) {
        sink.Repeat(L' ', pad);
    }
}

void EmitInteger(WideSink& sink, const Directive& directive, uint64_t magnitude, bool negative,
                 bool isSigned, unsigned base, bool upper) {
    wchar_t digits[64];
    size_t count = 0;
    const wchar_t* alphabet = upper ? L"0123456789ABCDEF" : L"0123456789abcdef";
    // Precision 0 with value 0 prints no digits, as the C library does.
    if (!(magnitude == 0 && directive.precision == 0)) {
        do {
            digits[count++] = alphabet[magnitude % base];
            magnitude /= base;
        } while (magnitude != 0);
    }
    wchar_t body[64];
    for (size_t i = 0; i < count; ++i) {
        body[i] = digits[count - 1 - i];
    }

    wchar_t prefix[3];
    size_t prefixLength = 0;
    if (isSigned) {
        if (negative) {
            prefix[prefixLength++] = L'-';
        } else if (directive.plusSign) {
            prefix[prefixLength++] = L'+';
        } else if (directive.spaceSign) {
            prefix[prefixLength++] = L' ';
        }
    }
    if (directive.alternate && count > 0 && !(count == 1 && body[0] == L'0')) {
        if (base == 16) {
            prefix[prefixLength++] = L'0';
            prefix[prefixLength++] = upper ? L'X' : L'x';
        } else if (base == 8) {
            prefix[prefixLength++] = L'0';
        }
    }

    size_t zeros = 0;
    if (directive.precision >= 0) {
        if (static_cast<size_t>(directive.precision) > count) {
            zeros = static_cast<size_t>(directive.precision) - count;
        }
    } else if (directive.zeroPad && !directive.leftAlign && directive.width > 0) {
        const size_t used = prefixLength + count;
        if (static_cast<size_t>(directive.width) > used) {
            zeros = static_cast<size_t>(directive.width) - used;
        }
    }
    PadAndEmit(sink, directive, prefix, prefixLength, body, count, zeros);
}

template <typename Char>
size_t BoundedLength(const Char* text, int precision) {
    size_t length = 0;
    while ((precision < 0 || length < static_cast<size_t>(precision)) && text[length] != 0) {
        ++length;
    }
    return length;
}

void EmitWideText(WideSink& sink, const Directive& directive, const wchar_t* text) {
    if (text == nullptr) {
        text = L"(null)";
    }
    const size_t length = BoundedLength(text, directive.precision);
    PadAndEmit(sink, directive, nullptr, 0, text, length, 0);
}

void EmitNarrowText(WideSink& sink, const Directive& directive, const char* text) {
    if (text == nullptr) {
        text = "(null)";
    }
    const size_t length = BoundedLength(text, directive.precision);
    const size_t width = directive.width > 0 ? static_cast<size_t>(directive.width) : 0;
    const size_t pad = width > length ? width - length : 0;
    if (!directive.leftAlign) {
        sink.Repeat(L' ', pad);
    }
    for (size_t i = 0; i < length; ++i) {
        sink.Put(static_cast<wchar_t>(static_cast<unsigned char>(text[i])));
    }
    if (directive.leftAlign) {
        sink.Repeat(L' ', pad);
    }
}

void EmitFloating(WideSink& sink, const Directive& directive, wchar_t conversion, long double value,
                  bool isLongDouble) {
    char format[32];
    size_t n = 0;
    format[n++] = '%';
    if (directive.leftAlign)
        format[n++] = '-';
    if (directive.plusSign)
        format[n++] = '+';
    if (directive.spaceSign)
        format[n++] = ' ';
    if (directive.alternate)
        format[n++] = '#';
    if (directive.zeroPad)
        format[n++] = '0';
    format[n++] = '*';
    format[n++] = '.';
    format[n++] = '*';
    if (isLongDouble)
        format[n++] = 'L';
    format[n++] = static_cast<char>(conversion);
    format[n] = '\0';
    const int precision = directive.precision < 0 ? 6 : directive.precision;
    char text[512];
    int written = isLongDouble
                      ? std::snprintf(text, sizeof text, format, directive.width, precision, value)
                      : std::snprintf(text, sizeof text, format, directive.width, precision,
                                      static_cast<double>(value));
    if (written < 0) {
        written = 0;
    }
    const size_t length = static_cast<size_t>(written) < sizeof text - 1
                              ? static_cast<size_t>(written)
                              : sizeof text - 1;
    for (size_t i = 0; i < length; ++i) {
        sink.Put(static_cast<wchar_t>(static_cast<unsigned char>(text[i])));
    }
}

int ReadNumber(const wchar_t*& p) {
    int value = 0;
    while (*p >= L'0' && *p <= L'9') {
        if (value < 100000) {
            value = value * 10 + (*p - L'0');
        }
        ++p;
    }
    return value;
}

// The 64-bit sizes (ll, I64, j, z, I, t) share one argument type on every target we build.
static_assert(sizeof(long long) == 8 && sizeof(intmax_t) == 8 && sizeof(size_t) == 8 &&
                  sizeof(ptrdiff_t) == 8,
              "64-bit targets only");

// va_list is passed by pointer so that consumed arguments stay consumed across calls.
// long is 32-bit on Windows and 64-bit natively, so its branch is a clone only natively.
// NOLINTBEGIN(bugprone-branch-clone)
int64_t FetchSigned(Size size, va_list* args) {
    switch (size) {
        case Size::Char:
            return static_cast<signed char>(va_arg(*args, int));
        case Size::Short:
            return static_cast<short>(va_arg(*args, int));
        case Size::Long:
            return va_arg(*args, long);
        case Size::LongLong:
        case Size::IntMax:
        case Size::SizeT:
        case Size::PtrDiff:
            return va_arg(*args, long long);
        default:
            return va_arg(*args, int);
    }
}

uint64_t FetchUnsigned(Size size, va_list* args) {
    switch (size) {
        case Size::Char:
            return static_cast<unsigned char>(va_arg(*args, unsigned int));
        case Size::Short:
            return static_cast<unsigned short>(va_arg(*args, unsigned int));
        case Size::Long:
            return va_arg(*args, unsigned long);
        case Size::LongLong:
        case Size::IntMax:
        case Size::SizeT:
        case Size::PtrDiff:
            return va_arg(*args, unsigned long long);
        default:
            return va_arg(*args, unsigned int);
    }
}

// NOLINTEND(bugprone-branch-clone)

size_t FormatInto(WideSink& sink, const wchar_t* format, va_list* args) {
    if (format == nullptr) {
        return sink.Finish();
    }
    const wchar_t* p = format;
    while (*p != L'\0') {
        if (*p != L'%') {
            sink.Put(*p++);
            continue;
        }
        const wchar_t* directiveStart = p;
        ++p;
        if (*p == L'%') {
            sink.Put(L'%');
            ++p;
            continue;
        }
        Directive directive;
        for (bool more = true; more;) {
            switch (*p) {
                case L'-':
                    directive.leftAlign = true;
                    ++p;
                    break;
                case L'+':
                    directive.plusSign = true;
                    ++p;
                    break;
                case L' ':
                    directive.spaceSign = true;
                    ++p;
                    break;
                case L'#':
                    directive.alternate = true;
                    ++p;
                    break;
                case L'0':
                    directive.zeroPad = true;
                    ++p;
                    break;
                default:
                    more = false;
                    break;
            }
        }
        if (*p == L'*') {
            directive.width = va_arg(*args, int);
            if (directive.width < 0) {
                directive.leftAlign = true;
                directive.width = -directive.width;
            }
            ++p;
        } else {
            directive.width = ReadNumber(p);
        }
        if (*p == L'.') {
            ++p;
            if (*p == L'*') {
                directive.precision = va_arg(*args, int);
                ++p;
            } else {
                directive.precision = ReadNumber(p);
            }
        }
        switch (*p) {
            case L'h':
                ++p;
                if (*p == L'h') {
                    directive.size = Size::Char;
                    ++p;
                } else {
                    directive.size = Size::Short;
                }
                directive.narrowExplicit = true;
                break;
            case L'l':
                ++p;
                if (*p == L'l') {
                    directive.size = Size::LongLong;
                    ++p;
                } else {
                    directive.size = Size::Long;
                }
                directive.wideExplicit = true;
                break;
            case L'w':
                ++p;
                directive.wideExplicit = true;
                break;
            case L'L':
                ++p;
                directive.size = Size::LongDouble;
                break;
            case L'z':
                ++p;
                directive.size = Size::SizeT;
                break;
            case L'j':
                ++p;
                directive.size = Size::IntMax;
                break;
            case L't':
                ++p;
                directive.size = Size::PtrDiff;
                break;
            case L'I':
                if (p[1] == L'6' && p[2] == L'4') {
                    directive.size = Size::LongLong;
                    p += 3;
                } else if (p[1] == L'3' && p[2] == L'2') {
                    directive.size = Size::Default;
                    p += 3;
                } else {
                    directive.size = Size::SizeT;
                    ++p;
                }
                break;
            default:
                break;
        }
        const wchar_t conversion = *p;
        if (conversion == L'\0') {
            // An incomplete directive at the end is written as it stands.
            for (const wchar_t* q = directiveStart; q < p; ++q) {
                sink.Put(*q);
            }
            break;
        }
        ++p;
        switch (conversion) {
            case L'd':
            case L'i': {
                const int64_t value = FetchSigned(directive.size, args);
                const uint64_t magnitude =
                    value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
                EmitInteger(sink, directive, magnitude, value < 0, true, 10, false);
                break;
            }
            case L'u':
                EmitInteger(sink, directive, FetchUnsigned(directive.size, args), false, false, 10,
                            false);
                break;
            case L'x':
                EmitInteger(sink, directive, FetchUnsigned(directive.size, args), false, false, 16,
                            false);
                break;
            case L'X':
                EmitInteger(sink, directive, FetchUnsigned(directive.size, args), false, false, 16,
                            true);
                break;
            case L'o':
                EmitInteger(sink, directive, FetchUnsigned(directive.size, args), false, false, 8,
                            false);
                break;
            case L'p': {
                // Microsoft prints a pointer as upper-case hex digits, zero-filled to its width.
                Directive pointer = directive;
                pointer.precision = static_cast<int>(sizeof(void*) * 2);
                const auto value = reinterpret_cast<uintptr_t>(va_arg(*args, void*));
                EmitInteger(sink, pointer, value, false, false, 16, true);
                break;
            }
            case L's':
                if (directive.narrowExplicit) {
                    EmitNarrowText(sink, directive, va_arg(*args, const char*));
                } else {
                    EmitWideText(sink, directive, va_arg(*args, const wchar_t*));
                }
                break;
            case L'S':
                if (directive.wideExplicit) {
                    EmitWideText(sink, directive, va_arg(*args, const wchar_t*));
                } else {
                    EmitNarrowText(sink, directive, va_arg(*args, const char*));
                }
                break;
            case L'c':
            case L'C': {
                const bool narrow =
                    conversion == L'C' ? !directive.wideExplicit : directive.narrowExplicit;
                const unsigned int raw = va_arg(*args, unsigned int);
                const wchar_t c = narrow ? static_cast<wchar_t>(static_cast<unsigned char>(raw))
                                         : static_cast<wchar_t>(raw);
                PadAndEmit(sink, directive, nullptr, 0, &c, 1, 0);
                break;
            }
            case L'f':
            case L'F':
            case L'e':
            case L'E':
            case L'g':
            case L'G':
            case L'a':
            case L'A':
                if (directive.size == Size::LongDouble) {
                    EmitFloating(sink, directive, conversion, va_arg(*args, long double), true);
                } else {
                    EmitFloating(sink, directive, conversion, va_arg(*args, double), false);
                }
                break;
            case L'n':
                // Writing through %n is refused, as the Microsoft runtime does by default.
                (void)va_arg(*args, void*);
                break;
            default:
                // Unknown conversion: written as it stands, no argument consumed.
                for (const wchar_t* q = directiveStart; q < p; ++q) {
                    sink.Put(*q);
                }
                break;
        }
    }
    return sink.Finish();
}

}  // namespace

size_t FormatWideV(wchar_t* out, size_t capacity, const wchar_t* format, va_list args) {
    WideSink sink(out, capacity);
    va_list copy;
    va_copy(copy, args);
    const size_t length = FormatInto(sink, format, &copy);
    va_end(copy);
    return length;
}

size_t FormatWide(wchar_t* out, size_t capacity, const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    const size_t length = FormatWideV(out, capacity, format, args);
    va_end(args);
    return length;
}

std::wstring FormatWideStringV(const wchar_t* format, va_list args) {
    wchar_t small[256];
    const size_t length = FormatWideV(small, 256, format, args);
    if (length < 256) {
        return std::wstring(small, length);
    }
    std::wstring text(length + 1, L'\0');
    FormatWideV(&text[0], text.size(), format, args);
    text.resize(length);
    return text;
}

std::wstring FormatWideString(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring text = FormatWideStringV(format, args);
    va_end(args);
    return text;
}

std::wstring AsLiteralFormat(const std::wstring& text) {
    std::wstring format;
    format.reserve(text.size());
    for (const wchar_t c : text) {
        format.push_back(c);
        if (c == L'%') {
            format.push_back(L'%');
        }
    }
    return format;
}
