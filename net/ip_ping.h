// ip <action> <address> and ping <address>: the Ethernet interface's address
// and a reachability check, both through the system's own tools.
#pragma once

// Action 0 shows eth0's configuration; action 1 sets its IPv4 address, directly
// with the factory marker file present, else through the phone's own software.
// Prints "PASS" when the tool ran, "FAIL" otherwise; 0 or -1.
int ipTest(const char *action, const char *address);

// Four echo requests, only ping's summary shown; no verdict. 0, or -1 for a bad address.
int pingTest(const char *address);
