// The built image, used the way NetWorkerXbsa.dll uses an installation: DLLs loaded by full path
// with LoadLibraryW, entry points by name, nsrinfo.exe started with CreateProcessA.

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "Journal.h"
#include "ProcessFigures.h"
#include "StoreOps.h"
#include "ScopedEnvironment.h"
#include "TestFiles.h"
#include "WinTestSupport.h"
#include "common/UniqueHandle.h"
#include "interfaces/xbsa.h"

namespace {

using namespace nwsimtest;
namespace fs = std::filesystem;

const char* const kBsaExports[] = {
    "BSAInit",        "BSATerminate",       "BSABeginTxn",           "BSAEndTxn",
    "BSAQueryObject", "BSAQueryApiVersion", "BSAGetNextQueryObject", "BSAGetObject",
    "BSAGetData",     "BSAEndData"};

std::vector<nwsim::ParsedJournalLine> ReadJournal(const fs::path& file) {
    std::vector<nwsim::ParsedJournalLine> lines;
    std::ifstream in(file, std::ios::binary);
    std::string text;
    while (std::getline(in, text)) {
        nwsim::ParsedJournalLine parsed;
        EXPECT_TRUE(nwsim::ParseJournalLine(text, parsed)) << text;
        lines.push_back(parsed);
    }
    return lines;
}

template <typename Fn>
Fn Entry(HMODULE module, const char* name) {
    return reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

TEST(ImageFiles, EveryLibraryAndProgramIsThere) {
    for (const wchar_t* file : {L"liblocal.dll", L"librpc.dll", L"librap.dll", L"libnsr.dll",
                                L"libasm.dll", L"libbsa.dll", L"nsrinfo.exe", L"nsrexecd.exe"}) {
        EXPECT_TRUE(fs::exists(ImageDirectory() / file)) << fs::path(file).string();
    }
}

TEST(ImageFiles, LibrariesExportTheirEntryPointsByPlainName) {
    UniqueModule local(LoadLibraryW((ImageDirectory() / L"liblocal.dll").c_str()));
    UniqueModule nsr(LoadLibraryW((ImageDirectory() / L"libnsr.dll").c_str()));
    UniqueModule bsa(LoadLibraryW((ImageDirectory() / L"libbsa.dll").c_str()));
    ASSERT_TRUE(local && nsr && bsa);
    EXPECT_NE(GetProcAddress(local.get(), "_lginit"), nullptr);
    EXPECT_NE(GetProcAddress(nsr.get(), "nsrlib_init"), nullptr);
    for (const char* name : kBsaExports) {
        EXPECT_NE(GetProcAddress(bsa.get(), name), nullptr) << name;
    }
    for (const wchar_t* file : {L"librpc.dll", L"librap.dll", L"libasm.dll"}) {
        UniqueModule module(LoadLibraryW((ImageDirectory() / file).c_str()));
        EXPECT_TRUE(module) << fs::path(file).string();
    }
}

TEST(ImageFiles, EachVariantLacksExactlyItsExport) {
    for (const char* omitted : kBsaExports) {
        const fs::path dll = VariantsDirectory() / (std::string("omit-") + omitted) / "libbsa.dll";
        UniqueModule module(LoadLibraryW(dll.c_str()));
        ASSERT_TRUE(module) << dll.string();
        for (const char* name : kBsaExports) {
            EXPECT_EQ(GetProcAddress(module.get(), name) == nullptr,
                      std::strcmp(name, omitted) == 0)
                << omitted << " variant, export " << name;
        }
    }
    UniqueModule local(
        LoadLibraryW((VariantsDirectory() / "omit-_lginit" / "liblocal.dll").c_str()));
    ASSERT_TRUE(local);
    EXPECT_EQ(GetProcAddress(local.get(), "_lginit"), nullptr);
    UniqueModule nsr(
        LoadLibraryW((VariantsDirectory() / "omit-nsrlib_init" / "libnsr.dll").c_str()));
    ASSERT_TRUE(nsr);
    EXPECT_EQ(GetProcAddress(nsr.get(), "nsrlib_init"), nullptr);
}

// The library's wrapper loads and frees the installation's libraries once per session, so
// loading and freeing them, a call included, must leave neither handles nor heap behind in the
// host, or a day of sessions would pile them up.
TEST(ImageFiles, FreedLibrariesLeaveNoHandlesOrHeapBehind) {
    const TempDirectory store("nwsim");
    const ScopedEnvironment rootVariable(L"NWSIM_ROOT", store.Path().wstring());
    const ScopedEnvironment journalVariable(L"NWSIM_JOURNAL", nullptr);
    const auto loadCallAndFree = [](const wchar_t* file) {
        UniqueModule module(LoadLibraryW((ImageDirectory() / file).c_str()));
        ASSERT_TRUE(module) << fs::path(file).string();
        const auto queryApiVersion =
            Entry<BSAQueryApiVersionFn>(module.get(), "BSAQueryApiVersion");
        if (queryApiVersion != nullptr) {
            BSA_ApiVersion version{};
            EXPECT_EQ(queryApiVersion(&version), BSA_RC_SUCCESS);
        }
    };
    constexpr int kCycles = 10;
    // Less than what one load used to leave: the C++ runtime's exception pool.
    constexpr int64_t kHeapLimit = 74752;
    for (const wchar_t* file : {L"liblocal.dll", L"librpc.dll", L"librap.dll", L"libnsr.dll",
                                L"libasm.dll", L"libbsa.dll"}) {
        loadCallAndFree(file);  // what the first load sets up for the process does not count
        const ProcessFigures before = MeasureThisProcess();
        for (int i = 0; i < kCycles; ++i) {
            loadCallAndFree(file);
        }
        const ProcessFigures after = MeasureThisProcess();
        EXPECT_LE(after.handles, before.handles) << fs::path(file).string();
        EXPECT_LT(Growth(before.heapBytesInUse, after.heapBytesInUse), kHeapLimit)
            << fs::path(file).string();
    }
}

class ImageSession : public ::testing::Test {
protected:
    void SetUp() override {
        uint64_t written = 0;
        std::string error;
        ASSERT_TRUE(nwsim::SeedExchange(nwsim::StoreLayout{root}, "srv", "cli",
                                        nwsim::ExchangeSeedOptions(), written, error))
            << error;
        for (const wchar_t* file : {L"liblocal.dll", L"libnsr.dll", L"libbsa.dll"}) {
            modules.emplace_back(LoadLibraryW((ImageDirectory() / file).c_str()));
            ASSERT_TRUE(modules.back()) << fs::path(file).string();
        }
        HMODULE bsa = modules[2].get();
        init = Entry<BSAInitFn>(bsa, "BSAInit");
        terminate = Entry<BSATerminateFn>(bsa, "BSATerminate");
        beginTxn = Entry<BSABeginTxnFn>(bsa, "BSABeginTxn");
        endTxn = Entry<BSAEndTxnFn>(bsa, "BSAEndTxn");
        queryObject = Entry<BSAQueryObjectFn>(bsa, "BSAQueryObject");
        queryApiVersion = Entry<BSAQueryApiVersionFn>(bsa, "BSAQueryApiVersion");
        getNext = Entry<BSAGetNextQueryObjectFn>(bsa, "BSAGetNextQueryObject");
        getObject = Entry<BSAGetObjectFn>(bsa, "BSAGetObject");
        getData = Entry<BSAGetDataFn>(bsa, "BSAGetData");
        endData = Entry<BSAEndDataFn>(bsa, "BSAEndData");
    }

    BSA_Int32 Open(BSA_Handle& handle) {
        BSA_SecurityToken token{};
        BSA_ObjectOwner owner{};
        std::strcpy(owner.bsa_ObjectOwner, "MSEXCH");
        std::strcpy(owner.app_ObjectOwner, "msexch");
        char client[] = "NSR_CLIENT=cli";
        char debug[] = "NSR_DEBUG_LEVEL=0";
        char server[] = "NSR_SERVER=srv";
        char busy[] = "NSR_NO_BUSY_ERRORS=TRUE";
        char* environment[] = {client, debug, server, busy, nullptr};
        return init(&handle, &token, &owner, environment);
    }

    nwsim::CatalogueObject Object(const std::string& path) {
        nwsim::Catalogue catalogue;
        std::string error;
        EXPECT_TRUE(nwsim::LoadCatalogue(nwsim::StoreLayout{root}.CatalogueFile("srv", "cli"),
                                         catalogue, error));
        return *nwsim::SelectObject(catalogue, path, 0);
    }

    TempDirectory dir{"nwsim"};
    fs::path root = dir.Path() / L"store";
    fs::path journal = dir.Path() / L"journal.txt";
    ScopedEnvironment rootVariable{L"NWSIM_ROOT", root.wstring()};
    ScopedEnvironment journalVariable{L"NWSIM_JOURNAL", journal.wstring()};
    ScopedEnvironment faultsVariable{L"NWSIM_FAULTS", nullptr};
    std::vector<UniqueModule> modules;
    BSAInitFn init = nullptr;
    BSATerminateFn terminate = nullptr;
    BSABeginTxnFn beginTxn = nullptr;
    BSAEndTxnFn endTxn = nullptr;
    BSAQueryObjectFn queryObject = nullptr;
    BSAQueryApiVersionFn queryApiVersion = nullptr;
    BSAGetNextQueryObjectFn getNext = nullptr;
    BSAGetObjectFn getObject = nullptr;
    BSAGetDataFn getData = nullptr;
    BSAEndDataFn endData = nullptr;
};

TEST_F(ImageSession, StartUpCallsAreJournaledWithTheirArguments) {
    auto lginit = Entry<LgInitFn>(modules[0].get(), "_lginit");
    auto nsrlibInit = Entry<NsrLibInitFn>(modules[1].get(), "nsrlib_init");
    EXPECT_EQ(lginit("nsr", nullptr, nullptr), 0);
    void* context = nullptr;
    EXPECT_EQ(nsrlibInit(&context), 0);
    const auto lines = ReadJournal(journal);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].call, "_lginit");
    EXPECT_EQ(*lines[0].Find("program"), "nsr");
    EXPECT_EQ(*lines[0].Find("reserved1"), "0x0");
    EXPECT_EQ(*lines[0].Find("reserved2"), "0x0");
    EXPECT_EQ(lines[1].call, "nsrlib_init");
    EXPECT_NE(*lines[1].Find("context"), "0x0");
    EXPECT_EQ(*lines[1].Find("value"), "0x0");
}

