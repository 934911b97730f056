// nwsim-admin: installs the simulated NetWorker image, registers its "nsrexecd" service, and
// manages the simulated server's store (seed, add, list, verify).

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "Catalogue.h"
#include "ExchangeSeed.h"
#include "StoreOps.h"
#include "common/UniqueHandle.h"

namespace fs = std::filesystem;

namespace {

constexpr int kExitUsage = 2;
constexpr int kExitFailure = 1;
constexpr int kExitDifferent = 3;

const char* const kImageFiles[] = {"liblocal.dll", "librpc.dll", "librap.dll",  "libnsr.dll",
                                   "libasm.dll",   "libbsa.dll", "nsrinfo.exe", "nsrexecd.exe"};

struct Command {
    const char* name;
    const char* usage;
    std::set<std::string> valueOptions;
    std::set<std::string> flagOptions;
    std::set<std::string> repeatable;
};

const std::vector<Command>& Commands() {
    static const std::vector<Command> commands = {
        {"install",
         "install --dir D [--xbsa-name libbsa.dll|libnsrbsa.dll] [--omit FILE]... "
         "[--omit-export NAME]... [--binpath TEXT] [--image DIR] [--root R] [--no-service]\n"
         "  Copies the image into D, writes D\\nwsim.ini (root= the store: --root, else "
         "NWSIM_ROOT,\n  else D\\store) and registers the service \"nsrexecd\" with the binary "
         "path \"D\\nsrexecd.exe\"\n  (quoted), or TEXT with --binpath. An existing service is "
         "reconfigured.",
         {"--dir", "--xbsa-name", "--omit", "--omit-export", "--binpath", "--image", "--root"},
         {"--no-service"},
         {"--omit", "--omit-export"}},
        {"uninstall",
         "uninstall [--dir D] [--keep-service]\n"
         "  Deletes the \"nsrexecd\" service (unless --keep-service) and, with --dir, the "
         "directory D.",
         {"--dir"},
         {"--keep-service"},
         {}},
        {"seed-exchange",
         "seed-exchange --server S --client C [--objects N] [--db-size BYTES] [--root R]\n"
         "  Replaces client C's catalogue with the seeded Exchange backup (docs/nwsim.md).",
         {"--server", "--client", "--objects", "--db-size", "--root"},
         {},
         {}},
        {"add",
         "add --server S --client C --path P (--file F | --size N [--seed N]) "
         "[--object-space T]\n    [--bsa-owner T] [--app-owner T] [--resource-type T] "
         "[--create-time \"YYYY-MM-DD HH:MM:SS\"]\n    [--copy-type N] [--copy-id N] "
         "[--restore-order N] [--object-type N] [--status N] [--info T]\n    [--description T] "
         "[--root R]\n"
         "  Appends one object and prints its id. Defaults: owner MSEXCH/msexch, object space "
         "\\IS,\n  resource type D, copy type 1, object type 1, status 1, copy id, restore order "
         "and seed = id,\n  create time now (UTC).",
         {"--server", "--client", "--path", "--file", "--size", "--seed", "--object-space",
          "--bsa-owner", "--app-owner", "--resource-type", "--create-time", "--copy-type",
          "--copy-id", "--restore-order", "--object-type", "--status", "--info", "--description",
          "--root"},
         {},
         {}},
        {"list",
         "list --server S --client C [--root R]\n  Prints every object of client C, all fields.",
         {"--server", "--client", "--root"},
         {},
         {}},
        {"verify",
         "verify --server S --client C --object <id|path|space:path> [--copy-id N] --file F "
         "[--root R]\n"
         "  Exit 0 when F is byte for byte the object's content; exit 3 and the first differing "
         "offset\n  otherwise.",
         {"--server", "--client", "--object", "--copy-id", "--file", "--root"},
         {},
         {}},
    };
    return commands;
}

void PrintUsage(FILE* stream) {
    std::fprintf(stream,
                 "usage: nwsim-admin <command> [options]   (nwsim-admin <command> --help)\n\n");
    for (const Command& command : Commands()) {
        std::fprintf(stream, "%s\n\n", command.usage);
    }
    std::fprintf(stream, "The store is --root R, else the environment variable NWSIM_ROOT.\n");
}

struct Options {
    std::map<std::string, std::vector<std::string>> values;
    std::set<std::string> flags;

