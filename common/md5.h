// MD5 (RFC 1321) and the exported digest functions sdigest and fdigest.
#pragma once

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

#include "common/Export.h"

class WS_API MD5 {
public:
    MD5();
    MD5(const void* data, size_t length);
    explicit MD5(const std::string& text);
    explicit MD5(std::ifstream& in);

    void reset();
    void update(const void* data, size_t length);
    void update(const unsigned char* data, size_t length);
    void update(const std::string& text);
    void update(std::ifstream& in);  // reads of 1024 bytes; nothing when the stream is bad
    const unsigned char* digest();   // finishes on the first call
    std::string toString();

    static std::string bytesToHexString(const unsigned char* bytes, size_t length);

    static const char HEX[16];
    static const unsigned char PADDING[64];

private:
    void transform(const unsigned char block[64]);
    void final();

    uint32_t m_state[4];
    uint64_t m_count;  // bits fed so far
    unsigned char m_buffer[64];
    unsigned char m_digest[16];
    bool m_finished;
};

// The two digest functions are exported under their undecorated names (C linkage), which is how
// the service's other modules look them up; like the session entry points they still take C++
// types, every caller being C++ and sharing this header.
// The digest of `text` as 32 lower-case hexadecimal characters; always true.
WS_EXTERN_C WS_API bool sdigest(const std::string& text, std::string& hex);
// The digest of the file at `path`; false and "file open error" when it cannot be opened.
WS_EXTERN_C WS_API bool fdigest(const std::string& path, std::string& hex, bool binary);