TEST_F(ImageSession, EndTxnJournalsTheVoteAndRefusesAnUnknownOne) {
    BSA_Handle handle = 0;
    ASSERT_EQ(Open(handle), BSA_RC_SUCCESS);
    ASSERT_EQ(beginTxn(handle), BSA_RC_SUCCESS);
    // What a caller that passes no vote may leave in the register: refused, and the
    // transaction stays open.
    EXPECT_EQ(endTxn(handle, static_cast<BSA_Vote>(0x5eed)), BSA_RC_INVALID_VOTE);
    EXPECT_EQ(endTxn(handle, static_cast<BSA_Vote>(0)), BSA_RC_INVALID_VOTE);
    EXPECT_EQ(beginTxn(handle), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(endTxn(handle, BSAVote_COMMIT), BSA_RC_SUCCESS);
    ASSERT_EQ(beginTxn(handle), BSA_RC_SUCCESS);
    EXPECT_EQ(endTxn(handle, BSAVote_ABORT), BSA_RC_SUCCESS);

    std::vector<std::string> votes;
    std::vector<std::string> codes;
    for (const auto& line : ReadJournal(journal)) {
        if (line.call == "BSAEndTxn") {
            votes.push_back(*line.Find("vote"));
            codes.push_back(*line.Find("rc"));
        }
    }
    EXPECT_EQ(votes, (std::vector<std::string>{"24301", "0", "1", "2"}));
    EXPECT_EQ(codes, (std::vector<std::string>{"11", "11", "0", "0"}));
}

TEST_F(ImageSession, CatalogueAndExtractionThroughTheExports) {
    BSA_ApiVersion version{};
    ASSERT_EQ(queryApiVersion(&version), BSA_RC_SUCCESS);
    EXPECT_EQ(version.issue, 1);
    BSA_Handle handle = 0;
    ASSERT_EQ(Open(handle), BSA_RC_SUCCESS);
    ASSERT_EQ(beginTxn(handle), BSA_RC_SUCCESS);
    BSA_QueryDescriptor query;
    std::memset(&query, 0, sizeof(query));
    std::strcpy(query.owner.bsa_ObjectOwner, "MSEXCH");
    std::strcpy(query.owner.app_ObjectOwner, "msexch");
    query.copyType = BSA_CopyType_BACKUP;
    query.objectType = BSA_ObjectType_FILE;
    query.status = BSA_ObjectStatus_MOST_RECENT;
    BSA_ObjectDescriptor descriptor;
    BSA_Int32 rc = queryObject(handle, &query, &descriptor);
    int found = 0;
    BSA_ObjectDescriptor wanted{};
    while (rc == BSA_RC_SUCCESS) {
        ++found;
        if (std::strcmp(descriptor.objectName.pathName, "/First Storage Group/E00000101.log") ==
            0) {
            wanted = descriptor;
        }
        rc = getNext(handle, &descriptor);
    }
    EXPECT_EQ(rc, BSA_RC_NO_MORE_DATA);
    EXPECT_EQ(found, 19);
    ASSERT_EQ(endTxn(handle, BSAVote_COMMIT), BSA_RC_SUCCESS);

    ASSERT_EQ(beginTxn(handle), BSA_RC_SUCCESS);
    BSA_DataBlock32 block{};
    block.bufferLen = 16384;
    ASSERT_EQ(getObject(handle, &wanted, &block), BSA_RC_SUCCESS);
    ASSERT_EQ(block.bufferLen, 16384u);
    const fs::path extracted = dir.Path() / L"E00000101.log";
    {
        std::ofstream out(extracted, std::ios::binary);
        std::vector<char> buffer(16384);
        do {
            block.bufferLen = 16384;
            block.numBytes = 16384;
            block.bufferPtr = buffer.data();
            rc = getData(handle, &block);
            ASSERT_TRUE(rc == BSA_RC_SUCCESS || rc == BSA_RC_NO_MORE_DATA) << rc;
            out.write(buffer.data(), block.numBytes);
        } while (rc != BSA_RC_NO_MORE_DATA);
    }
    EXPECT_EQ(endData(handle), BSA_RC_SUCCESS);
    EXPECT_EQ(endTxn(handle, BSAVote_ABORT), BSA_RC_SUCCESS);
    EXPECT_EQ(endTxn(handle, BSAVote_COMMIT), BSA_RC_INVALID_CALL_SEQUENCE);
    EXPECT_EQ(terminate(handle), BSA_RC_SUCCESS);
    EXPECT_EQ(beginTxn(handle), BSA_RC_INVALID_HANDLE);

    nwsim::VerifyResult result;
    std::string error;
    ASSERT_TRUE(nwsim::VerifyObjectContent(nwsim::StoreLayout{root}, "srv", "cli",
                                           Object("/First Storage Group/E00000101.log"), extracted,
                                           result, error))
        << error;
    EXPECT_TRUE(result.equal) << result.message;

    const auto lines = ReadJournal(journal);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0].call, "BSAQueryApiVersion");
    EXPECT_EQ(lines[1].call, "BSAInit");
    EXPECT_EQ(*lines[1].Find("env1"), "NSR_DEBUG_LEVEL=0");
    int dataCalls = 0;
    for (const auto& line : lines) {
        if (line.call == "BSAGetData") {
            ++dataCalls;
            EXPECT_EQ(*line.Find("handle"), std::to_string(handle));
            EXPECT_EQ(*line.Find("numBytesIn"), "16384");
        }
        if (line.call == "BSAQueryObject") {
            EXPECT_EQ(*line.Find("qBsaOwner"), "MSEXCH");
            EXPECT_EQ(*line.Find("copyType"), "1");
            EXPECT_EQ(*line.Find("status"), "1");
        }
    }
    EXPECT_EQ(dataCalls, 65);  // 1,048,583 bytes: 64 full blocks and 7 bytes
    EXPECT_EQ(lines.back().call, "BSABeginTxn");
}

