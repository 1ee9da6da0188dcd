// The stick read/write test: mounts the first FAT partition found on sda1 to
// sdo1, then writes, reads back and compares random 512-byte blocks over the
// first MiB of a file, over and over, until Ctrl+C or an error.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "peripherals/usb.h"

namespace {

constexpr char kMountPoint[] = "/data/usb_test";
constexpr char kDevicePattern[] = "/dev/block/sd 1";
constexpr size_t kLetterAt = 13;   // the blank above
constexpr char kFileSystem[] = "vfat";
constexpr unsigned long kMountFlags = MS_NOSUID | MS_SYNCHRONOUS;
constexpr char kTestFile[] = "usbrw_test_file";
constexpr size_t kBlock = 512;
constexpr int kBlocksPerCycle = 2048;
static_assert(kDevicePattern[kLetterAt] == ' ');

// What the current run has taken, so that clean_up gives back exactly that.
// The signal handler touches only `interrupted`.
struct UsbRwState {
    volatile std::sig_atomic_t interrupted;
    bool mount_point_made;
    bool mounted;
    DIR *dir;
    FILE *file;
    int saved_cwd;   // where the console stood before the test moved onto the stick
};
UsbRwState g_usbrw = {0, false, false, nullptr, nullptr, -1};

bool set_sigint(void (*handler)(int)) {
    struct sigaction sa = {};
    sa.sa_handler = handler;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = 0;
    return sigaction(SIGINT, &sa, nullptr) == 0;
}

int clean_up(int result) {
    if (g_usbrw.file) {
        std::fclose(g_usbrw.file);
        g_usbrw.file = nullptr;
        char path[sizeof kMountPoint + sizeof kTestFile];
        std::snprintf(path, sizeof path, "%s/%s", kMountPoint, kTestFile);
        std::remove(path);
    }
    if (g_usbrw.dir) {
        closedir(g_usbrw.dir);
        g_usbrw.dir = nullptr;
    }
    // Off the stick first: a lazily detached file system stays busy while
    // anyone's working directory is on it.
    if (g_usbrw.saved_cwd >= 0) {
        if (fchdir(g_usbrw.saved_cwd) != 0 && chdir("/") != 0) {
            // the console never needs its working directory
        }
        close(g_usbrw.saved_cwd);
        g_usbrw.saved_cwd = -1;
    }
    if (g_usbrw.mounted) {
        umount2(kMountPoint, MNT_DETACH);
        g_usbrw.mounted = false;
    }
    if (g_usbrw.mount_point_made) {
        rmdir(kMountPoint);
        g_usbrw.mount_point_made = false;
    }
    if (!set_sigint(SIG_DFL)) std::puts("clean_up: Can't reset SIGINT signal handler");
    return result;
}

bool mount_first_stick() {
    char device[sizeof kDevicePattern];
    std::memcpy(device, kDevicePattern, sizeof device);
    for (char letter = 'a'; letter <= 'o'; ++letter) {
        device[kLetterAt] = letter;
        if (mount(device, kMountPoint, kFileSystem, kMountFlags, "") == 0) return true;
    }
    return false;
}

// One error ends the test; the messages carry no line end.
bool failed(const char *format) {
    if (errno == 0) return false;
    std::printf(format, std::strerror(errno));
    return true;
}

void cycle_until_stopped(FILE *file) {
    unsigned char written[kBlock], read_back[kBlock];
    for (;;) {
        errno = 0;
        std::fseek(file, 0, SEEK_SET);
        if (failed("Error:  %s")) return;
        std::srand(static_cast<unsigned>(std::time(nullptr)));
        for (int i = 0; i < kBlocksPerCycle; ++i) {
            if (g_usbrw.interrupted) return;
            for (unsigned char &b : written) b = static_cast<unsigned char>(std::rand());
            std::fwrite(written, 1, kBlock, file);
            if (failed("Error: %s")) return;
            std::fseek(file, -static_cast<long>(kBlock), SEEK_CUR);
            if (g_usbrw.interrupted) return;
            std::fread(read_back, 1, kBlock, file);
            if (failed("Error: %s")) return;
            if (std::memcmp(written, read_back, kBlock) != 0) {
                std::fputs("FAIL. Read block does not match written block", stdout);
                return;
            }
        }
    }
}

}  // namespace

void signal_handler(int) {
    if (!g_usbrw.interrupted) {
        g_usbrw.interrupted = 1;
        return;
    }
    static const char kAgain[] = "signal_handler: signal already received.\n";
    if (write(STDOUT_FILENO, kAgain, sizeof kAgain - 1) < 0) {
        // nothing to do about a console that cannot print
    }
}

int usbrwTest() {
    g_usbrw.interrupted = 0;
    g_usbrw.mount_point_made = false;
    g_usbrw.mounted = false;
    if (!set_sigint(signal_handler)) {
        std::puts("Can't set signal handler");
        return -1;
    }
    struct stat st;
    if (stat(kMountPoint, &st) != 0 && mkdir(kMountPoint, 0700) != 0) {
        std::puts("FAIL to create mount point.");
        return clean_up(-1);
    }
    g_usbrw.mount_point_made = true;
    if (!mount_first_stick()) {
        std::puts("USB device cannot be mounted or is not attached to the phone");
        return clean_up(-1);
    }
    g_usbrw.mounted = true;
    g_usbrw.dir = opendir(kMountPoint);
    if (!g_usbrw.dir) {
        std::printf("FAIL to open dir %s.\n", kMountPoint);
        return clean_up(-1);
    }
    g_usbrw.saved_cwd = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    // The file is made relative to the stick, so it can only land on the stick.
    if (fchdir(dirfd(g_usbrw.dir)) == 0) g_usbrw.file = std::fopen(kTestFile, "wb+");
    if (!g_usbrw.file) {
        std::printf("FAIL to open file %s\n", kTestFile);
        return clean_up(-1);
    }
    std::puts("USB test in progress... Press Ctrl+C to abort");
    cycle_until_stopped(g_usbrw.file);
    return clean_up(0);
}
