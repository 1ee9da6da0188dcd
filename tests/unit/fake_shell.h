#pragma once

#include <string>
#include <vector>

// Every command line handed to the shell since the last clear().
std::vector<std::string> &shell_calls();
// What every call returns (0 unless a test sets it), as system() would.
int &shell_status();
