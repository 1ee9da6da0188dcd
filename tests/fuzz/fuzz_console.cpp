// Feeds arbitrary bytes to the console as lines a station could send: every
// line goes through splitting and dispatch exactly as the loop hands it over.
// Runs inside a simulated phone; the shell is a recorder, so nothing is run.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "shell/console.h"

// Handlers that wait (the reboot pause, for one) would only slow the search down.
extern "C" unsigned int sleep(unsigned int) { return 0; }
extern "C" int usleep(unsigned int) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static CommandLine line;
    std::string input(reinterpret_cast<const char *>(data), size);
    size_t start = 0;
    while (start <= input.size()) {
        size_t end = input.find('\n', start);
        if (end == std::string::npos) end = input.size();
        // The line editor never hands over a NUL: a line ends at the first one.
        std::string text = input.substr(start, end - start);
        text.resize(std::strlen(text.c_str()));
        if (!text.empty() && run_line(text.c_str(), line) == Dispatch::kQuit) break;
        start = end + 1;
    }
    return 0;
}
