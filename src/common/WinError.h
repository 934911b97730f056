#pragma once
// Windows error numbers that platform-neutral code (and its tests) must name, with the
// Windows names they stand for. Statuses and the numbers that reach the host are in
// interfaces/NetWorkerStatus.h.

#include <cstdint>

namespace WinError {
constexpr uint32_t FileNotFound = 2;          // ERROR_FILE_NOT_FOUND
constexpr uint32_t PathNotFound = 3;          // ERROR_PATH_NOT_FOUND
constexpr uint32_t AccessDenied = 5;          // ERROR_ACCESS_DENIED
constexpr uint32_t SharingViolation = 32;     // ERROR_SHARING_VIOLATION
constexpr uint32_t NotSupported = 50;         // ERROR_NOT_SUPPORTED
constexpr uint32_t AlreadyExists = 183;       // ERROR_ALREADY_EXISTS
constexpr uint32_t FilenameExcedRange = 206;  // ERROR_FILENAME_EXCED_RANGE
}  // namespace WinError

// True for a status that HRESULT_FROM_WIN32 made from a Windows error number; that number is
// the status's low 16 bits.
constexpr bool IsHResultFromWin32(int32_t status) {
    return (static_cast<uint32_t>(status) & 0xFFFF0000u) == 0x80070000u;
}
