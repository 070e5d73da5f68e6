// Tests of the Accept-Encoding rule and of gzip output decoded by zlib's own inflater.
#include "host/Gzip.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>

namespace {

std::string Gunzip(const std::string& in) {
    z_stream zs;
    std::memset(&zs, 0, sizeof(zs));
    if (inflateInit2(&zs, 15 + 16) != Z_OK)
        return "<init failed>";
    std::string out(in.size() * 20 + 64, '\0');
    zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
    zs.avail_in = static_cast<uInt>(in.size());
    zs.next_out = reinterpret_cast<Bytef*>(&out[0]);
    zs.avail_out = static_cast<uInt>(out.size());
    int rc = inflate(&zs, Z_FINISH);
    out.resize(out.size() - zs.avail_out);
    inflateEnd(&zs);
    return rc == Z_STREAM_END ? out : "<inflate failed>";
}

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
