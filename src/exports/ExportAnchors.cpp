// Not part of the DLL: the build compiles this table only to read the decorated names of the ten
// exported functions, as Visual C++ and as GCC mangle them (cmake/msvc-export-names.sh). Every
// entry names one declaration of NetWorkerXbsa.h, so a changed signature changes the names with
// it, or fails to compile here.

#include "exports/NetWorkerXbsa.h"

using PipeExecutorWithBuiltInLauncher = bool (*)(INetWorkerExecutor**, const wchar_t*,
                                                 INamedPipeConnection*);
using PipeExecutorWithLauncher = bool (*)(INetWorkerExecutor**, const wchar_t*,
                                          INamedPipeConnection*, long (*)(const wchar_t*));

extern "C" const void* const nwx_export_anchors[] = {
    reinterpret_cast<const void*>(&AllocateNamedPipeConnection),
    reinterpret_cast<const void*>(&AllocateNetWorkerApiExecutor),
    reinterpret_cast<const void*>(&AllocateNetWorkerApiWrapper),
    reinterpret_cast<const void*>(&AllocateNetWorkerNamedPipeClient),
    reinterpret_cast<const void*>(
        static_cast<PipeExecutorWithBuiltInLauncher>(&AllocateNetWorkerNamedPipeExecutor)),
    reinterpret_cast<const void*>(
        static_cast<PipeExecutorWithLauncher>(&AllocateNetWorkerNamedPipeExecutor)),
    reinterpret_cast<const void*>(&FreeNamedPipeConnection),
    reinterpret_cast<const void*>(&FreeNetWorkerApiWrapper),
    reinterpret_cast<const void*>(&FreeNetWorkerExecutor),
    reinterpret_cast<const void*>(&FreeNetWorkerNamedPipeClient),
};
