#pragma once
// Every call from the library into a host's code (its callbacks, its launcher, its wrapper)
// goes through CallHost. On Windows the call runs inside a frame compiled for the Visual C++
// ABI (HostCallGuard.c): when an exception that GCC's unwinding cannot see (a Visual C++ C++
// exception, or any other structured exception but GCC's own) leaves the host's code, the frame
// runs the library's registered clean-ups (ForeignUnwind.h) and lets the exception go on to the
// host unchanged. GCC's own exceptions pass as they always did, through the destructors.
// Elsewhere (the native build) it is a plain call. Costs one indirect call when nothing is thrown.

#include <type_traits>
#include <utility>

#include "ForeignUnwind.h"

#if defined(_WIN32)
extern "C" void NwxCallHostGuarded(void (*call)(void* context), void* context,
                                   void (*onForeignUnwind)());

namespace host_call_detail {

template <typename Call, typename Result>
struct Context {
    Call* call = nullptr;
    Result result{};
};

template <typename Call>
struct Context<Call, void> {
    Call* call = nullptr;
};

template <typename Call, typename Result>
void Invoke(void* raw) {
    auto* context = static_cast<Context<Call, Result>*>(raw);
    if constexpr (std::is_void_v<Result>) {
        (*context->call)();
    } else {
        context->result = (*context->call)();
    }
}

}  // namespace host_call_detail

template <typename Call>
auto CallHost(Call&& call) -> decltype(call()) {
    using Plain = std::remove_reference_t<Call>;
    using Result = decltype(call());
    host_call_detail::Context<Plain, Result> context;
    context.call = &call;
    NwxCallHostGuarded(&host_call_detail::Invoke<Plain, Result>, &context,
                       &ForeignUnwindCleanup::RunAllForForeignUnwind);
    if constexpr (!std::is_void_v<Result>) {
        return context.result;
    }
}
#else
template <typename Call>
auto CallHost(Call&& call) -> decltype(call()) {
    return call();
}
#endif
