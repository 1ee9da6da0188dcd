// Server and interface addresses as the station types them: the four-number
// IPv4 form and nothing else (no host names, no shortened forms).
#pragma once

#include <arpa/inet.h>

inline bool is_dotted_quad(const char *word) {
    in_addr addr;
    return inet_pton(AF_INET, word, &addr) == 1;
}
