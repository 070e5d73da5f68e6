// Tests of the CBSWork senders, byte for byte, against a host double that records every call.
#include <gtest/gtest.h>

#include <functional>

#include <string>
#include <vector>

#include "web/BSWork.h"
#include "web/WhInfo.h"

namespace {

// Records what the library asks of the host, in order.
struct HostDouble {
    struct Call {
        std::string kind;  // "head", "body", "chunk", "encode"
        std::string data;
        int32_t mode = 0;
        st_wh_resp respAtHead;  // the response head as it stood when sendHead was called
    };
    std::vector<Call> calls;
    std::string encoded;  // the host's encoded buffer, alive for the request
    st_wh_head head;
    st_wh_resp resp;
    st_wh_info info;

    HostDouble() {
        info.connId = this;
        info.head = &head;
        info.resp = &resp;
        info.sendHead = [](void* c) {
            auto* h = static_cast<HostDouble*>(c);
            h->calls.push_back({"head", "", 0, h->resp});
        };
        info.writeBody = [](void* c, const char* d, uint32_t n) {
            static_cast<HostDouble*>(c)->calls.push_back({"body", std::string(d, n), 0, {}});
        };
        info.writeChunk = [](void* c, const char* d, uint32_t n, int32_t mode) {
            static_cast<HostDouble*>(c)->calls.push_back({"chunk", std::string(d, n), mode, {}});
        };
        info.encodeBody = [](void* c, const char* d, uint32_t* n, int32_t mode) -> const char* {
            auto* h = static_cast<HostDouble*>(c);
            h->calls.push_back({"encode", std::string(d, *n), mode, {}});
            h->encoded = "ENC[" + std::to_string(*n) + "]";
            *n = static_cast<uint32_t>(h->encoded.size());
            return h->encoded.c_str();
        };
    }
    std::string Kinds() const {
        std::string k;
        for (const auto& c : calls)
            k += c.kind + ";";
        return k;
    }
    const Call& Last() const { return calls.back(); }
};

class BSWorkSendTest : public ::testing::Test {
protected:
    HostDouble host;
    CBSWork work;
};

TEST_F(BSWorkSendTest, SessionOutWrappedForCallback) {
    work.SendSessionOutInfoToWebSession(&host.info, "cb");
    ASSERT_EQ(host.Kinds(), "head;body;");
    EXPECT_EQ(host.Last().data, "cb({\n   \"status\" : \"SessionTimeOut\"\n}\n);");
    const st_wh_resp& r = host.calls[0].respAtHead;
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.statusText, "OK");
    EXPECT_EQ(r.contentType, "text/html;charset=UTF-8");
    EXPECT_EQ(r.contentLength, host.Last().data.size());
    EXPECT_EQ(r.bodyEncoded, 0);

    HostDouble plain;
    work.SendSessionOutInfoToWebSession(&plain.info, "");
    EXPECT_EQ(plain.Last().data, "{\n   \"status\" : \"SessionTimeOut\"\n}\n");
    work.SendSessionOutInfoToWebSession(nullptr, "cb");  // nothing to do, no crash
}

