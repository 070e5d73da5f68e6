// st_wh_info: the request record the host fills for every request, with its header block and
// response head. The host (webharbour, or any host written in C++) owns every instance; the
// library reads and writes it only during a call and keeps no pointer to it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

class Url;

// Request methods as the host reports them in st_wh_head::method. Only POST (2) changes what the
// library does (the gate reads the body of a POST).
enum : uint32_t {
    WH_METHOD_OTHER = 0,
    WH_METHOD_GET = 1,
    WH_METHOD_POST = 2,
    WH_METHOD_HEAD = 3,
    WH_METHOD_PUT = 4,
    WH_METHOD_DELETE = 5,
    WH_METHOD_OPTIONS = 6,
};

// Server variables the host answers through getServerVariable.
enum : int32_t {
    WH_VAR_PEER_ADDRESS = 2,  // the peer's address as text, e.g. "127.0.0.1"
};

// Pieces of an event stream passed to writeChunk.
enum : int32_t {
    WH_CHUNK_PIECE = 2,  // an ordinary piece
    WH_CHUNK_LAST = 3,   // the closing piece: the host writes it and ends the chunked body
};

// The parsed request head.
struct st_wh_head {
    uint32_t method = WH_METHOD_OTHER;  // WH_METHOD_*
    std::string cookie;                 // raw text of the Cookie header ("" when absent)
    std::string host;                   // origin text of the CSRF check: the Host header
    std::string referer;                // page text of the CSRF check: the Referer header
};

// The response head: the library sets the fields below and then calls sendHead; the host turns
// them into the status line and headers.
struct st_wh_resp {
    uint32_t contentLength = 0;    // body length announced (ignored for chunked responses)
    int32_t bodyEncoded = 0;       // 1 when the body went through encodeBody
    std::string transferEncoding;  // "chunked" for event streams, else ""
    std::string contentType;       // e.g. "text/html;charset=UTF-8"
    int32_t status = 200;          // HTTP status code
    std::string statusText;        // reason phrase; a host may derive its own from status
    std::string location;          // Location header of a redirect, "" for none
    // Further response headers in the order given (several Set-Cookie headers, for example).
    std::vector<std::pair<std::string, std::string>> extraHeaders;
    // The request's headers by exact name, as received (read by CheckChunkLastEventId).
    std::map<std::string, std::string> headers;
};

// The request record. Members lie in this order; every callback receives connId first.
struct st_wh_info {
    // The request body as NUL-terminated text (length through *length), or null when there is
    // none. The buffer belongs to the host and stays valid for the rest of the request.
    const char* (*readBody)(void* connId, uint32_t* length) = nullptr;
    void* connId = nullptr;      // the connection, opaque to the library
    st_wh_head* head = nullptr;  // parsed request head
    Url* url = nullptr;          // the request's parsed URL (path and query string)
    // Reads server variable `var` (WH_VAR_*) into buf; *size is the room on entry and the bytes
    // written on return. False when the variable is unknown or does not fit.
    bool (*getServerVariable)(void* connId, int32_t var, char* buf, uint32_t* size) = nullptr;
    void (*sendHead)(void* connId) = nullptr;  // sends status line and headers from resp
    void (*writeBody)(void* connId, const char* data, uint32_t length) = nullptr;
    // One piece of a chunked event stream; mode WH_CHUNK_PIECE or WH_CHUNK_LAST.
    void (*writeChunk)(void* connId, const char* data, uint32_t length, int32_t mode) = nullptr;
    // Encodes a large body (mode 1); *length is the input length on entry and the encoded
    // length on return. The returned buffer belongs to the host and lives until the request
    // ends; the host announces the encoding when resp->bodyEncoded is 1.
    const char* (*encodeBody)(void* connId, const char* data, uint32_t* length,
                              int32_t mode) = nullptr;
    st_wh_resp* resp = nullptr;  // the response head
    // The host's document root for this request as NUL-terminated text.
    const char* (*getDocPath)(void* connId) = nullptr;
};
