#include "MsvcRuntime.h"

extern "C" {

int _purecall() {
    msvcrt::Print("pure virtual call\n");
    ExitProcess(90);
}

// Plain loops: compiled freestanding, so the compiler does not turn them back into calls.
void* memset(void* destination, int value, size_t count) {
    auto* bytes = static_cast<unsigned char*>(destination);
    for (size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<unsigned char>(value);
    }
    return destination;
}

void* memcpy(void* destination, const void* source, size_t count) {
    auto* to = static_cast<unsigned char*>(destination);
    const auto* from = static_cast<const unsigned char*>(source);
    for (size_t i = 0; i < count; ++i) {
        to[i] = from[i];
    }
    return destination;
}
}

// The program's own objects live on the process heap. Objects of NetWorkerXbsa.dll never come
// here: a `delete` of one runs the library's deleting destructor at slot 0, which frees it on
// the library's own heap.
void* operator new(size_t size) {
    void* memory = HeapAlloc(GetProcessHeap(), 0, size == 0 ? 1 : size);
    if (memory == nullptr) {
        msvcrt::Print("out of memory\n");
        ExitProcess(91);
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    if (memory != nullptr) {
        HeapFree(GetProcessHeap(), 0, memory);
    }
}

void operator delete(void* memory, size_t) noexcept {
    operator delete(memory);
}

namespace msvcrt {

void Print(const char* format, ...) {
    char line[2048];
    va_list args;
    va_start(args, format);
    int length = _vsnprintf(line, sizeof line - 1, format, args);
    va_end(args);
    if (length < 0) {
        length = static_cast<int>(sizeof line - 1);
    }
    DWORD written = 0;
    WriteFile(GetStdHandle(StdOutput), line, static_cast<DWORD>(length), &written, nullptr);
}

void AppendLine(const wchar_t* path, const char* line, size_t length) {
    // Under Wine two processes appending to one file at once can overwrite each other's line
    // (TarnLog guards its files the same way): the host and its helper append one at a time.
    HANDLE turn = CreateMutexW(nullptr, 0, L"nwx-msvc-test-log-append");
    if (turn != nullptr) {
        WaitForSingleObject(turn, Infinite);
    }
    HANDLE file =
        CreateFileW(path, FileAppendData, ShareReadWrite, nullptr, OpenAlways, 0, nullptr);
    if (file != InvalidHandle()) {
        DWORD written = 0;
        WriteFile(file, line, static_cast<DWORD>(length), &written, nullptr);
        CloseHandle(file);
    }
    if (turn != nullptr) {
        ReleaseMutex(turn);
        CloseHandle(turn);
    }
}

size_t WideLength(const wchar_t* text) {
    size_t length = 0;
    while (text[length] != 0) {
        ++length;
    }
    return length;
}

bool WideEquals(const wchar_t* left, const wchar_t* right) {
    size_t i = 0;
    for (; left[i] != 0 && left[i] == right[i]; ++i) {
    }
    return left[i] == right[i];
}

bool NarrowEquals(const char* left, const char* right) {
    size_t i = 0;
    for (; left[i] != 0 && left[i] == right[i]; ++i) {
    }
    return left[i] == right[i];
}

void WideCopy(wchar_t* destination, size_t capacity, const wchar_t* source) {
    size_t i = 0;
    for (; i + 1 < capacity && source[i] != 0; ++i) {
        destination[i] = source[i];
    }
    destination[i] = 0;
}

void WideAppend(wchar_t* destination, size_t capacity, const wchar_t* source) {
    const size_t used = WideLength(destination);
    if (used < capacity) {
        WideCopy(destination + used, capacity - used, source);
    }
}

void ProgramDirectory(wchar_t* directory, size_t capacity) {
    const DWORD length = GetModuleFileNameW(nullptr, directory, static_cast<DWORD>(capacity));
    size_t end = length;
    while (end > 0 && directory[end - 1] != L'\\' && directory[end - 1] != L'/') {
        --end;
    }
    directory[end > 0 ? end - 1 : 0] = 0;
}

int SplitCommandLine(wchar_t* buffer, size_t bufferCapacity, wchar_t** arguments, int capacity) {
    WideCopy(buffer, bufferCapacity, GetCommandLineW());
    int count = 0;
    wchar_t* read = buffer;
    while (*read != 0 && count < capacity) {
        while (*read == L' ' || *read == L'\t') {
            ++read;
        }
        if (*read == 0) {
            break;
        }
        wchar_t* write = read;
        arguments[count++] = write;
        bool quoted = false;
        while (*read != 0 && (quoted || (*read != L' ' && *read != L'\t'))) {
            if (*read == L'"') {
                quoted = !quoted;
            } else {
                *write++ = *read;
            }
            ++read;
        }
        const bool atEnd = *read == 0;
        *write = 0;
        if (!atEnd) {
            ++read;
        }
    }
    return count;
}

void UniquePipeName(wchar_t* name, size_t capacity, const wchar_t* prefix, uint32_t number) {
    wchar_t digits[24];
    uint64_t value = static_cast<uint64_t>(GetCurrentProcessId()) * 1000 + number;
    size_t count = 0;
    do {
        digits[count++] = static_cast<wchar_t>(L'0' + value % 10);
        value /= 10;
    } while (value != 0 && count < 23);
    WideCopy(name, capacity, prefix);
    size_t used = WideLength(name);
    while (count > 0 && used + 1 < capacity) {
        name[used++] = digits[--count];
    }
    name[used] = 0;
}

bool StartHelperBesideProgram(const wchar_t* pipeName) {
    wchar_t program[520];
    ProgramDirectory(program, 520);
    WideAppend(program, 520, L"\\NetWorker64BitClient.exe");
    wchar_t commandLine[256];
    WideCopy(commandLine, 256, pipeName);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(program, commandLine, nullptr, nullptr, 0, 0, nullptr, nullptr, &startup,
                        &process)) {
        return false;
    }
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return true;
}

}  // namespace msvcrt
