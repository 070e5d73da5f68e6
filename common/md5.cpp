// MD5 (RFC 1321) with sdigest and fdigest.
//
// The transform is written for throughput: the 64 steps are unrolled, message words are loaded
// straight from the input (one unaligned 32-bit load each on little-endian machines), full
// blocks are processed where they lie without copying, and the round functions are arranged so
// that as much of each step as possible does not wait for the previous step's result.
#include "common/md5.h"

#include <cstring>

const char MD5::HEX[16] = {'0', '1', '2', '3', '4', '5', '6', '7',
                           '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'};

const unsigned char MD5::PADDING[64] = {0x80};

namespace {

inline uint32_t Rotl(uint32_t x, int s) {
    return (x << s) | (x >> (32 - s));
}

inline uint32_t Load32(const unsigned char* p) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    uint32_t v;
    std::memcpy(&v, p, 4);
    return v;
#else
    return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
           (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
#endif
}

inline void Store32(unsigned char* p, uint32_t v) {
    p[0] = static_cast<unsigned char>(v);
    p[1] = static_cast<unsigned char>(v >> 8);
    p[2] = static_cast<unsigned char>(v >> 16);
    p[3] = static_cast<unsigned char>(v >> 24);
}

// Round 1: F(b,c,d) = (b & c) | (~b & d), computed as d ^ (b & (c ^ d)).
#define MD5_STEP1(a, b, c, d, k, s, t)                    \
    a += (d ^ (b & (c ^ d))) + Load32(p + 4 * (k)) + (t); \
    a = Rotl(a, s) + b
// Round 2: G(b,c,d) = (b & d) | (c & ~d); the two terms never share a bit, so they are added
// separately and the one that does not use b is ready before b is.
#define MD5_STEP2(a, b, c, d, k, s, t)                   \
    a += (c & ~d) + Load32(p + 4 * (k)) + (t) + (b & d); \
    a = Rotl(a, s) + b
// Round 3: H(b,c,d) = b ^ c ^ d.
#define MD5_STEP3(a, b, c, d, k, s, t)            \
    a += (c ^ d ^ b) + Load32(p + 4 * (k)) + (t); \
    a = Rotl(a, s) + b
// Round 4: I(b,c,d) = c ^ (b | ~d).
#define MD5_STEP4(a, b, c, d, k, s, t)               \
    a += (c ^ (b | ~d)) + Load32(p + 4 * (k)) + (t); \
    a = Rotl(a, s) + b

// Processes `blocks` consecutive 64-byte blocks starting at `p`.
void Md5Blocks(uint32_t state[4], const unsigned char* p, size_t blocks) {
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (; blocks > 0; --blocks, p += 64) {
        const uint32_t aa = a, bb = b, cc = c, dd = d;

        MD5_STEP1(a, b, c, d, 0, 7, 0xd76aa478u);
        MD5_STEP1(d, a, b, c, 1, 12, 0xe8c7b756u);
        MD5_STEP1(c, d, a, b, 2, 17, 0x242070dbu);
        MD5_STEP1(b, c, d, a, 3, 22, 0xc1bdceeeu);
        MD5_STEP1(a, b, c, d, 4, 7, 0xf57c0fafu);
        MD5_STEP1(d, a, b, c, 5, 12, 0x4787c62au);
        MD5_STEP1(c, d, a, b, 6, 17, 0xa8304613u);
        MD5_STEP1(b, c, d, a, 7, 22, 0xfd469501u);
        MD5_STEP1(a, b, c, d, 8, 7, 0x698098d8u);
        MD5_STEP1(d, a, b, c, 9, 12, 0x8b44f7afu);
        MD5_STEP1(c, d, a, b, 10, 17, 0xffff5bb1u);
        MD5_STEP1(b, c, d, a, 11, 22, 0x895cd7beu);
        MD5_STEP1(a, b, c, d, 12, 7, 0x6b901122u);
        MD5_STEP1(d, a, b, c, 13, 12, 0xfd987193u);
        MD5_STEP1(c, d, a, b, 14, 17, 0xa679438eu);
        MD5_STEP1(b, c, d, a, 15, 22, 0x49b40821u);

        MD5_STEP2(a, b, c, d, 1, 5, 0xf61e2562u);
        MD5_STEP2(d, a, b, c, 6, 9, 0xc040b340u);
        MD5_STEP2(c, d, a, b, 11, 14, 0x265e5a51u);
        MD5_STEP2(b, c, d, a, 0, 20, 0xe9b6c7aau);
        MD5_STEP2(a, b, c, d, 5, 5, 0xd62f105du);
        MD5_STEP2(d, a, b, c, 10, 9, 0x02441453u);
        MD5_STEP2(c, d, a, b, 15, 14, 0xd8a1e681u);
        MD5_STEP2(b, c, d, a, 4, 20, 0xe7d3fbc8u);
        MD5_STEP2(a, b, c, d, 9, 5, 0x21e1cde6u);
        MD5_STEP2(d, a, b, c, 14, 9, 0xc33707d6u);
        MD5_STEP2(c, d, a, b, 3, 14, 0xf4d50d87u);
        MD5_STEP2(b, c, d, a, 8, 20, 0x455a14edu);
        MD5_STEP2(a, b, c, d, 13, 5, 0xa9e3e905u);
        MD5_STEP2(d, a, b, c, 2, 9, 0xfcefa3f8u);
        MD5_STEP2(c, d, a, b, 7, 14, 0x676f02d9u);
        MD5_STEP2(b, c, d, a, 12, 20, 0x8d2a4c8au);

        MD5_STEP3(a, b, c, d, 5, 4, 0xfffa3942u);
        MD5_STEP3(d, a, b, c, 8, 11, 0x8771f681u);
        MD5_STEP3(c, d, a, b, 11, 16, 0x6d9d6122u);
        MD5_STEP3(b, c, d, a, 14, 23, 0xfde5380cu);
        MD5_STEP3(a, b, c, d, 1, 4, 0xa4beea44u);
        MD5_STEP3(d, a, b, c, 4, 11, 0x4bdecfa9u);
        MD5_STEP3(c, d, a, b, 7, 16, 0xf6bb4b60u);
        MD5_STEP3(b, c, d, a, 10, 23, 0xbebfbc70u);
        MD5_STEP3(a, b, c, d, 13, 4, 0x289b7ec6u);
        MD5_STEP3(d, a, b, c, 0, 11, 0xeaa127fau);
        MD5_STEP3(c, d, a, b, 3, 16, 0xd4ef3085u);
        MD5_STEP3(b, c, d, a, 6, 23, 0x04881d05u);
        MD5_STEP3(a, b, c, d, 9, 4, 0xd9d4d039u);
        MD5_STEP3(d, a, b, c, 12, 11, 0xe6db99e5u);
        MD5_STEP3(c, d, a, b, 15, 16, 0x1fa27cf8u);
        MD5_STEP3(b, c, d, a, 2, 23, 0xc4ac5665u);

        MD5_STEP4(a, b, c, d, 0, 6, 0xf4292244u);
        MD5_STEP4(d, a, b, c, 7, 10, 0x432aff97u);
        MD5_STEP4(c, d, a, b, 14, 15, 0xab9423a7u);
        MD5_STEP4(b, c, d, a, 5, 21, 0xfc93a039u);
        MD5_STEP4(a, b, c, d, 12, 6, 0x655b59c3u);
        MD5_STEP4(d, a, b, c, 3, 10, 0x8f0ccc92u);
        MD5_STEP4(c, d, a, b, 10, 15, 0xffeff47du);
        MD5_STEP4(b, c, d, a, 1, 21, 0x85845dd1u);
        MD5_STEP4(a, b, c, d, 8, 6, 0x6fa87e4fu);
        MD5_STEP4(d, a, b, c, 15, 10, 0xfe2ce6e0u);
        MD5_STEP4(c, d, a, b, 6, 15, 0xa3014314u);
        MD5_STEP4(b, c, d, a, 13, 21, 0x4e0811a1u);
        MD5_STEP4(a, b, c, d, 4, 6, 0xf7537e82u);
        MD5_STEP4(d, a, b, c, 11, 10, 0xbd3af235u);
        MD5_STEP4(c, d, a, b, 2, 15, 0x2ad7d2bbu);
        MD5_STEP4(b, c, d, a, 9, 21, 0xeb86d391u);

        a += aa;
        b += bb;
        c += cc;
        d += dd;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

#undef MD5_STEP1
#undef MD5_STEP2
#undef MD5_STEP3
#undef MD5_STEP4

}  // namespace

MD5::MD5() {
    reset();
}

MD5::MD5(const void* data, size_t length) {
    reset();
    update(data, length);
}

MD5::MD5(const std::string& text) {
    reset();
    update(text);
}

MD5::MD5(std::ifstream& in) {
    reset();
    update(in);
}

void MD5::reset() {
    m_finished = false;
    m_count = 0;
    m_state[0] = 0x67452301u;
    m_state[1] = 0xefcdab89u;
    m_state[2] = 0x98badcfeu;
    m_state[3] = 0x10325476u;
    std::memset(m_buffer, 0, sizeof(m_buffer));
    std::memset(m_digest, 0, sizeof(m_digest));
}

void MD5::update(const void* data, size_t length) {
    update(static_cast<const unsigned char*>(data), length);
}

void MD5::update(const unsigned char* input, size_t length) {
    if (length == 0)
        return;
    size_t index = static_cast<size_t>((m_count >> 3) & 0x3f);
    m_count += static_cast<uint64_t>(length) << 3;
    size_t i = 0;
    if (index != 0) {
        size_t part = 64 - index;
        if (length < part) {
            std::memcpy(m_buffer + index, input, length);
            return;
        }
        std::memcpy(m_buffer + index, input, part);
        transform(m_buffer);
        i = part;
    }
    size_t blocks = (length - i) / 64;
    if (blocks > 0) {
        Md5Blocks(m_state, input + i, blocks);  // full blocks straight from the input
        i += blocks * 64;
    }
    if (i < length)
        std::memcpy(m_buffer, input + i, length - i);
}

void MD5::update(const std::string& text) {
    update(text.data(), text.size());
}

void MD5::update(std::ifstream& in) {
    if (in.bad() || in.fail())
        return;
    char buf[1024];
    while (!in.eof()) {
        in.read(buf, sizeof(buf));
        std::streamsize n = in.gcount();
        if (n > 0)
            update(buf, static_cast<size_t>(n));
        if (in.bad())
            break;
    }
}

const unsigned char* MD5::digest() {
    if (!m_finished) {
        m_finished = true;
        final();
    }
    return m_digest;
}

std::string MD5::toString() {
    return bytesToHexString(digest(), 16);
}

std::string MD5::bytesToHexString(const unsigned char* bytes, size_t length) {
    std::string out;
    out.reserve(length * 2);
    for (size_t i = 0; i < length; ++i) {
        out += HEX[bytes[i] >> 4];
        out += HEX[bytes[i] & 0x0f];
    }
    return out;
}

void MD5::transform(const unsigned char block[64]) {
    Md5Blocks(m_state, block, 1);
}

void MD5::final() {
    unsigned char bits[8];
    uint64_t count = m_count;
    for (int i = 0; i < 8; ++i)
        bits[i] = static_cast<unsigned char>(count >> (8 * i));
    size_t index = static_cast<size_t>((count >> 3) & 0x3f);
    size_t padLen = index < 56 ? 56 - index : 120 - index;
    update(PADDING, padLen);
    update(bits, 8);
    for (int i = 0; i < 4; ++i)
        Store32(m_digest + 4 * i, m_state[i]);
    std::memset(m_buffer, 0, sizeof(m_buffer));
}

bool sdigest(const std::string& text, std::string& hex) {
    MD5 md5(text);
    hex = md5.toString();
    return true;
}

bool fdigest(const std::string& path, std::string& hex, bool binary) {
    std::ifstream in(path.c_str(), binary ? (std::ios::in | std::ios::binary) : std::ios::in);
    if (!in.is_open()) {
        hex = "file open error";
        return false;
    }
    MD5 md5;
    md5.update(in);
    in.close();
    hex = md5.toString();
    return true;
}
