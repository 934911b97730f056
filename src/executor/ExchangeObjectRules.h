#pragma once
// Which backup objects the catalogue keeps, and what it announces to the host about them.
// Platform-neutral: no Windows headers.

#include <cstdint>
#include <ctime>
#include <string_view>

#include "interfaces/WinTypes.h"
#include "interfaces/xbsa.h"

// Transaction logs are announced with this size; the host does not ask for their real one.
constexpr uint64_t kAnnouncedLogSize = 0x500000;

// The catalogue's query: the most recent backup copies of files owned by MSEXCH/msexch. The
// server filters by nothing else; the time window and the file test are applied here.
BSA_QueryDescriptor ExchangeQueryDescriptor();

// An Exchange database, streaming or log file: resource type exactly "D" or "L", a path of at
// least four characters ending in a three-letter extension, and none of the storage group's
// container objects.
bool IsExchangeFile(std::string_view resourceType, std::string_view pathName);

// The same test on a descriptor; its text arrays need not be terminated.
bool IsExchangeFile(const BSA_ObjectDescriptor& descriptor);

// 0 for databases and streaming files (the host asks GetFileSize), kAnnouncedLogSize for
// logs, the object's own size otherwise. Only the listed spellings count (kept on purpose:
// docs/compatibility.md, "announced sizes").
uint64_t AnnouncedSize(std::string_view pathName, BSA_UInt64 size);

uint64_t JoinUInt64(BSA_UInt64 value);

// The creation date of an object, as a FILETIME of that day's midnight; the time of day is
// dropped (kept on purpose: docs/compatibility.md, "date-only window").
// An impossible date yields 0, the earliest time there is.
FILETIME CreationDateAsFileTime(const std::tm& createTime);

// True when the creation date lies within [timeAfter, timeBefore]; a null bound is open.
// Throws std::invalid_argument("timeAfter cannot be later than timeBefore") when both are
// given in the wrong order.
bool PassesTimeWindow(const std::tm& createTime, const FILETIME* timeBefore,
                      const FILETIME* timeAfter);

// The host's view of the server's creation time: year + 1900, month + 1, day of week and
// milliseconds 0, no time-zone conversion.
SYSTEMTIME BackupTimeOf(const std::tm& createTime);
