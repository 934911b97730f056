// nwexch.exe as an administrator runs it: a separate process, against the simulated NetWorker
// installed into this test's own Wine prefix (see run-cli-tests.sh).

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "../exports/ExportsTestSupport.h"
#include "SimulatorFixture.h"
#include "TestFiles.h"
#include "common/UniqueHandle.h"

namespace {

const wchar_t kServer[] = L"backup1";
const wchar_t kClient[] = L"exch1";
const wchar_t kDatabase[] = L"/Second Storage Group/Mailbox Store 2 (EX01).edb";
const uint64_t kDatabaseSize = 3000017;

std::wstring Env(const wchar_t* name) {
    wchar_t buffer[1024];
    const DWORD length = GetEnvironmentVariableW(name, buffer, 1024);
    return length == 0 || length >= 1024 ? std::wstring() : std::wstring(buffer, length);
}

std::wstring BinDir() {
    wchar_t buffer[MAX_PATH];
    const DWORD length = GetModuleFileNameW(nullptr, buffer, MAX_PATH);
    std::wstring path(buffer, length);
    return path.substr(0, path.find_last_of(L"\\/") + 1);
}

std::wstring Work() {
    return Env(L"NWEXCH_TEST_WORK");
}
// The simulated NetWorker of the whole suite (SetUpTestSuite).
std::unique_ptr<SimulatorFixture>& Simulator() {
    static std::unique_ptr<SimulatorFixture> simulator;
    return simulator;
}

std::wstring Quote(const std::wstring& arg) {
    std::wstring quoted = L"\"";
    for (wchar_t c : arg) {
        if (c == L'"') {
            quoted += L'\\';
        }
        quoted += c;
    }
    // A trailing backslash would escape the closing quote.
    if (!arg.empty() && arg.back() == L'\\') {
        quoted += L'\\';
    }
    return quoted + L"\"";
}

std::string ReadAll(HANDLE handle) {
    std::string text;
    char buffer[4096];
    DWORD read = 0;
    while (ReadFile(handle, buffer, sizeof buffer, &read, nullptr) && read > 0) {
        text.append(buffer, read);
    }
    return text;
}

struct Result {
    DWORD exitCode = 0xFFFFFFFF;
    std::string out;
    std::string err;
};

Result RunProgram(const std::wstring& program, const std::vector<std::wstring>& args,
                  const std::map<std::wstring, std::wstring>& env = {}) {
    SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
    UniqueHandle outRead, outWrite, errRead, errWrite;
    EXPECT_TRUE(CreatePipe(outRead.put(), outWrite.put(), &inherit, 0));
    EXPECT_TRUE(CreatePipe(errRead.put(), errWrite.put(), &inherit, 0));
    SetHandleInformation(outRead.get(), HANDLE_FLAG_INHERIT, 0);
    SetHandleInformation(errRead.get(), HANDLE_FLAG_INHERIT, 0);
    UniqueFileHandle nul(CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                     &inherit, OPEN_EXISTING, 0, nullptr));

    std::wstring commandLine = Quote(BinDir() + program);
    for (const std::wstring& arg : args) {
        commandLine += L" " + Quote(arg);
    }
    for (const auto& [name, value] : env) {
        SetEnvironmentVariableW(name.c_str(), value.c_str());
    }
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = nul.get();
    startup.hStdOutput = outWrite.get();
    startup.hStdError = errWrite.get();
    PROCESS_INFORMATION info{};
    const BOOL started = CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0,
                                        nullptr, nullptr, &startup, &info);
    for (const auto& entry : env) {
        SetEnvironmentVariableW(entry.first.c_str(), nullptr);
    }
    Result result;
    if (!started) {
        ADD_FAILURE() << "could not start " << std::string(program.begin(), program.end());
        return result;
    }
    UniqueHandle process(info.hProcess);
    UniqueHandle thread(info.hThread);
    outWrite.reset();
    errWrite.reset();
    std::thread errReader([&] { result.err = ReadAll(errRead.get()); });
    result.out = ReadAll(outRead.get());
    errReader.join();
    WaitForSingleObject(process.get(), INFINITE);
    GetExitCodeProcess(process.get(), &result.exitCode);
    return result;
}

std::vector<std::wstring> Session(std::vector<std::wstring> args, const wchar_t* mode) {
    args.insert(args.end(), {L"--server", kServer, L"--client", kClient, L"--mode", mode});
    return args;
}

Result Nwexch(const std::vector<std::wstring>& args, const wchar_t* mode = L"in-process",
              const std::map<std::wstring, std::wstring>& env = {}) {
    return RunProgram(L"nwexch.exe", Session(args, mode), env);
}

Result Admin(std::vector<std::wstring> args) {
    args.insert(args.end(), {L"--root", Simulator()->StoreRoot()});
    return RunProgram(L"nwsim-admin.exe", args);
}

bool Verify(const std::wstring& objectPath, const std::wstring& file) {
    return Simulator()->Verify(objectPath, file);
}

