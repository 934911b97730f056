// Not part of the DLL: the build compiles this table only to read the GCC names of the
// functions that the Visual C++ names of the exports are bound to (cmake/msvc-export-names.sh).
// Its order is that of ExportAnchors.cpp, entry for entry.

#include "exports/MsvcHostFactories.h"

using PipeExecutorWithBuiltInLauncher = bool (*)(INetWorkerExecutor**, const wchar_t*,
                                                 INamedPipeConnection*);
using PipeExecutorWithLauncher = bool (*)(INetWorkerExecutor**, const wchar_t*,
                                          INamedPipeConnection*, long (*)(const wchar_t*));

extern "C" const void* const nwx_msvc_host_anchors[] = {
    reinterpret_cast<const void*>(&msvc_host::AllocateNamedPipeConnection),
    reinterpret_cast<const void*>(&msvc_host::AllocateNetWorkerApiExecutor),
    reinterpret_cast<const void*>(&msvc_host::AllocateNetWorkerApiWrapper),
    reinterpret_cast<const void*>(&msvc_host::AllocateNetWorkerNamedPipeClient),
    reinterpret_cast<const void*>(static_cast<PipeExecutorWithBuiltInLauncher>(
        &msvc_host::AllocateNetWorkerNamedPipeExecutor)),
    reinterpret_cast<const void*>(
        static_cast<PipeExecutorWithLauncher>(&msvc_host::AllocateNetWorkerNamedPipeExecutor)),
    reinterpret_cast<const void*>(&FreeNamedPipeConnection),
    reinterpret_cast<const void*>(&FreeNetWorkerApiWrapper),
    reinterpret_cast<const void*>(&FreeNetWorkerExecutor),
    reinterpret_cast<const void*>(&FreeNetWorkerNamedPipeClient),
};
