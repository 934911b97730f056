#pragma once
// Owners of Win32 handles: UniqueResource (UniqueResource.h) with the traits of each kind.

#ifndef _WIN32
#error "UniqueHandle.h is Windows-only"
#endif

#include <windows.h>

#include "UniqueResource.h"

struct KernelHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle h) { return h != nullptr && h != INVALID_HANDLE_VALUE; }
    static void Close(Handle h) { ::CloseHandle(h); }
};

// For handles whose "none" value is INVALID_HANDLE_VALUE (files, pipes from CreateFileW).
struct FileHandleTraits {
    using Handle = HANDLE;
    static Handle Invalid() { return INVALID_HANDLE_VALUE; }
    static bool IsValid(Handle h) { return h != nullptr && h != INVALID_HANDLE_VALUE; }
    static void Close(Handle h) { ::CloseHandle(h); }
};

struct ServiceHandleTraits {
    using Handle = SC_HANDLE;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle h) { return h != nullptr; }
    static void Close(Handle h) { ::CloseServiceHandle(h); }
};

struct ModuleHandleTraits {
    using Handle = HMODULE;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle h) { return h != nullptr; }
    static void Close(Handle h) { ::FreeLibrary(h); }
};

// Memory that Windows allocated for the caller with LocalAlloc (SID strings, descriptors).
struct LocalMemoryTraits {
    using Handle = HLOCAL;
    static Handle Invalid() { return nullptr; }
    static bool IsValid(Handle memory) { return memory != nullptr; }
    static void Close(Handle memory) { ::LocalFree(memory); }
};

using UniqueHandle = UniqueResource<KernelHandleTraits>;
using UniqueFileHandle = UniqueResource<FileHandleTraits>;
using UniqueServiceHandle = UniqueResource<ServiceHandleTraits>;
using UniqueModule = UniqueResource<ModuleHandleTraits>;
using UniqueLocalMemory = UniqueResource<LocalMemoryTraits>;
