// A CRC is the remainder of the message, as a polynomial over two elements, by the CRC's own. What stands n bits
// further to the front of the message counts x^n times as much, so 128 bits can be taken n bits on by multiplying each
// half with the remainder of x^n (and x^(n + 64)), which makes no longer a sum of it: the message shrinks to its last
// 128 bits.
#include "frame/crc_lanes.h"

#if defined(__x86_64__)

#include <immintrin.h>

#define YFS_LANES [[gnu::target("pclmul,avx")]]

namespace yfs {

const bool has_lanes = [] {
    __builtin_cpu_init();
    return __builtin_cpu_supports("pclmul") != 0 && __builtin_cpu_supports("avx") != 0;
}();

namespace {

// x^n modulo a polynomial of `degree`, whose top bit is left out.
consteval std::uint64_t power(unsigned n, unsigned degree, std::uint64_t polynomial)
{
    std::uint64_t rest = 1;
    while (n-- > 0) {
        rest <<= 1;
        if ((rest >> degree) != 0) rest ^= polynomial | (std::uint64_t{1} << degree);
    }
    return rest;
}

// The factors of the low and the high half.
struct factors {
    std::uint64_t low, high;
};

YFS_LANES __m128i in_register(factors f)
{
    return _mm_set_epi64x(static_cast<long long>(f.high), static_cast<long long>(f.low));
}

YFS_LANES __m128i fold(__m128i v, __m128i by)
{
    return _mm_xor_si128(_mm_clmulepi64_si128(v, by, 0x00), _mm_clmulepi64_si128(v, by, 0x11));
}

YFS_LANES __m128i load_block(const std::uint8_t* from)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)); // NOLINT: any address
}

// Most significant bit first: a block is a number with its first byte on top.
struct form16 {
    static constexpr unsigned degree = 16;
    static constexpr std::uint64_t polynomial = 0x1021;
    static consteval factors on(unsigned bits)
    {
        return {power(bits, degree, polynomial), power(bits + 64, degree, polynomial)};
    }

    YFS_LANES static __m128i load(const std::uint8_t* from)
    {
        const __m128i reversed = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
        return _mm_shuffle_epi8(load_block(from), reversed);
    }
    YFS_LANES static __m128i enter(std::uint16_t crc) { return _mm_slli_si128(_mm_cvtsi32_si128(crc), 14); }
};

// Reflected: a block as it lies, its first bit lowest. A product of two reflected numbers comes out one place too low,
// which the factors make up for.
struct form32 {
    static consteval std::uint64_t reflected(unsigned bits)
    {
        const std::uint64_t rest = power(bits, 32, 0x04C11DB7);
        std::uint64_t turned = 0;
        for (unsigned i = 0; i < 32; ++i) turned |= ((rest >> i) & 1U) << (31 - i);
        return turned << 1;
    }
    static consteval factors on(unsigned bits) { return {reflected(bits + 32), reflected(bits - 32)}; }

    YFS_LANES static __m128i load(const std::uint8_t* from) { return load_block(from); }
    YFS_LANES static __m128i enter(std::uint32_t crc) { return _mm_cvtsi32_si128(static_cast<int>(crc)); }
};
static_assert(form32::on(512).low == 0x154442BD4 && form32::on(128).high == 0x0CCAA009E);

