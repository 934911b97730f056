#pragma once
// What the Visual C++-ABI test programs (msvc_host.exe and the stand-in logging library) need
// instead of a C runtime: they are compiled by clang for x86_64-pc-windows-msvc, linked by
// lld-link against kernel32 and ntdll only, and start at an entry point of their own. The few
// Windows declarations are written out here because the programs are built without any Windows
// or MinGW header, exactly like a host that includes nothing but the SDK header.

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "interfaces/InterfaceAbi.h"

extern "C" {
typedef void* HANDLE;
typedef uint32_t DWORD;
typedef int BOOL;

struct STARTUPINFOW {
    DWORD cb;
    wchar_t* lpReserved;
    wchar_t* lpDesktop;
    wchar_t* lpTitle;
    DWORD dwX;
    DWORD dwY;
    DWORD dwXSize;
    DWORD dwYSize;
    DWORD dwXCountChars;
    DWORD dwYCountChars;
    DWORD dwFillAttribute;
    DWORD dwFlags;
    uint16_t wShowWindow;
    uint16_t cbReserved2;
    unsigned char* lpReserved2;
    HANDLE hStdInput;
    HANDLE hStdOutput;
    HANDLE hStdError;
};
static_assert(sizeof(STARTUPINFOW) == 104, "STARTUPINFOW layout");

struct PROCESS_INFORMATION {
    HANDLE hProcess;
    HANDLE hThread;
    DWORD dwProcessId;
    DWORD dwThreadId;
};
static_assert(sizeof(PROCESS_INFORMATION) == 24, "PROCESS_INFORMATION layout");

__declspec(dllimport) HANDLE GetStdHandle(DWORD which);
__declspec(dllimport) BOOL
    WriteFile(HANDLE file, const void* data, DWORD size, DWORD* written, void* overlapped);
__declspec(dllimport) HANDLE
    CreateFileW(const wchar_t* name, DWORD access, DWORD share, void* security, DWORD disposition,
                DWORD flags, HANDLE templateFile);
__declspec(dllimport) BOOL CloseHandle(HANDLE handle);
__declspec(dllimport) HANDLE CreateMutexW(void* security, BOOL initialOwner, const wchar_t* name);
__declspec(dllimport) BOOL ReleaseMutex(HANDLE mutex);
__declspec(dllimport) DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
__declspec(dllimport) __declspec(noreturn) void ExitProcess(unsigned int code);
__declspec(dllimport) const wchar_t* GetCommandLineW();
__declspec(dllimport) HANDLE GetProcessHeap();
__declspec(dllimport) void* HeapAlloc(HANDLE heap, DWORD flags, size_t size);
__declspec(dllimport) BOOL HeapFree(HANDLE heap, DWORD flags, void* memory);
__declspec(dllimport) BOOL HeapValidate(HANDLE heap, DWORD flags, const void* memory);
__declspec(dllimport) DWORD GetModuleFileNameW(HANDLE module, wchar_t* name, DWORD size);
__declspec(dllimport) DWORD
    GetEnvironmentVariableW(const wchar_t* name, wchar_t* value, DWORD size);
__declspec(dllimport) BOOL
    CreateProcessW(const wchar_t* application, wchar_t* commandLine, void* processSecurity,
                   void* threadSecurity, BOOL inheritHandles, DWORD flags, void* environment,
                   const wchar_t* directory, STARTUPINFOW* startup, PROCESS_INFORMATION* process);
__declspec(dllimport) BOOL WaitNamedPipeW(const wchar_t* name, DWORD timeout);
__declspec(dllimport) DWORD GetLastError();
__declspec(dllimport) DWORD GetCurrentProcessId();
__declspec(dllimport) int WideCharToMultiByte(unsigned int codePage, DWORD flags,
                                              const wchar_t* wide, int wideLength, char* narrow,
                                              int narrowLength, const char* defaultChar,
                                              BOOL* usedDefault);
// ntdll's printf family follows the Microsoft convention: in the wide functions %s is a wide
// string and %S a narrow one.
__declspec(dllimport) int _vsnprintf(char* buffer, size_t count, const char* format, va_list args);
__declspec(dllimport) int _vsnwprintf(wchar_t* buffer, size_t count, const wchar_t* format,
                                      va_list args);

// What the compiler may call on its own.
int _purecall();
void* memset(void* destination, int value, size_t count);
void* memcpy(void* destination, const void* source, size_t count);
}

namespace msvcrt {

constexpr DWORD StdOutput = static_cast<DWORD>(-11);
constexpr DWORD GenericWrite = 0x40000000;
constexpr DWORD FileAppendData = 0x0004;
constexpr DWORD ShareReadWrite = 0x00000003;
constexpr DWORD OpenAlways = 4;
constexpr DWORD Infinite = 0xFFFFFFFF;
constexpr DWORD Utf8CodePage = 65001;
inline HANDLE InvalidHandle() {
    return reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1));
}

// printf-style line to standard output (Microsoft conventions: %s narrow, %S wide, %I64u).
void Print(const char* format, ...);
// Appends one UTF-8 line, written with a single WriteFile, to the file (shared between
// processes: host and helper append to the same file).
void AppendLine(const wchar_t* path, const char* line, size_t length);

size_t WideLength(const wchar_t* text);
bool WideEquals(const wchar_t* left, const wchar_t* right);
bool NarrowEquals(const char* left, const char* right);
// Copies at most capacity-1 characters and terminates.
void WideCopy(wchar_t* destination, size_t capacity, const wchar_t* source);
void WideAppend(wchar_t* destination, size_t capacity, const wchar_t* source);
// The directory of the running program, without a trailing separator.
void ProgramDirectory(wchar_t* directory, size_t capacity);

// The program's arguments (the program name is argument 0); whitespace-separated, with double
// quotes grouping. Returns how many were found, at most capacity.
int SplitCommandLine(wchar_t* buffer, size_t bufferCapacity, wchar_t** arguments, int capacity);

// "<prefix><process id * 1000 + number>": a pipe name no other process and no other session of
// this process uses.
void UniquePipeName(wchar_t* name, size_t capacity, const wchar_t* prefix, uint32_t number);
// Starts NetWorker64BitClient.exe from this program's directory with the bare pipe name as its
// command line, as a host's own launcher does; false (last error set) when it cannot start.
bool StartHelperBesideProgram(const wchar_t* pipeName);

}  // namespace msvcrt
