#include "net/ftp.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>

#include "net/dotted_quad.h"
#include "platform/shell.h"
#include "platform/shell_quote.h"

namespace {

constexpr char kLabelDir[] = "/reserved/regulatoryLabels";
constexpr char kLabelFile[] = "/reserved/regulatoryLabels/regulatory_info.png";

using FtpLine = ShellLine<256>;

// Both tools take the login first, then the host; the server address was
// checked as a dotted quad, so it goes in as typed. Operator words are quoted.
FtpLine ftp_line(const char *tool, const char *username, const char *password,
                 const char *server, const char *first, const char *second) {
    FtpLine line(tool);
    line.raw(" -u").word(username).raw(" -p").word(password).raw(" ").raw(server);
    line.word(first).word(second);
    return line;
}

bool refuse_if_too_long(const FtpLine &line) {
    if (line.fits()) return false;
    std::printf("Command too long (%zu characters at most)\n", FtpLine::kMaxChars);
    return true;
}

int verdict(int status) {
    std::puts(status == 0 ? "PASS" : "FAIL");
    return status == 0 ? 0 : -1;
}

}  // namespace

int ftpGetFile(const char *username, const char *password, const char *local_path,
               const char *remote_path, const char *server) {
    if (!is_dotted_quad(server)) {
        std::printf("invalid server ip \"%s\"\n", server);
        return -1;
    }
    // ftpget: host, then local file, then remote file.
    FtpLine line = ftp_line("ftpget", username, password, server, local_path, remote_path);
    if (refuse_if_too_long(line)) return -1;
    int status = shell_run(line.c_str());
    if (status != 0) std::printf("command \"%s\" failed, check the input\n", line.c_str());
    return status;
}

int ftpGet(const char *username, const char *password, const char *local_path,
           const char *remote_path, const char *server) {
    return verdict(ftpGetFile(username, password, local_path, remote_path, server));
}

int ftpSend(const char *username, const char *password, const char *local_file,
            const char *remote_file, const char *server) {
    if (!is_dotted_quad(server)) {
        std::puts("Invalid remote IPAddr Server!!");
        return -1;
    }
    // ftpput: host, then remote file, then local file.
    FtpLine line = ftp_line("ftpput", username, password, server, remote_file, local_file);
    if (refuse_if_too_long(line)) {
        std::puts("FAIL");
        return -1;
    }
    // ftpput reports its own failures; the station reads them.
    shell_run(line.c_str());
    return 0;
}

int tolma_regulatory(const char *username, const char *password, const char *remote_path,
                     const char *server) {
    errno = 0;
    if (mkdir(kLabelDir, 0700) != 0 && errno != EEXIST) {
        std::printf("tolma_regulatory: failed to create target directory \"%s\"\n", kLabelDir);
        std::puts("FAIL");
        return -1;
    }
    return verdict(ftpGetFile(username, password, kLabelFile, remote_path, server));
}
