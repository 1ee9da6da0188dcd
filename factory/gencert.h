// gencert: the unit's factory identity for DES. An EC key pair and a
// self-signed certificate named after the MAC, bundled as PKCS#12 under the
// factory device key in /reserved/cp/certs, its thumbprint printed for the
// station's records.
#pragma once

#include "factory/secret.h"

// The handler of "gencert": 0 on success, -1 after the reports of a failure.
int gen_self_signed_cert();

// Makes, reads and removes the fingerprint file: the text after its first
// '=', line feed included; null after printing why.
CText get_formatted_thumb_print();

// The thumbprint line, then the unit's identity parameters. 0, or the first
// non-zero status of printFactoryParam.
int print_factory_certificate(const char *thumbprint);
