#include "platform/load_file.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>

#include "platform/unique_fd.h"

extern "C" void *load_file(const char *path, unsigned *size) {
    UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC));
    if (!fd) return nullptr;
    struct stat st;
    if (::fstat(fd.get(), &st) != 0 || st.st_size < 0 || st.st_size >= 0x7fffffff) return nullptr;
    size_t len = static_cast<size_t>(st.st_size);
    char *data = static_cast<char *>(std::malloc(len + 1));
    if (!data) return nullptr;
    size_t got = 0;
    while (got < len) {
        ssize_t n = ::read(fd.get(), data + got, len - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<size_t>(n);
    }
    if (got != len) {   // the file changed under us: a short image is no image
        std::free(data);
        return nullptr;
    }
    data[len] = '\0';
    *size = static_cast<unsigned>(len);
    return data;
}
