// SHA-256 in hex, for values that a manifest tells by their hash.
#pragma once

#include <bit>
#include <cmath>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace yfs::test {

inline std::string sha256(std::span<const std::uint8_t> data)
{
    // The first 32 bits of the fractions of the roots of the first 64 primes: cube roots, and the square roots of 8.
    std::vector<std::uint32_t> k, hash;
    const auto fraction = [](double root) { return static_cast<std::uint32_t>(std::fmod(root, 1) * 0x1p32); };
    for (unsigned n = 2, d; k.size() < 64; ++n) {
        for (d = 2; n % d != 0;) ++d;
        if (d < n) continue;
        k.push_back(fraction(std::cbrt(n)));
        if (hash.size() < 8) hash.push_back(fraction(std::sqrt(n)));
    }
    std::vector<std::uint8_t> padded(data.begin(), data.end());
    padded.push_back(0x80);
    while (padded.size() % 64 != 56) padded.push_back(0);
    for (int shift = 56; shift >= 0; shift -= 8)
        padded.push_back(static_cast<std::uint8_t>((std::uint64_t{data.size()} * 8) >> shift));

    const auto turned = [](std::uint32_t v, int a, int b, int c) {
        return std::rotr(v, a) ^ std::rotr(v, b) ^ std::rotr(v, c);
    };
    for (const std::uint8_t* at = padded.data(); at != padded.data() + padded.size(); at += 64) {
        std::uint32_t w[64] = {};
        for (unsigned i = 0; i < 64; ++i) w[i / 4] = w[i / 4] << 8 | at[i];
        for (unsigned i = 16; i < 64; ++i)
            w[i] = w[i - 16] + w[i - 7] + (std::rotr(w[i - 15], 7) ^ std::rotr(w[i - 15], 18) ^ (w[i - 15] >> 3)) +
                   (std::rotr(w[i - 2], 17) ^ std::rotr(w[i - 2], 19) ^ (w[i - 2] >> 10));
        auto s = hash; // a to h
        for (unsigned i = 0; i < 64; ++i) {
            const auto t1 = s[7] + turned(s[4], 6, 11, 25) + ((s[4] & s[5]) ^ (~s[4] & s[6])) + k[i] + w[i];
            const auto t2 = turned(s[0], 2, 13, 22) + ((s[0] & s[1]) ^ (s[0] & s[2]) ^ (s[1] & s[2]));
            s = {t1 + t2, s[0], s[1], s[2], s[3] + t1, s[4], s[5], s[6]};
        }
        for (unsigned i = 0; i < 8; ++i) hash[i] += s[i];
    }
    std::string hex;
    for (const std::uint32_t word : hash)
        for (int shift = 28; shift >= 0; shift -= 4) hex += "0123456789abcdef"[(word >> shift) & 0xF];
    return hex;
}

} // namespace yfs::test
