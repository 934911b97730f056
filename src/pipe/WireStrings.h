#pragma once
// Copies between the caller's strings and the fixed string fields of the pipe messages.
// Narrow fields hold 8-bit text, wide fields UTF-16 code units; both are zero-terminated with
// every unused element zero. A string that does not fit with its terminator is refused with
// std::length_error instead of being truncated. Platform-neutral: natively wchar_t is UTF-32
// and is converted, surrogate pairs included.

#include <cstddef>
#include <string>

#include "PipeMessages.h"

// Zero-fills field[0..capacity) and copies text with its terminator. Throws
// std::invalid_argument for a null text and std::length_error when text has capacity or more
// characters. fieldName is used in the exception text.
void CopyNarrowToField(const char* text, char* field, size_t capacity, const char* fieldName);

// Number of UTF-16 units text takes on the wire (surrogate pairs count two). Throws
// std::invalid_argument natively for a value that is not a Unicode scalar value.
size_t WideWireLength(const wchar_t* text);

// Zero-fills the capacity units at field (byte address, any alignment) and writes text as
// UTF-16 with its terminator. Throws std::invalid_argument for a null text or an invalid code
// point and std::length_error when text needs capacity or more UTF-16 units.
void CopyWideToField(const wchar_t* text, void* field, size_t capacity, const char* fieldName);

// Units before the terminator in the capacity units at field, or capacity when none.
size_t WideFieldLength(const void* field, size_t capacity);

// The text of a wide field (up to its terminator or capacity units) as a wchar_t string.
// Surrogate pairs are combined natively; a lone surrogate is kept as its own value.
std::wstring WideFieldToString(const void* field, size_t capacity);
