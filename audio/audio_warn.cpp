#include "audio/audio_warn.h"

#include <cstdio>

#include "platform/shell.h"
#include "platform/shell_quote.h"

int audio_warn(const char *ftp_ip, const char *username, const char *password,
               const char *playback_file, const char *playback_volume,
               const char *capture_volume, const char *capture_file) {
    // The script checks its own arguments; we pass each word on as one.
    ShellLine<512> line("/system/bin/audio_warn.sh");
    line.word(ftp_ip).word(username).word(password).word(playback_file)
        .word(playback_volume).word(capture_volume).word(capture_file);
    if (!line.fits()) {
        std::printf("Command too long (%zu characters at most)\n", line.kMaxChars);
        return 1;
    }
    shell_run(line.c_str());
    return 1;
}
