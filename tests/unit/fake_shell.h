#pragma once

#include <string>
#include <vector>

// Every command line handed to the shell since the last clear().
std::vector<std::string> &shell_calls();
