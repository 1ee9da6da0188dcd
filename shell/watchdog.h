#pragma once

// Stops the hardware watchdog so a long test session does not reset the phone.
int disableWatchdog();
