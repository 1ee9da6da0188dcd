// The factory device key: an HMAC-SHA256 of the Ethernet MAC under a fresh
// random seed kept in /reserved/cp/certs/factorySeed, as Base64 text. It is the
// password of the factory certificate's PKCS#12 bundle.
#pragma once

#include "factory/secret.h"

constexpr char kFactorySeedPath[] = "/reserved/cp/certs/factorySeed";
constexpr int kFactorySeedSize = 32;      // the key length of AES-256-CBC
constexpr int kMacTextBufferSize = 13;    // 12 hex digits and the NUL

// The stored ETHERADD without its colons, into `buffer` of `size` bytes (more
// than 12). Only six colon-joined pairs of hex digits are taken: the text goes
// into a shell command. 0, or -1 after printing why.
int get_mac_address(char *buffer, int size);

// A new seed file (the old one removed first). 0, or -1 after printing why.
int gen_factory_seed();
// `len` random bytes into `buffer`. 0, or -1 after printing OpenSSL's reason.
int get_char_random_value(unsigned char *buffer, int len);
// The seed file's kFactorySeedSize bytes into `buffer`. 0, or -1 after printing why.
int get_factory_seed(unsigned char *buffer);
// Base64 of `n` bytes as the EVP encoder writes it (a line feed after each 64
// characters and at the end); null after printing why.
SecretText do_base64_encode(const unsigned char *digest, int n);

// A new seed, then the key: 44 Base64 characters and a line feed. Null after
// printing the reasons, in the order of the calls that failed.
SecretText gen_factory_device_key();