// Minimal reader for the flat JSON objects nwexch writes: string and integer values.
bool ParseJsonObject(const std::string& line, std::map<std::string, std::string>* fields) {
    size_t i = 0;
    auto skip = [&] {
        while (i < line.size() && (line[i] == ' ' || line[i] == '\r')) {
            ++i;
        }
    };
    auto readString = [&](std::string* out) -> bool {
        if (i >= line.size() || line[i] != '"') {
            return false;
        }
        ++i;
        while (i < line.size() && line[i] != '"') {
            if (line[i] == '\\') {
                if (++i >= line.size()) {
                    return false;
                }
                const char e = line[i];
                if (e == 'u') {
                    if (i + 4 >= line.size()) {
                        return false;
                    }
                    const unsigned code = std::stoul(line.substr(i + 1, 4), nullptr, 16);
                    out->push_back(code < 0x80 ? static_cast<char>(code) : '?');
                    i += 4;
                } else if (e == 'n') {
                    out->push_back('\n');
                } else if (e == 't') {
                    out->push_back('\t');
                } else {
                    out->push_back(e);
                }
            } else {
                out->push_back(line[i]);
            }
            ++i;
        }
        ++i;
        return i <= line.size();
    };
    skip();
    if (i >= line.size() || line[i++] != '{') {
        return false;
    }
    for (;;) {
        skip();
        std::string key, value;
        if (!readString(&key)) {
            return false;
        }
        skip();
        if (i >= line.size() || line[i++] != ':') {
            return false;
        }
        skip();
        if (i < line.size() && line[i] == '"') {
            if (!readString(&value)) {
                return false;
            }
        } else {
            while (i < line.size() && line[i] >= '0' && line[i] <= '9') {
                value.push_back(line[i++]);
            }
            if (value.empty()) {
                return false;
            }
        }
        (*fields)[key] = value;
        skip();
        if (i < line.size() && line[i] == ',') {
            ++i;
            continue;
        }
        return i < line.size() && line[i] == '}' && i + 1 == line.size();
    }
}

std::vector<std::map<std::string, std::string>> ListJson(
    const std::vector<std::wstring>& extra = {}, const wchar_t* mode = L"in-process") {
    std::vector<std::wstring> args = {L"list", L"--json"};
    args.insert(args.end(), extra.begin(), extra.end());
    const Result result = Nwexch(args, mode);
    EXPECT_EQ(result.exitCode, 0u) << result.err;
    std::vector<std::map<std::string, std::string>> rows;
    size_t start = 0;
    while (start < result.out.size()) {
        size_t end = result.out.find('\n', start);
        if (end == std::string::npos) {
            end = result.out.size();
        }
        std::map<std::string, std::string> fields;
        EXPECT_TRUE(ParseJsonObject(result.out.substr(start, end - start), &fields))
            << result.out.substr(start, end - start);
        rows.push_back(fields);
        start = end + 1;
    }
    return rows;
}

std::string Narrow(const std::wstring& text) {
    return std::string(text.begin(), text.end());
}

std::wstring IndexOf(const std::wstring& path) {
    for (const auto& row : ListJson()) {
        if (row.at("path") == Narrow(path)) {
            const std::string& index = row.at("index");
            return std::wstring(index.begin(), index.end());
        }
    }
    ADD_FAILURE() << "not catalogued: " << Narrow(path);
    return L"";
}

std::string IndexOfRow(const std::vector<std::map<std::string, std::string>>& rows,
                       const std::string& path) {
    for (const auto& row : rows) {
        if (row.at("path") == path) {
            return row.at("index");
        }
    }
    return "?";
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class NwexchCli : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_FALSE(Work().empty()) << "run through run-cli-tests.sh";
        SimulatorOptions options;
        options.server = kServer;
        options.client = kClient;
        options.databaseSize = kDatabaseSize;
        Simulator() = std::make_unique<SimulatorFixture>(options);
        ASSERT_TRUE(Simulator()->Ready()) << Simulator()->Failure();
        // One log of an earlier day, so that date filters have something to tell apart.
        const Result add =
            Admin({L"add", L"--server", kServer, L"--client", kClient, L"--path",
                   L"/Third Storage Group/E02000B1.log", L"--size", L"4096", L"--resource-type",
                   L"L", L"--create-time", L"2024-05-01 10:00:00"});
        ASSERT_EQ(add.exitCode, 0u) << add.err;
        // Four databases of 4 MiB for the sessions of --jobs to be busy with side by side.
        for (int i = 1; i <= 4; ++i) {
            const Result big = Admin({L"add", L"--server", kServer, L"--client", kClient, L"--path",
                                      BigDatabase(i), L"--size", L"4194304", L"--resource-type",
                                      L"D", L"--create-time", L"2024-05-08 23:59:30"});
            ASSERT_EQ(big.exitCode, 0u) << big.err;
        }
    }

    static void TearDownTestSuite() { Simulator().reset(); }

    static std::wstring BigDatabase(int number) {
        return L"/Fifth Storage Group/Big " + std::to_wstring(number) + L".edb";
    }

    static std::wstring Destination(const wchar_t* name) { return Work() + L"\\" + name; }
};

TEST_F(NwexchCli, ListGivesTheSameOutputInBothModes) {
    const Result inProcess = Nwexch({L"list"});
    const Result helper = Nwexch({L"list"}, L"helper");
    ASSERT_EQ(inProcess.exitCode, 0u) << inProcess.err;
    ASSERT_EQ(helper.exitCode, 0u) << helper.err;
    EXPECT_EQ(inProcess.out, helper.out);
    EXPECT_TRUE(Contains(inProcess.out, "INDEX  BACKUP TIME"));
    EXPECT_TRUE(Contains(inProcess.out, "2024-05-08 23:59:30"));
    EXPECT_TRUE(Contains(inProcess.out, Narrow(kDatabase)));
    // Containers of the storage groups are not Exchange files.
    EXPECT_FALSE(Contains(inProcess.out, "/Private Information Store\n"));
}

