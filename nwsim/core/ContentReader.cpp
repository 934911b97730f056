#include "ContentReader.h"

namespace nwsim {

bool ContentReader::Open(const CatalogueObject& object, const std::filesystem::path& contentDir,
                         std::string& error) {
    m_size = object.size;
    m_offset = 0;
    m_synthetic.reset();
    m_file.reset();
    if (object.content.kind == ContentSource::Kind::Synthetic) {
        m_synthetic = std::make_unique<SyntheticContent>(object.content.seed);
        return true;
    }
    const std::filesystem::path file = contentDir / object.content.fileName;
    m_file = std::make_unique<std::ifstream>(file, std::ios::binary);
    if (!*m_file) {
        error = "cannot open content file " + file.string();
        m_file.reset();
        return false;
    }
    return true;
}

bool ContentReader::Read(void* out, size_t count, size_t& delivered, std::string& error) {
    delivered = 0;
    if (static_cast<uint64_t>(count) > Remaining()) {
        count = static_cast<size_t>(Remaining());
    }
    if (count == 0) {
        return true;
    }
    if (m_synthetic) {
        m_synthetic->Fill(m_offset, out, count);
    } else if (m_file) {
        m_file->read(static_cast<char*>(out), static_cast<std::streamsize>(count));
        if (static_cast<size_t>(m_file->gcount()) != count) {
            error = "content file shorter than the object's size";
            return false;
        }
    } else {
        error = "content not open";
        return false;
    }
    m_offset += count;
    delivered = count;
    return true;
}

}  // namespace nwsim
