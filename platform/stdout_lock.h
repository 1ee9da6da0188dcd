// Whole lines on standard output. Reader threads print event lines at any time;
// stdio already makes each single call whole, so a line printed in one call
// needs nothing. A line the console prints in several calls (a prefix, then its
// message; a text, then its line end) holds standard output for all of them:
//
//     StdoutLock hold;
//     std::printf("prefix: ");
//     std::printf("message %d\n", n);
//
// The lock is stdio's own (flockfile) and is recursive, so the calls inside
// take it again freely. Never hold it across a shell command or a wait: every
// reader thread stops at its next line until it is released.
#pragma once

#include <cstdio>

class StdoutLock {
public:
    StdoutLock() { flockfile(stdout); }
    ~StdoutLock() { funlockfile(stdout); }
    StdoutLock(const StdoutLock &) = delete;
    StdoutLock &operator=(const StdoutLock &) = delete;
};
