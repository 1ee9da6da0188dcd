// Records command lines instead of running them: a unit test never reboots the host.
#include "tests/unit/fake_shell.h"

#include "platform/shell.h"

std::vector<std::string> &shell_calls() {
    static std::vector<std::string> calls;
    return calls;
}

int &shell_status() {
    static int status = 0;
    return status;
}

extern "C" int shell_run(const char *cmdline) {
    shell_calls().push_back(cmdline);
    return shell_status();
}
