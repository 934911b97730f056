#pragma once
// Clean-up that runs on every way out of a scope: a normal return, a TarnError, a standard
// exception from a host's callback, anything else that unwinds. Platform-neutral.
//
//     ScopeExit endTransaction([&] { m_wrapper->BSAEndTxn(m_handle); });
//     ...
//     endTransaction.RunNow();  // at its place on the normal path; not run again
//
// The clean-up must not replace an exception in flight: if it throws while the scope is being
// left by an exception, its own exception is dropped and the first one goes on to the caller.
// On the normal path (RunNow or an ordinary end of scope outside any unwinding) a throwing
// clean-up is reported like any other failure at that place.

#include <exception>
#include <utility>

template <typename CleanUp>
class ScopeExit {
public:
    explicit ScopeExit(CleanUp cleanUp)
        : m_cleanUp(std::move(cleanUp)), m_uncaughtAtEntry(std::uncaught_exceptions()) {}

    ~ScopeExit() noexcept(false) {
        if (!m_armed) {
            return;
        }
        m_armed = false;
        if (std::uncaught_exceptions() > m_uncaughtAtEntry) {
            try {
                m_cleanUp();
            } catch (...) {
                // The exception that is leaving the scope is the one the caller must see.
            }
            return;
        }
        m_cleanUp();
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
    CleanUp m_cleanUp;
    int m_uncaughtAtEntry;
    bool m_armed = true;
};
