// Tests of the Accept-Encoding rule. The compressed bodies themselves are inflated by zlib's own
// gzip reader in tests/host/host_framing_test, as a client receives them.
#include "host/Gzip.h"

#include <gtest/gtest.h>

namespace {

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

}  // namespace
