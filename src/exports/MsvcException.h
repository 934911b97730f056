#pragma once
// Raising a genuine Visual C++ C++ exception from GCC-built code, so that a host built by Visual
// C++ catches what the library lets out (a refused time window, a broken pipe) with its own
// catch clauses: by reference, by value or with `...`, as std::invalid_argument,
// std::logic_error, std::runtime_error, std::bad_alloc or std::exception. Visual C++ matches a
// catch clause by the name in the type descriptor, so the library's own descriptors, built here
// by hand, are those of the host's standard library types. Windows only.

#include <cstddef>

enum class MsvcExceptionType {
    Exception,        // std::exception
    LogicError,       // std::logic_error : std::exception
    InvalidArgument,  // std::invalid_argument : std::logic_error
    RuntimeError,     // std::runtime_error : std::exception
    BadAlloc,         // std::bad_alloc : std::exception
};

// What is to be raised, captured inside a GCC catch block and raised after it has ended, so
// that no GCC exception is still being handled while the Visual C++ one unwinds. Trivially
// destructible: nothing of it needs a destructor that the raise would skip.
struct PendingMsvcException {
    static constexpr size_t kTextCapacity = 512;  // longer texts are cut, terminator included

    MsvcExceptionType type = MsvcExceptionType::Exception;
    char text[kTextCapacity] = {};

    // `text` may be null (then the standard library's own text for the type).
    static PendingMsvcException Of(MsvcExceptionType type, const char* text);
};

// Raises the exception as Visual C++'s `throw` does (0xE06D7363 with the x64 throw information
// of this DLL). The exception object lives on the raising frame, as a Visual C++ `throw` keeps
// it, until the host's last handler has ended; it owns nothing, and its text lies in a pool that
// is never freed, so a copy the host keeps with std::exception_ptr stays valid on any thread for
// as long as the host keeps it.
[[noreturn]] void RaiseMsvcException(const PendingMsvcException& pending);
