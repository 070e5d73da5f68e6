// Tests of MD5, sdigest and fdigest: the RFC 1321 test suite and lengths around the padding
// limit, incremental feeding split at odd boundaries against one-shot digests, and files
// (missing, empty, binary and text mode).
#include "common/md5.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/TestTree.h"

namespace {

TEST(Md5Test, KnownDigestsOneShotAndByteByByte) {
    const std::string digits = "1234567890";
    const struct {
        std::string text;
        const char* hex;
    } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {digits + digits + digits + digits + digits + digits + digits + digits,
         "57edf4a22be3c955ac49da2e2107b67a"},
        // Around the 56-byte padding limit and the 64-byte block.
        {std::string(55, 'x'), "04364420e25c512fd958a70738aa8f72"},
        {std::string(56, 'x'), "668a72d5ba17f08e62dabcafad6db14b"},
        {std::string(57, 'x'), "693037871c4a9d3d8685018905cb530a"},
        {std::string(63, 'x'), "7dc2ca208106a2f703567bdff99d8981"},
        {std::string(64, 'x'), "c1bb4f81d892b2d57947682aeb252456"},
        {std::string(65, 'x'), "1bc932052302d074bdec39795fe00cf6"},
        {std::string(119, 'x'), "ab347a5f68c8a443cfcddc633f12c24f"},
        {std::string(120, 'x'), "fb98667f98096de92620b64f46e1c5b5"},
        {std::string(1000000, 'a'), "7707d6ae4e027c70eea2a935c2296f21"},
    };
    for (const auto& c : cases) {
        std::string hex;
        EXPECT_TRUE(sdigest(c.text, hex));
        EXPECT_EQ(hex, c.hex) << c.text.size() << " bytes";
        if (c.text.size() > 1000)
            continue;
        MD5 bytewise;
        for (char ch : c.text)
            bytewise.update(&ch, 1);
        EXPECT_EQ(bytewise.toString(), c.hex) << c.text.size() << " bytes";
    }
}

TEST(Md5Test, RandomBufferSplitAtOddBoundaries) {
    std::mt19937 rng(12345);
    std::vector<unsigned char> data(300 * 1024 + 37);
    for (auto& b : data)
        b = static_cast<unsigned char>(rng());
    const std::string oneShot = MD5(data.data(), data.size()).toString();
    for (size_t most : {3, 70, 5000}) {  // pieces within a block, around one, over many
        MD5 md5;
        for (size_t pos = 0, n; pos < data.size(); pos += n) {
            n = std::min(std::uniform_int_distribution<size_t>(0, most)(rng), data.size() - pos);
            md5.update(data.data() + pos, n);
        }
        EXPECT_EQ(md5.toString(), oneShot) << most;
    }
}

TEST(Md5Test, DigestFinishesOnceAndResetStartsAgain) {
    MD5 md5(std::string("abc"));
    const std::string hex = MD5::bytesToHexString(md5.digest(), 16);
    EXPECT_EQ(hex, "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5.toString(), hex);  // not padded a second time
    md5.reset();
    md5.update(std::string("a"));
    EXPECT_EQ(md5.toString(), "0cc175b9c0f1b6a831c399e269772661");
}

TEST(Md5Test, Files) {
    ws_test::TempTree tree{"md5test"};
    std::string hex = "unchanged";
    EXPECT_FALSE(fdigest(tree.Path("missing.bin"), hex, true));
    EXPECT_EQ(hex, "file open error");
    EXPECT_FALSE(fdigest(tree.Path("missing.bin"), hex, false));
    std::ifstream missing(tree.Path("missing"), std::ios::binary);
    MD5 fed(std::string("abc"));
    fed.update(missing);  // a failed stream feeds nothing
    EXPECT_EQ(fed.toString(), "900150983cd24fb0d6963f7d28e17f72");

    ws_test::WriteFile(tree.Path("empty"), "");
    EXPECT_TRUE(fdigest(tree.Path("empty"), hex, true));
    EXPECT_EQ(hex, "d41d8cd98f00b204e9800998ecf8427e");

    // Several blocks, in both modes (no translation on this platform) and as a stream.
    std::string content;
    for (int i = 0; i < 5000; ++i)
        content += static_cast<char>(i * 7 + (i >> 3));
    content += std::string("\r\n\0tail", 7);
    ws_test::WriteFile(tree.Path("data"), content);
    const std::string expected = MD5(content).toString();
    for (bool binary : {true, false}) {
        EXPECT_TRUE(fdigest(tree.Path("data"), hex, binary));
        EXPECT_EQ(hex, expected) << binary;
    }
    std::ifstream in(tree.Path("data"), std::ios::binary);
    EXPECT_EQ(MD5(in).toString(), expected);
}

}  // namespace
