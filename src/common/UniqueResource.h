#pragma once
// The one owner of everything the code holds and must give back: kernel, service and module
// handles (UniqueHandle.h), loggers (UniqueLogger.h), the library's objects in the helper
// program. One owner per resource, closed exactly once, by the owner.
//
// Closing keeps the thread's last error, so a failure may be cleaned up before its error
// number is read. release() hands the resource to a new owner and must be used; a resource
// that is kept open for good on purpose is given up with LeakOnPurpose() at the place that
// keeps it, and docs/compatibility.md lists those places. Platform-neutral.
//
// Traits: `Handle`, `static Handle Invalid()`, `static bool IsValid(Handle)`,
// `static void Close(Handle)`.

#include <utility>

#include "LastError.h"

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

    // Address for APIs that return a resource through an out-parameter; closes the old one.
    Handle* put() {
        reset();
        return &m_handle;
    }

    // Closes the resource held (keeping the thread's last error) and holds `handle` instead.
    void reset(Handle handle = Traits::Invalid()) {
        if (Traits::IsValid(m_handle)) {
            const LastErrorKeeper keeper;
            Traits::Close(m_handle);
        }
        m_handle = handle;
    }

    // Gives the resource to a new owner; this one then holds nothing.
    [[nodiscard]] Handle release() { return std::exchange(m_handle, Traits::Invalid()); }

private:
    Handle m_handle = Traits::Invalid();
};

// Gives up a resource that is kept open on purpose (never closed by anyone): the one way the
// code spells a deliberate leak. Returns the resource for the caller's further use.
template <typename Traits>
typename Traits::Handle LeakOnPurpose(UniqueResource<Traits>& owner) {
    return owner.release();
}
