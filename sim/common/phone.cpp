#include "sim/common/phone.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <map>
#include <mutex>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace sim {

namespace {

struct Fd {
    int fd;
    ~Fd() {
        if (fd >= 0) ::close(fd);
    }
};

bool write_all(int fd, const char *data, size_t len) {
    while (len) {
        ssize_t n = ::write(fd, data, len);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        data += n;
        len -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

const char *phone_dir() {
    const char *d = std::getenv("FTSIM_DIR");
    return d && d[0] ? d : "/sim";
}

std::string phone_path(const std::string &rel) { return std::string(phone_dir()) + "/" + rel; }

bool fault(const std::string &name) {
    struct stat st;
    return ::stat(phone_path("faults/" + name).c_str(), &st) == 0;
}

bool fault_argument(const std::string &prefix, std::string &arg) {
    DIR *d = ::opendir(phone_path("faults").c_str());
    if (!d) return false;
    bool found = false;
    while (dirent *ent = ::readdir(d)) {
        if (std::strncmp(ent->d_name, prefix.c_str(), prefix.size()) == 0) {
            arg = ent->d_name + prefix.size();
            found = true;
            break;
        }
    }
    ::closedir(d);
    return found;
}

int call_fault(const std::string &name) {
    static std::mutex lock;
    static std::map<std::string, long> calls;
    long nth;
    {
        std::lock_guard<std::mutex> hold(lock);
        nth = ++calls[name];
    }
    DIR *d = ::opendir(phone_path("faults").c_str());
    if (!d) return 0;
    int e = 0;
    while (dirent *ent = ::readdir(d)) {
        const char *rest = ent->d_name;
        if (std::strncmp(rest, name.c_str(), name.size()) != 0) continue;
        rest += name.size();
        if (*rest && *rest != ':' && *rest != '@') continue;
        int number = EIO;
        if (*rest == ':') {
            char *end;
            number = static_cast<int>(std::strtol(rest + 1, &end, 10));
            if (number <= 0) number = EIO;
            rest = end;
        }
        if (*rest == '@' && std::strtol(rest + 1, nullptr, 10) != nth) continue;
        e = number;
        break;
    }
    ::closedir(d);
    return e;
}

int open_temp_beside(const std::string &path, std::string &tmp) {
    tmp = path + ".tmp.XXXXXX";
    int fd = ::mkostemp(&tmp[0], O_CLOEXEC);
    if (fd >= 0) ::fchmod(fd, 0644);
    return fd;
}

bool write_atomically(const std::string &rel, const char *data, size_t len) {
    std::string path = phone_path(rel);
    std::string tmp;
    {
        Fd f{open_temp_beside(path, tmp)};
        if (f.fd < 0) return false;
        if (!write_all(f.fd, data, len) || ::fsync(f.fd) != 0) {
            ::unlink(tmp.c_str());
            return false;
        }
    }
    if (::rename(tmp.c_str(), path.c_str()) != 0) {
        ::unlink(tmp.c_str());
        return false;
    }
    std::string dir = path.substr(0, path.rfind('/'));
    {
        Fd d{::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
        if (d.fd >= 0) ::fsync(d.fd);
    }
    note_change();
    return true;
}

bool read_file(const std::string &rel, std::string &out, size_t max) {
    out.clear();
    Fd f{::open(phone_path(rel).c_str(), O_RDONLY | O_CLOEXEC)};
    if (f.fd < 0) return false;
    char buf[256];
    while (out.size() < max) {
        ssize_t n = ::read(f.fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        out.append(buf, static_cast<size_t>(n));
    }
    if (out.size() > max) out.resize(max);
    return true;
}

void append_line(const std::string &rel, const std::string &line) {
    Fd f{::open(phone_path(rel).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)};
    if (f.fd < 0) return;
    std::string l = line + "\n";
    if (write_all(f.fd, l.data(), l.size())) note_change();
}

void note_change() {
    Fd f{::open(phone_path("run/changes").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)};
    if (f.fd < 0 || ::flock(f.fd, LOCK_EX) != 0) return;   // closing the file unlocks it
    char text[24] = {};
    ssize_t n = ::pread(f.fd, text, sizeof text - 1, 0);
    unsigned long long count = n > 0 ? std::strtoull(text, nullptr, 10) : 0;
    int len = std::snprintf(text, sizeof text, "%llu\n", count + 1);
    // The number only grows, so the new text always covers the old.
    if (len > 0 && static_cast<size_t>(len) < sizeof text) {
        ssize_t written = ::pwrite(f.fd, text, static_cast<size_t>(len), 0);
        (void)written;
    }
}

}  // namespace sim
