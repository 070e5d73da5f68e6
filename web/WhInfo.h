// st_wh_info: the request record the host fills for every request, with its header block and
// response head. The host (webharbour, or any host written in C++) owns every instance; the
// library reads and writes it only during a call and keeps no pointer to it.
//
// Filling it, for a host: construct one st_wh_head, one st_wh_resp and one Url per request,
// point the record at them, set connId to whatever identifies the connection to the callbacks,
// and set every callback (a null callback is skipped by the library, so a missing one silently
// loses that part of the answer). Keep everything alive until the request has been answered.
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
    WH_CHUNK_PIECE = 2,  // an ordinary piece; the library never passes an empty one
    WH_CHUNK_LAST = 3,   // the closing piece (possibly empty): write it and end the chunked body
};

// The parsed request head.
struct st_wh_head {
    uint32_t method = WH_METHOD_OTHER;  // WH_METHOD_*
    std::string cookie;                 // raw text of the Cookie header ("" when absent)
    std::string host;                   // origin text of the CSRF check: the Host header
    std::string referer;                // page text of the CSRF check: the Referer header
};

// The response head: the library sets the fields below and then calls sendHead; the host turns
// them into the status line and headers. Start every request with a default-constructed one.
struct st_wh_resp {
    // Body length announced; set by every sender that writes a plain body (for an encoded body,
    // the encoded length). Not used for chunked responses.
    uint32_t contentLength = 0;
    // Set to 1 when the body went through encodeBody, so the host announces its encoding (e.g.
    // "Content-Encoding: gzip"); the library never sets it back to 0.
    int32_t bodyEncoded = 0;
    std::string transferEncoding;  // "chunked" for event streams, else left ""
    // e.g. "text/html;charset=UTF-8", "text/event-stream", "application/mac-binhex40".
    std::string contentType;
    int32_t status = 200;  // HTTP status code: 200, or 302 for a redirect
    // Reason phrase: "OK" for 200; a redirect leaves it as it was. A host may derive its own
    // from status instead.
    std::string statusText;
    std::string location;  // Location header of a redirect, "" for none
    // Further response headers in the order given (several Set-Cookie headers, for example);
    // the library appends, the host sends them after the fields above.
    std::vector<std::pair<std::string, std::string>> extraHeaders;
    // Filled by the host before the call: the request's headers by their exact names as
    // received (names are looked up byte for byte, e.g. "Last-Event-ID").
    std::map<std::string, std::string> headers;
};

// The request record. Members lie in this order; every callback receives connId first.
struct st_wh_info {
    // The request body as NUL-terminated text (length through *length), or null when there is
    // none. The buffer belongs to the host and stays valid for the rest of the request. Called
    // at most once per request (by the gate, for a POST).
    const char* (*readBody)(void* connId, uint32_t* length) = nullptr;
    void* connId = nullptr;      // the connection, opaque to the library; passed to callbacks
    st_wh_head* head = nullptr;  // parsed request head (required by the gate and cookie readers)
    // The request's parsed URL: at least the path (SetPath) and the query string
    // (SetQueryString) or a whole ParseUrl. Read by the gate's query-string map and the trace.
    Url* url = nullptr;
    // Reads server variable `var` (WH_VAR_*) into buf; *size is the room on entry and the bytes
    // written on return. False when the variable is unknown or does not fit.
    bool (*getServerVariable)(void* connId, int32_t var, char* buf, uint32_t* size) = nullptr;
    // Sends the status line and headers from *resp. Called once per answer, before the body
    // (not at all for an empty plain body, nor for event-stream pieces after the first).
    void (*sendHead)(void* connId) = nullptr;
    // Writes body bytes (not NUL-terminated; may hold zero bytes).
    void (*writeBody)(void* connId, const char* data, uint32_t length) = nullptr;
    // One piece of a chunked event stream; mode WH_CHUNK_PIECE or WH_CHUNK_LAST.
    void (*writeChunk)(void* connId, const char* data, uint32_t length, int32_t mode) = nullptr;
    // Encodes a body of more than 1000 bytes (mode is always 1); *length is the input length
    // on entry and the encoded length on return. The returned buffer belongs to the host and
    // lives until the request ends. Returning null means "not encoded": the library then sends
    // the body as it is, and so it does when this callback is null.
    const char* (*encodeBody)(void* connId, const char* data, uint32_t* length,
                              int32_t mode) = nullptr;
    st_wh_resp* resp = nullptr;  // the response head (required by every sender)
    // The host's document root for this request as NUL-terminated text (null reads as "").
    const char* (*getDocPath)(void* connId) = nullptr;
};
