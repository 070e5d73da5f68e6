// Gzip: the client's Accept-Encoding rule and the gzip encoding behind encodeBody.
#pragma once

#include <cstddef>
#include <string>

namespace wh {

// True when an Accept-Encoding header value lets us answer with gzip: "gzip" (or "x-gzip")
// listed with a quality above 0, or "*" with a quality above 0 while gzip itself is not listed.
// A null or empty header allows only identity.
bool AcceptsGzip(const char* acceptEncoding);

// Compresses `length` bytes at `data` into a complete gzip member in `out`. False only when
// zlib fails (out of memory).
bool GzipCompress(const char* data, size_t length, std::string& out);

}  // namespace wh