    const std::string* Get(const std::string& name) const {
        auto it = values.find(name);
        return it == values.end() ? nullptr : &it->second.front();
    }
    bool Has(const std::string& name) const { return flags.count(name) != 0; }
};

int Fail(const std::string& message, int code = kExitFailure) {
    std::fprintf(stderr, "nwsim-admin: %s\n", message.c_str());
    return code;
}

bool ParseNumber(const std::string& text, uint64_t& out) {
    if (text.empty() || text.size() > 20 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
    if (errno != 0 || *end != 0) {
        return false;
    }
    out = value;
    return true;
}

bool NumberOption(const Options& options, const std::string& name, uint64_t& out,
                  std::string& error) {
    const std::string* text = options.Get(name);
    if (text == nullptr) {
        return true;
    }
    if (!ParseNumber(*text, out)) {
        error = name + " needs a decimal number, got \"" + *text + "\"";
        return false;
    }
    return true;
}

bool Required(const Options& options, std::initializer_list<const char*> names,
              std::string& error) {
    for (const char* name : names) {
        if (options.Get(name) == nullptr) {
            error = std::string("missing ") + name;
            return false;
        }
    }
    return true;
}

bool StoreRoot(const Options& options, fs::path& root, std::string& error) {
    if (const std::string* given = options.Get("--root")) {
        root = fs::path(*given);
        return true;
    }
    if (const char* environment = std::getenv("NWSIM_ROOT")) {
        if (*environment != 0) {
            root = fs::path(environment);
            return true;
        }
    }
    error = "no store: give --root R or set NWSIM_ROOT";
    return false;
}

fs::path ExecutableDirectory() {
    wchar_t buffer[MAX_PATH * 4];
    const DWORD length = GetModuleFileNameW(nullptr, buffer, MAX_PATH * 4);
    return fs::path(std::wstring(buffer, length)).parent_path();
}

std::string Lower(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string ExportLibrary(const std::string& exportName) {
    if (exportName == "_lginit") {
        return "liblocal.dll";
    }
    if (exportName == "nsrlib_init") {
        return "libnsr.dll";
    }
    static const char* const kBsa[] = {
        "BSAInit",        "BSATerminate",       "BSABeginTxn",           "BSAEndTxn",
        "BSAQueryObject", "BSAQueryApiVersion", "BSAGetNextQueryObject", "BSAGetObject",
        "BSAGetData",     "BSAEndData"};
    for (const char* name : kBsa) {
        if (exportName == name) {
            return "libbsa.dll";
        }
    }
    return std::string();
}

std::string WindowsErrorText(DWORD error) {
    return "Windows error " + std::to_string(error);
}

bool RegisterService(const std::wstring& binaryPath, std::string& error) {
    UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        error = "cannot open the service control manager: " + WindowsErrorText(GetLastError());
        return false;
    }
    UniqueServiceHandle service(OpenServiceW(manager.get(), L"nsrexecd", SERVICE_ALL_ACCESS));
    if (service) {
        if (!ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                                  SERVICE_NO_CHANGE, binaryPath.c_str(), nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr)) {
            error = "cannot reconfigure service nsrexecd: " + WindowsErrorText(GetLastError());
            return false;
        }
        return true;
    }
    service.reset(CreateServiceW(manager.get(), L"nsrexecd", L"NetWorker Remote Exec Service",
                                 SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS,
                                 SERVICE_DEMAND_START, SERVICE_ERROR_NORMAL, binaryPath.c_str(),
                                 nullptr, nullptr, nullptr, nullptr, nullptr));
    if (!service) {
        error = "cannot create service nsrexecd: " + WindowsErrorText(GetLastError());
        return false;
    }
    return true;
}

// False only for a real failure; a service that does not exist is reported and left alone.
bool DeleteNsrexecdService(std::string& error) {
    UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) {
        error = "cannot open the service control manager: " + WindowsErrorText(GetLastError());
        return false;
    }
    UniqueServiceHandle service(OpenServiceW(manager.get(), L"nsrexecd", SERVICE_ALL_ACCESS));
    if (!service) {
        if (GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST) {
            std::printf("service nsrexecd is not installed\n");
            return true;
        }
        error = "cannot open service nsrexecd: " + WindowsErrorText(GetLastError());
        return false;
    }
    SERVICE_STATUS status = {};
    ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
    if (!DeleteService(service.get()) && GetLastError() != ERROR_SERVICE_MARKED_FOR_DELETE) {
        error = "cannot delete service nsrexecd: " + WindowsErrorText(GetLastError());
        return false;
    }
    std::printf("service nsrexecd deleted\n");
    return true;
}

