// warn <ftpIP> <username> <password> <playbackFile> <playbackVolume>
//      <captureVolume> <captureFile>: the phone's play-and-record script.
#pragma once

// Runs /system/bin/audio_warn.sh with the seven words; always 1.
int audio_warn(const char *ftp_ip, const char *username, const char *password,
               const char *playback_file, const char *playback_volume,
               const char *capture_volume, const char *capture_file);
