#pragma once
// What every program and library of the simulated installation shares: where it lives, where
// the store is, the fault settings and the call journal.

#include <windows.h>

#include <filesystem>
#include <string>

namespace nwsim {

// Directory of the module (DLL or EXE) that contains address.
std::filesystem::path ModuleDirectory(const void* address);

// NWSIM_ROOT when set, else "root=" of nwsim.ini in directory; empty with a reason otherwise.
std::filesystem::path FindStoreRoot(const std::filesystem::path& directory, std::string& error);

// faults.txt of the store (if any), then NWSIM_FAULTS, joined by a line break.
std::string ReadFaultText(const std::filesystem::path& storeRoot);

std::wstring ReadEnvironment(const wchar_t* name);

bool JournalEnabled();
// Appends line + "\n" to the NWSIM_JOURNAL file: opened, appended and closed per line, shared
// with every other writer.
void AppendJournal(const std::string& line);

}  // namespace nwsim