TEST_F(ImageSession, FaultsFromTheEnvironmentAndTheStore) {
    ScopedEnvironment faults(L"NWSIM_FAULTS", L"BSAGetData=3@2;BSAGetObject.bufferLen=65535");
    BSA_Handle handle = 0;
    ASSERT_EQ(Open(handle), BSA_RC_SUCCESS);
    ASSERT_EQ(beginTxn(handle), BSA_RC_SUCCESS);
    BSA_ObjectDescriptor named;
    std::memset(&named, 0, sizeof(named));
    std::strcpy(named.objectName.objectSpaceName, "\\IS");
    std::strcpy(named.objectName.pathName, "/Second Storage Group/E01000A1.log");
    BSA_DataBlock32 block{};
    ASSERT_EQ(getObject(handle, &named, &block), BSA_RC_SUCCESS);
    EXPECT_EQ(block.bufferLen, 65535u);
    std::vector<char> buffer(65535);
    block.bufferPtr = buffer.data();
    block.numBytes = 65535;
    EXPECT_EQ(getData(handle, &block), BSA_RC_SUCCESS);
    block.numBytes = 65535;
    EXPECT_EQ(getData(handle, &block), 3);
    EXPECT_EQ(endData(handle), BSA_RC_SUCCESS);
    EXPECT_EQ(endTxn(handle, BSAVote_COMMIT), BSA_RC_SUCCESS);

    {
        std::ofstream store(root / L"faults.txt", std::ios::binary);
        store << "# store-wide\nBSAQueryObject=4\n";
    }
    ScopedEnvironment noEnvironmentFaults(L"NWSIM_FAULTS", nullptr);
    ASSERT_EQ(Open(handle), BSA_RC_SUCCESS);
    ASSERT_EQ(beginTxn(handle), BSA_RC_SUCCESS);
    BSA_QueryDescriptor query;
    std::memset(&query, 0, sizeof(query));
    BSA_ObjectDescriptor descriptor;
    EXPECT_EQ(queryObject(handle, &query, &descriptor), 4);
}

