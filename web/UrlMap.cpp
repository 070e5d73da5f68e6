// Url: the parameter maps built from a query string or a form-encoded request body.
#include <list>

#include "common/Util.h"
#include "web/Url.h"

namespace {

// Splits `text` at "&" and stores each "key=value" piece, the last of repeated keys winning.
// With `decodePieces`, key and value are decoded separately, so that an encoded "&" or "="
// inside a value survives.
void FillMap(const std::string& text, std::map<std::string, std::string>& out, bool decodePieces,
             bool convert) {
    std::list<std::string> pieces;
    tarn::Util::ParseFlagString(text, "&", pieces);
    for (const std::string& piece : pieces) {
        const std::string::size_type eq = piece.find('=');
        std::string key = eq == std::string::npos ? piece : piece.substr(0, eq);
        std::string value = eq == std::string::npos ? std::string() : piece.substr(eq + 1);
        if (decodePieces) {
            key = Url::DecodeUrl(key, convert);
            value = Url::DecodeUrl(value, convert);
        }
        out[key] = value;
    }
}

bool BuildMap(const std::string& text, std::map<std::string, std::string>& out, bool convert,
              bool decodePieces) {
    if (text.empty()) {
        return false;
    }
    if (decodePieces) {
        FillMap(text, out, true, convert);
    } else {
        // Decoding the whole text first lets an encoded "&" or "=" split the text.
        FillMap(Url::DecodeUrl(text, convert), out, false, convert);
    }
    return true;
}

}  // namespace

bool Url::GetQueryStringMap(std::map<std::string, std::string>& out) {
    if (m_strQuery.empty()) {
        return false;
    }
    FillMap(m_strQuery, out, false, false);
    return true;
}

bool Url::GetQueryStringMapEx(std::map<std::string, std::string>& out, bool convert,
                              bool decodePieces) {
    return BuildMap(m_strQuery, out, convert, decodePieces);
}

bool Url::CovertPostStringToMap(const std::string& body, std::map<std::string, std::string>& out) {
    if (body.empty()) {
        return false;
    }
    FillMap(body, out, false, false);
    return true;
}

bool Url::CovertPostStringToMapEx(const std::string& body, std::map<std::string, std::string>& out,
                                  bool convert, bool decodePieces) {
    return BuildMap(body, out, convert, decodePieces);
}
