// Tests of MD5, sdigest and fdigest: the RFC 1321 test suite, incremental feeding split at odd
// boundaries against one-shot digests, and files (missing, empty, binary and text mode).
#include "common/md5.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/TestTree.h"

namespace {

TEST(Md5Test, Rfc1321TestSuite) {
    struct Case {
        const char* text;
        const char* hex;
    } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const Case& c : cases) {
        std::string hex;
        EXPECT_TRUE(sdigest(c.text, hex));
        EXPECT_EQ(hex, c.hex) << c.text;
        EXPECT_EQ(MD5(std::string(c.text)).toString(), c.hex);
    }
    EXPECT_EQ(MD5(std::string(1000000, 'a')).toString(), "7707d6ae4e027c70eea2a935c2296f21");
}

TEST(Md5Test, PaddingBoundaries) {
    // Lengths around the 56-byte padding limit and the 64-byte block, fed byte by byte, must
    // equal the one-shot digest.
    for (size_t len : {55u, 56u, 57u, 63u, 64u, 65u, 119u, 120u, 128u}) {
        std::string text(len, 'x');
        MD5 bytewise;
        for (char c : text)
            bytewise.update(&c, 1);
        EXPECT_EQ(bytewise.toString(), MD5(text).toString()) << len;
    }
    std::string hex;
    sdigest(std::string(64, 'x'), hex);
    EXPECT_EQ(hex, "c1bb4f81d892b2d57947682aeb252456");
}

TEST(Md5Test, LargeRandomBufferSplitAtOddBoundaries) {
    std::mt19937 rng(12345);
    std::vector<unsigned char> data(3 * 1024 * 1024 + 37);
    for (auto& b : data)
        b = static_cast<unsigned char>(rng());
    const std::string oneShot = MD5(data.data(), data.size()).toString();
    for (int round = 0; round < 4; ++round) {
        MD5 md5;
        size_t pos = 0;
        std::uniform_int_distribution<size_t> piece(0, round == 0 ? 3 : 5000);
        while (pos < data.size()) {
            size_t n = std::min(piece(rng), data.size() - pos);
            md5.update(data.data() + pos, n);
            pos += n;
        }
        EXPECT_EQ(md5.toString(), oneShot) << round;
    }
    // Unaligned start inside the caller's buffer.
    MD5 shifted;
    shifted.update(data.data() + 1, 1000);
    EXPECT_EQ(shifted.toString(),
              MD5(std::vector<unsigned char>(data.begin() + 1, data.begin() + 1001).data(), 1000)
                  .toString());
}

TEST(Md5Test, DigestFinishesOnceAndResetStartsAgain) {
    MD5 md5(std::string("abc"));
    const unsigned char* first = md5.digest();
    std::string hex = MD5::bytesToHexString(first, 16);
    EXPECT_EQ(hex, "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5.toString(), hex);  // not padded a second time
    md5.reset();
    md5.update(std::string("a"));
    EXPECT_EQ(md5.toString(), "0cc175b9c0f1b6a831c399e269772661");
    const unsigned char bytes[] = {0x00, 0x0f, 0xa5, 0xff};
    EXPECT_EQ(MD5::bytesToHexString(bytes, 4), "000fa5ff");
    EXPECT_EQ(MD5::PADDING[0], 0x80);
    EXPECT_EQ(MD5::PADDING[63], 0x00);
}

class Md5FileTest : public ::testing::Test {
protected:
    ws_test::TempTree m_tree{"md5test"};
};

TEST_F(Md5FileTest, MissingFile) {
    std::string hex = "unchanged";
    EXPECT_FALSE(fdigest(m_tree.Path("missing.bin"), hex, true));
    EXPECT_EQ(hex, "file open error");
    EXPECT_FALSE(fdigest(m_tree.Path("missing.bin"), hex, false));
}

TEST_F(Md5FileTest, EmptyFile) {
    ws_test::WriteFile(m_tree.Path("empty"), "");
    std::string hex;
    EXPECT_TRUE(fdigest(m_tree.Path("empty"), hex, true));
    EXPECT_EQ(hex, "d41d8cd98f00b204e9800998ecf8427e");
}

TEST_F(Md5FileTest, FilesOfSeveralBlocksInBothModes) {
    std::string content;
    for (int i = 0; i < 5000; ++i)
        content += static_cast<char>(i * 7 + (i >> 3));
    content += std::string("\r\n\0tail", 7);
    ws_test::WriteFile(m_tree.Path("data"), content);
    std::string expected = MD5(content).toString();
    std::string hex;
    EXPECT_TRUE(fdigest(m_tree.Path("data"), hex, true));
    EXPECT_EQ(hex, expected);
    EXPECT_TRUE(fdigest(m_tree.Path("data"), hex, false));  // no translation on this platform
    EXPECT_EQ(hex, expected);
    std::ifstream in(m_tree.Path("data"), std::ios::binary);
    EXPECT_EQ(MD5(in).toString(), expected);
}

TEST_F(Md5FileTest, FailedStreamFeedsNothing) {
    std::ifstream in(m_tree.Path("missing"), std::ios::binary);
    MD5 md5(std::string("abc"));
    md5.update(in);
    EXPECT_EQ(md5.toString(), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