TEST_F(NwexchCli, JsonLinesParseBackToTheCatalogue) {
    const auto rows = ListJson();
    ASSERT_GE(rows.size(), 10u);
    for (size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(rows[i].at("index"), std::to_string(i));
        EXPECT_EQ(rows[i].count("restoreOrder"), 1u);
    }
    bool sawDatabase = false;
    for (const auto& row : rows) {
        if (row.at("path") == Narrow(kDatabase)) {
            sawDatabase = true;
            EXPECT_EQ(row.at("size"), "0");  // databases are announced with size 0
            EXPECT_EQ(row.at("backupTime"), "2024-05-08T23:59:30");
        }
        if (Contains(row.at("path"), ".log")) {
            EXPECT_EQ(row.at("size"), "5242880");
        }
    }
    EXPECT_TRUE(sawDatabase);
    EXPECT_EQ(ListJson({}, L"helper"), rows);
}

TEST_F(NwexchCli, DateFiltersKeepIndexesAndCountWholeDays) {
    const auto all = ListJson();
    const auto beforeDay = ListJson({L"--before", L"2024-05-08"});
    EXPECT_EQ(beforeDay, all);  // 23:59:30 is still on the 8th
    const auto beforeTime = ListJson({L"--before", L"2024-05-08T23:59"});
    ASSERT_EQ(beforeTime.size(), 1u);
    EXPECT_EQ(beforeTime[0].at("path"), "/Third Storage Group/E02000B1.log");
    EXPECT_EQ(beforeTime[0].at("index"), IndexOfRow(all, "/Third Storage Group/E02000B1.log"));
    const auto after = ListJson({L"--after", L"2024-05-02"});
    EXPECT_EQ(after.size(), all.size() - 1);
    EXPECT_TRUE(ListJson({L"--after", L"2024-05-09"}).empty());
    EXPECT_EQ(
        ListJson({L"--after", L"2024-05-08T23:59:30", L"--before", L"2024-05-08T23:59:30"}).size(),
        all.size() - 1);
    EXPECT_TRUE(ListJson({L"--after", L"2024-05-01T10:00:01", L"--before", L"2024-05-07"}).empty());
}

TEST_F(NwexchCli, RestoreByIndexWritesTheExactBytes) {
    const std::wstring index = IndexOf(kDatabase);
    const std::wstring to = Destination(L"by-index");
    const Result result = Nwexch({L"restore", index, L"--to", to});
    ASSERT_EQ(result.exitCode, 0u) << result.out << result.err;
    const std::wstring file = to + L"\\Second Storage Group\\Mailbox Store 2 (EX01).edb";
    EXPECT_TRUE(Verify(kDatabase, file));
    const std::vector<std::wstring> files = FilesBelow(to);
    EXPECT_EQ(files.size(), 1u);
    EXPECT_TRUE(Contains(result.out, "Restored 1 of 1 files, " + std::to_string(kDatabaseSize)));

    const Result size = Nwexch({L"size", index, L"--exact"});
    EXPECT_EQ(size.exitCode, 0u);
    EXPECT_TRUE(Contains(size.out, std::to_string(kDatabaseSize)));
}

TEST_F(NwexchCli, ExactSizesComeFromNetWorkerAboveFourGiB) {
    const std::wstring index = IndexOf(L"/First Storage Group/Mailbox Store (EX01).edb");
    for (const wchar_t* mode : {L"in-process", L"helper"}) {
        const Result catalogue = Nwexch({L"size", index}, mode);
        EXPECT_EQ(catalogue.exitCode, 0u) << catalogue.err;
        EXPECT_TRUE(Contains(catalogue.out, " 705032704 ")) << catalogue.out;
        EXPECT_TRUE(Contains(catalogue.err, "--exact asks NetWorker"));
        const Result exact = Nwexch({L"size", index, L"--exact"}, mode);
        EXPECT_EQ(exact.exitCode, 0u) << exact.err;
        EXPECT_TRUE(Contains(exact.out, " 5000000000 ")) << exact.out;
    }
}

std::string ReadFileText(const std::wstring& path) {
    UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                      nullptr));
    return file.valid() ? ReadAll(file.get()) : std::string();
}

TEST_F(NwexchCli, LogOptionsReachTheLibraryInBothModes) {
    for (const wchar_t* mode : {L"in-process", L"helper"}) {
        const std::wstring infoLog = Destination(L"info-") + mode + L".log";
        const Result info = Nwexch({L"list", L"--log", infoLog, L"--log-level", L"info"}, mode);
        ASSERT_EQ(info.exitCode, 0u) << info.err;
        // The executor's closing line, written in this process or in the helper.
        EXPECT_TRUE(Contains(ReadFileText(infoLog), "NetWorkerApiExecutor::Catalog\tFound "))
            << Narrow(mode);

        const std::wstring errorLog = Destination(L"error-") + mode + L".log";
        const Result error = Nwexch({L"list", L"--log", errorLog, L"--log-level", L"error"}, mode);
        ASSERT_EQ(error.exitCode, 0u) << error.err;
        EXPECT_FALSE(Contains(ReadFileText(errorLog), "Found ")) << Narrow(mode);
    }
}

TEST_F(NwexchCli, HardenedPipeRestoresTheSameBytesAndTheHelperChecksItsServer) {
    const std::wstring to = Destination(L"hardened");
    const std::wstring log = Destination(L"hardened.log");
    const Result result =
        Nwexch({L"restore", L"--hardened-pipe", L"--match", L"/second storage group/*.LOG", L"--to",
                to, L"--flat", L"--log", log, L"--log-level", L"debug"},
               L"helper");
    ASSERT_EQ(result.exitCode, 0u) << result.out << result.err;
    EXPECT_TRUE(Verify(L"/Second Storage Group/E01000A1.log", to + L"\\E01000A1.log"));
    // The helper found nwexch, its parent, at the other end of the pipe.
    EXPECT_TRUE(Contains(ReadFileText(log), "The pipe is served by the parent process "));

    const Result refused = Nwexch({L"list", L"--hardened-pipe"});
    EXPECT_EQ(refused.exitCode, 1u);  // usage
    EXPECT_TRUE(Contains(refused.err, "--hardened-pipe needs --mode helper")) << refused.err;
}

