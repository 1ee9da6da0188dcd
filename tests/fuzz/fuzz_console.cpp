// Feeds arbitrary bytes to the console as lines a station could send: every
// line goes through splitting and dispatch exactly as the loop hands it over.
// Runs inside a simulated phone; the shell is a recorder, so nothing is run.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "peripherals/memory_test.h"
#include "shell/console.h"
#include "wireless/pause.h"

// Handlers that wait (the reboot pause, for one) would only slow the search down.
extern "C" unsigned int sleep(unsigned int) { return 0; }
extern "C" int usleep(unsigned int) { return 0; }

// The RAM test on small blocks, in place of the console's 64 MiB and 4 MiB
// (memory_blocks.cpp is not linked): the same passes over a few KiB.
const MemoryBlocks kMemoryBlocks = {4096, 1024};

namespace {

// The radio code's bounded waits (the Bluetooth stack, module removal, the
// scan) run on this clock: a pause moves it on and returns at once, so a wait
// that gives up does so after its full count of polls, in no time.
unsigned long long g_clock_us = 0;

void advance_clock(unsigned long us) { g_clock_us += us; }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    wireless_sleep_us = advance_clock;
    return 0;
}

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
