// Argument numbers as the console reads them: leading blanks and a sign
// allowed, digits up to the first other character, no digits reading as 0.
// Out-of-range values saturate instead of overflowing.
#pragma once

#include <climits>
#include <cstddef>

inline long long parse_decimal_n(const char *s, size_t n) {
    size_t i = 0;
    while (i < n && (s[i] == ' ' || s[i] == '\t' || s[i] == '\n' || s[i] == '\v' ||
                     s[i] == '\f' || s[i] == '\r'))
        ++i;
    bool negative = false;
    if (i < n && (s[i] == '+' || s[i] == '-')) negative = s[i++] == '-';
    long long v = 0;
    for (; i < n && s[i] >= '0' && s[i] <= '9'; ++i) {
        if (v < LLONG_MAX / 10) v = v * 10 + (s[i] - '0');
    }
    return negative ? -v : v;
}

// The value as an int, clamped to the int range (so "99999999999" stays large).
inline int parse_int_n(const char *s, size_t n) {
    long long v = parse_decimal_n(s, n);
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return static_cast<int>(v);
}

inline int parse_int(const char *s) {
    size_t n = 0;
    while (s[n]) ++n;
    return parse_int_n(s, n);
}
