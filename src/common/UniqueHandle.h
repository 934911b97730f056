#pragma once
// RAII owners of Win32 handles: one owner per handle, closed exactly once.
// A deliberately kept handle is given up with release() at the place that keeps it.

#ifndef _WIN32
#error "UniqueHandle.h is Windows-only"
#endif

#include <windows.h>

#include <utility>

template <typename Traits>
class UniqueResource {
public:
    using Handle = typename Traits::Handle;

    UniqueResource() = default;
    explicit UniqueResource(Handle handle) : m_handle(handle) {}
    ~UniqueResource() { reset(); }

    UniqueResource(UniqueResource&& other) noexcept : m_handle(other.release()) {}
    UniqueResource& operator=(UniqueResource&& other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    UniqueResource(const UniqueResource&) = delete;
    UniqueResource& operator=(const UniqueResource&) = delete;

    bool valid() const { return Traits::IsValid(m_handle); }
    explicit operator bool() const { return valid(); }
    Handle get() const { return m_handle; }

    // Address for APIs that return a handle through an out-parameter; closes the old one.
    Handle* put() {
        reset();
        return &m_handle;
    }

    void reset(Handle handle = Traits::Invalid()) {
        if (Traits::IsValid(m_handle)) {
            Traits::Close(m_handle);
        }
        m_handle = handle;
    }

    Handle release() { return std::exchange(m_handle, Traits::Invalid()); }

private:
    Handle m_handle = Traits::Invalid();
};

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

using UniqueHandle = UniqueResource<KernelHandleTraits>;
using UniqueFileHandle = UniqueResource<FileHandleTraits>;
using UniqueServiceHandle = UniqueResource<ServiceHandleTraits>;
using UniqueModule = UniqueResource<ModuleHandleTraits>;
