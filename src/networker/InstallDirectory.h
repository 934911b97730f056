#pragma once
// NetWorker's installation directory from the "nsrexecd" service's binary path. Platform-neutral.

#include <string>

// Drops what precedes the drive letter: from the first ':' at index i, keeps the last
// length - i + 1 characters (the whole string when there is no colon or it is the first
// character). A binary path opening with a double quote before the drive letter loses the quote.
std::wstring StripBeforeDriveLetter(const std::wstring& path);

// Keeps what precedes the last '\'; empty when there is none. The file name goes, and so does
// anything after it (a closing quote, arguments), even when the cut falls inside arguments.
std::wstring CutAtLastBackslash(const std::wstring& path);

// Both cuts in order: "\"C:\\A\\B\\nsrexecd.exe\"" gives "C:\\A\\B", "C:\\nsrexecd.exe" gives "C:".
std::wstring InstallDirectoryFromBinaryPath(const std::wstring& binaryPath);
