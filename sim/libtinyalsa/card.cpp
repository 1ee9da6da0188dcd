#include "sim/libtinyalsa/card.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "sim/common/phone.h"

namespace card {

std::string control_file(unsigned card) { return "dev/snd/controlC" + std::to_string(card); }

std::string pcm_node(unsigned card, unsigned device) {
    return "pcmC" + std::to_string(card) + "D" + std::to_string(device) + "p";
}

bool fault(const std::string &name) {
    return ::faccessat(AT_FDCWD, sim::phone_path("faults/" + name).c_str(), F_OK, 0) == 0;
}

bool replace_file(const std::string &rel, const std::string &data) {
    std::string path = sim::phone_path(rel);
    std::string tmp;
    int fd = sim::open_temp_beside(path, tmp);
    if (fd < 0) return false;
    const char *p = data.data();
    size_t left = data.size();
    bool ok = true;
    while (left && ok) {
        ssize_t n = ::write(fd, p, left);
        if (n < 0 && errno == EINTR) continue;
        ok = n > 0;
        if (ok) {
            p += n;
            left -= static_cast<size_t>(n);
        }
    }
    ::close(fd);
    if (ok && std::rename(tmp.c_str(), path.c_str()) == 0) {
        sim::note_change();
        return true;
    }
    ::unlink(tmp.c_str());
    return false;
}

}  // namespace card
