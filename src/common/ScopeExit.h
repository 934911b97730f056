#pragma once
// Clean-up that runs on every way out of a scope: a normal return, a TarnError, a standard
// exception from a host's callback, anything else that unwinds, a Visual C++ exception from a
// host's callback included. Platform-neutral.
//
//     ScopeExit endTransaction([&] { m_wrapper->BSAEndTxn(m_handle); });
//     ...
//     endTransaction.RunNow();  // at its place on the normal path; not run again
//
// Run by the destructor, a clean-up that throws is dropped: it must not replace the exception
// that is leaving the scope. Where its failure must be seen, call RunNow(), which lets it
// through.

#include <utility>

#include "ForeignUnwind.h"

// Registered for a foreign unwind (ForeignUnwind.h): a Visual C++ exception from a host's
// callback runs the clean-up too, once.
template <typename CleanUp>
class ScopeExit final : private ForeignUnwindCleanup {
public:
    explicit ScopeExit(CleanUp cleanUp) : m_cleanUp(std::move(cleanUp)) {}

    ~ScopeExit() {
        if (!m_armed) {
            return;
        }
        try {
            m_cleanUp();
        } catch (...) {
            // Dropped: see above.
        }
    }

    ScopeExit(const ScopeExit&) = delete;
    ScopeExit& operator=(const ScopeExit&) = delete;

    // Runs the clean-up now, once; the end of the scope then does nothing.
    void RunNow() {
        if (m_armed) {
            m_armed = false;
            m_cleanUp();
        }
    }

    // The clean-up is not needed any more.
    void Dismiss() { m_armed = false; }

private:
    void RunForForeignUnwind() override { RunNow(); }

    CleanUp m_cleanUp;
    bool m_armed = true;
};
