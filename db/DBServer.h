// CDBServer (a database server: address and port) and CTableDbAccess (three names of a table
// database), plain value types used as ordered map keys.
#pragma once

#include <string>

#include "common/Export.h"

class WS_API CDBServer {
public:
    CDBServer();
    CDBServer(std::string address, int port);
    CDBServer(const CDBServer& other);
    CDBServer& operator=(const CDBServer& other);

    // By address (byte-wise, a shorter prefix first), then by port as a signed integer.
    bool operator<(const CDBServer& other) const;
    bool operator==(const CDBServer& other) const;

    std::string m_strAddress;
    int m_nPort;
};

class WS_API CTableDbAccess {
public:
    CTableDbAccess();
    CTableDbAccess(std::string first, std::string second, std::string third);
    CTableDbAccess(const CTableDbAccess& other);
    CTableDbAccess& operator=(const CTableDbAccess& other);

    // By the first name, then the second, then the third (each byte-wise).
    bool operator<(const CTableDbAccess& other) const;
    bool operator==(const CTableDbAccess& other) const;

    std::string m_strFirst;
    std::string m_strSecond;
    std::string m_strThird;
};
