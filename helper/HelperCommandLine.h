#pragma once
// Where NetWorker64BitClient.exe finds its pipe name. The host's default launcher starts it
// with the bare pipe name as the whole command line (no program name in front); started by
// hand or by another launcher, the command line is conventional: program, then the name.
// The two are told apart by the first token: when its file name is the program's own file
// name (case-insensitive, ".exe" optional, quoted or not, with or without a directory), the
// rest of the line is the pipe name; otherwise the whole line is. A pipe that is itself named
// like the program can therefore be given only the conventional way. Platform-neutral.

#include <string>

// The pipe name, or an empty string when the command line carries none.
std::wstring PipeNameFromCommandLine(const std::wstring& commandLine,
                                     const std::wstring& moduleFileName);
