#include "factory/device_key.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include "factory/error_report.h"
#include "platform/eeprom.h"
#include "platform/shell.h"
#include "platform/unique_fd.h"

namespace {

constexpr char kSource[] = "files/src/fact_device_key";
#define REPORT(...) REPORT_ERROR(kSource, __VA_ARGS__)
#define REPORT_SEED(...) REPORT_ERROR_AS(kSource, "gen_factory_seed", __VA_ARGS__)

constexpr char kSeedFolder[] = "/reserved/cp/certs";
constexpr char kRemoveSeed[] = "rm -f /reserved/cp/certs/factorySeed";
constexpr int kEtherAddIndex = 1;
constexpr size_t kStoredMacLength = 17;    // 00:11:22:33:44:55
constexpr int kDigestBufferSize = 64;
constexpr int kErrorTextSize = 512;

bool is_hex_digit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Six pairs of hex digits joined by colons, nothing else: the MAC ends up in a
// shell command line, so no other character may pass.
bool is_stored_mac(const char *s) {
    for (size_t i = 0; i < kStoredMacLength; ++i) {
        bool ok = i % 3 == 2 ? s[i] == ':' : is_hex_digit(s[i]);
        if (!ok) return false;
    }
    return true;
}

bool sync_folder(const char *path) {
    UniqueFd folder(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return folder && fsync(folder.get()) == 0;
}

// Opens, restricts to the owner, writes and closes the seed file: steps of
// gen_factory_seed, reported in its name. 0 or -1.
int store_seed(const unsigned char *seed, size_t len) {
    FILE *f = std::fopen(kFactorySeedPath, "wbe");
    if (!f) {
        REPORT_SEED("Unable to open /reserved/cp/certs/factorySeed: errno : %d\n", errno);
        return -1;
    }
    bool failed = false;
    // Owner-only before a single byte of the seed lands in the file.
    if (chmod(kFactorySeedPath, S_IRUSR | S_IWUSR) != 0) {
        REPORT_SEED(
            "Unable to change mode to root for /reserved/cp/certs/factorySeed: errno : %d\n",
            errno);
        failed = true;
    } else {
        if (std::fwrite(seed, 1, len, f) < len) {
            REPORT_SEED("Unable to write in /reserved/cp/certs/factorySeed: errno : %d\n", errno);
            failed = true;
        }
        // On storage before the key is derived from it: stdio's buffer, the
        // file, then the folder that names it.
        if (std::fflush(f) != 0 || fsync(fileno(f)) != 0 || !sync_folder(kSeedFolder)) {
            REPORT_SEED("Unable to write in /reserved/cp/certs/factorySeed: errno : %d\n", errno);
            failed = true;
        }
    }
    if (std::fclose(f) != 0) {
        REPORT_SEED("Failed to close the file /reserved/cp/certs/factorySeed: errno : %d\n", errno);
        failed = true;
    }
    return failed ? -1 : 0;
}

}  // namespace

int get_mac_address(char *buffer, int size) {
    if (size <= 12) {
        REPORT("Buffer size too small\n");
        return -1;
    }
    std::memset(buffer, 0, static_cast<size_t>(size));

    char stored[kStoredMacLength + 1] = {};
    if (eeprom_read(kEtherAddIndex, stored, sizeof stored) < 0) {
        REPORT("Unable to read MAC from factory data\n");
        return -1;
    }
    // A full area without its NUL is as unprogrammed as an empty one.
    if (strnlen(stored, sizeof stored) != kStoredMacLength || !is_stored_mac(stored)) {
        REPORT("MAC is not programmed\n");
        REPORT("Please program MAC before generating certificate\n");
        return -1;
    }
    char *out = buffer;
    for (size_t i = 0; i < kStoredMacLength; ++i)
        if (stored[i] != ':') *out++ = stored[i];
    return 0;
}

int get_char_random_value(unsigned char *buffer, int len) {
    if (RAND_bytes(buffer, len) == 1) return 0;
    char text[kErrorTextSize] = {};
    ERR_error_string_n(ERR_get_error(), text, sizeof text);
    REPORT("Error for random value : %s \n", text);
    return -1;
}

int gen_factory_seed() {
    if (shell_run(kRemoveSeed) < 0) {
        REPORT("Unable to remove/reserved/cp/certs/factorySeed: errno : %d\n", errno);
        return -1;
    }
    SecretBuffer seed(static_cast<size_t>(EVP_CIPHER_key_length(EVP_aes_256_cbc())));
    if (!seed) {
        REPORT("Unable to allocate memory\n");
        return -1;
    }
    bool failed;
    if (get_char_random_value(seed.get(), static_cast<int>(seed.size())) != 0) {
        REPORT("Failed to get random value\n");
        failed = true;
    } else {
        failed = store_seed(seed.get(), seed.size()) != 0;
    }
    if (!failed) return 0;
    // No half-made seed stays behind.
    if (shell_run(kRemoveSeed) < 0)
        REPORT("Unable to remove/reserved/cp/certs/factorySeed: errno : %d\n", errno);
    return -1;
}

int get_factory_seed(unsigned char *buffer) {
    FILE *f = std::fopen(kFactorySeedPath, "rbe");
    if (!f) {
        REPORT("Unable to open /reserved/cp/certs/factorySeed: errno : %d\n", errno);
        return -1;
    }
    bool failed = false;
    size_t got = std::fread(buffer, 1, kFactorySeedSize, f);
    if (got < kFactorySeedSize) {
        REPORT("Read %d bytes from /reserved/cp/certs/factorySeed: errno : %d\n",
               static_cast<int>(got), errno);
        failed = true;
    }
    if (std::fclose(f) != 0) {
        REPORT("Failed to close the file /reserved/cp/certs/factorySeed: errno : %d\n", errno);
        return -1;
    }
    return failed ? -1 : 0;
}

SecretText do_base64_encode(const unsigned char *digest, int n) {
    std::unique_ptr<EVP_ENCODE_CTX, decltype(&EVP_ENCODE_CTX_free)> ctx(EVP_ENCODE_CTX_new(),
                                                                        EVP_ENCODE_CTX_free);
    if (!ctx || n < 0) {
        REPORT("Base64 encode failed\n");
        return nullptr;
    }
    EVP_EncodeInit(ctx.get());
    // The encoder takes its input in lines of 48 bytes, each ending in a line feed.
    size_t size = 4 * ((static_cast<size_t>(n) + 2) / 3) + (static_cast<size_t>(n) + 47) / 48 + 1;
    SecretText text(static_cast<char *>(std::calloc(size, 1)));
    if (!text) {
        REPORT("Unable to allocate memory\n");
        return nullptr;
    }
    auto *out = reinterpret_cast<unsigned char *>(text.get());
    int written = 0;
    if (EVP_EncodeUpdate(ctx.get(), out, &written, digest, n) != 1) written = 0;
    int held = EVP_ENCODE_CTX_num(ctx.get());
    size_t tail = held > 0 ? 4 * ((static_cast<size_t>(held) + 2) / 3) + 1 : 0;
    if (size <= static_cast<size_t>(written) + tail) {
        REPORT("EVP_EncodeUpdate has consumed more than required space\n");
        return nullptr;
    }
    int final_written = 0;
    EVP_EncodeFinal(ctx.get(), out + written, &final_written);
    if (written + final_written == 0) {
        REPORT("Base64 encode failed\n");
        return nullptr;
    }
    return text;
}

SecretText gen_factory_device_key() {
    if (gen_factory_seed() != 0) {
        REPORT("Failed to generate factory seed\n");
        return nullptr;
    }
    char mac[kMacTextBufferSize] = {};
    if (get_mac_address(mac, sizeof mac) != 0) {
        REPORT("Failed to get MAC of device\n");
        return nullptr;
    }
    SecretBuffer seed(kFactorySeedSize);
    if (!seed) {
        REPORT("Failed to allocate memory\n");
        return nullptr;
    }
    // The key is made from what the file holds, not from what was meant to go in.
    if (get_factory_seed(seed.get()) != 0) {
        REPORT("Failed to get seed of device\n");
        return nullptr;
    }
    SecretBuffer digest(kDigestBufferSize);
    if (!digest) {
        REPORT("Failed to allocate memory\n");
        return nullptr;
    }
    // The message is the MAC's 12 characters of text, not its six byte values.
    unsigned int digest_len = 0;
    if (!HMAC(EVP_sha256(), seed.get(), kFactorySeedSize,
              reinterpret_cast<const unsigned char *>(mac), std::strlen(mac), digest.get(),
              &digest_len)) {
        REPORT("Failed to do HASH MAC\n");
        return nullptr;
    }
    SecretText key = do_base64_encode(digest.get(), static_cast<int>(digest_len));
    if (!key) REPORT("Failed to do base64 encode\n");
    return key;
}
