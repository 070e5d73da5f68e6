// CBSWork senders: plain bodies, redirects, event-stream pieces and the JSON envelopes.
#include <cstdio>
#include <string>

#include "web/BSWork.h"

namespace {

const char kNullRecord[] = "Error Param : pSession = NULL !";
const char kNullData[] = "Error Param : pData = NULL !";
const uint32_t kPlainLimit = 1000;  // bodies above this go through the host's encoding

void Head(st_wh_info* info) {
    if (info->sendHead) {
        info->sendHead(info->connId);
    }
}

void Body(st_wh_info* info, const char* data, uint32_t length) {
    if (info->writeBody) {
        info->writeBody(info->connId, data, length);
    }
}

void Chunk(st_wh_info* info, const std::string& text, int32_t mode) {
    // An empty ordinary piece would read as the end of a chunked body to the host, so it is not
    // passed on: it carries no bytes anyway. The closing piece always goes out.
    if (info->writeChunk && (mode == WH_CHUNK_LAST || !text.empty())) {
        info->writeChunk(info->connId, text.data(), static_cast<uint32_t>(text.size()), mode);
    }
}

std::string WithCharset(const std::string& contentType, int charset) {
    return charset == 2 ? contentType + ";charset=UTF-8" : contentType;
}

std::string Wrap(const std::string& callback, const std::string& json) {
    return callback.empty() ? json : callback + "(" + json + ");";
}

std::string StatusText(int status) {
    return status == 0 ? "success" : std::to_string(status);
}

}  // namespace

std::string CBSWork::StyledJson(const Json::Value& value) {
    // The browser pages were written against this layout (three-blank indent, sorted keys, a
    // final newline). Json::Value::toStyledString indents with tabs in the jsoncpp we build on,
    // and the newer stream writer differs again, so the styled writer stays.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    Json::StyledWriter writer;
    return writer.write(value);
#pragma GCC diagnostic pop
}

int CBSWork::SendInfoToWeb(st_wh_info* info, const char* data, int length) {
    if (info == nullptr || info->resp == nullptr) {
        std::printf("%s\n", kNullRecord);
        return 1;
    }
    if (data == nullptr) {
        std::printf("%s\n", kNullData);
        return 1;
    }
    const uint32_t len = length < 0 ? 0 : static_cast<uint32_t>(length);
    st_wh_resp* r = info->resp;
    r->status = 200;
    r->statusText = "OK";
    r->contentType = "application/mac-binhex40";
    r->contentLength = len;
    Head(info);
    Body(info, data, len);
    return 1;
}

int CBSWork::SendInfoToWeb(st_wh_info* info, const std::string& text, int charset, bool eventStream,
                           int chunkIndex, std::string contentType) {
    if (info == nullptr || info->resp == nullptr) {
        std::printf("%s\n", kNullRecord);
        return 1;
    }
    st_wh_resp* r = info->resp;
    if (eventStream) {
        if (chunkIndex == 0) {
            r->status = 200;
            r->statusText = "OK";
            r->contentType = "text/event-stream";
            r->transferEncoding = "chunked";
            Head(info);
            Chunk(info, text, WH_CHUNK_PIECE);
        } else if (chunkIndex == -1) {
            Chunk(info, text, WH_CHUNK_LAST);
        } else {
            Chunk(info, text, WH_CHUNK_PIECE);
        }
        return 1;
    }
    r->status = 200;
    r->statusText = "OK";
    r->contentType = WithCharset(contentType, charset);
    if (text.empty()) {
        return 1;  // nothing at all is sent; the host finishes the request
    }
    uint32_t length = static_cast<uint32_t>(text.size());
    if (length <= kPlainLimit || info->encodeBody == nullptr) {
        r->contentLength = length;
        Head(info);
        Body(info, text.data(), length);
        return 1;
    }
    const char* encoded = info->encodeBody(info->connId, text.data(), &length, 1);
    if (encoded == nullptr) {
        // The host could not encode: the body goes out as it is rather than not at all.
        length = static_cast<uint32_t>(text.size());
        r->contentLength = length;
        Head(info);
        Body(info, text.data(), length);
        return 1;
    }
    r->bodyEncoded = 1;
    r->contentLength = length;
    Head(info);
    Body(info, encoded, length);
    return 1;
}

int CBSWork::SendRediToWeb(st_wh_info* info, const std::string& location, int charset,
                           std::string contentType) {
    if (info == nullptr || info->resp == nullptr) {
        std::printf("%s\n", kNullRecord);
        return 1;
    }
    st_wh_resp* r = info->resp;
    r->status = 302;
    r->location = location;
    r->contentType = WithCharset(contentType, charset);
    r->contentLength = static_cast<uint32_t>(location.size());
    Head(info);
    Body(info, location.data(), static_cast<uint32_t>(location.size()));
    return 1;
}

int CBSWork::SendInfoToWebWithCallback(st_wh_info* info, const std::string& callback,
                                       const std::string& text, int charset, bool eventStream,
                                       int chunkIndex) {
    return SendInfoToWeb(info, Wrap(callback, text), charset, eventStream, chunkIndex, "text/html");
}

void CBSWork::SendSessionOutInfoToWebSession(st_wh_info* info, std::string callback) {
    if (info == nullptr) {
        return;
    }
    Json::Value v(Json::objectValue);
    v["status"] = "SessionTimeOut";
    SendInfoToWeb(info, Wrap(callback, StyledJson(v)), 2, false, 0, "text/html");
}

int CBSWork::SendErrorWebSession(st_wh_info* info, std::string status, std::string message,
                                 std::string callback) {
    if (info == nullptr) {
        return 2;
    }
    // The message shown reads "failed to open" rather than naming the C call: when the marker
    // is present, the first "fopen" of the message loses its "f". Deliberate; pages match it.
    if (message.find("error=failed to fopen") != std::string::npos) {
        message.erase(message.find("fopen"), 1);
    }
    Json::Value v(Json::objectValue);
    v["status"] = status.empty() ? "failed" : status;
    v["errmsg"] = message;
    SendInfoToWeb(info, Wrap(callback, StyledJson(v)), 2, false, 0, "text/html");
    return 1;
}

int CBSWork::SendErrorWebSession(st_wh_info* info, int status, std::string message,
                                 std::string callback) {
    return SendErrorWebSession(info, StatusText(status), message, callback);
}

int CBSWork::SendErrorAndShowErrorWebSession(st_wh_info* info, std::string status,
                                             std::string message, std::string show,
                                             std::string callback) {
    if (info == nullptr) {
        return 2;
    }
    Json::Value v(Json::objectValue);
    v["status"] = status.empty() ? "failed" : status;
    v["errmsg"] = message;
    v["showmsg"] = show;
    SendInfoToWeb(info, Wrap(callback, StyledJson(v)), 2, false, 0, "text/html");
    return 1;
}

int CBSWork::SendErrorAndShowErrorWebSession(st_wh_info* info, int status, std::string message,
                                             std::string show, std::string callback) {
    return SendErrorAndShowErrorWebSession(info, StatusText(status), message, show, callback);
}

int CBSWork::SendSuccessWebSession(st_wh_info* info, std::string status, Json::Value& data,
                                   std::string callback) {
    if (info == nullptr) {
        return 2;
    }
    Json::Value v(Json::objectValue);
    v["status"] = status.empty() ? "success" : status;
    v["errmsg"] = "";
    v["data"] = data;
    SendInfoToWeb(info, Wrap(callback, StyledJson(v)), 2, false, 0, "text/html");
    return 1;
}