TEST_F(NwexchCli, RestoreByGlobInHelperModeAndFlat) {
    const std::wstring to = Destination(L"by-glob");
    const Result result =
        Nwexch({L"restore", L"--match", L"/second storage group/*.LOG", L"--to", to, L"--flat"},
               L"helper");
    ASSERT_EQ(result.exitCode, 0u) << result.out << result.err;
    const std::vector<std::wstring> files = FilesBelow(to);
    ASSERT_EQ(files.size(), 3u);
    for (const wchar_t* name : {L"E01000A1.log", L"E01000A2.log", L"E01tmp.log"}) {
        EXPECT_TRUE(Verify(std::wstring(L"/Second Storage Group/") + name, to + L"\\" + name))
            << Narrow(std::wstring(name));
    }
}

TEST_F(NwexchCli, ExistingFilesAreNotOverwrittenUnlessAsked) {
    const std::wstring to = Destination(L"twice");
    const std::vector<std::wstring> args = {L"restore", L"--match", L"*/E01.chk", L"--to", to};
    ASSERT_EQ(Nwexch(args).exitCode, 0u);
    const Result again = Nwexch(args);
    EXPECT_EQ(again.exitCode, 1u);
    EXPECT_TRUE(Contains(again.err, "already exists"));
    std::vector<std::wstring> overwrite = args;
    overwrite.push_back(L"--overwrite");
    const Result replaced = Nwexch(overwrite);
    EXPECT_EQ(replaced.exitCode, 0u) << replaced.err;
    EXPECT_TRUE(Verify(L"/Second Storage Group/E01.chk", to + L"\\Second Storage Group\\E01.chk"));
}

TEST_F(NwexchCli, CancellationLeavesNoPartialFileInEitherMode) {
    for (const wchar_t* mode : {L"in-process", L"helper"}) {
        const std::wstring to = Destination(L"cancelled-") + mode;
        const Result result =
            Nwexch({L"restore", L"--match", L"/Second Storage Group/*", L"--to", to}, mode,
                   {{L"NWEXCH_CANCEL_AFTER_BYTES", L"1"}});
        EXPECT_EQ(result.exitCode, 4u) << Narrow(mode) << result.out << result.err;
        EXPECT_TRUE(Contains(result.out, "CANCELLED  " + Narrow(kDatabase)));
        EXPECT_TRUE(Contains(result.out, "Restored 0 of 6 files"));
        const std::vector<std::wstring> files = FilesBelow(to);
        EXPECT_TRUE(files.empty()) << Narrow(files.empty() ? L"" : files[0]);
    }
}

TEST_F(NwexchCli, FullDiskAnsweredWithCancelLeavesNothing) {
    const std::wstring tiny = Env(L"NWEXCH_TEST_TINY");
    if (tiny.empty()) {
        GTEST_SKIP() << "no 1 MiB disk: " << Narrow(Env(L"NWEXCH_TEST_TINY_SKIP"));
    }
    const Result result = Nwexch(
        {L"restore", IndexOf(kDatabase), L"--to", tiny, L"--flat", L"--on-disk-full", L"cancel"});
    EXPECT_EQ(result.exitCode, 4u) << result.out << result.err;
    EXPECT_TRUE(Contains(result.err, "the disk is full"));
    EXPECT_TRUE(Contains(result.out, "CANCELLED  " + Narrow(kDatabase) + ": the disk is full"));
    const std::vector<std::wstring> files = FilesBelow(tiny);
    EXPECT_TRUE(files.empty()) << Narrow(files.empty() ? L"" : files[0]);
}

TEST_F(NwexchCli, WrongServerIsANetWorkerFailureWithItsStatus) {
    for (const wchar_t* mode : {L"in-process", L"helper"}) {
        const Result result = RunProgram(L"nwexch.exe", {L"list", L"--server", L"no-such-server",
                                                         L"--client", kClient, L"--mode", mode});
        EXPECT_EQ(result.exitCode, 2u) << Narrow(mode);
        EXPECT_TRUE(Contains(result.err,
                             "status 0x8007000A (BSAInit failed: bad environment / "
                             "unknown server or client)"))
            << result.err;
        EXPECT_TRUE(result.out.empty());
    }
}

TEST_F(NwexchCli, BadArgumentsExitWithUsage) {
    const std::vector<std::vector<std::wstring>> bad = {
        {},
        {L"frobnicate"},
        {L"list", L"--server"},
        {L"list", L"--server", kServer, L"--after", L"2024-13-01"},
        {L"restore", L"--server", kServer, L"1"},
        {L"size", L"--server", kServer, L"x"},
    };
    for (const auto& args : bad) {
        const Result result = RunProgram(L"nwexch.exe", args);
        EXPECT_EQ(result.exitCode, 1u);
        EXPECT_TRUE(Contains(result.err, "Try 'nwexch")) << result.err;
    }
    const Result unknownIndex = Nwexch({L"size", L"9999"});
    EXPECT_EQ(unknownIndex.exitCode, 1u);
    EXPECT_TRUE(Contains(unknownIndex.err, "index 9999 is not in the catalogue"));
    const Result noMatch =
        Nwexch({L"restore", L"--match", L"*.nothing", L"--to", Destination(L"none")});
    EXPECT_EQ(noMatch.exitCode, 1u);
    EXPECT_TRUE(Contains(noMatch.err, "no catalogued file matches"));
    const Result version = RunProgram(L"nwexch.exe", {L"--version"});
    EXPECT_EQ(version.exitCode, 0u);
    EXPECT_EQ(version.out, "nwexch " NWX_EXPECTED_VERSION " (NetWorkerXbsa)\n");
    const Result help = RunProgram(L"nwexch.exe", {L"restore", L"--help"});
    EXPECT_EQ(help.exitCode, 0u);
    EXPECT_TRUE(Contains(help.out, "Exit codes:"));
}

