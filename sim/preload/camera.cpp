// /dev/video0: the USB camera module, a UVC device. The node is an empty file
// under dev/ (unplugging it removes the node); VIDIOC_QUERYCAP is answered as
// the uvcvideo driver answers it. Faults: camera-query makes the query fail,
// camera-no-capture leaves the capture capability out.
#include <cerrno>
#include <cstring>
#include <linux/videodev2.h>

#include "sim/common/phone.h"
#include "sim/preload/nodes.h"

namespace {

int camera_ioctl(int, unsigned long request, void *arg) {
    if (request != VIDIOC_QUERYCAP) {
        errno = ENOTTY;
        return -1;
    }
    if (sim::fault("camera-query")) {
        errno = EIO;
        return -1;
    }
    auto *cap = static_cast<v4l2_capability *>(arg);
    std::memset(cap, 0, sizeof *cap);
    std::strncpy(reinterpret_cast<char *>(cap->driver), "uvcvideo", sizeof cap->driver - 1);
    std::strncpy(reinterpret_cast<char *>(cap->card), "USB 2.0 Camera", sizeof cap->card - 1);
    std::strncpy(reinterpret_cast<char *>(cap->bus_info), "usb-xhci-hcd.0.auto-1.2",
                 sizeof cap->bus_info - 1);
    cap->version = (3u << 16) | (18u << 8) | 24u;   // the phone's kernel, 3.18.24
    cap->device_caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    if (sim::fault("camera-no-capture")) cap->device_caps &= ~V4L2_CAP_VIDEO_CAPTURE;
    cap->capabilities = cap->device_caps | V4L2_CAP_DEVICE_CAPS;
    return 0;
}

constexpr preload::DeviceNode kCamera[] = {
    {"/dev/video0", "dev/video0", 0, camera_ioctl},
};

__attribute__((constructor)) void register_camera() { preload::add_nodes(kCamera); }

}  // namespace
