#include "StoreOps.h"

#include <cstring>
#include <fstream>
#include <memory>
#include <system_error>

#include "ContentReader.h"

namespace nwsim {

bool SeedExchange(const StoreLayout& layout, const std::string& server, const std::string& client,
                  const ExchangeSeedOptions& options, uint64_t& written, std::string& error) {
    Catalogue catalogue;
    if (!BuildExchangeSeed(options, catalogue.objects, error)) {
        return false;
    }
    std::error_code ec;
    std::filesystem::create_directories(layout.ClientDir(server, client), ec);
    if (ec) {
        error = "cannot create " + layout.ClientDir(server, client).string() + ": " + ec.message();
        return false;
    }
    if (!SaveCatalogue(layout.CatalogueFile(server, client), catalogue, error)) {
        return false;
    }
    written = catalogue.objects.size();
    return true;
}

bool AddObject(const StoreLayout& layout, const std::string& server, const std::string& client,
               CatalogueObject object, const std::filesystem::path& sourceFile, uint64_t& id,
               std::string& error) {
    Catalogue catalogue;
    const std::filesystem::path catalogueFile = layout.CatalogueFile(server, client);
    if (!LoadCatalogue(catalogueFile, catalogue, error)) {
        return false;
    }
    object.id = catalogue.NextId();
    std::error_code ec;
    std::filesystem::create_directories(layout.ClientDir(server, client), ec);
    if (!sourceFile.empty()) {
        const uint64_t size = std::filesystem::file_size(sourceFile, ec);
        if (ec) {
            error = "cannot read " + sourceFile.string() + ": " + ec.message();
            return false;
        }
        const std::filesystem::path contentDir = layout.ContentDir(server, client);
        std::filesystem::create_directories(contentDir, ec);
        object.content.kind = ContentSource::Kind::File;
        object.content.fileName = std::to_string(object.id) + ".bin";
        object.content.seed = 0;
        std::filesystem::copy_file(sourceFile, contentDir / object.content.fileName,
                                   std::filesystem::copy_options::overwrite_existing, ec);
        if (ec) {
            error = "cannot copy " + sourceFile.string() + ": " + ec.message();
            return false;
        }
        object.size = size;
    }
    if (!CheckObjectLimits(object, error)) {
        return false;
    }
    catalogue.objects.push_back(object);
    if (!SaveCatalogue(catalogueFile, catalogue, error)) {
        return false;
    }
    id = object.id;
    return true;
}

std::string DescribeObject(const CatalogueObject& o) {
    std::string content = o.content.kind == ContentSource::Kind::File
                              ? "file:" + o.content.fileName
                              : "synthetic:" + std::to_string(o.content.seed);
    return "id=" + std::to_string(o.id) + " bsaOwner=\"" + o.bsaOwner + "\" appOwner=\"" +
           o.appOwner + "\" objectSpace=\"" + o.objectSpace + "\" path=\"" + o.path +
           "\" resourceType=\"" + o.resourceType + "\" createTime=\"" +
           FormatDateTime(o.createTime) + "\" copyType=" + std::to_string(o.copyType) +
           " copyId=" + std::to_string(o.copyId) + " (left=" + std::to_string(o.copyId >> 32) +
           " right=" + std::to_string(o.copyId & 0xFFFFFFFFull) +
           ") restoreOrder=" + std::to_string(o.restoreOrder) + " size=" + std::to_string(o.size) +
           " objectType=" + std::to_string(o.objectType) +
           " objectStatus=" + std::to_string(o.objectStatus) + " objectInfo=\"" + o.objectInfo +
           "\" description=\"" + o.description + "\" content=" + content;
}

const CatalogueObject* SelectObject(const Catalogue& catalogue, const std::string& selector,
                                    uint64_t copyId) {
    const bool allDigits = !selector.empty() && selector.size() <= 19 &&
                           selector.find_first_not_of("0123456789") == std::string::npos;
    if (allDigits) {
        return catalogue.FindById(std::stoull(selector));
    }
    const CatalogueObject* best = nullptr;
    for (const CatalogueObject& o : catalogue.objects) {
        const bool named = o.path == selector || (o.objectSpace + ":" + o.path) == selector;
        if (!named || (copyId != 0 && o.copyId != copyId)) {
            continue;
        }
        if (IsPreferredCopy(o, best)) {
            best = &o;
        }
    }
    return best;
}

bool VerifyObjectContent(const StoreLayout& layout, const std::string& server,
                         const std::string& client, const CatalogueObject& object,
                         const std::filesystem::path& file, VerifyResult& result,
                         std::string& error) {
    result = VerifyResult();
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        error = "cannot open " + file.string();
        return false;
    }
    ContentReader reader;
    if (!reader.Open(object, layout.ContentDir(server, client), error)) {
        return false;
    }
    constexpr size_t kChunk = 1 << 20;
    std::unique_ptr<char[]> expected(new char[kChunk]);
    std::unique_ptr<char[]> actual(new char[kChunk]);
    uint64_t offset = 0;
    while (true) {
        in.read(actual.get(), kChunk);
        const size_t got = static_cast<size_t>(in.gcount());
        size_t want = 0;
        if (!reader.Read(expected.get(), kChunk, want, error)) {
            return false;
        }
        const size_t common = got < want ? got : want;
        if (std::memcmp(actual.get(), expected.get(), common) != 0) {
            size_t i = 0;
            while (actual[i] == expected[i]) {
                ++i;
            }
            result.firstDifference = offset + i;
            break;
        }
        if (got != want) {
            result.firstDifference = offset + common;
            break;
        }
        offset += got;
        if (got == 0) {
            result.equal = true;
            break;
        }
    }
    std::error_code ec;
    result.fileSize = std::filesystem::file_size(file, ec);
    if (result.equal) {
        result.message = "verify: " + file.string() + " equals object " +
                         std::to_string(object.id) + " (" + std::to_string(object.size) + " bytes)";
    } else {
        result.message = "verify: " + file.string() + " differs from object " +
                         std::to_string(object.id) + " at offset " +
                         std::to_string(result.firstDifference) + " (file " +
                         std::to_string(result.fileSize) + " bytes, object " +
                         std::to_string(object.size) + " bytes)";
    }
    return true;
}

}  // namespace nwsim