// --- restore --jobs N: several helper sessions side by side ---

// The helper programs that the one running nwexch.exe has started.
std::vector<DWORD> HelpersOfRunningNwexch() {
    std::vector<DWORD> helpers;
    for (DWORD nwexch : FindProcessesNamed(L"nwexch.exe")) {
        for (DWORD helper : ChildProcessesNamed(nwexch, L"NetWorker64BitClient.exe")) {
            helpers.push_back(helper);
        }
    }
    return helpers;
}

// Waits (up to 30 s) until the simulator's journal has a line starting with `call`.
bool AwaitJournalLine(const std::string& call) {
    for (int i = 0; i < 300; ++i) {
        if (!Simulator()->JournalLinesOf(call).empty()) {
            return true;
        }
        Sleep(100);
    }
    return false;
}

TEST_F(NwexchCli, JobsRestoreTheSameBytesWithOneTwoFourAndEightSessions) {
    const wchar_t* const names[] = {L"Mailbox Store 2 (EX01).edb",
                                    L"Mailbox Store 2 (EX01).stm",
                                    L"E01.chk",
                                    L"E01000A1.log",
                                    L"E01000A2.log",
                                    L"E01tmp.log"};
    // Eight sessions for six files: no more sessions than files are opened.
    for (const wchar_t* jobs : {L"1", L"2", L"4", L"8"}) {
        const std::wstring to = Destination(L"jobs-") + jobs;
        const Result result = Nwexch(
            {L"restore", L"--match", L"/Second Storage Group/*", L"--to", to, L"--jobs", jobs},
            L"helper");
        ASSERT_EQ(result.exitCode, 0u) << Narrow(jobs) << result.out << result.err;
        EXPECT_TRUE(Contains(result.out, "Restored 6 of 6 files")) << result.out;
        EXPECT_EQ(FilesBelow(to).size(), 6u);
        for (const wchar_t* name : names) {
            EXPECT_TRUE(Verify(std::wstring(L"/Second Storage Group/") + name,
                               to + L"\\Second Storage Group\\" + name))
                << Narrow(jobs) << " " << Narrow(name);
        }
    }
}

TEST_F(NwexchCli, JobsWithTheHardenedPipe) {
    const std::wstring to = Destination(L"jobs-hardened");
    const Result result = Nwexch({L"restore", L"--hardened-pipe", L"--jobs", L"3", L"--match",
                                  L"/second storage group/*.LOG", L"--to", to, L"--flat"},
                                 L"helper");
    ASSERT_EQ(result.exitCode, 0u) << result.out << result.err;
    for (const wchar_t* name : {L"E01000A1.log", L"E01000A2.log", L"E01tmp.log"}) {
        EXPECT_TRUE(Verify(std::wstring(L"/Second Storage Group/") + name, to + L"\\" + name));
    }
}

TEST_F(NwexchCli, JobsInProcessIsAUsageErrorThatSaysWhy) {
    const Result result =
        Nwexch({L"restore", L"--jobs", L"2", L"--match", L"*", L"--to", Destination(L"x")});
    EXPECT_EQ(result.exitCode, 1u);
    EXPECT_TRUE(Contains(result.err, "--jobs 2 needs --mode helper")) << result.err;
    EXPECT_TRUE(Contains(result.err, "NetWorker's libraries")) << result.err;
    const Result tooMany = Nwexch(
        {L"restore", L"--jobs", L"17", L"--match", L"*", L"--to", Destination(L"x")}, L"helper");
    EXPECT_EQ(tooMany.exitCode, 1u);
    EXPECT_TRUE(Contains(tooMany.err, "--jobs takes a number from 1 to 16")) << tooMany.err;
}

// --- a helper lost at a known point, held there by nwsim (docs/nwsim.md, "<Call>.hold") ---

// The six files of the second storage group, from 2 MiB down to an empty one, in restore order.
const wchar_t* const kSecondGroup[] = {L"Mailbox Store 2 (EX01).edb",
                                       L"Mailbox Store 2 (EX01).stm",
                                       L"E01.chk",
                                       L"E01000A1.log",
                                       L"E01000A2.log",
                                       L"E01tmp.log"};

std::wstring SecondGroupPath(const wchar_t* name) {
    return std::wstring(L"/Second Storage Group/") + name;
}

// The processes that nwsim holds or has held: each leaves "<pid>.held" in the release
// directory (the journal's hold lines could be lost when several processes append at once).
std::vector<DWORD> HeldProcesses(const std::wstring& releaseDirectory) {
    std::vector<DWORD> pids;
    for (const std::wstring& file : FilesBelow(releaseDirectory)) {
        const std::wstring name = file.substr(file.find_last_of(L"\\/") + 1);
        const size_t dot = name.find(L".held");
        if (dot != std::wstring::npos && dot + 5 == name.size()) {
            pids.push_back(static_cast<DWORD>(std::wcstoul(name.c_str(), nullptr, 10)));
        }
    }
    return pids;
}

