// CBSWork: every answer the library writes to the browser (plain, redirect, event stream, JSON
// envelopes with an optional callback), the language cookie, text conversions, request
// unscrambling and the optional request trace. Stateless: every method works on the record given.
#pragma once

#include <json/json.h>

#include <string>

#include "common/Export.h"
#include "web/WhInfo.h"

class WS_API CBSWork {
public:
    CBSWork() {}
    ~CBSWork() {}

    // Senders (Response writer). Result 1; the envelope senders give 2 for a null record.
    int SendInfoToWeb(st_wh_info* info, const char* data, int length);
    int SendInfoToWeb(st_wh_info* info, const std::string& text, int charset, bool eventStream,
                      int chunkIndex, std::string contentType);
    int SendRediToWeb(st_wh_info* info, const std::string& location, int charset,
                      std::string contentType);
    int SendInfoToWebWithCallback(st_wh_info* info, const std::string& callback,
                                  const std::string& text, int charset, bool eventStream,
                                  int chunkIndex);
    void SendSessionOutInfoToWebSession(st_wh_info* info, std::string callback);
    int SendErrorWebSession(st_wh_info* info, std::string status, std::string message,
                            std::string callback);
    int SendErrorWebSession(st_wh_info* info, int status, std::string message,
                            std::string callback);
    int SendErrorAndShowErrorWebSession(st_wh_info* info, std::string status, std::string message,
                                        std::string show, std::string callback);
    int SendErrorAndShowErrorWebSession(st_wh_info* info, int status, std::string message,
                                        std::string show, std::string callback);
    int SendSuccessWebSession(st_wh_info* info, std::string status, Json::Value& data,
                              std::string callback);
    // The text of every JSON envelope this library and its page handlers send: the styled
    // layout (keys sorted, three blanks per level, a final newline). Every envelope goes through
    // here so that all answers read alike.
    static std::string StyledJson(const Json::Value& value);

    // Language and text encoding.
    std::string GetLan(st_wh_info* info);
    std::string GetLanDocPath(st_wh_info* info);
    bool UTF8ToANSI(const char* src, int length, std::string& out);
    bool UnicodeToANSI(const wchar_t* src, std::string& out);
    bool ANSIToUnicode(const char* src, std::wstring& out);
    bool UTF8ToUnicode(const char* src, std::wstring& out);
    bool UnicodeToUTF8(const wchar_t* src, std::string& out);
    bool ANSIToUTF8(const char* src, std::string& out);
    std::string SubStr(std::string text, int begin, int length);  // always ""

    // Request unscrambling: hexadecimal pairs XOR one key byte from the pass phrase and the
    // 8-digit salt at the end of the text.
    std::string decrypt(std::string text, std::string passPhrase);

    // Request diagnostics and event-stream checks.
    std::string CheckQvSession(st_wh_info* info);
    std::string CheckChunkLastEventId(st_wh_info* info);
    std::string GetFullHeadLogPath();
    int IsNeedHistoryTest();
    void WriteTestHead(const std::string& path, const std::string& first, const std::string& second,
                       const std::string& third);
    void WriteLog(const std::string& text);
};
