// The input event devices under /dev/input, shared by the keypad and jack readers.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <linux/input.h>
#include <pthread.h>

// One record as this build's kernel delivers it (16 bytes on the phone).
using InputEvent = struct input_event;

constexpr size_t kEventPathSize = 50;
constexpr size_t kEventIdSize = 80;

// Opens the first /dev/input/eventN (in directory order) that `is_wanted`
// accepts; each node that cannot be opened is reported as
// "<who>(): failed to open file <path>". The descriptor, or -1.
int openEventDevice(const char *who, bool (*is_wanted)(int fd));

// Reads an identification string (EVIOCGNAME, EVIOCGPHYS...) of the device:
// `request` is made for kEventIdSize - 1 bytes and `id` always ends in a NUL.
// False when the query fails or answers nothing.
bool queryEventId(int fd, unsigned long request_for_79, char (&id)[kEventIdSize]);

// The mode word of the reporting commands: 0 or 1, or -1 for anything but
// exactly "0" or "1".
int readModeWord(const char *word);

// What one read of a reader's device gave: a record, no device, a read that a
// signal broke off (no error), or one cut short otherwise (an error, or fewer
// bytes than a record).
enum class EventRead { kRecord, kNotOpen, kInterrupted, kCutShort };

// The pause after a read or wait that failed: up to 1 s, so a device that
// vanished costs a line a second rather than a core. Nothing when `stop` is
// set. `stop_signal` (0: none) ends the pause at once; it is blocked while the
// flag is looked at and let in only inside the wait, so a stop sent in between
// is never slept through.
void pauseReader(int stop_signal, const std::atomic<bool> &stop);

// Reads `fd` up to the next record whose type `is_wanted` takes. Reports
// "<who>(): fail - event device is not open" without a device, and a read cut
// short (unless `stop` is set) as "<who>(): some error or short read - ...",
// then pauses (pauseReader with `stop_signal`) before the caller reads again.
EventRead readEventRecord(const char *who, const std::atomic<int> &fd,
                          const std::atomic<bool> &stop, int stop_signal,
                          bool (*is_wanted)(uint16_t type), InputEvent &ev);

// Starts `entry` on a thread of its own (default attributes) with
// `stop_signal` blocked: the thread unblocks it once its handler is in place
// (installStopHandler), so a stop sent that early waits instead of killing the
// process. pthread_create's result.
int startEventReader(pthread_t &thread, void *(*entry)(void *), int stop_signal);

// Installs `handler` for `sig` for the whole process, with an empty mask and no
// flags (no restart: a blocked read returns EINTR), then unblocks `sig` in the
// calling thread. False when the handler cannot be installed.
bool installStopHandler(int sig, void (*handler)(int));

// Stops a reader at quit: closes its device (a read begun after the signal then
// fails at once), wakes the thread with `stop_signal` and joins it; the
// descriptor reads -1 once the thread has ended. A failure is reported as
// "<who>(): failed to kill thread" or "... to join thread" and gives -1.
// Nothing to do (0) when the device was never opened.
int stopEventReader(std::atomic<int> &fd, pthread_t thread, int stop_signal, const char *who);

// A reader thread's exit value.
inline void *readerExit(int status) { return reinterpret_cast<void *>(static_cast<intptr_t>(status)); }
