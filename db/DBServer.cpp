// CDBServer and CTableDbAccess: construction, copying and ordering.
#include "db/DBServer.h"

#include <utility>

CDBServer::CDBServer() : m_nPort(0) {}

CDBServer::CDBServer(std::string address, int port)
    : m_strAddress(std::move(address)), m_nPort(port) {}

CDBServer::CDBServer(const CDBServer& other) = default;

CDBServer& CDBServer::operator=(const CDBServer& other) {
    if (this != &other) {
        m_strAddress = other.m_strAddress;
        m_nPort = other.m_nPort;
    }
    return *this;
}

bool CDBServer::operator<(const CDBServer& other) const {
    // std::string compares byte-wise as unsigned characters, a prefix first.
    int c = m_strAddress.compare(other.m_strAddress);
    if (c != 0)
        return c < 0;
    return m_nPort < other.m_nPort;
}

bool CDBServer::operator==(const CDBServer& other) const {
    return m_strAddress == other.m_strAddress && m_nPort == other.m_nPort;
}

CTableDbAccess::CTableDbAccess() = default;

CTableDbAccess::CTableDbAccess(std::string first, std::string second, std::string third)
    : m_strFirst(std::move(first)), m_strSecond(std::move(second)), m_strThird(std::move(third)) {}

CTableDbAccess::CTableDbAccess(const CTableDbAccess& other) = default;

CTableDbAccess& CTableDbAccess::operator=(const CTableDbAccess& other) {
    if (this != &other) {
        m_strFirst = other.m_strFirst;
        m_strSecond = other.m_strSecond;
        m_strThird = other.m_strThird;
    }
    return *this;
}

bool CTableDbAccess::operator<(const CTableDbAccess& other) const {
    int c = m_strFirst.compare(other.m_strFirst);
    if (c != 0)
        return c < 0;
    c = m_strSecond.compare(other.m_strSecond);
    if (c != 0)
        return c < 0;
    return m_strThird.compare(other.m_strThird) < 0;
}

bool CTableDbAccess::operator==(const CTableDbAccess& other) const {
    return m_strFirst == other.m_strFirst && m_strSecond == other.m_strSecond &&
           m_strThird == other.m_strThird;
}
