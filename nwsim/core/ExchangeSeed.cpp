#include "ExchangeSeed.h"

#include <cstdio>
#include <iterator>

namespace nwsim {

namespace {

struct SeedRow {
    const char* bsaOwner;
    const char* appOwner;
    const char* objectSpace;
    const char* path;
    const char* resourceType;
    uint32_t copyType;
    uint32_t objectType;
    uint64_t size;  // kDbSize stands for the --db-size value
    const char* description;
};

constexpr uint64_t kDbSize = ~0ull;

const CivilDateTime kBackupTimes[3] = {
    {2024, 5, 6, 22, 0, 0},
    {2024, 5, 7, 22, 0, 0},
    {2024, 5, 8, 23, 59, 30},
};

// Backups 1 and 2: older copies (status 2) of the databases plus their own logs.
const SeedRow kOlderBackup1[] = {
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/Mailbox Store (EX01).edb", "D", 1, 1,
     4800000000ull, "Exchange database"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/Mailbox Store (EX01).stm", "D", 1, 1,
     2900011, "Exchange streaming file"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/E00000FFF.log", "L", 1, 1, 1048571,
     "Exchange transaction log"},
    {"MSEXCH", "msexch", "\\IS", "/Second Storage Group/Mailbox Store 2 (EX01).edb", "D", 1, 1,
     1900009, "Exchange database"},
};
const SeedRow kOlderBackup2[] = {
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/Mailbox Store (EX01).edb", "D", 1, 1,
     4900000000ull, "Exchange database"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/Mailbox Store (EX01).stm", "D", 1, 1,
     2950013, "Exchange streaming file"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/E00000100.log", "L", 1, 1, 1048577,
     "Exchange transaction log"},
    {"MSEXCH", "msexch", "\\IS", "/Second Storage Group/Mailbox Store 2 (EX01).edb", "D", 1, 1,
     2000003, "Exchange database"},
};
// Backup 3: the most recent copies (status 1).
const SeedRow kLatestBackup[] = {
    {"MSEXCH", "msexch", "\\IS", "/Private Information Store", "D", 1, 1, 0, "Exchange container"},
    {"MSEXCH", "msexch", "\\IS", "/Public Information Store", "D", 1, 1, 0, "Exchange container"},
    {"MSEXCH", "msexch", "\\IS", "/Directory", "D", 1, 1, 0, "Exchange container"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/Mailbox Store (EX01).edb", "D", 1, 1,
     5000000000ull, "Exchange database"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/Mailbox Store (EX01).stm", "D", 1, 1,
     3000017, "Exchange streaming file"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/Public Folder Store (EX01).edb", "D", 1, 1,
     1500001, "Exchange database"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/Public Folder Store (EX01).stm", "D", 1, 1,
     700003, "Exchange streaming file"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/E00.chk", "L", 1, 1, 8192,
     "Exchange checkpoint file"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/E00000101.log", "L", 1, 1, 1048583,
     "Exchange transaction log"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/E00000102.log", "L", 1, 1, 1048589,
     "Exchange transaction log"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/E00000103.log", "L", 1, 1, 524287,
     "Exchange transaction log"},
    {"MSEXCH", "msexch", "\\IS", "/Second Storage Group/Mailbox Store 2 (EX01).edb", "D", 1, 1,
     kDbSize, "Exchange database"},
    {"MSEXCH", "msexch", "\\IS", "/Second Storage Group/Mailbox Store 2 (EX01).stm", "D", 1, 1,
     262147, "Exchange streaming file"},
    {"MSEXCH", "msexch", "\\IS", "/Second Storage Group/E01.chk", "L", 1, 1, 8192,
     "Exchange checkpoint file"},
    {"MSEXCH", "msexch", "\\IS", "/Second Storage Group/E01000A1.log", "L", 1, 1, 1048573,
     "Exchange transaction log"},
    {"MSEXCH", "msexch", "\\IS", "/Second Storage Group/E01000A2.log", "L", 1, 1, 65536,
     "Exchange transaction log"},
    {"MSEXCH", "msexch", "\\IS", "/Second Storage Group/E01tmp.log", "L", 1, 1, 0,
     "Exchange transaction log"},
    {"MSEXCH", "msexch", "\\IS", "/Second Storage Group/Private Mailboxes/Mailbox Store 2.edb", "D",
     1, 1, 4096, "Exchange mailbox"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/EX01.xml", "M", 1, 1, 1234,
     "Exchange metadata"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group/Archive (EX01).edb", "D", 2, 1, 11111,
     "Exchange archive copy"},
    {"MSEXCH", "msexch", "\\IS", "/First Storage Group", "D", 1, 2, 0, "Exchange storage group"},
    {"MSSQL", "mssql", "\\SQL", "/SQL/master.edb", "D", 1, 1, 777777, "SQL Server database"},
    {"NSRFS", "nsrfs", "\\FS", "/Files/notes.log", "L", 1, 1, 12345, "file system backup"},
};

