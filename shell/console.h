#pragma once

// The console process: start-up, the command loop, shut-down. Returns the exit status.
int console_main();
