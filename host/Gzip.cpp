// Gzip: Accept-Encoding parsing and one-shot gzip compression with zlib.
#include "host/Gzip.h"

#include <zlib.h>

#include <cstdlib>
#include <cstring>

namespace wh {

namespace {

std::string Lower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

std::string Trim(const std::string& text) {
    std::string::size_type b = text.find_first_not_of(" \t");
    if (b == std::string::npos)
        return "";
    return text.substr(b, text.find_last_not_of(" \t") - b + 1);
}

// The q value of one list item's parameters ("q=0.5"); 1 when there is none.
double Quality(const std::string& params) {
    std::string::size_type start = 0;
    while (start < params.size()) {
        std::string::size_type end = params.find(';', start);
        if (end == std::string::npos)
            end = params.size();
        std::string p = Trim(params.substr(start, end - start));
        if (p.size() >= 2 && (p[0] == 'q' || p[0] == 'Q') && Trim(p.substr(1))[0] == '=') {
            std::string v = Trim(Trim(p.substr(1)).substr(1));
            return std::strtod(v.c_str(), nullptr);
        }
        start = end + 1;
    }
    return 1.0;
}

}  // namespace

bool AcceptsGzip(const char* acceptEncoding) {
    if (acceptEncoding == nullptr || *acceptEncoding == '\0')
        return false;
    std::string header = acceptEncoding;
    int gzip = -1;  // -1 not listed, 0 refused, 1 accepted
    int star = -1;
    std::string::size_type start = 0;
    while (start <= header.size()) {
        std::string::size_type end = header.find(',', start);
        if (end == std::string::npos)
            end = header.size();
        std::string item = header.substr(start, end - start);
        std::string::size_type semi = item.find(';');
        std::string coding = Lower(Trim(item.substr(0, semi)));
        double q = semi == std::string::npos ? 1.0 : Quality(item.substr(semi + 1));
        int verdict = q > 0.0 ? 1 : 0;
        if (coding == "gzip" || coding == "x-gzip") {
            gzip = gzip == 1 ? 1 : verdict;
        } else if (coding == "*") {
            star = verdict;
        }
        start = end + 1;
    }
    if (gzip != -1)
        return gzip == 1;
    return star == 1;
}

bool GzipCompress(const char* data, size_t length, std::string& out) {
    z_stream zs;
    std::memset(&zs, 0, sizeof(zs));
    // 15 + 16: the largest window, written with a gzip header and trailer.
    if (deflateInit2(&zs, Z_DEFAULT_COMPRESSION, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) !=
        Z_OK)
        return false;
    out.resize(deflateBound(&zs, static_cast<uLong>(length)) + 32);
    zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
    zs.avail_in = static_cast<uInt>(length);
    zs.next_out = reinterpret_cast<Bytef*>(&out[0]);
    zs.avail_out = static_cast<uInt>(out.size());
    int rc = deflate(&zs, Z_FINISH);
    size_t produced = out.size() - zs.avail_out;
    deflateEnd(&zs);
    if (rc != Z_STREAM_END)
        return false;
    out.resize(produced);
    return true;
}

}  // namespace wh
