// RequestCtx: everything webharbour keeps for one handler request, and the record's callbacks.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/HostConfig.h"
#include "web/Url.h"
#include "web/WhInfo.h"

struct mg_connection;
struct mg_request_info;

namespace wh {

// State shared by every request of the process. Members are set before the server starts and
// only read afterwards, except openStreams (atomic).
struct HostShared {
    const HostConfig* config = nullptr;
    std::atomic<int> openStreams{0};  // event streams now open, bounded by maxEventStreams
    bool tls = false;                 // the main port speaks HTTPS
    int httpsPort = 0;                // that port, for redirects from the plain one
    // Header lines every answer of ours carries ("Name: value\r\n"...): the security policy
    // headers; and the Strict-Transport-Security line for answers over HTTPS.
    std::string headerLines;
    std::string hstsLine;
};

// One handler request. Lives on the worker thread's stack for the request; st_wh_info::connId
// points here, so every callback finds its request without any lookup or lock.
struct RequestCtx {
    mg_connection* conn = nullptr;
    const mg_request_info* ri = nullptr;
    HostShared* shared = nullptr;

    st_wh_info info;
    st_wh_head head;
    st_wh_resp resp;
    Url url;

    std::string body;  // the request body as read, NUL-terminated by std::string
    bool hasBody = false;
    bool isHeadMethod = false;  // a HEAD request: the head is sent, the body is not
    bool acceptsGzip = false;   // from Accept-Encoding
    bool keepAlive = true;      // what the Connection header of our answer says
    bool secure = false;        // the request came over HTTPS

    // The encoded bodies handed out by encodeBody; they must live until the request ends (each
    // its own allocation, so that a later one never moves an earlier one; an empty vector costs
    // nothing, where a deque allocates on every request).
    std::vector<std::unique_ptr<std::string>> encoded;
    bool gzipped = false;       // encodeBody really produced gzip for this request
    bool varyEncoding = false;  // the answer depended on Accept-Encoding

    std::string pendingHead;  // a plain head kept back to go out with the first body bytes
    bool headSent = false;
    bool chunked = false;
    // A stream to an HTTP/1.0 client, which knows no chunks: pieces go out as they are and the
    // closed connection ends the body.
    bool rawStream = false;
    bool http10 = false;  // the request came as HTTP/1.0
    bool chunkEnded = false;
    bool holdsStream = false;      // counted in HostShared::openStreams
    bool refused = false;          // an event stream beyond the bound: answered 503
    bool broken = false;           // a write failed or the host is stopping: no further writes
    int status = 0;                // the status line sent
    uint64_t announcedLength = 0;  // Content-Length announced (plain answers)
    uint64_t bodyWritten = 0;      // body bytes written (plain answers)
    uint64_t bytesOut = 0;         // every byte written to the socket
};

// Fills the record, its head, response head and Url from the connection's request, and points
// the callbacks at this file's implementations.
void FillRecord(RequestCtx& ctx, mg_connection* conn, HostShared* shared);

// Reads the request body under the configured cap. 0 when it was read (or there is none), 413
// when it is larger than the cap (nothing of it is kept), 400 when the client broke off.
int ReadRequestBody(RequestCtx& ctx);

// Sends a complete short answer (status and text body) on a request whose head is not out yet.
void SendSimple(RequestCtx& ctx, int status, const std::string& text, bool close);

// After the handler: answers when it did not, ends an open chunked body, and closes the
// connection when the answer's framing cannot be trusted. Returns the status sent.
int FinishRequest(RequestCtx& ctx, int handlerResult);

// 1 while the answer of the request behind `info` can still reach the client.
int ConnectionOk(const st_wh_info* info);

// Counts a refusal a module words itself (WhRegistry::countRefusal).
void CountModuleRefusal(const st_wh_info* info, const char* reason);

// The record's response callbacks (ResponseWriter.cpp).
void CbSendHead(void* connId);
void CbWriteBody(void* connId, const char* data, uint32_t length);
void CbWriteChunk(void* connId, const char* data, uint32_t length, int32_t mode);
const char* CbEncodeBody(void* connId, const char* data, uint32_t* length, int32_t mode);

}  // namespace wh
