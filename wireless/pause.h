// Every pause of the Wi-Fi and Bluetooth code goes through here, so that unit
// tests can run the long waits (a busy module, a silent stack) on a virtual clock.
#pragma once

// Sleeps `us` microseconds, or less when a signal comes (Ctrl+C ends a scan's wait).
extern void (*wireless_sleep_us)(unsigned long us);