// 128 bits that leave the same remainder as all blocks.
template <typename Form, typename Crc>
YFS_LANES __m128i fold_all(Crc crc, const std::uint8_t* data, std::size_t blocks)
{
    const __m128i by_one = in_register(Form::on(128));
    __m128i v = _mm_xor_si128(Form::load(data), Form::enter(crc));
    data += lane_bytes;
    --blocks;
    if (blocks >= 3) {
        __m128i v1 = Form::load(data), v2 = Form::load(data + 16), v3 = Form::load(data + 32);
        const __m128i by_four = in_register(Form::on(512));
        for (data += 48, blocks -= 3; blocks >= 4; blocks -= 4, data += 64) {
            v = _mm_xor_si128(fold(v, by_four), Form::load(data));
            v1 = _mm_xor_si128(fold(v1, by_four), Form::load(data + 16));
            v2 = _mm_xor_si128(fold(v2, by_four), Form::load(data + 32));
            v3 = _mm_xor_si128(fold(v3, by_four), Form::load(data + 48));
        }
        v = _mm_xor_si128(fold(v, in_register(Form::on(384))), fold(v1, in_register(Form::on(256))));
        v = _mm_xor_si128(_mm_xor_si128(v, fold(v2, by_one)), v3);
    }
    for (; blocks != 0; --blocks, data += lane_bytes) v = _mm_xor_si128(fold(v, by_one), Form::load(data));
    return v;
}

// floor(x^64 / polynomial), without its top bit: x^48.
consteval std::uint64_t quotient16()
{
    std::uint64_t quotient = 0;
    std::uint64_t rest = 1;
    for (int i = 0; i < 64; ++i) {
        rest <<= 1;
        quotient <<= 1;
        if ((rest >> 16) == 0) continue;
        rest ^= 0x11021;
        quotient |= 1;
    }
    return quotient;
}

// What is left of the 80 bits of a message that has been taken 16 bits on, which makes room for its remainder.
YFS_LANES std::uint16_t remainder16(__m128i v)
{
    const __m128i top = in_register({power(64, 16, form16::polynomial), quotient16()});
    v = _mm_xor_si128(v, _mm_clmulepi64_si128(v, top, 0x01)); // 64 bits
    // How often the polynomial goes into them, from their upper 48 bits; what they are more than that is the remainder.
    const __m128i times = _mm_srli_si128(_mm_clmulepi64_si128(_mm_srli_epi64(v, 16), top, 0x10), 6);
    const __m128i whole = _mm_clmulepi64_si128(times, _mm_cvtsi32_si128(0x11021), 0x00);
    return static_cast<std::uint16_t>(_mm_cvtsi128_si32(_mm_xor_si128(v, whole)) & 0xFFFF);
}

} // namespace

YFS_LANES std::uint16_t crc16_lanes(std::uint16_t crc, const std::uint8_t* data, std::size_t blocks)
{
    return remainder16(fold(fold_all<form16>(crc, data, blocks), in_register(form16::on(16))));
}

// The page is taken 32 bits on: 16 for the key, which so stands where it belongs, and 16 for the remainder.
YFS_LANES std::uint16_t crc16_page_lanes(const std::uint8_t* page, std::uint16_t key)
{
    const __m128i v0 = _mm_xor_si128(form16::load(page), form16::enter(0xFFFF));
    const __m128i v1 = form16::load(page + 16), v2 = form16::load(page + 32), v3 = form16::load(page + 48);
    const __m128i front =
        _mm_xor_si128(fold(v0, in_register(form16::on(384 + 32))), fold(v1, in_register(form16::on(256 + 32))));
    const __m128i back =
        _mm_xor_si128(fold(v2, in_register(form16::on(128 + 32))), fold(v3, in_register(form16::on(32))));
    const __m128i keyed = _mm_slli_si128(_mm_cvtsi32_si128(key), 2);
    return remainder16(_mm_xor_si128(_mm_xor_si128(front, keyed), back));
}

YFS_LANES crc32_rest crc32_lanes(std::uint32_t crc, const std::uint8_t* data, std::size_t blocks)
{
    crc32_rest rest;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(rest.bytes), fold_all<form32>(crc, data, blocks)); // NOLINT
    return rest;
}

} // namespace yfs

#else

namespace yfs {

const bool has_lanes = false;

std::uint16_t crc16_lanes(std::uint16_t crc, const std::uint8_t*, std::size_t)
{
    return crc;
}

std::uint16_t crc16_page_lanes(const std::uint8_t*, std::uint16_t)
{
    return 0;
}

crc32_rest crc32_lanes(std::uint32_t, const std::uint8_t*, std::size_t)
{
    return {};
}

} // namespace yfs

#endif
