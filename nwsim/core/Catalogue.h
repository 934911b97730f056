#pragma once
// The simulated server's catalogue of one client: one text line per backup object.
//
// File <root>/<server>/<client>/catalogue.txt, lines starting with '#' are comments. Each object
// line holds 16 tab-separated fields in this order:
//   id bsaOwner appOwner objectSpace path resourceType createTime copyType copyId restoreOrder
//   size objectType objectStatus objectInfo description content
// Text fields escape '%', tab, CR and LF as %25, %09, %0D, %0A. createTime is
// "YYYY-MM-DD HH:MM:SS". content is "synthetic:<seed>" or "file:<name under content/>".

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace nwsim {

struct CivilDateTime {
    int year = 1970;
    int month = 1;  // 1..12
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// "YYYY-MM-DD HH:MM:SS", checked for a real calendar date and time of day.
bool ParseDateTime(std::string_view text, CivilDateTime& out);
std::string FormatDateTime(const CivilDateTime& time);
int DayOfWeek(const CivilDateTime& time);  // 0 = Sunday
int DayOfYear(const CivilDateTime& time);  // 0 = 1 January

struct ContentSource {
    enum class Kind { Synthetic, File };
    Kind kind = Kind::Synthetic;
    uint64_t seed = 0;
    std::string fileName;  // relative to the client's content/ directory
};

struct CatalogueObject {
    uint64_t id = 0;
    std::string bsaOwner;
    std::string appOwner;
    std::string objectSpace;
    std::string path;
    std::string resourceType;
    CivilDateTime createTime;
    uint32_t copyType = 1;
    uint64_t copyId = 0;
    uint64_t restoreOrder = 0;
    uint64_t size = 0;
    uint32_t objectType = 1;
    uint32_t objectStatus = 1;
    std::string objectInfo;
    std::string description;
    ContentSource content;
};

// Which of two copies of one object a name refers to: the most recent copy first, then the
// latest creation time. True when `candidate` is to replace `best` (which may be null).
bool IsPreferredCopy(const CatalogueObject& candidate, const CatalogueObject* best);

std::string EscapeField(std::string_view text);
bool UnescapeField(std::string_view text, std::string& out);

std::string FormatCatalogueLine(const CatalogueObject& object);
// False with a reason when the line is not a well-formed object line.
bool ParseCatalogueLine(std::string_view line, CatalogueObject& out, std::string& error);

// Field limits that keep every object representable in an XBSA descriptor.
bool CheckObjectLimits(const CatalogueObject& object, std::string& error);

struct Catalogue {
    std::vector<CatalogueObject> objects;

    const CatalogueObject* FindById(uint64_t id) const;
    uint64_t NextId() const;
};

// An absent file loads as an empty catalogue; a malformed line is an error naming its number.
bool LoadCatalogue(const std::filesystem::path& file, Catalogue& out, std::string& error);
bool SaveCatalogue(const std::filesystem::path& file, const Catalogue& catalogue,
                   std::string& error);

// Where things live in a store.
struct StoreLayout {
    std::filesystem::path root;

    std::filesystem::path ServerDir(const std::string& server) const { return root / server; }
    std::filesystem::path ClientDir(const std::string& server, const std::string& client) const {
        return root / server / client;
    }
    std::filesystem::path CatalogueFile(const std::string& server,
                                        const std::string& client) const {
        return ClientDir(server, client) / "catalogue.txt";
    }
    std::filesystem::path ContentDir(const std::string& server, const std::string& client) const {
        return ClientDir(server, client) / "content";
    }
    std::filesystem::path FaultsFile() const { return root / "faults.txt"; }
};

}  // namespace nwsim
