// libnsr.dll of the simulated installation: the client library start-up call.

#include <windows.h>

#include "ImageSupport.h"
#include "Journal.h"

extern "C" int nsrlib_init(void** context) {
    if (nwsim::JournalEnabled()) {
        nwsim::JournalLine line("nsrlib_init");
        line.Pointer("context", context);
        if (context != nullptr) {
            line.Pointer("value", *context);
        }
        line.Signed("rc", 0);
        nwsim::AppendJournal(line.Str());
    }
    return 0;
}

// Keeps the export table non-empty in the variant that leaves the start-up call out (an empty
// table would make the linker export every symbol).
extern "C" const char* nwsim_library_name() {
    return "libnsr.dll";
}