// Waits (up to 60 s, or until the run is over) until `count` processes have been held.
std::vector<DWORD> AwaitHeld(const std::wstring& releaseDirectory, size_t count,
                             const std::atomic<bool>& over) {
    std::vector<DWORD> held = HeldProcesses(releaseDirectory);
    for (int i = 0; i < 600 && held.size() < count && !over; ++i) {
        Sleep(100);
        held = HeldProcesses(releaseDirectory);
    }
    return held;
}

void Release(const std::wstring& releaseDirectory, DWORD pid) {
    const std::wstring file = releaseDirectory + L"\\" + std::to_wstring(pid);
    if (!FileExists(file)) {
        WriteWholeFile(file, "");
    }
}

// Kills the process and waits until it has ended.
bool Kill(DWORD pid) {
    UniqueHandle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, pid));
    return process && TerminateProcess(process.get(), 9) &&
           WaitForSingleObject(process.get(), 30000) == WAIT_OBJECT_0;
}

// Where the helper is lost: nwsim holds every helper at `hold`; a helper held there (the first
// one seen) is killed, once `heldBeforeKill` helpers have been held. With `killedIdle` that one
// is let through its hold and killed only then, while it waits for nwexch's next request.
struct LossPoint {
    const wchar_t* hold;
    size_t heldBeforeKill = 1;
    bool killedIdle = false;
};

struct LossRun {
    Result result;
    std::wstring to;
    bool killed = false;
    std::string Show() const { return result.out + result.err; }
};

// nwexch restores the second storage group through `jobs` sessions and loses one helper at
// `point`; every other helper is let through its hold.
LossRun RestoreLosingAHelper(const std::wstring& name, const wchar_t* jobs,
                             const LossPoint& point) {
    LossRun run;
    run.to = Work() + L"\\" + name;
    const std::wstring release = Work() + L"\\" + name + L"-release";
    // Nothing of an earlier run of the same test (--gtest_repeat) may count for this one.
    std::error_code ignored;
    std::filesystem::remove_all(run.to, ignored);
    std::filesystem::remove_all(release, ignored);
    CreateDirectoryW(release.c_str(), nullptr);
    std::atomic<bool> over{false};
    std::thread restore([&] {
        run.result = Nwexch(
            {L"restore", L"--match", L"/Second Storage Group/*", L"--to", run.to, L"--jobs", jobs},
            L"helper", {{L"NWSIM_FAULTS", std::wstring(point.hold) + L";hold.release=" + release}});
        over = true;
    });
    DWORD victim = 0;
    const std::vector<DWORD> first = AwaitHeld(release, 1, over);
    if (!first.empty()) {
        victim = first[0];
        if (point.killedIdle) {
            Release(release, victim);
        }
        if (AwaitHeld(release, point.heldBeforeKill, over).size() >= point.heldBeforeKill) {
            // Only a helper of the running nwexch is killed (nwsim's pid is the process's own).
            const std::vector<DWORD> helpers = HelpersOfRunningNwexch();
            run.killed =
                std::find(helpers.begin(), helpers.end(), victim) != helpers.end() && Kill(victim);
        }
    }
    // Every other helper goes on, also one that reaches its hold later (a release file that
    // exists lets it through at once).
    while (!over) {
        for (DWORD pid : HeldProcesses(release)) {
            if (pid != victim || !run.killed) {
                Release(release, pid);
            }
        }
        Sleep(50);
    }
    restore.join();
    return run;
}

// Every file under `to` is a whole one under its real name, byte for byte the backup's; returns
// how many of the second storage group's files are there.
size_t CheckRestoredFiles(const std::wstring& to) {
    for (const std::wstring& file : FilesBelow(to)) {
        EXPECT_EQ(file.find(L".nwexch-partial"), std::wstring::npos) << Narrow(file);
    }
    size_t restored = 0;
    for (const wchar_t* name : kSecondGroup) {
        const std::wstring file = to + L"\\Second Storage Group\\" + name;
        if (FileExists(file)) {
            EXPECT_TRUE(Verify(SecondGroupPath(name), file)) << Narrow(name);
            ++restored;
        }
    }
    EXPECT_EQ(FilesBelow(to).size(), restored);
    return restored;
}

size_t Occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

const char kHelperClosedThePipe[] =
    "status 0x0000006D (109: the helper program closed the pipe: it ended unexpectedly)";

// Before BeginExtract, alone: the helper dies as the extraction starts (held at its second
// BSABeginTxn; the first was the catalogue's). Nothing was written, every file is not done.
TEST_F(NwexchCli, LostHelperBeforeBeginExtractWithOneJob) {
    const LossRun run = RestoreLosingAHelper(L"lost-before-begin-1", L"1", {L"BSABeginTxn.hold=2"});
    ASSERT_TRUE(run.killed) << run.Show();
    EXPECT_EQ(run.result.exitCode, 2u) << run.Show();
    EXPECT_TRUE(
        Contains(run.result.err, std::string("nwexch: the session to NetWorker is lost before the "
                                             "extraction began: ") +
                                     kHelperClosedThePipe))
        << run.result.err;
    EXPECT_TRUE(Contains(run.result.out, "Restored 0 of 6 files")) << run.result.out;
    EXPECT_EQ(Occurrences(run.result.out, "NOT DONE   "), 6u) << run.result.out;
    EXPECT_TRUE(Contains(run.result.out, ": the session to NetWorker was lost")) << run.result.out;
    EXPECT_EQ(CheckRestoredFiles(run.to), 0u);
}

