// Tests of CBSWork::decrypt: key bytes of worked examples, round trips under them, edge cases.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <random>
#include <string>

#include "web/BSWork.h"

namespace {

// The scrambled form of `plain` under key byte `key` and `salt`: hexadecimal pairs, then the
// salt as eight hexadecimal digits.
std::string Scramble(const std::string& plain, int key, uint32_t salt) {
    std::string out;
    char buf[16];
    for (unsigned char b : plain) {
        std::snprintf(buf, sizeof(buf), "%02x", static_cast<unsigned>((b ^ key) & 0xff));
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

TEST_F(DecryptTest, KeyBytesOfWorkedExamplesAndRoundTrips) {
    // The key byte of each pass phrase and salt, worked out from the algorithm's description.
    const struct {
        std::string pass;
        uint32_t salt;
        int key;
    } cases[] = {
        {"\x07", 0x1000, 174},        // digit string "7": multiplier from one digit, 5 times
        {"d\x0c", 0x12345678, 151},   // "10012": the fifth position is the end of the text
        {"secret", 0x0badf00d, 101},  //
        {"密码", 0x7fffffff, 196},    // bytes above 127 count as negative numbers
        {std::string(30, 'x'), 0xfedcba98, 112},   // salt above 2^31 appended with its "-"
        {std::string(200, 'z'), 0x13579bdf, 203},  // folded many times, parts saturate
        {"", 0x12345678, 0},                       // no digits: multiplier 0
        {"ab", 0, 143},
        {"abcd", 0x80000000, 254},
        {"Pa55w0rd!", 0xffffffff, 40},
        {"0", 7, 2},
        {"hello world", 0x00c0ffee, 170},
        {"5xnvyfx", 0xc51127e6, 80},  // folding passes through exactly 11 digits
        {"qt0u", 0x7e80728c, 139},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(work.decrypt("00" + Scramble("", 0, c.salt), c.pass),
                  std::string(1, static_cast<char>(c.key)))
            << c.pass;
        for (int i = 0; i < 200; ++i) {
            const std::string plain = RandomBytes(64);
            ASSERT_EQ(work.decrypt(Scramble(plain, c.key, c.salt), c.pass), plain) << c.pass;
        }
    }
}

TEST_F(DecryptTest, EdgeCases) {
    const std::string pass = "secret";  // with salt 0badf00d: key byte 101
    const char k = 101;
    EXPECT_EQ(work.decrypt("", pass), "");
    EXPECT_EQ(work.decrypt("0badf00d", pass), "");
    EXPECT_EQ(work.decrypt("badf00d", pass), "");
    EXPECT_EQ(work.decrypt("zz0badf00d", pass), std::string(1, k));             // not hex: 0
    EXPECT_EQ(work.decrypt("az0badf00d", pass), std::string(1, char(10 ^ k)));  // leading digit
    const std::string odd{char(0x41 ^ k), char(0x42 ^ k), char(0xf ^ k)};
    EXPECT_EQ(work.decrypt("4142f0badf00d", pass), odd);  // odd count: lone last digit
    // One key byte for every position, kept on purpose: equal pairs give equal bytes wherever
    // they stand.
    EXPECT_EQ(work.decrypt("5a7f5a7f5a0badf00d", pass),
              (std::string{char(0x5a ^ k), char(0x7f ^ k), char(0x5a ^ k), char(0x7f ^ k),
                           char(0x5a ^ k)}));
    // Any bytes at all: no crash, at most one byte per pair.
    for (int i = 0; i < 5000; ++i) {
        const std::string text = RandomBytes(40);
        EXPECT_LE(work.decrypt(text, RandomBytes(20)).size(), text.size() / 2 + 1);
    }
}

}  // namespace
