#pragma once
// The Exchange backup that "nwsim-admin seed-exchange" writes for one client (listed object by
// object in docs/nwsim.md).

#include <cstdint>
#include <string>
#include <vector>

#include "Catalogue.h"

namespace nwsim {

struct ExchangeSeedOptions {
    uint64_t objects = 0;       // total number of objects; 0 = the base set only
    uint64_t dbSize = 2097153;  // size of "/Second Storage Group/Mailbox Store 2 (EX01).edb"
};

// Number of objects in the base set (the smallest valid --objects).
uint64_t ExchangeSeedBaseCount();

// False with a reason when objects is non-zero and below the base set.
bool BuildExchangeSeed(const ExchangeSeedOptions& options, std::vector<CatalogueObject>& out,
                       std::string& error);

}  // namespace nwsim
