// Loading and removing kernel modules: the Linux system calls, as the C library
// exports them. The console never reaches them through syscall(), so the
// simulated phone can stand in for them.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Links the module `image` of `size` bytes into the kernel with `params`;
// 0, or -1 with errno set.
int init_module(const void *image, unsigned long size, const char *params);

// Removes the module `name`; flags as the kernel takes them (O_NONBLOCK,
// O_EXCL). 0, or -1 with errno set (EAGAIN while it is in use).
int delete_module(const char *name, unsigned int flags);

#ifdef __cplusplus
}
#endif