int Install(const Options& options) {
    std::string error;
    if (!Required(options, {"--dir"}, error)) {
        return Fail(error, kExitUsage);
    }
    std::error_code ec;
    const fs::path dir = fs::absolute(fs::path(*options.Get("--dir")), ec).make_preferred();
    const fs::path image = options.Get("--image")
                               ? fs::path(*options.Get("--image"))
                               : ExecutableDirectory() / ".." / "nwsim" / "install";
    const fs::path variants = image / ".." / "variants";
    std::string xbsaName = "libbsa.dll";
    if (const std::string* name = options.Get("--xbsa-name")) {
        if (Lower(*name) != "libbsa.dll" && Lower(*name) != "libnsrbsa.dll") {
            return Fail("--xbsa-name must be libbsa.dll or libnsrbsa.dll", kExitUsage);
        }
        xbsaName = Lower(*name);
    }
    std::set<std::string> omitted;
    if (options.values.count("--omit")) {
        for (const std::string& file : options.values.at("--omit")) {
            omitted.insert(Lower(file));
        }
    }
    std::map<std::string, fs::path> sources;  // image file name -> where it comes from
    for (const char* file : kImageFiles) {
        sources[file] = image / file;
    }
    if (options.values.count("--omit-export")) {
        for (const std::string& exportName : options.values.at("--omit-export")) {
            const std::string library = ExportLibrary(exportName);
            if (library.empty()) {
                return Fail("--omit-export: unknown export " + exportName, kExitUsage);
            }
            if (sources[library] != image / library) {
                return Fail("--omit-export: only one export of " + library + " can be left out",
                            kExitUsage);
            }
            sources[library] = variants / ("omit-" + exportName) / library;
        }
    }
    for (const auto& source : sources) {
        if (!fs::exists(source.second, ec)) {
            return Fail("image file missing: " + source.second.string());
        }
    }

    fs::create_directories(dir, ec);
    if (ec) {
        return Fail("cannot create " + dir.string() + ": " + ec.message());
    }
    // A previous image in D must not leave files behind that this one omits.
    for (const char* file : {"liblocal.dll", "librpc.dll", "librap.dll", "libnsr.dll", "libasm.dll",
                             "libbsa.dll", "libnsrbsa.dll", "nsrinfo.exe", "nsrexecd.exe"}) {
        fs::remove(dir / file, ec);
    }
    for (const auto& source : sources) {
        const std::string target = source.first == "libbsa.dll" ? xbsaName : source.first;
        if (omitted.count(Lower(target))) {
            std::printf("omitted %s\n", target.c_str());
            continue;
        }
        fs::copy_file(source.second, dir / target, fs::copy_options::overwrite_existing, ec);
        if (ec) {
            return Fail("cannot copy " + source.second.string() + ": " + ec.message());
        }
    }

    fs::path root;
    if (!StoreRoot(options, root, error)) {
        root = dir / "store";
    }
    fs::create_directories(root, ec);
    {
        std::ofstream ini(dir / "nwsim.ini", std::ios::binary | std::ios::trunc);
        ini << "[nwsim]\r\nroot=" << root.string() << "\r\n";
        if (!ini) {
            return Fail("cannot write " + (dir / "nwsim.ini").string());
        }
    }
    std::printf("installed into %s (store %s)\n", dir.string().c_str(), root.string().c_str());

    if (options.Has("--no-service")) {
        return 0;
    }
    std::wstring binaryPath;
    if (const std::string* text = options.Get("--binpath")) {
        binaryPath = fs::path(*text).wstring();
    } else {
        binaryPath = L"\"" + (dir / "nsrexecd.exe").wstring() + L"\"";
    }
    if (!RegisterService(binaryPath, error)) {
        return Fail(error);
    }
    std::printf("service nsrexecd registered: %s\n", fs::path(binaryPath).string().c_str());
    return 0;
}

int Uninstall(const Options& options) {
    std::string error;
    if (!options.Has("--keep-service") && !DeleteNsrexecdService(error)) {
        return Fail(error);
    }
    if (const std::string* dir = options.Get("--dir")) {
        std::error_code ec;
        fs::remove_all(fs::path(*dir), ec);
        if (ec) {
            return Fail("cannot remove " + *dir + ": " + ec.message());
        }
        std::printf("removed %s\n", dir->c_str());
    }
    return 0;
}

