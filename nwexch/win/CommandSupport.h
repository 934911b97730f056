#pragma once
// What the commands share: the error line, opening a session with its whole catalogue, and
// finding catalogue rows by index.

#include <string>
#include <vector>

#include "CatalogueCollector.h"
#include "CommandLine.h"
#include "Formatting.h"
#include "Session.h"

// "nwexch: MESSAGE" on the error output.
void Error(const std::wstring& message);

// Opens the session and takes the whole catalogue (no date window: indexes then mean the same
// in every command). sessionNumber as for Session::Open. Returns ExitOk or the exit code to end
// with, after the error line.
int OpenAndCatalogue(const Options& options, Session* session, CatalogueCollector* collector,
                     unsigned sessionNumber = 0);

// The rows of these indexes, in the order given; false (after the error line) when one is not
// in the catalogue.
bool ResolveIndexes(const std::vector<CatalogueRow>& rows, const std::vector<uint32_t>& indexes,
                    std::vector<const CatalogueRow*>* chosen);
