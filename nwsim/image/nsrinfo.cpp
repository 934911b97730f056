// nsrinfo.exe of the simulated installation: prints the catalogue line of one object with its
// true 64-bit size ("size=N,"), as the library's file-size correction expects.
// Accepts "-v -V -s <server> -n <namespace> -N "<objectSpace>:<path>" <client>", with or without
// a program name in front (the library starts it without one).

#include <windows.h>

#include <string>

#include "Catalogue.h"
#include "Faults.h"
#include "ImageSupport.h"
#include "Journal.h"
#include "Nsrinfo.h"

namespace {

const int g_anchor = 0;

void WriteOut(HANDLE stream, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        DWORD written = 0;
        const DWORD chunk =
            static_cast<DWORD>(text.size() - done < 65536 ? text.size() - done : 65536);
        if (!WriteFile(stream, text.data() + done, chunk, &written, nullptr) || written == 0) {
            return;
        }
        done += written;
    }
}

int Finish(const std::string& commandLine, int exitCode, const std::string& error) {
    if (!error.empty()) {
        WriteOut(GetStdHandle(STD_ERROR_HANDLE), "nsrinfo: " + error + "\r\n");
    }
    if (nwsim::JournalEnabled()) {
        nwsim::JournalLine line("nsrinfo");
        line.Number("pid", GetCurrentProcessId()).Text("cmdline", commandLine);
        if (!error.empty()) {
            line.Text("error", error);
        }
        nwsim::AppendJournal(line.Signed("exit", exitCode).Str());
    }
    return exitCode;
}

}  // namespace

int main() {
    const std::string commandLine = GetCommandLineA();
    nwsim::NsrinfoRequest request;
    std::string error;
    if (!nwsim::ParseNsrinfoArguments(nwsim::SplitCommandLine(commandLine), request, error)) {
        return Finish(commandLine, 1, error);
    }
    const std::filesystem::path root =
        nwsim::FindStoreRoot(nwsim::ModuleDirectory(&g_anchor), error);
    if (root.empty()) {
        return Finish(commandLine, 1, error);
    }
    nwsim::FaultPlan faults;
    if (!nwsim::ParseFaults(nwsim::ReadFaultText(root), faults, error)) {
        return Finish(commandLine, 1, error);
    }
    // A slow tool: what the library waits for, and what tests change the store behind.
    Sleep(faults.nsrinfoDelayMs);
    const nwsim::StoreLayout layout{root};
    std::error_code ec;
    if (!std::filesystem::is_directory(layout.ServerDir(request.server), ec)) {
        return Finish(commandLine, 1, "unknown server " + request.server);
    }
    if (!std::filesystem::is_directory(layout.ClientDir(request.server, request.client), ec)) {
        return Finish(commandLine, 1, "unknown client " + request.client);
    }
    nwsim::Catalogue catalogue;
    if (!nwsim::LoadCatalogue(layout.CatalogueFile(request.server, request.client), catalogue,
                              error)) {
        return Finish(commandLine, 1, error);
    }
    const nwsim::CatalogueObject* object = nwsim::FindNsrinfoObject(catalogue, request);
    if (object == nullptr) {
        return Finish(commandLine, 1, "no save set entry for " + request.name);
    }
    WriteOut(GetStdHandle(STD_OUTPUT_HANDLE),
             nwsim::FormatNsrinfoOutput(*object, request, faults.nsrinfoOutput));
    return Finish(commandLine, faults.nsrinfoExit, std::string());
}
