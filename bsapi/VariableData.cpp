// tarn::VariableData: the tagged value, its conversions and its serial form.
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "bsapi/Values.h"
#include "bsapi/bsapi.h"

namespace tarn {

namespace {

const int kMaxStringBytes = 0x7fffffff - 5;

int PayloadSize(unsigned char tag) {
    switch (tag) {
        case VariableData::VT_EMPTY:
            return 0;
        case VariableData::VT_CHAR:
        case VariableData::VT_UINT8:
            return 1;
        case VariableData::VT_INT16:
            return 2;
        case VariableData::VT_INT32:
        case VariableData::VT_UINT32:
        case VariableData::VT_FLOAT:
            return 4;
        case VariableData::VT_INT64:
        case VariableData::VT_UINT64:
        case VariableData::VT_DOUBLE:
        case VariableData::VT_TIME:
            return 8;
        default:
            return -1;  // strings have a variable payload; unknown tags have none
    }
}

void PutLe(char* out, unsigned long long v, int n) {
    for (int i = 0; i < n; ++i)
        out[i] = static_cast<char>((v >> (8 * i)) & 0xff);
}

unsigned long long GetLe(const char* in, int n) {
    unsigned long long v = 0;
    for (int i = 0; i < n; ++i)
        v |= static_cast<unsigned long long>(static_cast<unsigned char>(in[i])) << (8 * i);
    return v;
}

}  // namespace

// ----------------------------------------------------------------------------- construction
VariableData::VariableData() : m_byTag(VT_EMPTY), m_llValue(0) {}
VariableData::VariableData(const VariableData& o) : m_byTag(o.m_byTag), m_ullValue(o.m_ullValue) {
    if (m_byTag == VT_STRING)
        m_strText = o.m_strText;
}
VariableData::VariableData(VariableData&& o) noexcept
    : m_byTag(o.m_byTag), m_ullValue(o.m_ullValue), m_strText(std::move(o.m_strText)) {
    o.m_byTag = VT_EMPTY;
    o.m_ullValue = 0;
}
VariableData& VariableData::operator=(const VariableData& o) {
    if (this != &o) {
        if (o.m_byTag == VT_STRING) {
            m_strText = o.m_strText;
        } else {
            m_strText.clear();
        }
        m_byTag = o.m_byTag;
        m_ullValue = o.m_ullValue;
    }
    return *this;
}
VariableData& VariableData::operator=(VariableData&& o) noexcept {
    if (this != &o) {
        m_byTag = o.m_byTag;
        m_ullValue = o.m_ullValue;
        m_strText = std::move(o.m_strText);
        o.m_byTag = VT_EMPTY;
        o.m_ullValue = 0;
        o.m_strText.clear();
    }
    return *this;
}
VariableData::~VariableData() = default;

VariableData::VariableData(const char* text) : m_byTag(VT_STRING), m_llValue(0) {
    if (text != nullptr)
        m_strText = text;
}
VariableData::VariableData(const std::string& text)
    : m_byTag(VT_STRING), m_llValue(0), m_strText(text) {}
VariableData::VariableData(const void* data, size_t size) : m_byTag(VT_STRING), m_llValue(0) {
    if (data != nullptr)
        m_strText.assign(static_cast<const char*>(data), size);
}
VariableData::VariableData(short v) : m_byTag(VT_INT16), m_llValue(v) {}
VariableData::VariableData(int v) : m_byTag(VT_INT32), m_llValue(v) {}
VariableData::VariableData(long v) : m_byTag(VT_INT64), m_llValue(v) {}
VariableData::VariableData(long long v) : m_byTag(VT_INT64), m_llValue(v) {}
VariableData::VariableData(char v) : m_byTag(VT_CHAR), m_llValue(v) {}
VariableData::VariableData(double v) : m_byTag(VT_DOUBLE), m_dValue(v) {}
VariableData::VariableData(float v) : m_byTag(VT_FLOAT), m_llValue(0) {
    m_fValue = v;
}
VariableData::VariableData(unsigned char v) : m_byTag(VT_UINT8), m_ullValue(v) {}
VariableData::VariableData(unsigned int v) : m_byTag(VT_UINT32), m_ullValue(v) {}
VariableData::VariableData(unsigned long v) : m_byTag(VT_UINT64), m_ullValue(v) {}
VariableData::VariableData(unsigned long long v) : m_byTag(VT_UINT64), m_ullValue(v) {}

void VariableData::Clear() {
    m_byTag = VT_EMPTY;
    m_ullValue = 0;
    m_strText.clear();
}

void VariableData::SetText(const char* data, size_t size) {
    m_byTag = VT_STRING;
    m_ullValue = 0;
    m_strText.assign(data, size);
}

bool VariableData::Equals(const VariableData& o) const {
    if (m_byTag != o.m_byTag)
        return false;
    switch (m_byTag) {
        case VT_EMPTY:
            return true;
        case VT_STRING:
            return m_strText == o.m_strText;
        case VT_FLOAT:
            return std::memcmp(&m_fValue, &o.m_fValue, sizeof(float)) == 0;
        default:
            return m_ullValue == o.m_ullValue;
    }
}

void VariableData::PutTimeValue(long seconds) {
    Clear();
    m_byTag = VT_TIME;
    m_llValue = seconds;
}

bool VariableData::GetTimeValue(long& seconds) const {
    if (m_byTag != VT_TIME)
        return false;
    seconds = static_cast<long>(m_llValue);
    return true;
}

// ----------------------------------------------------------------------------- conversions
const std::string& VariableData::GetText() const {
    char buf[64];
    buf[0] = '\0';
    switch (m_byTag) {
        case VT_STRING:
            return m_strText;
        case VT_EMPTY:
            break;
        case VT_INT16:
        case VT_INT32:
        case VT_INT64:
        case VT_CHAR:
        case VT_TIME:
            std::snprintf(buf, sizeof buf, "%lld", m_llValue);
            break;
        case VT_UINT8:
        case VT_UINT32:
        case VT_UINT64:
            std::snprintf(buf, sizeof buf, "%llu", m_ullValue);
            break;
        case VT_DOUBLE:
            std::snprintf(buf, sizeof buf, "%.17g", m_dValue);
            break;
        case VT_FLOAT:
            std::snprintf(buf, sizeof buf, "%.9g", static_cast<double>(m_fValue));
            break;
    }
    m_strText = buf;
    return m_strText;
}

size_t VariableData::GetStringLength() const {
    return m_byTag == VT_STRING ? m_strText.size() : 0;
}

VariableData::operator char*() const {
    return const_cast<char*>(GetText().c_str());
}

namespace {
// The value as a signed integer, a double, or (for strings) parsed text.
long long AsInt(unsigned char tag, long long ll, double d, float f, const std::string& s) {
    switch (tag) {
        case VariableData::VT_STRING: {
            const char* p = s.c_str();
            char* end = nullptr;
            long long v = std::strtoll(p, &end, 10);
            if (end != p && (*end == '.' || *end == 'e' || *end == 'E')) {
                double dv = std::strtod(p, nullptr);
                return std::isfinite(dv) && std::fabs(dv) < 9.2e18 ? static_cast<long long>(dv) : 0;
            }
            return v;
        }
        case VariableData::VT_DOUBLE:
            return std::isfinite(d) && std::fabs(d) < 9.2e18 ? static_cast<long long>(d) : 0;
        case VariableData::VT_FLOAT:
            return std::isfinite(f) && std::fabs(f) < 9.2e18f ? static_cast<long long>(f) : 0;
        case VariableData::VT_EMPTY:
            return 0;
        default:
            return ll;
    }
}
}  // namespace

VariableData::operator long long() const {
    return AsInt(m_byTag, m_llValue, m_dValue, m_fValue, m_strText);
}
VariableData::operator char() const {
    return static_cast<char>(static_cast<long long>(*this));
}
VariableData::operator short() const {
    return static_cast<short>(static_cast<long long>(*this));
}
VariableData::operator int() const {
    return static_cast<int>(static_cast<long long>(*this));
}
VariableData::operator unsigned char() const {
    return static_cast<unsigned char>(static_cast<long long>(*this));
}
VariableData::operator unsigned int() const {
    return static_cast<unsigned int>(static_cast<long long>(*this));
}
VariableData::operator unsigned long long() const {
    if (m_byTag == VT_STRING) {
        const char* p = m_strText.c_str();
        while (*p == ' ' || *p == '\t')
            ++p;
        if (*p != '-')
            return std::strtoull(p, nullptr, 10);
    }
    return static_cast<unsigned long long>(static_cast<long long>(*this));
}
VariableData::operator double() const {
    switch (m_byTag) {
        case VT_STRING:
            return std::strtod(m_strText.c_str(), nullptr);
        case VT_DOUBLE:
            return m_dValue;
        case VT_FLOAT:
            return m_fValue;
        case VT_UINT8:
        case VT_UINT32:
        case VT_UINT64:
            return static_cast<double>(m_ullValue);
        case VT_EMPTY:
            return 0.0;
        default:
            return static_cast<double>(m_llValue);
    }
}
VariableData::operator float() const {
    if (m_byTag == VT_FLOAT)
        return m_fValue;
    return static_cast<float>(static_cast<double>(*this));
}

// ----------------------------------------------------------------------------- serial form
int VariableData::Size() const {
    if (m_byTag == VT_STRING)
        return 5 + static_cast<int>(m_strText.size());
    return 1 + PayloadSize(m_byTag);
}

bool VariableData::SerialData(char* buffer, int& size) const {
    if (m_byTag == VT_STRING && m_strText.size() > static_cast<size_t>(kMaxStringBytes))
        return false;
    int need = Size();
    if (buffer == nullptr || size < need) {
        size = need;
        return false;
    }
    buffer[0] = static_cast<char>(m_byTag);
    if (m_byTag == VT_STRING) {
        PutLe(buffer + 1, m_strText.size(), 4);
        if (!m_strText.empty())
            std::memcpy(buffer + 5, m_strText.data(), m_strText.size());
    } else if (m_byTag == VT_FLOAT) {
        uint32_t bits = 0;
        std::memcpy(&bits, &m_fValue, 4);
        PutLe(buffer + 1, bits, 4);
    } else {
        PutLe(buffer + 1, m_ullValue, PayloadSize(m_byTag));
    }
    size = need;
    return true;
}

bool VariableData::UnSerial(const char* buffer, int size) {
    if (buffer == nullptr || size < 1)
        return false;
    unsigned char tag = static_cast<unsigned char>(buffer[0]);
    if (tag == VT_STRING) {
        if (size < 5)
            return false;
        unsigned long long n = GetLe(buffer + 1, 4);
        if (n > static_cast<unsigned long long>(kMaxStringBytes) ||
            n > static_cast<unsigned long long>(size - 5)) {
            return false;
        }
        try {
            SetText(buffer + 5, static_cast<size_t>(n));
        } catch (...) {
            return false;
        }
        return true;
    }
    int n = PayloadSize(tag);
    if (n < 0 || size < 1 + n)
        return false;
    unsigned long long raw = GetLe(buffer + 1, n);
    Clear();
    m_byTag = tag;
    switch (tag) {
        case VT_INT16:
            m_llValue = static_cast<int16_t>(raw);
            break;
        case VT_INT32:
            m_llValue = static_cast<int32_t>(raw);
            break;
        case VT_CHAR:
            m_llValue = static_cast<char>(raw);
            break;
        case VT_FLOAT: {
            uint32_t bits = static_cast<uint32_t>(raw);
            m_llValue = 0;
            std::memcpy(&m_fValue, &bits, 4);
            break;
        }
        default:
            m_ullValue = raw;
            break;  // 8-byte values and unsigned ones keep their bits
    }
    return true;
}

}  // namespace tarn

// ----------------------------------------------------------------------------- bs_tdfield
bs_tdfield::bs_tdfield()
    : type(tarn::VariableData::VT_STRING), length(0), indexed(BS_FIELD_PLAIN) {}
bs_tdfield::bs_tdfield(const char* fieldName, unsigned char fieldType, unsigned int fieldLength,
                       unsigned char fieldIndexed)
    : name(fieldName ? fieldName : ""),
      type(fieldType),
      length(fieldLength),
      indexed(fieldIndexed) {}
