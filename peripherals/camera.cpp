#include "peripherals/camera.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include "platform/shell.h"
#include "platform/unique_fd.h"

namespace {

// While it exists the platform's camera service offers the module's full resolutions.
constexpr char kMarker[] = "/tmp/camhal/ft_specialresolution.txt";
constexpr char kVideo[] = "/dev/video0";
constexpr char kStart[] = "am start -n com.android.camera2/com.android.camera.CameraLauncher";
constexpr char kSnap[] = "input keyevent 27";   // KEYCODE_CAMERA
constexpr char kStop[] = "am force-stop com.android.camera2";
constexpr char kNotDetected[] =
    "   >>> Camera has not been detected on USB bus yet. Run 'ft camera 0' to detect it.";

struct CameraState {
    bool detected = false;   // a capture device answered once; stays set
    bool running = false;    // our own start, until our own stop
};
CameraState g_camera;

int verdict(bool pass) {
    std::puts(pass ? "PASS" : "FAIL");
    return pass ? 0 : -1;
}

int not_detected() {
    std::puts(kNotDetected);
    return verdict(false);
}

int opened(const char *how) {
    std::printf("   >>> Camera device is %s opened.\n", how);
    return verdict(false);
}

int detect() {
    std::puts("Check whether camera module is detected on USB bus");
    std::puts("and assigned to video device at folder /dev.");
    UniqueFd fd(open(kVideo, O_RDWR | O_CLOEXEC));
    if (!fd) {
        std::printf("   >>> Failed to open camera device %s: %s.\n", kVideo, std::strerror(errno));
        return verdict(false);
    }
    v4l2_capability cap = {};
    if (ioctl(fd.get(), VIDIOC_QUERYCAP, &cap) != 0) {
        std::puts("   >>> Failed to query the capabilities of the camera.");
        return verdict(false);
    }
    if (!(cap.capabilities & V4L2_CAP_VIDEO_CAPTURE)) {
        std::puts("   >>> Video capture not supported.");
        return verdict(false);
    }
    g_camera.detected = true;
    return verdict(true);
}

int start() {
    std::puts("Enable camera module and show dynamic video on LCD panel.");
    if (!g_camera.detected) return not_detected();
    if (g_camera.running) return opened("already");
    if (shell_run(kStart) < 0) return verdict(false);
    g_camera.running = true;
    return verdict(true);
}

int snap() {
    std::puts("Take a picture and store it in a pre-defined location.");
    if (!g_camera.detected) return not_detected();
    if (!g_camera.running) return opened("not");
    return verdict(shell_run(kSnap) >= 0);
}

int stop() {
    std::puts("Disable camera module and stop showing dynamic video on LCD panel.");
    if (!g_camera.detected) return not_detected();
    if (!g_camera.running) return opened("not");
    if (shell_run(kStop) < 0) return verdict(false);
    g_camera.running = false;
    return verdict(true);
}

}  // namespace

int cameraInit() {
    UniqueFile f(std::fopen(kMarker, "w+"));
    if (!f) {
        std::printf("cameraInit(): Failed to create file %s (errno = %s).\n", kMarker,
                    std::strerror(errno));
        std::puts("              Camera will not use full resolutions.");
        return 0;
    }
    // The camera service runs as another user: it must be able to read it whatever our umask.
    fchmod(fileno(f.get()), 0777);
    return 0;
}

int cameraDestroy() {
    std::remove(kMarker);
    return 0;
}

int cameraTest(const char *action) {
    constexpr int (*kSteps[])() = {detect, start, snap, stop};
    if (!(action[0] >= '0' && action[0] <= '3' && action[1] == '\0')) return verdict(false);
    return kSteps[action[0] - '0']();
}
