// liblocal.dll of the simulated installation: the logging start-up call.

#include <windows.h>

#include "ImageSupport.h"
#include "Journal.h"

extern "C" int _lginit(const char* program, void* reserved1, void* reserved2) {
    if (nwsim::JournalEnabled()) {
        nwsim::JournalLine line("_lginit");
        if (program != nullptr) {
            line.Text("program", program);
        } else {
            line.Pointer("program", nullptr);
        }
        line.Pointer("reserved1", reserved1).Pointer("reserved2", reserved2).Signed("rc", 0);
        nwsim::AppendJournal(line.Str());
    }
    return 0;
}

// Keeps the export table non-empty in the variant that leaves the start-up call out (an empty
// table would make the linker export every symbol).
extern "C" const char* nwsim_library_name() {
    return "liblocal.dll";
}