TEST_F(ImageSession, UnknownNamesAndMissingStore) {
    BSA_Handle handle = 0;
    BSA_SecurityToken token{};
    BSA_ObjectOwner owner{};
    char client[] = "NSR_CLIENT=someone";
    char server[] = "NSR_SERVER=srv";
    char* environment[] = {client, server, nullptr};
    EXPECT_EQ(init(&handle, &token, &owner, environment), BSA_RC_AUTHENTICATION_FAILURE);
    char noServer[] = "NSR_CLIENT=cli";
    char* partial[] = {noServer, nullptr};
    EXPECT_EQ(init(&handle, &token, &owner, partial), BSA_RC_INVALID_ENV);
    // The image directory has no nwsim.ini: without NWSIM_ROOT there is no store.
    ScopedEnvironment noRoot(L"NWSIM_ROOT", nullptr);
    EXPECT_EQ(Open(handle), BSA_RC_ABORT_SYSTEM_ERROR);
    const auto lines = ReadJournal(journal);
    EXPECT_NE(lines.back().Find("error")->find("nwsim.ini"), std::string::npos);
}

class Nsrinfo : public ImageSession {
protected:
    ProcessResult RunLikeTheLibrary(const std::string& name,
                                    const fs::path& program = ImageDirectory() / L"nsrinfo.exe") {
        return RunWithApplicationName(program.string(),
                                      "-v -V -s srv -n msexch -N \"" + name + "\" cli");
    }
    const std::string kBig = "\\IS:/First Storage Group/Mailbox Store (EX01).edb";
};

