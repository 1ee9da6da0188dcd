// Cradle hookswitch and wired-headset hookswitch (EHS): one reader thread each,
// blocked in the maker library's wait call, prints the events while reporting is on.
#pragma once

int hookswitchTestInit();
int ehsTestInit();
void hookswitchTestDestroy();
void ehsTestDestroy();
int hookswitchTest(const char *mode);
int ehsTest(const char *mode);
