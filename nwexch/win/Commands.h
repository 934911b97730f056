#pragma once
// The three commands. Each returns nwexch's exit code.

#include "CommandLine.h"

int RunList(const Options& options);
int RunSize(const Options& options);
int RunRestore(const Options& options);
