// Heap blocks for key material and the text the identity routines hand out.
// Seeds, digests and device keys are wiped before their memory is given back.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <openssl/crypto.h>

struct FreeText {
    void operator()(char *p) const { std::free(p); }
};
// Text from malloc/strdup (the thumbprint).
using CText = std::unique_ptr<char, FreeText>;

struct WipeText {
    void operator()(char *p) const {
        if (p) OPENSSL_cleanse(p, std::strlen(p));
        std::free(p);
    }
};
// NUL-terminated secret text (the device key).
using SecretText = std::unique_ptr<char, WipeText>;

// A zeroed block of `size` bytes, wiped and freed when it goes.
class SecretBuffer {
public:
    explicit SecretBuffer(size_t size)
        : data_(static_cast<unsigned char *>(std::calloc(size, 1))), size_(size) {}
    ~SecretBuffer() {
        if (data_) OPENSSL_cleanse(data_, size_);
        std::free(data_);
    }
    SecretBuffer(const SecretBuffer &) = delete;
    SecretBuffer &operator=(const SecretBuffer &) = delete;

    unsigned char *get() const { return data_; }
    size_t size() const { return size_; }
    explicit operator bool() const { return data_ != nullptr; }

private:
    unsigned char *data_;
    size_t size_;
};