// With four sessions one helper was lost: exit code 3, that one loss reported (`loss` is part of
// its line), and every file restored byte-exactly by the sessions that carried on.
void ExpectOneOfFourLostAndEveryFileRestored(const LossRun& run, const std::string& loss) {
    ASSERT_TRUE(run.killed) << run.Show();
    EXPECT_EQ(run.result.exitCode, 3u) << run.Show();
    EXPECT_TRUE(Contains(run.result.err, loss)) << run.result.err;
    EXPECT_EQ(Occurrences(run.result.err, " is lost "), 1u) << run.result.err;
    EXPECT_TRUE(Contains(run.result.out, "Restored 6 of 6 files")) << run.result.out;
    EXPECT_FALSE(Contains(run.result.out, "Not restored")) << run.result.out;
    EXPECT_EQ(CheckRestoredFiles(run.to), 6u);
}

// Before BeginExtract, one of four: the first session's helper is killed while it waits for
// BeginExtract (the other three are held at the end of their catalogues meanwhile), so that
// BeginExtract meets a pipe with nobody at the other end. The other three restore every file.
TEST_F(NwexchCli, LostHelperBeforeBeginExtractWithFourJobs) {
    const LossRun run =
        RestoreLosingAHelper(L"lost-before-begin-4", L"4", {L"BSAEndTxn.hold=1", 4, true});
    ExpectOneOfFourLostAndEveryFileRestored(
        run, "nwexch: session 1 of 4 is lost before the extraction began: ");
}

// During a file, alone: the helper dies after the first block of the first file (held at its
// second BSAGetData). That file fails and its partial file is removed; the rest is not done.
TEST_F(NwexchCli, LostHelperDuringAFileWithOneJob) {
    const LossRun run = RestoreLosingAHelper(L"lost-in-file-1", L"1", {L"BSAGetData.hold=2"});
    ASSERT_TRUE(run.killed) << run.Show();
    EXPECT_EQ(run.result.exitCode, 2u) << run.Show();
    const std::string database = Narrow(SecondGroupPath(kSecondGroup[0]));
    EXPECT_TRUE(Contains(run.result.err, "nwexch: the session to NetWorker is lost during " +
                                             database + ": " + kHelperClosedThePipe))
        << run.result.err;
    EXPECT_TRUE(Contains(run.result.out, "Restored 0 of 6 files")) << run.result.out;
    EXPECT_TRUE(Contains(run.result.out, "FAILED     " + database + ": " + kHelperClosedThePipe))
        << run.result.out;
    EXPECT_EQ(Occurrences(run.result.out, "NOT DONE   "), 5u) << run.result.out;
    EXPECT_EQ(CheckRestoredFiles(run.to), 0u);
}

// During a file, one of four: the first helper to reach its second block dies there. Only its
// file fails (its partial file removed); the other sessions restore the five others.
TEST_F(NwexchCli, LostHelperDuringAFileWithFourJobs) {
    const LossRun run = RestoreLosingAHelper(L"lost-in-file-4", L"4", {L"BSAGetData.hold=2"});
    ASSERT_TRUE(run.killed) << run.Show();
    EXPECT_EQ(run.result.exitCode, 3u) << run.Show();
    EXPECT_TRUE(Contains(run.result.err, " of 4 is lost during /Second Storage Group/"))
        << run.result.err;
    EXPECT_EQ(Occurrences(run.result.err, " is lost "), 1u) << run.result.err;
    EXPECT_TRUE(Contains(run.result.out, "Restored 5 of 6 files")) << run.result.out;
    EXPECT_EQ(Occurrences(run.result.out, "FAILED     "), 1u) << run.result.out;
    EXPECT_TRUE(Contains(run.result.out, kHelperClosedThePipe)) << run.result.out;
    EXPECT_FALSE(Contains(run.result.out, "NOT DONE")) << run.result.out;
    EXPECT_EQ(CheckRestoredFiles(run.to), 5u);
}

// Between files, alone: the first file is restored, and the helper dies before a byte of the
// second (held as it opens it, at its second BSAGetObject). No file fails; the second and the
// rest are not done, and the (empty) file the helper had created for it is removed.
TEST_F(NwexchCli, LostHelperBetweenFilesWithOneJob) {
    const LossRun run = RestoreLosingAHelper(L"lost-between-1", L"1", {L"BSAGetObject.hold=2"});
    ASSERT_TRUE(run.killed) << run.Show();
    EXPECT_EQ(run.result.exitCode, 2u) << run.Show();
    EXPECT_TRUE(Contains(run.result.err, "nwexch: the session to NetWorker is lost before " +
                                             Narrow(SecondGroupPath(kSecondGroup[1])) +
                                             " began: " + kHelperClosedThePipe))
        << run.result.err;
    EXPECT_TRUE(Contains(run.result.out, "Restored 1 of 6 files")) << run.result.out;
    EXPECT_FALSE(Contains(run.result.out, "FAILED")) << run.result.out;
    EXPECT_EQ(Occurrences(run.result.out, "NOT DONE   "), 5u) << run.result.out;
    EXPECT_EQ(CheckRestoredFiles(run.to), 1u);
    EXPECT_TRUE(FileExists(run.to + L"\\Second Storage Group\\" + kSecondGroup[0]));
}

// Between files, one of four: the first helper to open its second file dies before a byte of
// it. That file goes back to the queue and another session restores it: every file is there.
TEST_F(NwexchCli, LostHelperBetweenFilesWithFourJobs) {
    const LossRun run = RestoreLosingAHelper(L"lost-between-4", L"4", {L"BSAGetObject.hold=2"});
    ExpectOneOfFourLostAndEveryFileRestored(run, " of 4 is lost before /Second Storage Group/");
}

