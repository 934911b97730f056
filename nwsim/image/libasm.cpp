// libasm.dll of the simulated installation. The library only loads it (in its fixed order); it
// has no entry point that anyone calls, so it carries just its name for inspection.

extern "C" const char* nwsim_library_name() {
    return "libasm.dll";
}
