// get, send and tolma regulatory: files to and from the station's FTP server,
// through the phone's ftpget and ftpput.
#pragma once

// Fetches `remote_path` from `server` into `local_path`. 0 on success, -1 for a
// bad server address or a command line too long to run, else the shell status.
int ftpGetFile(const char *username, const char *password, const char *local_path,
               const char *remote_path, const char *server);

// get <username> <password> <local_path> <remote_path> <server_ip>: "PASS" or "FAIL".
int ftpGet(const char *username, const char *password, const char *local_path,
           const char *remote_path, const char *server);

// send <username> <password> <localFile> <destFile> <server>: ftpput's own
// output only, no verdict. 0, or -1 when nothing was run.
int ftpSend(const char *username, const char *password, const char *local_file,
            const char *remote_file, const char *server);

// tolma regulatory <username> <password> <remote_path> <server_ip>: the label
// image into the reserved partition under its fixed name. "PASS" or "FAIL".
int tolma_regulatory(const char *username, const char *password, const char *remote_path,
                     const char *server);
