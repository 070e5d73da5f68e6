// Test support: an independent gzip decoder (zlib directly), to check what a host compressed.
#pragma once

#include <zlib.h>

#include <cstring>
#include <string>

namespace ws_test {

// The gzip stream `in` inflated whole, or a text in angle brackets naming the failure.
inline std::string Gunzip(const std::string& in) {
    z_stream zs;
    std::memset(&zs, 0, sizeof(zs));
    if (inflateInit2(&zs, 15 + 16) != Z_OK)
        return "<init failed>";
    std::string out;
    char buf[16384];
    zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
    zs.avail_in = static_cast<uInt>(in.size());
    int rc = Z_OK;
    while (rc == Z_OK) {
        zs.next_out = reinterpret_cast<Bytef*>(buf);
        zs.avail_out = sizeof(buf);
        rc = inflate(&zs, Z_NO_FLUSH);
        out.append(buf, sizeof(buf) - zs.avail_out);
        if (rc == Z_BUF_ERROR && zs.avail_in == 0)
            break;  // input ended before the stream did
    }
    inflateEnd(&zs);
    return rc == Z_STREAM_END ? out : "<inflate failed>";
}

}  // namespace ws_test
