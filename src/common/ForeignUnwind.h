#pragma once
// Clean-up for exceptions that our own compiler's unwinding does not see. A Visual C++ C++
// exception thrown by a host's callback passes through the library's GCC-built frames without
// running one of their destructors, on its way back to the host. So every clean-up that must
// run on the way out (ScopeExit, the method tracer's "Method End", the pipe executor's
// abandoned conversation) registers itself on this thread while it is armed, and the guard
// around every call into the host (HostCallGuard.h) runs the registered ones, innermost first,
// when such an exception leaves the host's code. An exception of our own compiler unwinds as
// always, through the destructors. Platform-neutral.

class ForeignUnwindCleanup {
public:
    ForeignUnwindCleanup(const ForeignUnwindCleanup&) = delete;
    ForeignUnwindCleanup& operator=(const ForeignUnwindCleanup&) = delete;

    // Runs every clean-up registered on this thread since the innermost ForeignUnwindBoundary,
    // innermost first, and forgets them and that boundary: their frames are being unwound and
    // their destructors will not run. A clean-up that throws is dropped, as a destructor's is.
    static void RunAllForForeignUnwind();
    // How many clean-ups this thread has registered (tests).
    static int RegisteredOnThisThread();

protected:
    ForeignUnwindCleanup();   // registers on this thread
    ~ForeignUnwindCleanup();  // unregisters, unless already run for a foreign unwind

    // Runs the clean-up as its owner's destructor would while an exception passes.
    virtual void RunForForeignUnwind() = 0;
    virtual bool IsBoundary() const { return false; }

private:
    ForeignUnwindCleanup* m_outer = nullptr;
    bool m_registered = true;
};

// Where a host's call entered the library on this thread: a foreign unwind runs the clean-ups
// registered after it and ends there, so that a host that calls the library from inside one of
// its callbacks, and catches what that inner call lets out, keeps the outer call's clean-ups.
class ForeignUnwindBoundary final : public ForeignUnwindCleanup {
public:
    ForeignUnwindBoundary() = default;
    ~ForeignUnwindBoundary() = default;

private:
    void RunForForeignUnwind() override {}
    bool IsBoundary() const override { return true; }
};
