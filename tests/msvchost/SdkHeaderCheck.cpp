// The SDK header on its own, as a Visual C++ host's first include: compiled by clang-cl /W4 /WX
// with no Windows, MinGW or C runtime headers on the include path.
#include "NetWorkerXbsa.h"
#include "interfaces/LoggerApi.h"
#include "interfaces/NetWorkerStatus.h"

static_assert(sizeof(NetWorkerFileInfo) == 48, "NetWorkerFileInfo as the library lays it out");
static_assert(sizeof(BSA_ObjectDescriptor) > 2048, "the XBSA records are complete types");
