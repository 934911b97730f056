#pragma once
// Reads an object's content in order, whether synthetic or a real file in the store.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "Catalogue.h"
#include "SyntheticContent.h"

namespace nwsim {

class ContentReader {
public:
    // contentDir is the client's content/ directory (used for file content only).
    bool Open(const CatalogueObject& object, const std::filesystem::path& contentDir,
              std::string& error);

    uint64_t Size() const { return m_size; }
    uint64_t Offset() const { return m_offset; }
    uint64_t Remaining() const { return m_size - m_offset; }

    // Copies min(count, Remaining()) bytes; false when a real file ends early or fails.
    bool Read(void* out, size_t count, size_t& delivered, std::string& error);

private:
    uint64_t m_size = 0;
    uint64_t m_offset = 0;
    std::unique_ptr<SyntheticContent> m_synthetic;
    std::unique_ptr<std::ifstream> m_file;
};

}  // namespace nwsim
