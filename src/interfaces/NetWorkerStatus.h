#pragma once
// 32-bit statuses in the HRESULT convention, and the Windows error numbers that travel
// through callbacks. A few positive Windows error numbers are statuses too, deliberately.

#include <stdint.h>

namespace NetWorkerStatus {
constexpr int32_t Success = 0;                              // S_OK
constexpr int32_t QuitDuringGetObject = 1;                  // S_FALSE: Quit hit BSAGetObject
constexpr int32_t EntryPointMissing = 1;                    // ERROR_INVALID_FUNCTION
constexpr int32_t PipeClosed = 109;                         // ERROR_BROKEN_PIPE, not an HRESULT
constexpr int32_t OpenFailed = 110;                         // ERROR_OPEN_FAILED
constexpr int32_t DllNotFound = 1157;                       // ERROR_DLL_NOT_FOUND
constexpr int32_t NoMatch = 1169;                           // ERROR_NO_MATCH
constexpr int32_t Cancelled = 1223;                         // ERROR_CANCELLED
constexpr int32_t FunctionFailed = 1627;                    // ERROR_FUNCTION_FAILED
constexpr int32_t Fail = static_cast<int32_t>(0x80004005);  // E_FAIL
constexpr int32_t AccessDenied = static_cast<int32_t>(0x80070005);     // E_ACCESSDENIED
constexpr int32_t InvalidHandle = static_cast<int32_t>(0x80070006);    // E_HANDLE
constexpr int32_t BadEnvironment = static_cast<int32_t>(0x8007000A);   // ERROR_BAD_ENVIRONMENT
constexpr int32_t InvalidArgument = static_cast<int32_t>(0x80070057);  // E_INVALIDARG
constexpr int32_t InsufficientBuffer =
    static_cast<int32_t>(0x8007007A);                                // ERROR_INSUFFICIENT_BUFFER
constexpr int32_t PipeNameTaken = static_cast<int32_t>(0x800700B7);  // ERROR_ALREADY_EXISTS
}  // namespace NetWorkerStatus

// Windows error numbers that reach the host through callbacks or the thread's last error.
namespace NetWorkerWinError {
constexpr uint32_t WriteFault = 29;   // ERROR_WRITE_FAULT: no better error for a failed create
constexpr uint32_t DiskFull = 112;    // ERROR_DISK_FULL: triggers the disk-full question
constexpr uint32_t Continue = 1246;   // ERROR_CONTINUE: the host freed space, retry the write
constexpr uint32_t Cancelled = 1223;  // ERROR_CANCELLED: an answer that ends the extraction
}  // namespace NetWorkerWinError

inline bool NetWorkerFailed(int32_t status) {
    return status < 0;
}
