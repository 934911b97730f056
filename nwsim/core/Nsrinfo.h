#pragma once
// The command line and the output of the simulated nsrinfo.exe.

#include <string>
#include <string_view>
#include <vector>

#include "Catalogue.h"
#include "Faults.h"

namespace nwsim {

// Splits a Windows command line with the C runtime's rules (blanks separate words, double
// quotes group, backslashes are literal unless they precede a double quote).
std::vector<std::string> SplitCommandLine(std::string_view line);

struct NsrinfoRequest {
    std::string server;     // -s
    std::string nameSpace;  // -n (empty = any)
    std::string name;       // -N "objectSpace:path"
    std::string client;     // the last word
};

// Accepts the words with or without a program name in front (a first word that does not
// start with '-' is taken for the program name).
bool ParseNsrinfoArguments(const std::vector<std::string>& words, NsrinfoRequest& out,
                           std::string& error);

// The most recent copy whose objectSpace + ":" + path equals name and whose app owner matches
// the name space (case-insensitive; empty = any); nullptr if there is none.
const CatalogueObject* FindNsrinfoObject(const Catalogue& catalogue, const NsrinfoRequest& request);

std::string FormatNsrinfoOutput(const CatalogueObject& object, const NsrinfoRequest& request,
                                NsrinfoOutput mode);

}  // namespace nwsim
