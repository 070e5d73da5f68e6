// ws_test::HostDouble: a recording stand-in for the host web server's side of one request.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "web/Url.h"
#include "web/WhInfo.h"

namespace ws_test {

// One request as the host would present it (record, head, URL, response head and callbacks),
// plus a record of everything the library sent back through the callbacks. The host's
// callbacks are the one thing a test cannot get for real without a running server, so this
// double answers them from the fields below and records every call.
//
// Use one double per request and per thread; it is neither copyable nor thread-safe.
class HostDouble {
public:
    HostDouble();
    HostDouble(const HostDouble&) = delete;
    HostDouble& operator=(const HostDouble&) = delete;

    // The record to hand to the library; its callbacks lead back to this double.
    st_wh_info* Info() { return &m_info; }

    // ---- the request -------------------------------------------------------------------
    HostDouble& Method(uint32_t method);            // WH_METHOD_*
    HostDouble& Cookie(const std::string& cookie);  // raw Cookie header
    HostDouble& Host(const std::string& host);      // origin text of the CSRF check
    HostDouble& Referer(const std::string& referer);
    HostDouble& Path(const std::string& path);
    HostDouble& Query(const std::string& query);  // the raw query string, without "?"
    // The body readBody hands out; NoBody makes readBody answer null.
    HostDouble& Body(const std::string& body);
    HostDouble& NoBody();
    HostDouble& Peer(const std::string& address);  // getServerVariable(2)

    // ---- what the library did ----------------------------------------------------------
    int ReadBodyCalls() const { return m_nReadBodyCalls; }
    int SendHeadCalls() const { return static_cast<int>(m_vecHeads.size()); }
    // The response heads as they stood at each sendHead.
    const std::vector<st_wh_resp>& Heads() const { return m_vecHeads; }
    // Every byte given to writeBody, in order.
    const std::string& BodySent() const { return m_strBodySent; }
    // True when anything at all went out (a head, body bytes or a chunk).
    bool Answered() const;

    // The JSON text inside the body sent: for a non-empty `callback` the body must read
    // callback + "(" + json + ");", for an empty one the body is the JSON text. False when the
    // body is not wrapped that way.
    bool Unwrap(const std::string& callback, std::string& json) const;

private:
    static const char* ReadBody(void* connId, uint32_t* length);
    static bool GetServerVariable(void* connId, int32_t var, char* buf, uint32_t* size);
    static void SendHead(void* connId);
    static void WriteBody(void* connId, const char* data, uint32_t length);
    static void WriteChunk(void* connId, const char* data, uint32_t length, int32_t mode);
    static const char* EncodeBody(void* connId, const char* data, uint32_t* length, int32_t mode);
    static const char* GetDocPath(void* connId);

    st_wh_info m_info;
    st_wh_head m_head;
    st_wh_resp m_resp;
    Url m_url;

    std::string m_strBody;
    bool m_bHasBody = false;
    std::string m_strPeer = "127.0.0.1";
    std::string m_strDocPath = "/srv/hdoc";

    int m_nReadBodyCalls = 0;
    std::vector<st_wh_resp> m_vecHeads;
    std::string m_strBodySent;
    std::vector<std::pair<std::string, int32_t>> m_vecChunks;  // every writeChunk: bytes, mode
    std::list<std::string> m_lstEncoded;  // buffers handed out by encodeBody (stable addresses)
};

}  // namespace ws_test
