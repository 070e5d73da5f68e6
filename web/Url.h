// Url: one parsed request URL, percent-encoding and decoding, and the parameter maps built from a
// query string or a form-encoded body.
#pragma once

#include <map>
#include <string>

#include "common/Export.h"

class WS_API Url {
public:
    Url();
    ~Url();

    void InitData();  // all seven fields empty
    // Fills the fields from a whole URL; `decode` chooses whether the part from the path on is
    // percent-decoded, `fromUtf8` whether that decoding converts from UTF-8.
    bool ParseUrl(const std::string& url, bool decode = true, bool fromUtf8 = false);
    bool ParseUri(const std::string& uri);  // path, query and fragment; always true
    std::string GetUrlType() const;         // the path's extension, or ""
    bool MakeUrl();                         // true; does nothing else

    // Buffer form: length written, the size needed (null buffer, stored in size as well), or 0
    // when the buffer is too small or the source is null.
    static int EncodeUrl(const char* src, char* out, int& size, int mask);
    static std::string EncodeUrl(const std::string& src, int mask, bool toUtf8);
    static int DecodeUrl(const char* src, char* out, int& length);
    static std::string DecodeUrl(const std::string& src, bool fromUtf8);

    bool GetQueryStringMap(std::map<std::string, std::string>& out);
    bool GetQueryStringMapEx(std::map<std::string, std::string>& out, bool convert,
                             bool decodePieces);
    static bool CovertPostStringToMap(const std::string& body,
                                      std::map<std::string, std::string>& out);
    static bool CovertPostStringToMapEx(const std::string& body,
                                        std::map<std::string, std::string>& out, bool convert,
                                        bool decodePieces);

    const std::string& GetWholeUrl() const { return m_strUrl; }
    const std::string& GetScheme() const { return m_strScheme; }
    const std::string& GetHost() const { return m_strHost; }
    const std::string& GetPort() const { return m_strPort; }
    const std::string& GetPath() const { return m_strPath; }
    const std::string& GetQueryString() const { return m_strQuery; }
    const std::string& GetFragment() const { return m_strFragment; }
    // The host sets these directly when it already has the pieces (no decoding).
    void SetPath(const std::string& path) { m_strPath = path; }
    void SetQueryString(const std::string& query) { m_strQuery = query; }

private:
    std::string m_strUrl;
    std::string m_strScheme;
    std::string m_strHost;
    std::string m_strPort;
    std::string m_strPath;      // without its leading slashes
    std::string m_strQuery;     // after "?" and before "#"
    std::string m_strFragment;  // after "#"
};