int Seed(const Options& options) {
    std::string error;
    fs::path root;
    nwsim::ExchangeSeedOptions seed;
    if (!Required(options, {"--server", "--client"}, error) ||
        !NumberOption(options, "--objects", seed.objects, error) ||
        !NumberOption(options, "--db-size", seed.dbSize, error)) {
        return Fail(error, kExitUsage);
    }
    if (!StoreRoot(options, root, error)) {
        return Fail(error, kExitUsage);
    }
    uint64_t written = 0;
    if (!nwsim::SeedExchange(nwsim::StoreLayout{root}, *options.Get("--server"),
                             *options.Get("--client"), seed, written, error)) {
        return Fail(error);
    }
    std::printf("seeded %llu objects for client %s of server %s\n",
                static_cast<unsigned long long>(written), options.Get("--client")->c_str(),
                options.Get("--server")->c_str());
    return 0;
}

nwsim::CivilDateTime NowUtc() {
    const std::time_t now = std::time(nullptr);
    std::tm parts = {};
    gmtime_s(&parts, &now);
    return {parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
            parts.tm_hour,        parts.tm_min,     parts.tm_sec};
}

int Add(const Options& options) {
    std::string error;
    fs::path root;
    if (!Required(options, {"--server", "--client", "--path"}, error)) {
        return Fail(error, kExitUsage);
    }
    if (!StoreRoot(options, root, error)) {
        return Fail(error, kExitUsage);
    }
    const bool fromFile = options.Get("--file") != nullptr;
    if (fromFile == (options.Get("--size") != nullptr)) {
        return Fail("give either --file F or --size N", kExitUsage);
    }
    if (fromFile && options.Get("--seed")) {
        return Fail("--seed goes with --size, not with --file", kExitUsage);
    }
    nwsim::CatalogueObject object;
    object.bsaOwner = options.Get("--bsa-owner") ? *options.Get("--bsa-owner") : "MSEXCH";
    object.appOwner = options.Get("--app-owner") ? *options.Get("--app-owner") : "msexch";
    object.objectSpace = options.Get("--object-space") ? *options.Get("--object-space") : "\\IS";
    object.path = *options.Get("--path");
    object.resourceType = options.Get("--resource-type") ? *options.Get("--resource-type") : "D";
    object.objectInfo = options.Get("--info") ? *options.Get("--info") : "";
    object.description = options.Get("--description") ? *options.Get("--description") : "";
    object.createTime = NowUtc();
    if (const std::string* text = options.Get("--create-time")) {
        if (!nwsim::ParseDateTime(*text, object.createTime)) {
            return Fail("--create-time wants \"YYYY-MM-DD HH:MM:SS\"", kExitUsage);
        }
    }
    uint64_t copyType = 1, objectType = 1, status = 1, copyId = 0, restoreOrder = 0, seed = 0,
             size = 0;
    if (!NumberOption(options, "--copy-type", copyType, error) ||
        !NumberOption(options, "--object-type", objectType, error) ||
        !NumberOption(options, "--status", status, error) ||
        !NumberOption(options, "--copy-id", copyId, error) ||
        !NumberOption(options, "--restore-order", restoreOrder, error) ||
        !NumberOption(options, "--seed", seed, error) ||
        !NumberOption(options, "--size", size, error)) {
        return Fail(error, kExitUsage);
    }
    if (copyType > 0xFFFFFFFFu || objectType > 0xFFFFFFFFu || status > 0xFFFFFFFFu) {
        return Fail("--copy-type, --object-type and --status are 32-bit values", kExitUsage);
    }
    object.copyType = static_cast<uint32_t>(copyType);
    object.objectType = static_cast<uint32_t>(objectType);
    object.objectStatus = static_cast<uint32_t>(status);
    object.size = size;
    object.content.kind = nwsim::ContentSource::Kind::Synthetic;

    // Ids, and the defaults that follow them, are known once the catalogue is read.
    nwsim::Catalogue existing;
    const nwsim::StoreLayout layout{root};
    const std::string& server = *options.Get("--server");
    const std::string& client = *options.Get("--client");
    if (!nwsim::LoadCatalogue(layout.CatalogueFile(server, client), existing, error)) {
        return Fail(error);
    }
    const uint64_t id = existing.NextId();
    object.copyId = options.Get("--copy-id") ? copyId : id;
    object.restoreOrder = options.Get("--restore-order") ? restoreOrder : id;
    object.content.seed = options.Get("--seed") ? seed : id;

    uint64_t assigned = 0;
    if (!nwsim::AddObject(layout, server, client, object,
                          fromFile ? fs::path(*options.Get("--file")) : fs::path(), assigned,
                          error)) {
        return Fail(error);
    }
    std::printf("%llu\n", static_cast<unsigned long long>(assigned));
    return 0;
}

