#include "shell/console.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "audio/mixer_paths.h"
#include "display/drvfb.h"
#include "input/hookswitch.h"
#include "input/jack.h"
#include "input/keypad.h"
#include "peripherals/camera.h"
#include "shell/dispatch.h"
#include "shell/line_input.h"
#include "shell/watchdog.h"
#include "shell/words.h"
#include "wireless/bluetooth.h"
#include "wireless/wifi.h"

namespace {

// Each step prints its own messages; none of them stops the console.
void start_up() {
    disableWatchdog();
    keyTestInit();
    jackTestInit();
    hookswitchTestInit();
    ehsTestInit();
    init_display();
    initialize_audio();
    cameraInit();
    std::putchar('\n');
}

void shut_down() {
    ehsTestDestroy();
    hookswitchTestDestroy();
    jackTestDestroy();
    keyTestDestroy();
    btTestDestroy();
    cameraDestroy();
    wifi_stop();
}

// Owns the line the editor hands us.
struct EditorLine {
    char *text;
    ~EditorLine() { std::free(text); }
};

}  // namespace

Dispatch run_line(const char *text, CommandLine &line) {
    SplitResult r = split_line(text, line.words);
    if (const char *refusal = split_refusal(r)) {
        std::puts(refusal);
        return Dispatch::kContinue;
    }
    if (r == SplitResult::kNoWords) return Dispatch::kContinue;
    return dispatch(line);
}

int console_main() {
    // A station reading a pipe must see every line as it is printed.
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    set_up_line_editor();
    start_up();

    static CommandLine line;
    for (;;) {
        std::fflush(stdout);
        EditorLine input{read_station_line("ft>")};
        if (!input.text) break;   // the station closed its end: leave as "quit" does
        if (!input.text[0]) continue;
        if (run_line(input.text, line) == Dispatch::kQuit) break;
    }

    shut_down();
    std::fflush(stdout);
    return 0;
}
