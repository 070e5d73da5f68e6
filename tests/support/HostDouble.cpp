// ws_test::HostDouble: the recording host callbacks behind a request record.
#include "tests/support/HostDouble.h"

#include <cstring>

namespace ws_test {

HostDouble::HostDouble() {
    m_info.readBody = &HostDouble::ReadBody;
    m_info.connId = this;
    m_info.head = &m_head;
    m_info.url = &m_url;
    m_info.getServerVariable = &HostDouble::GetServerVariable;
    m_info.sendHead = &HostDouble::SendHead;
    m_info.writeBody = &HostDouble::WriteBody;
    m_info.writeChunk = &HostDouble::WriteChunk;
    m_info.encodeBody = &HostDouble::EncodeBody;
    m_info.resp = &m_resp;
    m_info.getDocPath = &HostDouble::GetDocPath;
    m_head.method = WH_METHOD_GET;
}

HostDouble& HostDouble::Method(uint32_t method) {
    m_head.method = method;
    return *this;
}
HostDouble& HostDouble::Cookie(const std::string& cookie) {
    m_head.cookie = cookie;
    return *this;
}
HostDouble& HostDouble::Host(const std::string& host) {
    m_head.host = host;
    return *this;
}
HostDouble& HostDouble::Referer(const std::string& referer) {
    m_head.referer = referer;
    return *this;
}
HostDouble& HostDouble::Path(const std::string& path) {
    m_url.SetPath(path);
    return *this;
}
HostDouble& HostDouble::Query(const std::string& query) {
    m_url.SetQueryString(query);
    return *this;
}
HostDouble& HostDouble::Body(const std::string& body) {
    m_strBody = body;
    m_bHasBody = true;
    return *this;
}
HostDouble& HostDouble::NoBody() {
    m_strBody.clear();
    m_bHasBody = false;
    return *this;
}
HostDouble& HostDouble::Peer(const std::string& address) {
    m_strPeer = address;
    return *this;
}

bool HostDouble::Answered() const {
    return !m_vecHeads.empty() || !m_strBodySent.empty() || !m_vecChunks.empty();
}

bool HostDouble::Unwrap(const std::string& callback, std::string& json) const {
    const std::string& body = m_strBodySent;
    if (callback.empty()) {
        json = body;
        return true;
    }
    const std::string open = callback + "(";
    if (body.size() < open.size() + 2 || body.compare(0, open.size(), open) != 0 ||
        body.compare(body.size() - 2, 2, ");") != 0) {
        return false;
    }
    json = body.substr(open.size(), body.size() - open.size() - 2);
    return true;
}

const char* HostDouble::ReadBody(void* connId, uint32_t* length) {
    HostDouble* self = static_cast<HostDouble*>(connId);
    ++self->m_nReadBodyCalls;
    if (!self->m_bHasBody) {
        if (length)
            *length = 0;
        return nullptr;
    }
    if (length)
        *length = static_cast<uint32_t>(self->m_strBody.size());
    return self->m_strBody.c_str();
}

bool HostDouble::GetServerVariable(void* connId, int32_t var, char* buf, uint32_t* size) {
    HostDouble* self = static_cast<HostDouble*>(connId);
    if (var != WH_VAR_PEER_ADDRESS || buf == nullptr || size == nullptr ||
        self->m_strPeer.size() >= *size) {
        return false;
    }
    std::memcpy(buf, self->m_strPeer.c_str(), self->m_strPeer.size() + 1);
    *size = static_cast<uint32_t>(self->m_strPeer.size());
    return true;
}

void HostDouble::SendHead(void* connId) {
    HostDouble* self = static_cast<HostDouble*>(connId);
    self->m_vecHeads.push_back(self->m_resp);
}

void HostDouble::WriteBody(void* connId, const char* data, uint32_t length) {
    HostDouble* self = static_cast<HostDouble*>(connId);
    if (data != nullptr)
        self->m_strBodySent.append(data, length);
}

void HostDouble::WriteChunk(void* connId, const char* data, uint32_t length, int32_t mode) {
    HostDouble* self = static_cast<HostDouble*>(connId);
    self->m_vecChunks.emplace_back(data ? std::string(data, length) : std::string(), mode);
}

const char* HostDouble::EncodeBody(void* connId, const char* data, uint32_t* length,
                                   int32_t /*mode*/) {
    // The double "encodes" by copying, so the body sent can still be read as text.
    HostDouble* self = static_cast<HostDouble*>(connId);
    self->m_lstEncoded.emplace_back(data, *length);
    return self->m_lstEncoded.back().data();
}

const char* HostDouble::GetDocPath(void* connId) {
    return static_cast<HostDouble*>(connId)->m_strDocPath.c_str();
}

}  // namespace ws_test