bool LoadClient(const Options& options, nwsim::StoreLayout& layout, nwsim::Catalogue& catalogue,
                std::string& error, int& code) {
    code = kExitUsage;
    if (!Required(options, {"--server", "--client"}, error) ||
        !StoreRoot(options, layout.root, error)) {
        return false;
    }
    code = kExitFailure;
    const std::string& server = *options.Get("--server");
    const std::string& client = *options.Get("--client");
    std::error_code ec;
    if (!fs::is_directory(layout.ClientDir(server, client), ec)) {
        error = "no client " + client + " of server " + server + " in " + layout.root.string();
        return false;
    }
    return nwsim::LoadCatalogue(layout.CatalogueFile(server, client), catalogue, error);
}

int List(const Options& options) {
    nwsim::StoreLayout layout;
    nwsim::Catalogue catalogue;
    std::string error;
    int code = 0;
    if (!LoadClient(options, layout, catalogue, error, code)) {
        return Fail(error, code);
    }
    for (const nwsim::CatalogueObject& object : catalogue.objects) {
        std::printf("%s\n", nwsim::DescribeObject(object).c_str());
    }
    return 0;
}

int Verify(const Options& options) {
    nwsim::StoreLayout layout;
    nwsim::Catalogue catalogue;
    std::string error;
    int code = 0;
    if (!Required(options, {"--object", "--file"}, error)) {
        return Fail(error, kExitUsage);
    }
    uint64_t copyId = 0;
    if (!NumberOption(options, "--copy-id", copyId, error)) {
        return Fail(error, kExitUsage);
    }
    if (!LoadClient(options, layout, catalogue, error, code)) {
        return Fail(error, code);
    }
    const nwsim::CatalogueObject* object =
        nwsim::SelectObject(catalogue, *options.Get("--object"), copyId);
    if (object == nullptr) {
        return Fail("no object " + *options.Get("--object"));
    }
    nwsim::VerifyResult result;
    if (!nwsim::VerifyObjectContent(layout, *options.Get("--server"), *options.Get("--client"),
                                    *object, fs::path(*options.Get("--file")), result, error)) {
        return Fail(error);
    }
    if (!result.equal) {
        return Fail(result.message, kExitDifferent);
    }
    std::printf("%s\n", result.message.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2 || std::string(argv[1]) == "--help" || std::string(argv[1]) == "help") {
        PrintUsage(argc < 2 ? stderr : stdout);
        return argc < 2 ? kExitUsage : 0;
    }
    const std::string name = argv[1];
    const Command* command = nullptr;
    for (const Command& candidate : Commands()) {
        if (name == candidate.name) {
            command = &candidate;
        }
    }
    if (command == nullptr) {
        std::fprintf(stderr, "nwsim-admin: unknown command %s\n", name.c_str());
        PrintUsage(stderr);
        return kExitUsage;
    }
    Options options;
    for (int i = 2; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--help") {
            std::printf("usage: nwsim-admin %s\n", command->usage);
            return 0;
        }
        if (command->flagOptions.count(option)) {
            options.flags.insert(option);
            continue;
        }
        if (!command->valueOptions.count(option)) {
            return Fail("unknown option " + option + " for " + name + "\nusage: nwsim-admin " +
                            command->usage,
                        kExitUsage);
        }
        if (i + 1 >= argc) {
            return Fail("option " + option + " needs a value", kExitUsage);
        }
        if (options.values.count(option) && !command->repeatable.count(option)) {
            return Fail("option " + option + " given twice", kExitUsage);
        }
        options.values[option].push_back(argv[++i]);
    }
    try {
        if (name == "install") {
            return Install(options);
        }
        if (name == "uninstall") {
            return Uninstall(options);
        }
        if (name == "seed-exchange") {
            return Seed(options);
        }
        if (name == "add") {
            return Add(options);
        }
        if (name == "list") {
            return List(options);
        }
        return Verify(options);
    } catch (const std::exception& failure) {
        return Fail(failure.what());
    }
}
