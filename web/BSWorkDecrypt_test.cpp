// Tests of CBSWork::decrypt against a scrambler written here from the algorithm's description.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include "web/BSWork.h"

namespace {

// Reads an optional "-" and the digits after it; anything else ends the number (0 if none).
// Signed, or unsigned 64-bit where a "-" negates modulo 2^64 and too many digits saturate.
uint64_t Leading(const std::string& s, bool saturate) {
    const bool neg = !s.empty() && s[0] == '-';
    uint64_t v = 0;
    bool overflow = false;
    for (size_t i = neg ? 1 : 0; i < s.size() && s[i] >= '0' && s[i] <= '9'; ++i) {
        const uint64_t d = static_cast<uint64_t>(s[i] - '0');
        overflow = overflow || v > (std::numeric_limits<uint64_t>::max() - d) / 10;
        v = v * 10 + d;
    }
    if (saturate && overflow)
        return std::numeric_limits<uint64_t>::max();
    return neg ? 0 - v : v;
}
int64_t LeadingSigned(const std::string& s) {
    return static_cast<int64_t>(Leading(s, false));
}

// The key byte for a pass phrase and salt, step by step from the description.
int64_t KeyByte(const std::string& pass, uint32_t salt) {
    std::string digits;
    for (unsigned char b : pass)
        digits += std::to_string(b > 127 ? int(b) - 256 : int(b));
    const size_t s = digits.size() / 5;
    std::string five;
    for (size_t k = 1; k <= 5 && s * k < digits.size(); ++k)
        five += digits[s * k];
    const int32_t m = static_cast<int32_t>(LeadingSigned(five));
    const int64_t c = (m >> 1) + (m & 1);
    digits += std::to_string(static_cast<int32_t>(salt));
    while (digits.size() > 10) {
        digits =
            std::to_string(Leading(digits.substr(0, 10), true) + Leading(digits.substr(10), true));
    }
    const int64_t p = (int64_t{m} * LeadingSigned(digits) + c) % 2147483647;
    return p * 255 / 2147483647;
}

std::string Scramble(const std::string& plain, const std::string& pass, uint32_t salt) {
    const int64_t k = KeyByte(pass, salt);
    std::string out;
    char buf[16];
    for (unsigned char b : plain) {
        std::snprintf(buf, sizeof(buf), "%02x", static_cast<unsigned>((b ^ k) & 0xff));
        out += buf;
    }
    std::snprintf(buf, sizeof(buf), "%08x", salt);
    return out + buf;
}

class DecryptTest : public ::testing::Test {
protected:
    CBSWork work;
    std::mt19937 rng{20261121};
    std::string RandomBytes(size_t maxLen) {
        std::string s(std::uniform_int_distribution<size_t>(0, maxLen)(rng), '\0');
        for (char& ch : s)
            ch = static_cast<char>(rng());
        return s;
    }
};

TEST_F(DecryptTest, KeyBytesOfWorkedExamples) {
    // Worked out by hand from the description; they anchor the scrambler above.
    struct Case {
        std::string pass;
        uint32_t salt;
        int64_t key;
    } cases[] = {
        {"\x07", 0x1000, 174},        // digit string "7": multiplier from one digit, 5 times
        {"d\x0c", 0x12345678, 151},   // "10012": the fifth position is the end of the text
        {"secret", 0x0badf00d, 101},  //
        {"密码", 0x7fffffff, 196},    // bytes above 127 count as negative numbers
        {std::string(30, 'x'), 0xfedcba98, 112},  // salt above 2^31 appended with its "-"
    };
    for (const Case& c : cases) {
        EXPECT_EQ(KeyByte(c.pass, c.salt), c.key) << c.pass;
        const std::string text = "00" + Scramble("", c.pass, c.salt);
        EXPECT_EQ(work.decrypt(text, c.pass), std::string(1, static_cast<char>(c.key))) << c.pass;
    }
}

TEST_F(DecryptTest, RoundTripsOverRandomTextsAndPassPhrasesAndAnyInputIsSafe) {
    for (int i = 0; i < 3000; ++i) {
        const std::string plain = RandomBytes(64);
        std::string pass = RandomBytes(40);
        if (i % 3 == 0) {  // printable pass phrases as the pages use them
            for (char& ch : pass)
                ch = static_cast<char>('!' + static_cast<unsigned char>(ch) % 94);
        }
        const uint32_t salt = static_cast<uint32_t>(rng());
        ASSERT_EQ(work.decrypt(Scramble(plain, pass, salt), pass), plain)
            << "pass bytes " << pass.size() << " salt " << salt;
        // Any bytes at all: no crash, at most one byte per pair.
        const std::string text = RandomBytes(40);
        EXPECT_LE(work.decrypt(text, pass).size(), text.size() / 2 + 1);
    }
}

TEST_F(DecryptTest, EdgeCases) {
    const std::string pass = "secret";
    const uint32_t salt = 0x0badf00d;
    const char k = static_cast<char>(KeyByte(pass, salt));
    EXPECT_EQ(work.decrypt("", pass), "");
    EXPECT_EQ(work.decrypt("0badf00d", pass), "");
    EXPECT_EQ(work.decrypt("badf00d", pass), "");
    EXPECT_EQ(work.decrypt("zz0badf00d", pass), std::string(1, k));             // not hex: 0
    EXPECT_EQ(work.decrypt("az0badf00d", pass), std::string(1, char(10 ^ k)));  // leading digit
    const std::string odd{char(0x41 ^ k), char(0x42 ^ k), char(0xf ^ k)};
    EXPECT_EQ(work.decrypt("4142f0badf00d", pass), odd);  // odd count: lone last digit
    // One key byte for every position, kept on purpose: equal pairs give equal bytes wherever
    // they stand.
    const std::string out = work.decrypt("5a7f5a7f5a0badf00d", pass);
    ASSERT_EQ(out.size(), 5u);
    EXPECT_EQ(out[0], out[2]);
    EXPECT_EQ(out[0], out[4]);
    EXPECT_EQ(out[1], out[3]);
    const std::string scrambled = Scramble("aXaXa", pass, salt);
    EXPECT_EQ(scrambled.substr(0, 2), scrambled.substr(4, 2));
}

}  // namespace
