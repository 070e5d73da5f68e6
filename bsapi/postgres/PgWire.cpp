// Binary parameters and results of the networked engine: big-endian integers and IEEE-754 doubles,
// byte strings as they are, values in their serial form.
#include "bsapi/postgres/PgWire.h"

#include <cstdlib>
#include <cstring>

namespace bsapi {

using tarn::VariableData;

namespace {

const unsigned kByteaOid = 17;

void PutBe(std::string& out, unsigned long long v, int bytes) {
    for (int i = bytes - 1; i >= 0; --i)
        out += static_cast<char>((v >> (8 * i)) & 0xff);
}

unsigned long long GetBe(const char* p, int bytes) {
    unsigned long long v = 0;
    for (int i = 0; i < bytes; ++i)
        v = (v << 8) | static_cast<unsigned char>(p[i]);
    return v;
}

}  // namespace

CPgParams& CPgParams::Int(long long v) {
    std::string s;
    PutBe(s, static_cast<unsigned long long>(v), 8);
    m_vecData.push_back(std::move(s));
    m_vecNull.push_back(0);
    return *this;
}

CPgParams& CPgParams::Float(double v) {
    unsigned long long bits = 0;
    std::memcpy(&bits, &v, sizeof bits);
    std::string s;
    PutBe(s, bits, 8);
    m_vecData.push_back(std::move(s));
    m_vecNull.push_back(0);
    return *this;
}

CPgParams& CPgParams::Bytes(const std::string& s) {
    m_vecData.push_back(s);
    m_vecNull.push_back(0);
    return *this;
}

CPgParams& CPgParams::Null() {
    m_vecData.emplace_back();
    m_vecNull.push_back(1);
    return *this;
}

CPgParams& CPgParams::Serial(const VariableData& v) {
    int n = v.Size();
    std::string s(static_cast<size_t>(n), '\0');
    v.SerialData(&s[0], n);
    m_vecData.push_back(std::move(s));
    m_vecNull.push_back(0);
    return *this;
}

CPgParams& CPgParams::Field(const VariableData& v) {
    switch (v.GetType()) {
        case VariableData::VT_EMPTY:
            return Null();
        case VariableData::VT_STRING:
            return Bytes(v.GetText());
        case VariableData::VT_DOUBLE:
        case VariableData::VT_FLOAT:
            return Float(static_cast<double>(v));
        case VariableData::VT_UINT64:
            return Int(static_cast<long long>(static_cast<unsigned long long>(v)));
        default:
            return Int(static_cast<long long>(v));
    }
}

CPgParams& CPgParams::BytesArray(const std::vector<std::string>& items) {
    std::string s;
    PutBe(s, items.empty() ? 0 : 1, 4);  // dimensions
    PutBe(s, 0, 4);                      // no NULL elements
    PutBe(s, kByteaOid, 4);
    if (!items.empty()) {
        PutBe(s, items.size(), 4);
        PutBe(s, 1, 4);  // lower bound
        for (const std::string& item : items) {
            PutBe(s, item.size(), 4);
            s += item;
        }
    }
    m_vecData.push_back(std::move(s));
    m_vecNull.push_back(0);
    return *this;
}

void CPgParams::Arrays(std::vector<const char*>& values, std::vector<int>& lengths,
                       std::vector<int>& formats) const {
    size_t n = m_vecData.size();
    values.resize(n);
    lengths.resize(n);
    formats.assign(n, 1);
    for (size_t i = 0; i < n; ++i) {
        values[i] = m_vecNull[i] ? nullptr : m_vecData[i].data();
        lengths[i] = static_cast<int>(m_vecData[i].size());
    }
}

long long CPgResult::Int(int row, int col) const {
    if (IsNull(row, col))
        return 0;
    const char* p = PQgetvalue(m_pRes, row, col);
    int n = PQgetlength(m_pRes, row, col);
    switch (n) {
        case 1:
            return static_cast<unsigned char>(p[0]);
        case 2:
            return static_cast<short>(GetBe(p, 2));
        case 4:
            return static_cast<int>(GetBe(p, 4));
        case 8:
            return static_cast<long long>(GetBe(p, 8));
        default:
            return 0;
    }
}

double CPgResult::Float(int row, int col) const {
    if (IsNull(row, col) || PQgetlength(m_pRes, row, col) != 8)
        return 0;
    unsigned long long bits = GetBe(PQgetvalue(m_pRes, row, col), 8);
    double d = 0;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

std::string CPgResult::Bytes(int row, int col) const {
    return std::string(PQgetvalue(m_pRes, row, col),
                       static_cast<size_t>(PQgetlength(m_pRes, row, col)));
}

bool CPgResult::Serial(int row, int col, VariableData& out) const {
    if (IsNull(row, col))
        return false;
    return out.UnSerial(PQgetvalue(m_pRes, row, col), PQgetlength(m_pRes, row, col));
}

void CPgResult::Field(int row, int col, unsigned char tag, VariableData& out) const {
    if (IsNull(row, col)) {
        out.Clear();
        return;
    }
    if (tag == VariableData::VT_STRING) {
        out = VariableData(Bytes(row, col));
        return;
    }
    if (tag == VariableData::VT_DOUBLE || tag == VariableData::VT_FLOAT) {
        double d = Float(row, col);
        out = tag == VariableData::VT_FLOAT ? VariableData(static_cast<float>(d)) : VariableData(d);
        return;
    }
    long long i = Int(row, col);
    switch (tag) {
        case VariableData::VT_INT16:
            out = VariableData(static_cast<short>(i));
            break;
        case VariableData::VT_INT32:
            out = VariableData(static_cast<int>(i));
            break;
        case VariableData::VT_CHAR:
            out = VariableData(static_cast<char>(i));
            break;
        case VariableData::VT_TIME:
            out.PutTimeValue(static_cast<long>(i));
            break;
        case VariableData::VT_UINT8:
            out = VariableData(static_cast<unsigned char>(i));
            break;
        case VariableData::VT_UINT32:
            out = VariableData(static_cast<unsigned int>(i));
            break;
        case VariableData::VT_UINT64:
            out = VariableData(static_cast<unsigned long long>(i));
            break;
        default:
            out = VariableData(i);
            break;
    }
}

long long CPgResult::Affected() const {
    const char* n = m_pRes ? PQcmdTuples(m_pRes) : "";
    return *n ? std::strtoll(n, nullptr, 10) : 0;
}

}  // namespace bsapi
