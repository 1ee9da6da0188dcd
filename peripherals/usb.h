// The USB host port: attached mass-storage devices, the stick read/write test,
// and the port's power and current limit.
#pragma once

int usbList();
int usbrwTest();
int usbTest(const char *what, const char *action);

// SIGINT while usbrwTest runs: the first one asks the test to stop, a further
// one before the test has stopped only says so.
void signal_handler(int sig);
