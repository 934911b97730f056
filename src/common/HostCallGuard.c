/*
 * The one frame between the library and a host's code, compiled by clang for the Visual C++ ABI
 * (an SEH frame that any exception's unwinding honours): when a structured exception that our
 * own compiler did not raise (a Visual C++ C++ exception, above all) leaves the host's code, it
 * runs the library's foreign-unwind clean-ups on its way through, and lets it go on unchanged.
 * No headers: nothing of a C runtime is needed.
 */

typedef void (*NwxHostCall)(void* context);
typedef void (*NwxForeignUnwind)(void);

/* What GCC's own C++ exceptions are raised with ("GCC" and a marker byte). */
#define NWX_GCC_EXCEPTION_CODE 0x20474343ul
#define NWX_EXCEPTION_CONTINUE_SEARCH 0

static int NwxNoteExceptionCode(unsigned long code, volatile unsigned long* noted) {
    *noted = code;
    return NWX_EXCEPTION_CONTINUE_SEARCH;
}

void NwxCallHostGuarded(NwxHostCall call, void* context, NwxForeignUnwind onForeignUnwind) {
    /* Noted while the exception is looked for a handler (it never is here), read while it
       unwinds this frame. */
    volatile unsigned long code = 0;
    __try {
        __try {
            call(context);
        } __except (NwxNoteExceptionCode(_exception_code(), &code)) {
            /* Not reached: the filter never takes the exception. */
        }
    } __finally {
        if (_abnormal_termination() && code != NWX_GCC_EXCEPTION_CODE) {
            onForeignUnwind();
        }
    }
}
