// Not part of TarnLog.dll: the build compiles this table only to read the decorated names of
// GetLogger and FreeLogger, as Visual C++ and as GCC mangle them (cmake/msvc-export-names.sh).

#include "interfaces/LoggerApi.h"

extern "C" const void* const nwx_logger_anchors[] = {
    reinterpret_cast<const void*>(&GetLogger),
    reinterpret_cast<const void*>(&FreeLogger),
};
