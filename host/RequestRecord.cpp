// The request side of a handler request: filling st_wh_info, the body under its cap, the peer
// address and the document path.
#include <civetweb.h>

#include <algorithm>
#include <cstring>

#include "host/Gzip.h"
#include "host/Metrics.h"
#include "host/Request.h"
#include "host/Server.h"

namespace wh {

namespace {

uint32_t MethodNumber(const char* method) {
    static const struct {
        const char* name;
        uint32_t number;
    } kMethods[] = {{"GET", WH_METHOD_GET},       {"POST", WH_METHOD_POST},
                    {"HEAD", WH_METHOD_HEAD},     {"PUT", WH_METHOD_PUT},
                    {"DELETE", WH_METHOD_DELETE}, {"OPTIONS", WH_METHOD_OPTIONS}};
    if (method == nullptr)
        return WH_METHOD_OTHER;
    for (const auto& m : kMethods) {
        if (std::strcmp(method, m.name) == 0)
            return m.number;
    }
    return WH_METHOD_OTHER;
}

bool HasToken(const char* header, const char* token) {
    if (header == nullptr)
        return false;
    size_t n = std::strlen(token);
    for (const char* p = header; *p != '\0'; ++p) {
        if (mg_strncasecmp(p, token, n) == 0)
            return true;
    }
    return false;
}

const char* CbReadBody(void* connId, uint32_t* length) {
    RequestCtx* ctx = static_cast<RequestCtx*>(connId);
    if (ctx == nullptr || !ctx->hasBody) {
        if (length != nullptr)
            *length = 0;
        return nullptr;
    }
    if (length != nullptr)
        *length = static_cast<uint32_t>(ctx->body.size());
    return ctx->body.c_str();
}

bool CbGetServerVariable(void* connId, int32_t var, char* buf, uint32_t* size) {
    RequestCtx* ctx = static_cast<RequestCtx*>(connId);
    if (ctx == nullptr || buf == nullptr || size == nullptr || var != WH_VAR_PEER_ADDRESS)
        return false;
    const char* forwarded = mg_get_header(ctx->conn, "X-Forwarded-For");
    std::string peer = ClientAddress(ctx->shared->config->trustedProxies, ctx->ri->remote_addr,
                                     forwarded != nullptr ? forwarded : "");
    if (peer.size() + 1 > *size)
        return false;
    std::memcpy(buf, peer.c_str(), peer.size() + 1);
    *size = static_cast<uint32_t>(peer.size());
    return true;
}

const char* CbGetDocPath(void* connId) {
    RequestCtx* ctx = static_cast<RequestCtx*>(connId);
    if (ctx == nullptr)
        return "";
    return ctx->shared->config->docRoot.c_str();
}

}  // namespace

void FillRecord(RequestCtx& ctx, mg_connection* conn, HostShared* shared) {
    ctx.conn = conn;
    ctx.shared = shared;
    ctx.ri = mg_get_request_info(conn);
    const mg_request_info* ri = ctx.ri;

    ctx.head.method = MethodNumber(ri->request_method);
    ctx.isHeadMethod = ctx.head.method == WH_METHOD_HEAD;
    const char* acceptEncoding = nullptr;
    const char* connection = nullptr;
    for (int i = 0; i < ri->num_headers; ++i) {
        const char* name = ri->http_headers[i].name;
        const char* value = ri->http_headers[i].value != nullptr ? ri->http_headers[i].value : "";
        if (name == nullptr)
            continue;
        // Names are kept exactly as received; a name sent twice keeps both values, joined as
        // HTTP joins list headers (cookies with "; ", which is how a Cookie header lists them).
        const bool cookie = mg_strcasecmp(name, "Cookie") == 0;
        auto placed = ctx.resp.headers.try_emplace(name, value);
        if (!placed.second)
            placed.first->second.append(cookie ? "; " : ", ").append(value);
        if (cookie) {
            if (!ctx.head.cookie.empty())
                ctx.head.cookie += "; ";
            ctx.head.cookie += value;
        } else if (mg_strcasecmp(name, "Host") == 0) {
            if (ctx.head.host.empty())
                ctx.head.host = value;
        } else if (mg_strcasecmp(name, "Referer") == 0) {
            if (ctx.head.referer.empty())
                ctx.head.referer = value;
        } else if (acceptEncoding == nullptr && mg_strcasecmp(name, "Accept-Encoding") == 0) {
            acceptEncoding = value;
        } else if (connection == nullptr && mg_strcasecmp(name, "Connection") == 0) {
            connection = value;
        }
    }

    // The path as the handlers route on it: decoded, cleaned of "..", without leading slashes.
    const char* path = ri->local_uri != nullptr ? ri->local_uri : "";
    while (*path == '/')
        ++path;
    ctx.url.SetPath(path);
    ctx.url.SetQueryString(ri->query_string != nullptr ? ri->query_string : "");

    ctx.secure = ri->is_ssl != 0;
    ctx.acceptsGzip = AcceptsGzip(acceptEncoding);
    bool http11 = ri->http_version != nullptr && std::strcmp(ri->http_version, "1.1") == 0;
    ctx.http10 = !http11;
    // The same rule CivetWeb applies after the handler, so our Connection header tells the
    // client what really happens to the connection.
    ctx.keepAlive = connection != nullptr ? HasToken(connection, "keep-alive") : http11;
    if (shared->config->keepAliveMs == 0)
        ctx.keepAlive = false;  // KeepAliveMs=0 switches keep-alive off

    st_wh_info& info = ctx.info;
    info.readBody = &CbReadBody;
    info.connId = &ctx;
    info.head = &ctx.head;
    info.url = &ctx.url;
    info.getServerVariable = &CbGetServerVariable;
    info.sendHead = &CbSendHead;
    info.writeBody = &CbWriteBody;
    info.writeChunk = &CbWriteChunk;
    info.encodeBody = &CbEncodeBody;
    info.resp = &ctx.resp;
    info.getDocPath = &CbGetDocPath;
}

int ReadRequestBody(RequestCtx& ctx) {
    const long long cap = ctx.shared->config->maxBodyBytes;
    long long declared = ctx.ri->content_length;
    const char* te = mg_get_header(ctx.conn, "Transfer-Encoding");
    bool chunkedUpload = te != nullptr && HasToken(te, "chunked");
    if (declared > cap)
        return 413;  // refused before a byte of it is read
    if (declared <= 0 && !chunkedUpload)
        return 0;
    // A client that asked whether to send its body waits for this before it does (CivetWeb
    // does not answer it for handlers). A refused body never gets it: the 413 comes instead.
    const char* expect = mg_get_header(ctx.conn, "Expect");
    if (expect != nullptr && mg_strcasecmp(expect, "100-continue") == 0 && ctx.ri->http_version &&
        std::strcmp(ctx.ri->http_version, "1.1") == 0) {
        static const char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";
        if (mg_write(ctx.conn, kContinue, sizeof(kContinue) - 1) < 0)
            return 400;
    }
    // A chunked upload announces no length: read up to one byte past the cap to know.
    size_t limit = declared > 0 ? static_cast<size_t>(declared) : static_cast<size_t>(cap) + 1;
    ctx.body.reserve(declared > 0 ? static_cast<size_t>(declared) : 4096);
    char buf[16384];
    while (ctx.body.size() < limit) {
        size_t want = std::min(sizeof(buf), limit - ctx.body.size());
        int n = mg_read(ctx.conn, buf, want);
        if (n < 0)
            return 400;
        if (n == 0)
            break;
        ctx.body.append(buf, static_cast<size_t>(n));
    }
    if (static_cast<long long>(ctx.body.size()) > cap) {
        ctx.body.clear();
        return 413;
    }
    if (declared > 0 && static_cast<long long>(ctx.body.size()) < declared)
        return 400;  // the client closed before sending what it announced
    ctx.hasBody = !ctx.body.empty();
    return 0;
}

int ConnectionOk(const st_wh_info* info) {
    if (info == nullptr || info->connId == nullptr)
        return 0;
    const RequestCtx* ctx = static_cast<const RequestCtx*>(info->connId);
    if (ctx->broken || ctx->refused || ctx->chunkEnded || IsStopping())
        return 0;
    return 1;
}

}  // namespace wh

namespace wh {

void CountModuleRefusal(const st_wh_info* info, const char* reason) {
    if (info != nullptr && reason != nullptr)
        ProcessMetrics().CountRefusal(RefusalByName(reason));
}

}  // namespace wh