template <size_t N>
void AddRows(const SeedRow (&rows)[N], uint32_t backup, uint32_t status, uint64_t dbSize,
             std::vector<CatalogueObject>& out) {
    uint64_t sequence = 0;
    for (const SeedRow& row : rows) {
        ++sequence;
        CatalogueObject o;
        o.id = out.size() + 1;
        o.bsaOwner = row.bsaOwner;
        o.appOwner = row.appOwner;
        o.objectSpace = row.objectSpace;
        o.path = row.path;
        o.resourceType = row.resourceType;
        o.createTime = kBackupTimes[backup - 1];
        o.copyType = row.copyType;
        o.copyId = (static_cast<uint64_t>(backup) << 32) | sequence;
        o.restoreOrder = backup * 1000000ull + sequence;
        o.size = row.size == kDbSize ? dbSize : row.size;
        o.objectType = row.objectType;
        o.objectStatus = status;
        o.objectInfo = "EX01 backup " + std::to_string(backup);
        o.description = row.description;
        o.content.kind = ContentSource::Kind::Synthetic;
        o.content.seed = o.copyId;
        out.push_back(std::move(o));
    }
}

}  // namespace

uint64_t ExchangeSeedBaseCount() {
    return std::size(kOlderBackup1) + std::size(kOlderBackup2) + std::size(kLatestBackup);
}

bool BuildExchangeSeed(const ExchangeSeedOptions& options, std::vector<CatalogueObject>& out,
                       std::string& error) {
    out.clear();
    const uint64_t base = ExchangeSeedBaseCount();
    if (options.objects != 0 && options.objects < base) {
        error = "--objects must be at least " + std::to_string(base);
        return false;
    }
    out.reserve(options.objects > base ? options.objects : base);
    AddRows(kOlderBackup1, 1, 2, options.dbSize, out);
    AddRows(kOlderBackup2, 2, 2, options.dbSize, out);
    AddRows(kLatestBackup, 3, 1, options.dbSize, out);
    // Bulk logs of a third storage group continue the most recent backup.
    uint64_t sequence = std::size(kLatestBackup);
    char path[64];
    for (uint64_t k = 0; out.size() < options.objects; ++k) {
        ++sequence;
        CatalogueObject o;
        o.id = out.size() + 1;
        o.bsaOwner = "MSEXCH";
        o.appOwner = "msexch";
        o.objectSpace = "\\IS";
        std::snprintf(path, sizeof(path), "/Third Storage Group/E02%08llX.log",
                      static_cast<unsigned long long>(k));
        o.path = path;
        o.resourceType = "L";
        o.createTime = kBackupTimes[2];
        o.copyType = 1;
        o.copyId = (3ull << 32) | sequence;
        o.restoreOrder = 3000000ull + sequence;
        o.size = 4096 + k % 4096;
        o.objectType = 1;
        o.objectStatus = 1;
        o.objectInfo = "EX01 backup 3";
        o.description = "Exchange transaction log";
        o.content.seed = o.copyId;
        out.push_back(std::move(o));
    }
    return true;
}

}  // namespace nwsim