TEST_F(BSWorkSendTest, EnvelopesByteForByte) {
    struct Case {
        const char* name;
        std::function<int(CBSWork&, st_wh_info*)> send;
        std::string body;
    };
    Json::Value data(Json::objectValue);
    data["b"] = 2;
    data["a"] = "x";
    const std::vector<Case> cases = {
        {"int status 0 means success",
         [](CBSWork& w, st_wh_info* i) { return w.SendErrorWebSession(i, 0, "m", ""); },
         "{\n   \"errmsg\" : \"m\",\n   \"status\" : \"success\"\n}\n"},
        {"int status non-zero",
         [](CBSWork& w, st_wh_info* i) { return w.SendErrorWebSession(i, -7, "m", "f"); },
         "f({\n   \"errmsg\" : \"m\",\n   \"status\" : \"-7\"\n}\n);"},
        {"empty error status",
         [](CBSWork& w, st_wh_info* i) { return w.SendErrorWebSession(i, "", "m", ""); },
         "{\n   \"errmsg\" : \"m\",\n   \"status\" : \"failed\"\n}\n"},
        {"fopen edit",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendErrorWebSession(i, "failed", "x fopen error=failed to fopen a", "");
         },
         "{\n   \"errmsg\" : \"x open error=failed to fopen a\",\n   \"status\" : \"failed\"\n}\n"},
        {"fopen without the marker stays",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendErrorWebSession(i, "failed", "failed to fopen", "");
         },
         "{\n   \"errmsg\" : \"failed to fopen\",\n   \"status\" : \"failed\"\n}\n"},
        {"show, empty status",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendErrorAndShowErrorWebSession(i, "", "m", "s", "");
         },
         "{\n   \"errmsg\" : \"m\",\n   \"showmsg\" : \"s\",\n   \"status\" : \"failed\"\n}\n"},
        {"show, int status 0",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendErrorAndShowErrorWebSession(i, 0, "m", "s", "cb");
         },
         "cb({\n   \"errmsg\" : \"m\",\n   \"showmsg\" : \"s\",\n   \"status\" : "
         "\"success\"\n}\n);"},
        {"success, empty status",
         [&data](CBSWork& w, st_wh_info* i) { return w.SendSuccessWebSession(i, "", data, ""); },
         "{\n   \"data\" : {\n      \"a\" : \"x\",\n      \"b\" : 2\n   },\n   \"errmsg\" : \"\",\n"
         "   \"status\" : \"success\"\n}\n"},
        {"non-ASCII text leaves as JSON escapes",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendErrorWebSession(i, "failed", "请求不合法", "");
         },
         "{\n   \"errmsg\" : \"\\u8bf7\\u6c42\\u4e0d\\u5408\\u6cd5\",\n   \"status\" : "
         "\"failed\"\n}\n"},
        {"callback used as given",
         [](CBSWork& w, st_wh_info* i) { return w.SendErrorWebSession(i, "s", "", "a<b>"); },
         "a<b>({\n   \"errmsg\" : \"\",\n   \"status\" : \"s\"\n}\n);"},
    };
    for (const Case& c : cases) {
        HostDouble h;
        EXPECT_EQ(c.send(work, &h.info), 1) << c.name;
        ASSERT_EQ(h.Kinds(), "head;body;") << c.name;
        EXPECT_EQ(h.Last().data, c.body) << c.name;
        EXPECT_EQ(h.calls[0].respAtHead.contentType, "text/html;charset=UTF-8") << c.name;
        EXPECT_EQ(c.send(work, nullptr), 2) << c.name;
    }
}

TEST_F(BSWorkSendTest, EncodingThresholdAt1000Bytes) {
    const std::string exact(1000, 'a');
    work.SendInfoToWeb(&host.info, exact, 1, false, 0, "text/plain");
    ASSERT_EQ(host.Kinds(), "head;body;");
    EXPECT_EQ(host.calls[0].respAtHead.contentLength, 1000u);
    EXPECT_EQ(host.calls[0].respAtHead.bodyEncoded, 0);
    EXPECT_EQ(host.calls[0].respAtHead.contentType, "text/plain");  // flag 1: no charset
    EXPECT_EQ(host.Last().data, exact);

    HostDouble big;
    const std::string over(1001, 'b');
    work.SendInfoToWeb(&big.info, over, 2, false, 0, "text/plain");
    ASSERT_EQ(big.Kinds(), "encode;head;body;");
    EXPECT_EQ(big.calls[0].data, over);
    EXPECT_EQ(big.calls[0].mode, 1);
    EXPECT_EQ(big.calls[1].respAtHead.bodyEncoded, 1);
    EXPECT_EQ(big.calls[1].respAtHead.contentLength, std::string("ENC[1001]").size());
    EXPECT_EQ(big.calls[1].respAtHead.contentType, "text/plain;charset=UTF-8");
    EXPECT_EQ(big.Last().data, "ENC[1001]");

    HostDouble empty;
    work.SendInfoToWeb(&empty.info, "", 2, false, 0, "text/html");
    EXPECT_EQ(empty.Kinds(), "");  // not even the head
}

