#include "input/event_devices.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <csignal>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/unique_fd.h"

int openEventDevice(const char *who, bool (*is_wanted)(int fd)) {
    UniqueDir dir(opendir("/dev/input"));
    if (!dir) return -1;
    while (const dirent *entry = readdir(dir.get())) {
        int number;
        if (std::sscanf(entry->d_name, "event%d", &number) != 1) continue;
        char path[kEventPathSize] = {};
        std::snprintf(path, sizeof path, "/dev/input/event%d", number);
        UniqueFd fd(open(path, O_RDONLY | O_CLOEXEC));
        if (!fd) {
            std::printf("%s(): failed to open file %s\n", who, path);
            continue;
        }
        if (is_wanted(fd.get())) return fd.release();
    }
    return -1;
}

bool queryEventId(int fd, unsigned long request_for_79, char (&id)[kEventIdSize]) {
    std::memset(id, 0, sizeof id);
    int n;
    do {
        n = ioctl(fd, request_for_79, id);
    } while (n < 0 && errno == EINTR);
    id[kEventIdSize - 1] = '\0';
    return n > 0;
}

int readModeWord(const char *word) {
    if (word[0] == '\0' || word[1] != '\0') return -1;
    if (word[0] == '0') return 0;
    if (word[0] == '1') return 1;
    return -1;
}

int startEventReader(pthread_t &thread, void *(*entry)(void *), int stop_signal) {
    sigset_t stop, saved;
    sigemptyset(&stop);
    sigaddset(&stop, stop_signal);
    pthread_sigmask(SIG_BLOCK, &stop, &saved);
    int err = pthread_create(&thread, nullptr, entry, nullptr);
    pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    return err;
}

bool installStopHandler(int sig, void (*handler)(int)) {
    struct sigaction sa = {};
    sa.sa_handler = handler;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = 0;
    if (sigaction(sig, &sa, nullptr) != 0) return false;
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    return true;
}

int stopEventReader(std::atomic<int> &fd, pthread_t thread, int stop_signal, const char *who) {
    int device = fd.load();
    if (device == -1) return 0;
    close(device);
    if (pthread_kill(thread, stop_signal) != 0) {
        std::printf("%s(): failed to kill thread\n", who);
        return -1;
    }
    if (pthread_join(thread, nullptr) != 0) {
        std::printf("%s(): failed to join thread\n", who);
        return -1;
    }
    fd.store(-1);
    return 0;
}

EventRead readEventRecord(const char *who, const std::atomic<int> &fd,
                          const std::atomic<bool> &stop, int stop_signal,
                          bool (*is_wanted)(uint16_t type), InputEvent &ev) {
    int device = fd.load();
    if (device < 0) {
        std::printf("%s(): fail - event device is not open\n", who);
        return EventRead::kNotOpen;
    }
    for (;;) {
        errno = 0;
        ssize_t n = read(device, &ev, sizeof ev);
        if (n < static_cast<ssize_t>(sizeof ev)) {
            if (errno == EINTR) return EventRead::kInterrupted;
            if (!stop.load())
                std::printf("%s(): some error or short read - number of bytes = [%d], "
                            "errno = [%d]\n",
                            who, static_cast<int>(n), errno);
            pauseReader(stop_signal, stop);
            return EventRead::kCutShort;
        }
        if (is_wanted(ev.type)) return EventRead::kRecord;
    }
}

void pauseReader(int stop_signal, const std::atomic<bool> &stop) {
    sigset_t block, waiting;
    sigemptyset(&block);
    if (stop_signal) sigaddset(&block, stop_signal);
    pthread_sigmask(SIG_BLOCK, &block, &waiting);
    if (!stop.load()) {
        if (stop_signal) sigdelset(&waiting, stop_signal);
        timespec second = {1, 0};
        ppoll(nullptr, 0, &second, &waiting);
    }
    pthread_sigmask(SIG_UNBLOCK, &block, nullptr);
}
