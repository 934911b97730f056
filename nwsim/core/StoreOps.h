#pragma once
// Store operations behind nwsim-admin's seed-exchange, add, list and verify commands.

#include <cstdint>
#include <filesystem>
#include <string>

#include "Catalogue.h"
#include "ExchangeSeed.h"

namespace nwsim {

// Replaces the client's catalogue with the seeded Exchange backup (creating server and client).
bool SeedExchange(const StoreLayout& layout, const std::string& server, const std::string& client,
                  const ExchangeSeedOptions& options, uint64_t& written, std::string& error);

// Appends object (its id is assigned). With a non-empty sourceFile the content is a copy of
// that file, stored under content/, and the size is the file's size.
bool AddObject(const StoreLayout& layout, const std::string& server, const std::string& client,
               CatalogueObject object, const std::filesystem::path& sourceFile, uint64_t& id,
               std::string& error);

// One human-readable line per object, every field named.
std::string DescribeObject(const CatalogueObject& object);

// Finds an object by id (all digits) or by path ("objectSpace:path" also accepted), picking
// copyId when it is not 0, else the most recent copy.
const CatalogueObject* SelectObject(const Catalogue& catalogue, const std::string& selector,
                                    uint64_t copyId);

struct VerifyResult {
    bool equal = false;
    uint64_t firstDifference = 0;  // valid when !equal
    uint64_t fileSize = 0;
    std::string message;
};

// Compares file with the object's content byte for byte.
bool VerifyObjectContent(const StoreLayout& layout, const std::string& server,
                         const std::string& client, const CatalogueObject& object,
                         const std::filesystem::path& file, VerifyResult& result,
                         std::string& error);

}  // namespace nwsim
