// The response side of a handler request: the head from st_wh_resp, plain bodies, chunked
// event-stream pieces, gzip for encodeBody, the event-stream bound and the end of the request.
#include <civetweb.h>

#include <cstdio>
#include <ctime>

#include "host/Gzip.h"
#include "host/Metrics.h"
#include "host/Request.h"
#include "host/Server.h"

namespace wh {

namespace {

// A header name or value a handler gives must not carry a line break: it would let the value
// start a header (or a body) of its own.
bool SafeHeaderText(const std::string& text) {
    return text.find_first_of("\r\n") == std::string::npos;
}

void AddHeader(std::string& out, const char* name, const std::string& value) {
    if (!SafeHeaderText(value))
        return;
    out += name;
    out += ": ";
    out += value;
    out += "\r\n";
}

// True when a Set-Cookie value carries the Secure attribute already.
bool HasSecure(const std::string& cookie) {
    for (size_t semi = cookie.find(';'); semi != std::string::npos;
         semi = cookie.find(';', semi + 1)) {
        size_t b = cookie.find_first_not_of(' ', semi + 1);
        if (b != std::string::npos && mg_strncasecmp(cookie.c_str() + b, "secure", 6) == 0 &&
            (b + 6 == cookie.size() || cookie[b + 6] == ';' || cookie[b + 6] == ' '))
            return true;
    }
    return false;
}

// The Date header's text, formatted once per second per thread.
const char* HttpDate() {
    thread_local time_t t_last = 0;
    thread_local char t_text[64] = {0};
    time_t now = std::time(nullptr);
    if (now != t_last) {
        struct tm gmt;
        gmtime_r(&now, &gmt);
        std::strftime(t_text, sizeof(t_text), "%a, %d %b %Y %H:%M:%S GMT", &gmt);
        t_last = now;
    }
    return t_text;
}

bool Write(RequestCtx& ctx, const char* data, size_t length) {
    if (ctx.broken)
        return false;
    if (length == 0)
        return true;
    int n = mg_write(ctx.conn, data, length);
    if (n < 0 || static_cast<size_t>(n) != length) {
        ctx.broken = true;
        return false;
    }
    ctx.bytesOut += length;
    return true;
}

std::string BuildHead(RequestCtx& ctx, int status) {
    const st_wh_resp& r = ctx.resp;
    std::string head;
    head.reserve(256);
    char line[128];
    std::snprintf(line, sizeof(line), "HTTP/1.1 %d %s\r\n", status,
                  mg_get_response_code_text(ctx.conn, status));
    head += line;
    AddHeader(head, "Date", HttpDate());
    if (!r.contentType.empty())
        AddHeader(head, "Content-Type", r.contentType);
    if (ctx.chunked) {
        if (!ctx.rawStream)
            head += "Transfer-Encoding: chunked\r\n";
        if (r.contentType.compare(0, 17, "text/event-stream") == 0)
            head += "Cache-Control: no-cache\r\n";
    } else {
        AddHeader(head, "Content-Length", std::to_string(r.contentLength));
    }
    // Only a body that really went through gzip is announced as such: the flag alone does not
    // prove it (encodeBody answers "not encoded" to clients without gzip).
    if (r.bodyEncoded != 0 && ctx.gzipped)
        head += "Content-Encoding: gzip\r\n";
    if (ctx.varyEncoding)
        head += "Vary: Accept-Encoding\r\n";
    if (!r.location.empty())
        AddHeader(head, "Location", r.location);
    for (const auto& h : r.extraHeaders) {
        if (h.first.empty() || !SafeHeaderText(h.first) || h.first.find(':') != std::string::npos)
            continue;
        // Over HTTPS every cookie - the library's token cookie too - stays on HTTPS.
        if (ctx.secure && mg_strcasecmp(h.first.c_str(), "Set-Cookie") == 0 && !HasSecure(h.second))
            AddHeader(head, h.first.c_str(), h.second + "; Secure");
        else
            AddHeader(head, h.first.c_str(), h.second);
    }
    head += ctx.shared->headerLines;
    if (ctx.secure)
        head += ctx.shared->hstsLine;
    // CivetWeb closes after a 401 whatever the client asked, so the head says so too.
    if (status == 401)
        ctx.keepAlive = false;
    head += ctx.keepAlive ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
    return head;
}

void FlushPendingHead(RequestCtx& ctx) {
    if (!ctx.pendingHead.empty()) {
        std::string head;
        head.swap(ctx.pendingHead);
        Write(ctx, head.data(), head.size());
    }
}

// An event stream beyond MaxEventStreams: the client is told to come back later.
void RefuseStream(RequestCtx& ctx) {
    ProcessMetrics().CountRefusal(kStreamLimit);
    ctx.refused = true;
    ctx.chunked = false;
    ctx.resp.transferEncoding.clear();
    SendSimple(ctx, 503, "too many event streams are open; try again later\n", false);
}

}  // namespace

void SendSimple(RequestCtx& ctx, int status, const std::string& text, bool close) {
    if (close) {
        ctx.keepAlive = false;
        mg_disable_connection_keep_alive(ctx.conn);
    }
    ctx.resp.contentType = "text/plain;charset=UTF-8";
    ctx.resp.contentLength = static_cast<uint32_t>(text.size());
    ctx.resp.bodyEncoded = 0;
    if (status < 300 || status > 399)
        ctx.resp.location.clear();
    ctx.resp.extraHeaders.clear();
    ctx.varyEncoding = false;
    std::string out = BuildHead(ctx, status);
    if (!ctx.isHeadMethod)
        out += text;
    ctx.headSent = true;
    ctx.status = status;
    ctx.announcedLength = ctx.bodyWritten = text.size();
    Write(ctx, out.data(), out.size());
}

void CbSendHead(void* connId) {
    RequestCtx& ctx = *static_cast<RequestCtx*>(connId);
    if (ctx.headSent || ctx.broken)
        return;
    ctx.chunked = ctx.resp.transferEncoding == "chunked";
    if (ctx.chunked) {
        HostShared& shared = *ctx.shared;
        int open = shared.openStreams.fetch_add(1) + 1;
        if (open > shared.config->maxEventStreams) {
            shared.openStreams.fetch_sub(1);
            RefuseStream(ctx);
            return;
        }
        ctx.holdsStream = true;
        if (ctx.http10) {
            ctx.rawStream = true;
            ctx.keepAlive = false;
        }
    }
    int status = ctx.resp.status;
    if (status < 100 || status > 599)
        status = 500;  // a status line CivetWeb has no text for would be malformed
    ctx.status = status;
    ctx.headSent = true;
    ctx.announcedLength = ctx.resp.contentLength;
    std::string head = BuildHead(ctx, status);
    if (ctx.chunked)
        Write(ctx, head.data(), head.size());  // a stream's head goes out at once
    else
        ctx.pendingHead = std::move(head);  // goes out with the body, in one write
}

void CbWriteBody(void* connId, const char* data, uint32_t length) {
    RequestCtx& ctx = *static_cast<RequestCtx*>(connId);
    if (ctx.refused || ctx.chunked)
        return;
    if (!ctx.headSent) {
        if (ctx.resp.contentLength == 0)
            ctx.resp.contentLength = length;  // a body without a head: announce this piece
        CbSendHead(connId);
    }
    ctx.bodyWritten += length;
    // The library's refusals are small envelopes it sends as text/html.
    if (data != nullptr && length < 4096 && !ctx.gzipped &&
        ctx.resp.contentType.compare(0, 9, "text/html") == 0) {
        Refusal reason = ClassifyEnvelope(data, length);
        if (reason != kRefusalNone)
            ProcessMetrics().CountRefusal(reason);
    }
    if (ctx.isHeadMethod || data == nullptr) {
        FlushPendingHead(ctx);
        return;
    }
    if (!ctx.pendingHead.empty()) {
        std::string out;
        out.swap(ctx.pendingHead);
        out.append(data, length);
        Write(ctx, out.data(), out.size());
        return;
    }
    Write(ctx, data, length);
}

void CbWriteChunk(void* connId, const char* data, uint32_t length, int32_t mode) {
    RequestCtx& ctx = *static_cast<RequestCtx*>(connId);
    if (IsStopping())
        ctx.broken = true;  // fail fast: the handler must not hold up the stop
    if (!ctx.headSent) {
        ctx.resp.transferEncoding = "chunked";
        CbSendHead(connId);
    }
    if (ctx.refused || ctx.broken || ctx.chunkEnded || !ctx.chunked)
        return;
    if (ctx.isHeadMethod) {
        // A HEAD answer is the head alone: it is complete now, and the handler is told so.
        ctx.chunkEnded = true;
        return;
    }
    bool last = mode == WH_CHUNK_LAST;
    if (length == 0 && !last)
        return;  // an empty chunk would end the body: an empty piece is simply skipped
    if (ctx.rawStream) {
        ctx.chunkEnded = last;
        if (length > 0 && data != nullptr)
            Write(ctx, data, length);
        return;
    }
    std::string out;
    out.reserve(length + 24);
    if (length > 0 && data != nullptr) {
        char size[16];
        std::snprintf(size, sizeof(size), "%x\r\n", length);
        out += size;
        out.append(data, length);
        out += "\r\n";
    }
    if (last) {
        out += "0\r\n\r\n";
        ctx.chunkEnded = true;
    }
    Write(ctx, out.data(), out.size());
}

const char* CbEncodeBody(void* connId, const char* data, uint32_t* length, int32_t mode) {
    RequestCtx& ctx = *static_cast<RequestCtx*>(connId);
    (void)mode;  // 1 is the only mode: a whole body
    if (data == nullptr || length == nullptr)
        return nullptr;
    ctx.varyEncoding = true;
    if (!ctx.acceptsGzip)
        return nullptr;  // "not encoded": the body goes out as it is
    ctx.encoded.push_back(std::make_unique<std::string>());
    if (!GzipCompress(data, *length, *ctx.encoded.back())) {
        ctx.encoded.pop_back();
        return nullptr;
    }
    ctx.gzipped = true;
    *length = static_cast<uint32_t>(ctx.encoded.back()->size());
    return ctx.encoded.back()->data();
}

int FinishRequest(RequestCtx& ctx, int handlerResult) {
    if (!ctx.headSent) {
        // The handler answered nothing (an empty body, or a refusal it chose not to word):
        // an empty answer with the status it returned.
        int status = handlerResult >= 100 && handlerResult <= 599 ? handlerResult : 200;
        ctx.resp.contentLength = 0;
        ctx.resp.transferEncoding.clear();
        ctx.chunked = false;
        ctx.status = status;
        ctx.headSent = true;
        std::string head = BuildHead(ctx, status);
        Write(ctx, head.data(), head.size());
    } else {
        FlushPendingHead(ctx);
    }
    if (ctx.chunked && ctx.isHeadMethod) {
        ctx.chunkEnded = true;
    } else if (ctx.rawStream) {
        ctx.chunkEnded = true;  // the close that follows ends it
    } else if (ctx.chunked && !ctx.chunkEnded && !ctx.refused) {
        static const char kEnd[] = "0\r\n\r\n";
        ctx.chunkEnded = Write(ctx, kEnd, sizeof(kEnd) - 1);
    }
    if (ctx.holdsStream) {
        ctx.shared->openStreams.fetch_sub(1);
        ctx.holdsStream = false;
    }
    bool framed = ctx.chunked ? ctx.chunkEnded : ctx.bodyWritten == ctx.announcedLength;
    // While stopping, a kept-alive connection would make its worker wait for a next request
    // that only delays the stop.
    if (ctx.broken || !framed || !ctx.keepAlive || IsStopping()) {
        // The client cannot tell where this answer ends (or asked us to close): closing the
        // connection is the only end it can see.
        mg_disable_connection_keep_alive(ctx.conn);
    }
    return ctx.status;
}

}  // namespace wh
