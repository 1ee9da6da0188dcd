// Move-only owners for descriptors, FILE* and DIR*: every early return releases them.
#pragma once

#include <cstdio>
#include <dirent.h>
#include <memory>
#include <unistd.h>

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd &&o) noexcept : fd_(o.release()) {}
    UniqueFd &operator=(UniqueFd &&o) noexcept {
        if (this != &o) reset(o.release());
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

class UniqueFile {
public:
    UniqueFile() = default;
    explicit UniqueFile(FILE *f) : f_(f) {}
    ~UniqueFile() { reset(); }
    UniqueFile(UniqueFile &&o) noexcept : f_(o.f_) { o.f_ = nullptr; }
    UniqueFile &operator=(UniqueFile &&o) noexcept {
        if (this != &o) {
            reset();
            f_ = o.f_;
            o.f_ = nullptr;
        }
        return *this;
    }
    UniqueFile(const UniqueFile &) = delete;
    UniqueFile &operator=(const UniqueFile &) = delete;

    FILE *get() const { return f_; }
    explicit operator bool() const { return f_ != nullptr; }
    void reset() {
        if (f_) std::fclose(f_);
        f_ = nullptr;
    }

private:
    FILE *f_ = nullptr;
};

struct DirCloser {
    void operator()(DIR *d) const { closedir(d); }
};
using UniqueDir = std::unique_ptr<DIR, DirCloser>;
