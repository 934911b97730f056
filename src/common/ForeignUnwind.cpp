#include "ForeignUnwind.h"

namespace {

thread_local ForeignUnwindCleanup* t_innermost = nullptr;
thread_local int t_registered = 0;

}  // namespace

ForeignUnwindCleanup::ForeignUnwindCleanup() : m_outer(t_innermost) {
    t_innermost = this;
    ++t_registered;
}

ForeignUnwindCleanup::~ForeignUnwindCleanup() {
    if (m_registered) {
        // Objects on the stack end in reverse order of their making: this is the innermost.
        t_innermost = m_outer;
        --t_registered;
    }
}

void ForeignUnwindCleanup::RunAllForForeignUnwind() {
    while (ForeignUnwindCleanup* cleanup = t_innermost) {
        // Unregistered first: what the clean-up registers while it runs stacks above its outer.
        t_innermost = cleanup->m_outer;
        cleanup->m_registered = false;
        --t_registered;
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
    return t_registered;
}
