#include "ForeignUnwind.h"

#if defined(_WIN32)
#include <windows.h>
#include <winternl.h>
#endif

namespace {

#if defined(_WIN32)
// The running thread's environment block. GCC 12 warns about NtCurrentTeb's segment read as an
// out-of-bounds access, so GCC reads gs:0x30 (NT_TIB::Self) itself.
TEB* CurrentThreadBlock() {
#if defined(__GNUC__)
    TEB* block = nullptr;
    __asm__("movq %%gs:0x30, %0" : "=r"(block));
    return block;
#else
    return NtCurrentTeb();
#endif
}

// The thread's innermost clean-up, in a Windows TLS slot read and written in the thread's
// environment block. Every traced method reads it twice: GCC's thread_local goes through
// emulated TLS here, about twenty times slower, and TlsGetValue would overwrite the thread's
// last error, which callers read after a failed call with traced helpers in between.
class InnermostSlot {
public:
    InnermostSlot() : m_index(TlsAlloc()) {}
    ~InnermostSlot() {
        if (m_index != TLS_OUT_OF_INDEXES) {
            TlsFree(m_index);
        }
    }
    InnermostSlot(const InnermostSlot&) = delete;
    InnermostSlot& operator=(const InnermostSlot&) = delete;

    ForeignUnwindCleanup* Get() const {
        if (m_index < kDirectSlots) {
            return static_cast<ForeignUnwindCleanup*>(CurrentThreadBlock()->TlsSlots[m_index]);
        }
        const DWORD lastError = GetLastError();
        void* value = TlsGetValue(m_index);
        SetLastError(lastError);
        return static_cast<ForeignUnwindCleanup*>(value);
    }
    void Set(ForeignUnwindCleanup* cleanup) const {
        if (m_index < kDirectSlots) {
            CurrentThreadBlock()->TlsSlots[m_index] = cleanup;
            return;
        }
        const DWORD lastError = GetLastError();
        TlsSetValue(m_index, cleanup);
        SetLastError(lastError);
    }

private:
    static constexpr DWORD kDirectSlots = 64;  // TLS_MINIMUM_AVAILABLE: in the block itself
    DWORD m_index;
};
#else
class InnermostSlot {
public:
    ForeignUnwindCleanup* Get() const { return t_innermost; }
    void Set(ForeignUnwindCleanup* cleanup) const { t_innermost = cleanup; }

private:
    static thread_local ForeignUnwindCleanup* t_innermost;
};
thread_local ForeignUnwindCleanup* InnermostSlot::t_innermost = nullptr;
#endif

const InnermostSlot& Innermost() {
    static const InnermostSlot slot;
    return slot;
}

}  // namespace

ForeignUnwindCleanup::ForeignUnwindCleanup() {
    const InnermostSlot& innermost = Innermost();
    m_outer = innermost.Get();
    innermost.Set(this);
}

ForeignUnwindCleanup::~ForeignUnwindCleanup() {
    if (m_registered) {
        // Objects on the stack end in reverse order of their making: this is the innermost.
        Innermost().Set(m_outer);
    }
}

void ForeignUnwindCleanup::RunAllForForeignUnwind() {
    const InnermostSlot& innermost = Innermost();
    while (ForeignUnwindCleanup* cleanup = innermost.Get()) {
        // Unregistered first: what the clean-up registers while it runs stacks above its outer.
        innermost.Set(cleanup->m_outer);
        cleanup->m_registered = false;
        if (cleanup->IsBoundary()) {
            return;
        }
        try {
            cleanup->RunForForeignUnwind();
        } catch (...) {
            // Dropped: the exception on its way to the host is the one that counts.
        }
    }
}

int ForeignUnwindCleanup::RegisteredOnThisThread() {
    int count = 0;
    for (const ForeignUnwindCleanup* cleanup = Innermost().Get(); cleanup != nullptr;
         cleanup = cleanup->m_outer) {
        ++count;
    }
    return count;
}