TEST_F(BSWorkSendTest, EventStreamPieces) {
    work.SendInfoToWeb(&host.info, "data: 1\n\n", 2, true, 0, "ignored");
    work.SendInfoToWeb(&host.info, "data: 2\n\n", 2, true, 7, "ignored");
    work.SendInfoToWeb(&host.info, "", 2, true, 3, "ignored");  // empty ordinary piece held back
    work.SendInfoToWeb(&host.info, "", 2, true, -1, "ignored");
    ASSERT_EQ(host.Kinds(), "head;chunk;chunk;chunk;");
    const st_wh_resp& r = host.calls[0].respAtHead;
    EXPECT_EQ(r.contentType, "text/event-stream");
    EXPECT_EQ(r.transferEncoding, "chunked");
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(host.calls[1].data, "data: 1\n\n");
    EXPECT_EQ(host.calls[1].mode, WH_CHUNK_PIECE);
    EXPECT_EQ(host.calls[2].data, "data: 2\n\n");
    EXPECT_EQ(host.calls[2].mode, WH_CHUNK_PIECE);
    EXPECT_EQ(host.calls[3].mode, WH_CHUNK_LAST);

    HostDouble cb;
    work.SendInfoToWebWithCallback(&cb.info, "f", "x", 2, true, -1);
    ASSERT_EQ(cb.Kinds(), "chunk;");
    EXPECT_EQ(cb.Last().data, "f(x);");
    EXPECT_EQ(cb.Last().mode, WH_CHUNK_LAST);
}

TEST_F(BSWorkSendTest, RedirectAndBytes) {
    host.resp.statusText = "";
    work.SendRediToWeb(&host.info, "/hdoc/login.html", 2, "text/html");
    ASSERT_EQ(host.Kinds(), "head;body;");
    const st_wh_resp& r = host.calls[0].respAtHead;
    EXPECT_EQ(r.status, 302);
    EXPECT_EQ(r.statusText, "");
    EXPECT_EQ(r.location, "/hdoc/login.html");
    EXPECT_EQ(r.contentType, "text/html;charset=UTF-8");
    EXPECT_EQ(r.contentLength, 16u);
    EXPECT_EQ(host.Last().data, "/hdoc/login.html");

    HostDouble bytes;
    const char raw[] = {'a', '\0', 'b'};
    EXPECT_EQ(work.SendInfoToWeb(&bytes.info, raw, 3), 1);
    ASSERT_EQ(bytes.Kinds(), "head;body;");
    EXPECT_EQ(bytes.calls[0].respAtHead.contentType, "application/mac-binhex40");
    EXPECT_EQ(bytes.calls[0].respAtHead.contentLength, 3u);
    EXPECT_EQ(bytes.Last().data, std::string(raw, 3));
    EXPECT_EQ(work.SendInfoToWeb(&bytes.info, nullptr, 3), 1);
    EXPECT_EQ(work.SendInfoToWeb(nullptr, raw, 3), 1);
    EXPECT_EQ(work.SendInfoToWeb(nullptr, "x", 2, false, 0, "text/html"), 1);
    EXPECT_EQ(bytes.calls.size(), 2u);
}

TEST_F(BSWorkSendTest, HostWithoutEncoderSendsPlainBody) {
    host.info.encodeBody = [](void*, const char*, uint32_t*, int32_t) -> const char* {
        return nullptr;
    };
    const std::string text(1500, 'z');
    work.SendInfoToWeb(&host.info, text, 2, false, 0, "text/html");
    ASSERT_EQ(host.Kinds(), "head;body;");
    EXPECT_EQ(host.calls[0].respAtHead.bodyEncoded, 0);
    EXPECT_EQ(host.calls[0].respAtHead.contentLength, 1500u);
    EXPECT_EQ(host.Last().data, text);
}

}  // namespace
