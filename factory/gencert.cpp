#include "factory/gencert.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/crypto.h>

#include "factory/device_key.h"
#include "factory/error_report.h"
#include "factory/params.h"
#include "platform/eeprom.h"
#include "platform/shell.h"
#include "platform/unique_fd.h"

namespace {

constexpr char kSource[] = "files/src/misc";
constexpr char kHandler[] = "gen_self_signed_cert";
constexpr char kThumbRoutine[] = "get_formatted_thumb_print";
// The certificate steps report in the handler's name: they are its steps.
#define REPORT(...) REPORT_ERROR_AS(kSource, kHandler, __VA_ARGS__)

constexpr char kCpDir[] = "/reserved/cp";
constexpr char kCertsDir[] = "/reserved/cp/certs";
constexpr char kKeyPath[] = "/reserved/cp/certs/factory.key";
constexpr char kCertPath[] = "/reserved/cp/certs/factory.cert";
constexpr char kP12Path[] = "/reserved/cp/certs/factorycert.p12";
constexpr char kThumbPath[] = "/reserved/cp/certs/cert_thumbprint";
constexpr char kOpensslConfig[] = "/system/etc/openssl.cnf";
constexpr char kSetSystemDate[] = "/system/bin/setSystemDate.sh";

constexpr int kOperationalModeIndex = 0;
constexpr int kDesSupportIndex = 32;

// Command buffers: short file commands, the fingerprint, the other OpenSSL steps
// (the longest, the PKCS#12 export with the device key, takes 197 characters).
constexpr size_t kFileCommandSize = 100;
constexpr size_t kThumbCommandSize = 150;
constexpr size_t kOpensslCommandSize = 200;

enum class Outcome { kDone, kFailed, kNoDeviceKey };

bool exists(const char *path) {
    struct stat st;
    return stat(path, &st) == 0;
}

// Runs a command formatted whole into a buffer of `size` bytes (`n` as snprintf
// returned it). A command that did not fit is never run and counts as failed,
// as does one for which no shell could be started; its exit status is not ours.
bool run_formatted(const char *cmd, size_t size, int n) {
    if (n < 0 || static_cast<size_t>(n) >= size) return false;
    return shell_run(cmd) >= 0;
}

bool make_dir(const char *path) {
    char cmd[kFileCommandSize];
    return run_formatted(cmd, sizeof cmd, std::snprintf(cmd, sizeof cmd, "mkdir %s", path));
}

bool remove_file(const char *path) {
    char cmd[kFileCommandSize];
    return run_formatted(cmd, sizeof cmd, std::snprintf(cmd, sizeof cmd, "rm -f %s", path));
}

// Removes `path` when it is there. False (after the report) when no shell could run.
bool remove_if_present(const char *path) {
    if (!exists(path)) return true;
    if (remove_file(path)) return true;
    REPORT("Unable to remove%s: errno : %d\n", path, errno);
    return false;
}

// The bundle the export just wrote: there, not empty, and on storage before the
// station is told about it. The export's exit status is not ours to read.
bool bundle_made() {
    struct stat st;
    if (stat(kP12Path, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size <= 0) return false;
    UniqueFd bundle(open(kP12Path, O_RDONLY | O_CLOEXEC));
    UniqueFd folder(open(kCertsDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return bundle && folder && fsync(bundle.get()) == 0 && fsync(folder.get()) == 0;
}

// The fingerprint file's `size` bytes, and the text after its first '='.
CText read_thumbprint(size_t size) {
    CText content(static_cast<char *>(std::calloc(size + 1, 1)));
    if (!content) {
        REPORT_ERROR_AS(kSource, kThumbRoutine, "Unable to allocate memory\n");
        return nullptr;
    }
    FILE *f = std::fopen(kThumbPath, "re");
    if (!f) {
        REPORT_ERROR_AS(kSource, kThumbRoutine,
                        "Unable to open /reserved/cp/certs/cert_thumbprint: errno : %d\n", errno);
        return nullptr;
    }
    CText thumbprint;
    size_t got = std::fread(content.get(), 1, size, f);
    if (got != size) {
        REPORT_ERROR_AS(kSource, kThumbRoutine,
                        "Read %d bytes from /reserved/cp/certs/cert_thumbprint: errno : %d\n",
                        static_cast<int>(got), errno);
    } else if (const char *eq = std::strchr(content.get(), '='); !eq) {
        REPORT_ERROR_AS(kSource, kThumbRoutine, "Invalid format of thumbprint %s\n",
                        content.get());
    } else {
        thumbprint.reset(strdup(eq + 1));
        if (!thumbprint)
            REPORT_ERROR_AS(kSource, kThumbRoutine,
                            "Unable to duplicate thumbprint %s : errno : %d\n", eq + 1, errno);
    }
    if (std::fclose(f) != 0) {
        REPORT_ERROR_AS(kSource, kThumbRoutine,
                        "Failed to close the file /reserved/cp/certs/cert_thumbprint: errno : %d\n",
                        errno);
        return nullptr;
    }
    return thumbprint;
}

// Everything between the directories and the factory data. Each failure has
// been reported when this returns.
Outcome make_identity() {
    if (!exists(kCpDir) && !make_dir(kCpDir)) {
        REPORT("Unable to create /reserved/cp\n");
        return Outcome::kFailed;
    }
    // The certificate's validity starts now: the clock must be right first.
    if (shell_run(kSetSystemDate) < 0) {
        REPORT("Unable to set the Current time\n");
        return Outcome::kFailed;
    }
    if (!exists(kCertsDir) && !make_dir(kCertsDir)) {
        REPORT("Unable to create /reserved/cp/certs\n");
        return Outcome::kFailed;
    }

    SecretText key = gen_factory_device_key();
    if (!key) {
        REPORT("Unable to generate factory base64 device key\n");
        return Outcome::kNoDeviceKey;
    }

    char cmd[kOpensslCommandSize];
    if (!run_formatted(cmd, sizeof cmd,
                       std::snprintf(cmd, sizeof cmd,
                                     "openssl ecparam -out %s -name prime256v1 -genkey",
                                     kKeyPath))) {
        REPORT("Unable to generate private key\n");
        return Outcome::kFailed;
    }

    char mac[kMacTextBufferSize] = {};
    if (get_mac_address(mac, sizeof mac) != 0) {
        REPORT("Unable to get MAC\n");
        return Outcome::kFailed;
    }

    if (!run_formatted(cmd, sizeof cmd,
                       std::snprintf(cmd, sizeof cmd,
                                     "openssl req -key %s -new -x509 -days 7300 -out %s -subj "
                                     "\"/C=US/ST=CA/O=Tolma,Inc./CN=%s\" -config %s",
                                     kKeyPath, kCertPath, mac, kOpensslConfig))) {
        REPORT("Unable to generate self signed certificate\n");
        return Outcome::kFailed;
    }

    // The check after the export must see this run's bundle, never an earlier
    // one: a bundle the removal left (its command ran but failed) stops the run.
    if (!remove_if_present(kP12Path)) return Outcome::kFailed;
    if (exists(kP12Path)) {
        REPORT("Unable to remove%s: errno : %d\n", kP12Path, EEXIST);
        return Outcome::kFailed;
    }

    // The key's own line feed ends the command line: the password is its 44
    // Base64 characters. The command holds the key, so it is wiped after use.
    bool exported = run_formatted(
        cmd, sizeof cmd,
        std::snprintf(cmd, sizeof cmd,
                      "openssl pkcs12 -export -in %s -inkey %s -out %s -password pass:%s",
                      kCertPath, kKeyPath, kP12Path, key.get()));
    OPENSSL_cleanse(cmd, sizeof cmd);
    if (!exported || !bundle_made()) {
        REPORT("Unable to generate PKCS12\n");
        return Outcome::kFailed;
    }

    CText thumbprint = get_formatted_thumb_print();
    if (!thumbprint) {
        REPORT("Unable to get formatted thumbprint\n");
        return Outcome::kFailed;
    }
    if (print_factory_certificate(thumbprint.get()) < 0) {
        REPORT("Unable to print factory certificate\n");
        return Outcome::kFailed;
    }

    char des_support[2] = {};
    std::memcpy(des_support, "1", sizeof des_support);
    if (eeprom_write(kDesSupportIndex, des_support) < 0) {
        REPORT("Unable to update CONFIGDATA_DES_SUPPORT\n");
        return Outcome::kFailed;
    }
    return Outcome::kDone;
}

// The key, certificate and fingerprint never stay. After a failure the seed and
// the bundle go as well, an earlier run's included: they no longer match.
int clean_up(bool succeeded) {
    static constexpr const char *kScratch[] = {kKeyPath, kCertPath, kThumbPath};
    static constexpr const char *kIdentity[] = {kFactorySeedPath, kP12Path};
    for (const char *path : kScratch)
        if (!remove_if_present(path)) succeeded = false;
    if (succeeded) return 0;
    for (const char *path : kIdentity) remove_if_present(path);
    return -1;
}

// A unit marked DES-capable by an earlier run is no longer once a run fails:
// its bundle is gone, or its new seed no longer opens the old one. A unit
// never marked stays unmarked.
void withdraw_des_support() {
    char des_support[2] = {};
    if (eeprom_read(kDesSupportIndex, des_support, sizeof des_support) >= 0 &&
        des_support[0] == '\0')
        return;
    if (eeprom_write(kDesSupportIndex, "0") < 0) REPORT("Unable to update CONFIGDATA_DES_SUPPORT\n");
}

}  // namespace

CText get_formatted_thumb_print() {
    char cmd[kThumbCommandSize];
    if (!run_formatted(cmd, sizeof cmd,
                       std::snprintf(cmd, sizeof cmd,
                                     "openssl x509 -in %s -fingerprint -noout -sha256 > %s",
                                     kCertPath, kThumbPath))) {
        REPORT_ERROR(kSource, "Couldn't generate thumbprint\n");
        return nullptr;
    }
    struct stat st;
    if (stat(kThumbPath, &st) != 0) {
        REPORT_ERROR(kSource, "Unable to find /reserved/cp/certs/cert_thumbprint: errno : %d\n",
                     errno);
        return nullptr;
    }
    CText thumbprint = read_thumbprint(static_cast<size_t>(st.st_size));
    if (!remove_file(kThumbPath)) {
        REPORT_ERROR(kSource, "Unable to remove/reserved/cp/certs/cert_thumbprint: errno : %d\n",
                     errno);
        return nullptr;
    }
    return thumbprint;
}

int print_factory_certificate(const char *thumbprint) {
    struct Line {
        const char *name;
        const char *label;
    };
    static constexpr Line kLines[] = {
        {"ETHERADD", "MAC"},      {"SN_UNIT", "Serial#"}, {"CC_UNIT", "Product"},
        {"MODEL_NUM", "Model"},   {"HW_VER", "Hardware"},
    };
    // The tool's own line feed ends the thumbprint line.
    std::printf("Thumbprint: %s", thumbprint);
    int status = 0;
    for (const Line &line : kLines) {
        status = printFactoryParam(line.name, line.label);
        if (status != 0) return status;
    }
    return status;
}

int gen_self_signed_cert() {
    char mode[2] = {};
    if (eeprom_read(kOperationalModeIndex, mode, sizeof mode) < 0) {
        REPORT("Unable to read CONFIGDATA_OPERATIONAL_MODE\n");
        return -1;
    }
    if (mode[0] != '0') {
        REPORT("gencert can only be executed in factory mode\n");
        return -1;
    }
    Outcome outcome = make_identity();
    if (outcome == Outcome::kDone && clean_up(true) == 0) return 0;
    // Without a device key the new seed may stay; the next run removes it
    // before making another.
    if (outcome == Outcome::kFailed) clean_up(false);
    withdraw_des_support();
    return -1;
}