TEST_F(Nsrinfo, PrintsTheTrueSizeAndJournalsItsCommandLine) {
    const ProcessResult result = RunLikeTheLibrary(kBig);
    EXPECT_EQ(result.exitCode, 0u) << result.errors;
    EXPECT_NE(result.output.find("size=5000000000,"), std::string::npos) << result.output;
    EXPECT_LT(result.output.size(), 1024u);
    const auto lines = ReadJournal(journal);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].call, "nsrinfo");
    EXPECT_EQ(*lines[0].Find("cmdline"), "-v -V -s srv -n msexch -N \"" + kBig + "\" cli");
    EXPECT_EQ(*lines[0].Find("exit"), "0");
}

TEST_F(Nsrinfo, AcceptsANormalCommandLineToo) {
    const ProcessResult result =
        RunCommand(Quote(ImageDirectory() / L"nsrinfo.exe") +
                   L" -v -V -s srv -n msexch -N \"\\IS:/First Storage Group/E00.chk\" cli");
    EXPECT_EQ(result.exitCode, 0u) << result.errors;
    EXPECT_NE(result.output.find("size=8192,"), std::string::npos) << result.output;
}

TEST_F(Nsrinfo, UnknownObjectClientOrServerFail) {
    ProcessResult result = RunLikeTheLibrary("\\IS:/nothing.edb");
    EXPECT_EQ(result.exitCode, 1u);
    EXPECT_TRUE(result.output.empty());
    EXPECT_NE(result.errors.find("no save set entry"), std::string::npos) << result.errors;
    result = RunWithApplicationName((ImageDirectory() / L"nsrinfo.exe").string(),
                                    "-v -V -s other -n msexch -N \"" + kBig + "\" cli");
    EXPECT_EQ(result.exitCode, 1u);
    EXPECT_NE(result.errors.find("unknown server"), std::string::npos) << result.errors;
    result = RunWithApplicationName((ImageDirectory() / L"nsrinfo.exe").string(), "-v -V");
    EXPECT_EQ(result.exitCode, 1u);
}