// During EndExtract, alone: every file is restored, then the helper dies as the extraction is
// ended (held at its second BSAEndTxn). The files stay; the lost session makes it exit code 2.
TEST_F(NwexchCli, LostHelperDuringEndExtractWithOneJob) {
    const LossRun run = RestoreLosingAHelper(L"lost-in-end-1", L"1", {L"BSAEndTxn.hold=2"});
    ASSERT_TRUE(run.killed) << run.Show();
    EXPECT_EQ(run.result.exitCode, 2u) << run.Show();
    EXPECT_TRUE(
        Contains(run.result.err, std::string("nwexch: the session to NetWorker is lost while the "
                                             "extraction was ended: ") +
                                     kHelperClosedThePipe))
        << run.result.err;
    EXPECT_TRUE(Contains(run.result.out, "Restored 6 of 6 files")) << run.result.out;
    EXPECT_EQ(CheckRestoredFiles(run.to), 6u);
}

// During EndExtract, one of four: a session ends only once no file can come back to it, so
// every file is restored when the first helper dies in EndExtract; exit code 3 for the loss.
TEST_F(NwexchCli, LostHelperDuringEndExtractWithFourJobs) {
    const LossRun run = RestoreLosingAHelper(L"lost-in-end-4", L"4", {L"BSAEndTxn.hold=2"});
    ExpectOneOfFourLostAndEveryFileRestored(
        run, std::string(" of 4 is lost while the extraction was ended: ") + kHelperClosedThePipe);
}

// Ctrl+C (the test hook) while four sessions are in flight: every session stops, nothing is
// left behind, exit code 4.
TEST_F(NwexchCli, JobsCancelledLeaveNoFileBehind) {
    const std::wstring to = Destination(L"jobs-cancelled");
    const Result result = Nwexch(
        {L"restore", L"--match", L"/Fifth Storage Group/*", L"--to", to, L"--jobs", L"4"},
        L"helper",
        {{L"NWSIM_FAULTS", L"throttle=1048576"}, {L"NWEXCH_CANCEL_AFTER_BYTES", L"2097152"}});
    EXPECT_EQ(result.exitCode, 4u) << result.out << result.err;
    EXPECT_TRUE(Contains(result.out, "Restored 0 of 4 files")) << result.out;
    EXPECT_EQ(FilesBelow(to).size(), 0u);
}

// A full disk with two sessions writing: the answer (cancel) holds for both, nothing is left.
TEST_F(NwexchCli, JobsShareTheAnswerToAFullDisk) {
    const std::wstring tiny = Env(L"NWEXCH_TEST_TINY");
    if (tiny.empty()) {
        GTEST_SKIP() << "no 1 MiB disk: " << Narrow(Env(L"NWEXCH_TEST_TINY_SKIP"));
    }
    const Result result =
        Nwexch({L"restore", L"--match", L"/Fifth Storage Group/Big [12].edb", L"--to", tiny,
                L"--flat", L"--on-disk-full", L"cancel", L"--jobs", L"2"},
               L"helper");
    EXPECT_EQ(result.exitCode, 4u) << result.out << result.err;
    EXPECT_TRUE(Contains(result.err, "the disk is full")) << result.err;
    EXPECT_TRUE(Contains(result.out, "Restored 0 of 2 files")) << result.out;
    const std::vector<std::wstring> files = FilesBelow(tiny);
    EXPECT_TRUE(files.empty()) << Narrow(files.empty() ? L"" : files[0]);
}

// The backup changes between the first session's catalogue and the next one's: the restore is
// refused before anything is written.
TEST_F(NwexchCli, JobsRefuseACatalogueThatChangedBetweenSessions) {
    const std::wstring to = Destination(L"jobs-changed");
    Simulator()->ClearJournal();
    Result result;
    std::thread restore([&] {
        // nsrinfo.exe answers after two seconds: the exact sizes are asked for between the
        // first session's catalogue and the others'.
        result = Nwexch(
            {L"restore", L"--match", L"/Second Storage Group/*.log", L"--to", to, L"--jobs", L"2"},
            L"helper", {{L"NWSIM_FAULTS", L"nsrinfo.delay=2000"}});
    });
    const bool catalogued = AwaitJournalLine("BSAEndTxn");
    const Result add = Admin({L"add", L"--server", kServer, L"--client", kClient, L"--path",
                              L"/Sixth Storage Group/E05000C1.log", L"--size", L"4096",
                              L"--resource-type", L"L", L"--create-time", L"2024-05-08 23:59:30"});
    restore.join();
    ASSERT_TRUE(catalogued);
    ASSERT_EQ(add.exitCode, 0u) << add.err;
    EXPECT_EQ(result.exitCode, 2u) << result.out << result.err;
    EXPECT_TRUE(Contains(result.err, "sees another catalogue than the first one")) << result.err;
    EXPECT_TRUE(Contains(result.err, "the backup changed between the sessions' queries"))
        << result.err;
    EXPECT_EQ(FilesBelow(to).size(), 0u);
    // The object stays for the tests after this one; it changes no index before it.
}

// Last: it deletes the service, then puts it back.
TEST_F(NwexchCli, MissingNsrexecdServiceSaysTheClientIsNotInstalled) {
    ASSERT_EQ(RunProgram(L"nwsim-admin.exe", {L"uninstall"}).exitCode, 0u);
    for (const wchar_t* mode : {L"in-process", L"helper"}) {
        const Result result = Nwexch({L"list"}, mode);
        EXPECT_EQ(result.exitCode, 2u) << Narrow(mode);
        EXPECT_TRUE(Contains(result.err, "NetWorker's client is not installed")) << result.err;
        EXPECT_TRUE(Contains(result.err, "\"nsrexecd\"")) << result.err;
    }
    EXPECT_TRUE(Simulator()->Reinstall());
}

}  // namespace
