// Tests of the Accept-Encoding rule and of gzip output decoded by zlib's own inflater.
#include "host/Gzip.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>

#include "tests/support/Gunzip.h"

namespace {

using ws_test::Gunzip;

TEST(GzipTest, AcceptEncodingRule) {
    const struct {
        const char* header;
        bool gzip;
    } kCases[] = {
        {nullptr, false},
        {"", false},
        {"gzip", true},
        {"GZIP", true},
        {"x-gzip", true},
        {"gzip, deflate, br", true},
        {"deflate, br", false},
        {"identity", false},
        {"gzip;q=0", false},
        {"gzip; q=0.0", false},
        {"gzip;q=0.5", true},
        {"*", true},
        {"*;q=0", false},
        {"*, gzip;q=0", false},  // named explicitly: the star does not override
        {"deflate, *;q=0.1", true},
        {"br;q=1.0, gzip;q=0.8", true},
        {"gzipx", false},
    };
    for (const auto& k : kCases) {
        EXPECT_EQ(k.gzip, wh::AcceptsGzip(k.header)) << (k.header ? k.header : "(null)");
    }
}

TEST(GzipTest, CompressedBodyInflatesToTheOriginal) {
    std::string text;
    for (int i = 0; i < 500; ++i)
        text += "{\"status\":\"success\",\"n\":" + std::to_string(i) + "}\n";
    std::string gz;
    ASSERT_TRUE(wh::GzipCompress(text.data(), text.size(), gz));
    ASSERT_GE(gz.size(), 18u);
    EXPECT_EQ('\x1f', gz[0]);  // gzip magic, not a bare deflate stream
    EXPECT_EQ('\x8b', gz[1]);
    EXPECT_LT(gz.size(), text.size());
    EXPECT_EQ(text, Gunzip(gz));

    std::string empty;
    ASSERT_TRUE(wh::GzipCompress("", 0, empty));
    EXPECT_EQ("", Gunzip(empty));
}

}  // namespace