TEST_F(Nsrinfo, ExitCodeFaultKeepsTheOutput) {
    ScopedEnvironment faults(L"NWSIM_FAULTS", L"nsrinfo.exit=2");
    const ProcessResult result = RunLikeTheLibrary(kBig);
    EXPECT_EQ(result.exitCode, 2u);
    EXPECT_NE(result.output.find("size=5000000000,"), std::string::npos);
}

TEST_F(Nsrinfo, OutputFaults) {
    {
        ScopedEnvironment faults(L"NWSIM_FAULTS", L"nsrinfo.output=spaced");
        const ProcessResult result = RunLikeTheLibrary(kBig);
        EXPECT_EQ(result.output.find("size="), std::string::npos);
        EXPECT_NE(result.output.find("size = 5000000000,"), std::string::npos);
    }
    {
        ScopedEnvironment faults(L"NWSIM_FAULTS", L"nsrinfo.output=late");
        const ProcessResult result = RunLikeTheLibrary(kBig);
        const size_t marker = result.output.find("size=5000000000,");
        ASSERT_NE(marker, std::string::npos);
        EXPECT_GE(marker, 1024u);
    }
    {
        ScopedEnvironment faults(L"NWSIM_FAULTS", L"nsrinfo.output=long-value");
        const ProcessResult result = RunLikeTheLibrary(kBig);
        EXPECT_NE(result.output.find("size=00000000005000000000,"), std::string::npos);
    }
    {
        ScopedEnvironment faults(L"NWSIM_FAULTS", L"nsrinfo.output=empty");
        const ProcessResult result = RunLikeTheLibrary(kBig);
        EXPECT_EQ(result.exitCode, 0u);
        EXPECT_TRUE(result.output.empty());
    }
    {
        ScopedEnvironment faults(L"NWSIM_FAULTS", L"nsrinfo.output=flood");
        const ProcessResult result = RunLikeTheLibrary(kBig);
        EXPECT_EQ(result.exitCode, 0u);
        EXPECT_GE(result.output.size(), 1048576u);
        EXPECT_LT(result.output.find("size=5000000000,"), 1024u);
    }
}

TEST_F(Nsrinfo, FindsTheStoreThroughNwsimIni) {
    const fs::path installed = dir.Path() / L"install";
    fs::create_directories(installed);
    fs::copy_file(ImageDirectory() / L"nsrinfo.exe", installed / L"nsrinfo.exe");
    {
        std::ofstream ini(installed / L"nwsim.ini", std::ios::binary);
        ini << "[nwsim]\r\nroot=" << root.string() << "\r\n";
    }
    ScopedEnvironment noRoot(L"NWSIM_ROOT", nullptr);
    ProcessResult result = RunLikeTheLibrary(kBig, installed / L"nsrinfo.exe");
    EXPECT_EQ(result.exitCode, 0u) << result.errors;
    EXPECT_NE(result.output.find("size=5000000000,"), std::string::npos);
    fs::remove(installed / L"nwsim.ini");
    result = RunLikeTheLibrary(kBig, installed / L"nsrinfo.exe");
    EXPECT_EQ(result.exitCode, 1u);
    EXPECT_NE(result.errors.find("nwsim.ini"), std::string::npos) << result.errors;
}

TEST(Nsrexecd, RunsHarmlesslyFromAConsole) {
    const ProcessResult result = RunCommand(Quote(ImageDirectory() / L"nsrexecd.exe"));
    EXPECT_EQ(result.exitCode, 0u);
    EXPECT_NE(result.output.find("nsrexecd"), std::string::npos);
}

}  // namespace
