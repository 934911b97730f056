// The entry point of every DLL of the simulated installation. The C++ runtime is linked into
// each DLL statically, and with it libstdc++'s emergency exception pool (74,752 bytes on the
// process heap, allocated when the DLL loads). Nothing frees that pool when the DLL is
// unloaded, so a host that loads and frees the installation's libraries once per session, as
// the library's wrapper does, would lose it at every session. It is released here when the DLL
// is freed; at process exit the pool goes with the process.

#include <windows.h>

#include <cstddef>  // defines __GLIBCXX__ under libstdc++

#if defined(__GLIBCXX__)
namespace __gnu_cxx {
void __freeres();  // libstdc++: releases the emergency exception pool
}
#endif

BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID reserved) {
#if defined(__GLIBCXX__)
    const bool freedByFreeLibrary = reason == DLL_PROCESS_DETACH && reserved == nullptr;
    if (freedByFreeLibrary) {
        __gnu_cxx::__freeres();
    }
#else
    (void)reason;
    (void)reserved;
#endif
    return TRUE;
}
