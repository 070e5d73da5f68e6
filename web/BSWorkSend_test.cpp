// Tests of the CBSWork senders, byte for byte, against a host double that writes every call it
// receives into one transcript.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "web/BSWork.h"
#include "web/WhInfo.h"

namespace {

// The host's side of one request. Each call appends to `log`: "head ...|" with the response
// head as it stood when sent, "body <bytes>|", "chunk<mode> <bytes>|", "encode<mode> <n>|"; the
// encoder answers "ENC[<n>]".
struct Transcript {
    std::string log, encoded;
    st_wh_head head;
    st_wh_resp resp;
    st_wh_info info;

    Transcript() {
        info.connId = this;
        info.head = &head;
        info.resp = &resp;
        info.sendHead = [](void* c) {
            auto* t = static_cast<Transcript*>(c);
            const st_wh_resp& r = t->resp;
            t->log += "head " + std::to_string(r.status) + " " + r.statusText + " " +
                      r.contentType + " len=" + std::to_string(r.contentLength) +
                      " enc=" + std::to_string(r.bodyEncoded) +
                      (r.transferEncoding.empty() ? "" : " te=" + r.transferEncoding) +
                      (r.location.empty() ? "" : " loc=" + r.location) + "|";
        };
        info.writeBody = [](void* c, const char* d, uint32_t n) {
            static_cast<Transcript*>(c)->log += "body " + std::string(d, n) + "|";
        };
        info.writeChunk = [](void* c, const char* d, uint32_t n, int32_t mode) {
            static_cast<Transcript*>(c)->log +=
                "chunk" + std::to_string(mode) + " " + std::string(d, n) + "|";
        };
        info.encodeBody = [](void* c, const char* d, uint32_t* n, int32_t mode) -> const char* {
            auto* t = static_cast<Transcript*>(c);
            t->log += "encode" + std::to_string(mode) + " " + std::string(d, *n) + "|";
            t->encoded = "ENC[" + std::to_string(*n) + "]";
            *n = static_cast<uint32_t>(t->encoded.size());
            return t->encoded.c_str();
        };
    }
};

// The transcript of one plain answer: 200 OK, the head, then the body.
std::string Plain(const std::string& body, const std::string& type = "text/html;charset=UTF-8") {
    return "head 200 OK " + type + " len=" + std::to_string(body.size()) + " enc=0|body " + body +
           "|";
}

using Send = std::function<int(CBSWork&, st_wh_info*)>;

TEST(BSWorkSendTest, TranscriptsByteForByte) {
    Json::Value data(Json::objectValue);
    data["b"] = 2;
    data["a"] = "x";
    const std::string a1000(1000, 'a'), b1001(1001, 'b'), z1500(1500, 'z');
    const struct {
        const char* name;
        Send send;
        int result;      // for a request record
        int nullResult;  // without one (0: not tried)
        std::string transcript;
    } cases[] = {
        {"session out, wrapped",
         [](CBSWork& w, st_wh_info* i) { return w.SendSessionOutInfoToWebSession(i, "cb"), 1; }, 1,
         1, Plain("cb({\n   \"status\" : \"SessionTimeOut\"\n}\n);")},
        {"session out",
         [](CBSWork& w, st_wh_info* i) { return w.SendSessionOutInfoToWebSession(i, ""), 1; }, 1, 0,
         Plain("{\n   \"status\" : \"SessionTimeOut\"\n}\n")},
        {"int status 0 means success",
         [](CBSWork& w, st_wh_info* i) { return w.SendErrorWebSession(i, 0, "m", ""); }, 1, 2,
         Plain("{\n   \"errmsg\" : \"m\",\n   \"status\" : \"success\"\n}\n")},
        {"int status non-zero",
         [](CBSWork& w, st_wh_info* i) { return w.SendErrorWebSession(i, -7, "m", "f"); }, 1, 2,
         Plain("f({\n   \"errmsg\" : \"m\",\n   \"status\" : \"-7\"\n}\n);")},
        {"empty error status",
         [](CBSWork& w, st_wh_info* i) { return w.SendErrorWebSession(i, "", "m", ""); }, 1, 2,
         Plain("{\n   \"errmsg\" : \"m\",\n   \"status\" : \"failed\"\n}\n")},
        {"fopen edit",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendErrorWebSession(i, "failed", "x fopen error=failed to fopen a", "");
         },
         1, 2,
         Plain("{\n   \"errmsg\" : \"x open error=failed to fopen a\",\n   \"status\" : "
               "\"failed\"\n}\n")},
        {"fopen without the marker stays",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendErrorWebSession(i, "failed", "failed to fopen", "");
         },
         1, 2, Plain("{\n   \"errmsg\" : \"failed to fopen\",\n   \"status\" : \"failed\"\n}\n")},
        {"show, empty status",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendErrorAndShowErrorWebSession(i, "", "m", "s", "");
         },
         1, 2,
         Plain("{\n   \"errmsg\" : \"m\",\n   \"showmsg\" : \"s\",\n   \"status\" : "
               "\"failed\"\n}\n")},
        {"show, int status 0",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendErrorAndShowErrorWebSession(i, 0, "m", "s", "cb");
         },
         1, 2,
         Plain("cb({\n   \"errmsg\" : \"m\",\n   \"showmsg\" : \"s\",\n   \"status\" : "
               "\"success\"\n}\n);")},
        {"success, empty status",
         [&data](CBSWork& w, st_wh_info* i) { return w.SendSuccessWebSession(i, "", data, ""); }, 1,
         2,
         Plain("{\n   \"data\" : {\n      \"a\" : \"x\",\n      \"b\" : 2\n   },\n   \"errmsg\" : "
               "\"\",\n   \"status\" : \"success\"\n}\n")},
        {"non-ASCII text leaves as JSON escapes",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendErrorWebSession(i, "failed", "请求不合法", "");
         },
         1, 2,
         Plain("{\n   \"errmsg\" : \"\\u8bf7\\u6c42\\u4e0d\\u5408\\u6cd5\",\n   \"status\" : "
               "\"failed\"\n}\n")},
        {"callback used as given",
         [](CBSWork& w, st_wh_info* i) { return w.SendErrorWebSession(i, "s", "", "a<b>"); }, 1, 2,
         Plain("a<b>({\n   \"errmsg\" : \"\",\n   \"status\" : \"s\"\n}\n);")},
        {"1000 bytes go plain; flag 1 adds no charset",
         [&a1000](CBSWork& w, st_wh_info* i) {
             return w.SendInfoToWeb(i, a1000, 1, false, 0, "text/plain");
         },
         1, 1, Plain(a1000, "text/plain")},
        {"1001 bytes go through the host's encoding",
         [&b1001](CBSWork& w, st_wh_info* i) {
             return w.SendInfoToWeb(i, b1001, 2, false, 0, "text/plain");
         },
         1, 1,
         "encode1 " + b1001 + "|head 200 OK text/plain;charset=UTF-8 len=9 enc=1|body ENC[1001]|"},
        {"a host that cannot encode gets the plain body",
         [&z1500](CBSWork& w, st_wh_info* i) {
             i->encodeBody = [](void*, const char*, uint32_t*, int32_t) -> const char* {
                 return nullptr;
             };
             return w.SendInfoToWeb(i, z1500, 2, false, 0, "text/html");
         },
         1, 0, Plain(z1500)},
        {"empty text: not even the head",
         [](CBSWork& w, st_wh_info* i) { return w.SendInfoToWeb(i, "", 2, false, 0, "text/html"); },
         1, 1, ""},
        {"event stream: head with the first piece, empty ordinary pieces held back",
         [](CBSWork& w, st_wh_info* i) {
             w.SendInfoToWeb(i, "data: 1\n\n", 2, true, 0, "ignored");
             w.SendInfoToWeb(i, "data: 2\n\n", 2, true, 7, "ignored");
             w.SendInfoToWeb(i, "", 2, true, 3, "ignored");
             return w.SendInfoToWeb(i, "", 2, true, -1, "ignored");
         },
         1, 0,
         "head 200 OK text/event-stream len=0 enc=0 te=chunked|chunk2 data: 1\n\n|"
         "chunk2 data: 2\n\n|chunk3 |"},
        {"last piece with a callback",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendInfoToWebWithCallback(i, "f", "x", 2, true, -1);
         },
         1, 0, "chunk3 f(x);|"},
        {"redirect",
         [](CBSWork& w, st_wh_info* i) {
             return w.SendRediToWeb(i, "/hdoc/login.html", 2, "text/html");
         },
         1, 1,
         "head 302  text/html;charset=UTF-8 len=16 enc=0 loc=/hdoc/login.html|"
         "body /hdoc/login.html|"},
        {"bytes", [](CBSWork& w, st_wh_info* i) { return w.SendInfoToWeb(i, "a\0b", 3); }, 1, 1,
         Plain(std::string("a\0b", 3), "application/mac-binhex40")},
        {"no bytes", [](CBSWork& w, st_wh_info* i) { return w.SendInfoToWeb(i, nullptr, 3); }, 1, 0,
         ""},
    };
    for (const auto& c : cases) {
        Transcript host;
        CBSWork work;
        EXPECT_EQ(c.send(work, &host.info), c.result) << c.name;
        EXPECT_EQ(host.log, c.transcript) << c.name;
        if (c.nullResult != 0) {
            EXPECT_EQ(c.send(work, nullptr), c.nullResult) << c.name;
        }
    }
}

}  // namespace
