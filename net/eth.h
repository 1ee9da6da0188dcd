// Ethernet port control: link status, speed and gigabit test modes of the PC and
// LAN switch ports (eth), speed and duplex of eth0 through ethtool (setport),
// and the Ethernet LED test (ethled). Each prints its verdict and returns 0 or -1.
#pragma once

int eth(const char *portWord, const char *modeWord);
int setport(const char *portWord, const char *modeWord);
int ethled(const char *actionWord);
