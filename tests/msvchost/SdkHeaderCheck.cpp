// The SDK header on its own, as a Visual C++ host's first include: compiled by clang-cl /W4 /WX
// with no Windows, MinGW or C runtime headers on the include path.
#include "NetWorkerXbsa.h"
#include "interfaces/LoggerApi.h"
#include "interfaces/NetWorkerStatus.h"
#include "interfaces/XbsaLayout.h"

static_assert(sizeof(NetWorkerFileInfo) == 48, "NetWorkerFileInfo as the library lays it out");
// The XBSA records' x64 layout: interfaces/XbsaLayout.h (included by xbsa.h) checks every
// offset and size under this compiler too; these repeat the three sizes a host relies on.
static_assert(sizeof(BSA_ObjectDescriptor) == 2736, "BSA_ObjectDescriptor as the standard has it");
static_assert(sizeof(BSA_QueryDescriptor) == 2528, "BSA_QueryDescriptor as the standard has it");
static_assert(sizeof(BSA_DataBlock32) == 32, "BSA_DataBlock32 as the standard has it");
