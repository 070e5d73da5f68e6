// Typed coercion of values into table fields: range-checked, never silently truncating.
#include "bsapi/Values.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace bsapi {

using tarn::VariableData;

bool IsValueTag(unsigned char tag) {
    switch (tag) {
        case VariableData::VT_STRING:
        case VariableData::VT_INT16:
        case VariableData::VT_INT32:
        case VariableData::VT_INT64:
        case VariableData::VT_CHAR:
        case VariableData::VT_DOUBLE:
        case VariableData::VT_FLOAT:
        case VariableData::VT_TIME:
        case VariableData::VT_UINT8:
        case VariableData::VT_UINT32:
        case VariableData::VT_UINT64:
            return true;
        default:
            return false;
    }
}

namespace {

bool IsUnsignedTag(unsigned char t) {
    return t == VariableData::VT_UINT8 || t == VariableData::VT_UINT32 ||
           t == VariableData::VT_UINT64;
}
bool IsFloatTag(unsigned char t) {
    return t == VariableData::VT_DOUBLE || t == VariableData::VT_FLOAT;
}

// The exact integer held by `in`, as sign + magnitude; false for non-integral or unparsable values.
bool ExactInteger(const VariableData& in, bool& negative, unsigned long long& magnitude) {
    unsigned char t = in.GetType();
    if (t == VariableData::VT_STRING) {
        const std::string& s = in.GetText();
        if (s.empty())
            return false;
        const char* p = s.c_str();
        char* end = nullptr;
        errno = 0;
        if (*p == '-') {
            long long v = std::strtoll(p, &end, 10);
            if (errno != 0 || *end != '\0' || end == p)
                return false;
            negative = v < 0;
            magnitude = negative ? 0ull - static_cast<unsigned long long>(v)
                                 : static_cast<unsigned long long>(v);
            return true;
        }
        unsigned long long v = std::strtoull(p, &end, 10);
        if (errno != 0 || *end != '\0' || end == p || *p == ' ' || *p == '+')
            return false;
        negative = false;
        magnitude = v;
        return true;
    }
    if (IsFloatTag(t)) {
        double d = static_cast<double>(in);
        if (!std::isfinite(d) || d != std::floor(d) || std::fabs(d) >= 1.8e19)
            return false;
        negative = d < 0;
        magnitude = static_cast<unsigned long long>(std::fabs(d));
        return true;
    }
    if (IsUnsignedTag(t)) {
        negative = false;
        magnitude = static_cast<unsigned long long>(in);
        return true;
    }
    long long v = static_cast<long long>(in);
    negative = v < 0;
    magnitude =
        negative ? 0ull - static_cast<unsigned long long>(v) : static_cast<unsigned long long>(v);
    return true;
}

bool FitsSigned(bool neg, unsigned long long mag, long long lo, long long hi) {
    if (neg)
        return mag <= static_cast<unsigned long long>(-(lo + 1)) + 1;
    return mag <= static_cast<unsigned long long>(hi);
}

}  // namespace

bool CoerceToTag(const VariableData& in, unsigned char tag, VariableData& out) {
    if (in.IsEmpty()) {
        out.Clear();
        return true;
    }
    if (in.GetType() == tag) {
        out = in;
        return true;
    }
    if (tag == VariableData::VT_STRING) {
        out = VariableData(in.GetText());
        return true;
    }
    if (IsFloatTag(tag)) {
        double d = 0;
        if (in.GetType() == VariableData::VT_STRING) {
            const std::string& s = in.GetText();
            char* end = nullptr;
            d = std::strtod(s.c_str(), &end);
            if (s.empty() || *end != '\0')
                return false;
        } else {
            d = static_cast<double>(in);
        }
        if (tag == VariableData::VT_FLOAT) {
            if (std::isfinite(d) && std::fabs(d) > std::numeric_limits<float>::max())
                return false;
            out = VariableData(static_cast<float>(d));
        } else {
            out = VariableData(d);
        }
        return true;
    }
    bool neg = false;
    unsigned long long mag = 0;
    if (!ExactInteger(in, neg, mag))
        return false;
    long long sv = neg ? static_cast<long long>(0ull - mag) : static_cast<long long>(mag);
    switch (tag) {
        case VariableData::VT_INT16:
            if (!FitsSigned(neg, mag, -32768, 32767))
                return false;
            out = VariableData(static_cast<short>(sv));
            return true;
        case VariableData::VT_INT32:
            if (!FitsSigned(neg, mag, std::numeric_limits<int>::min(),
                            std::numeric_limits<int>::max()))
                return false;
            out = VariableData(static_cast<int>(sv));
            return true;
        case VariableData::VT_CHAR:
            if (!FitsSigned(neg, mag, -128, 127))
                return false;
            out = VariableData(static_cast<char>(sv));
            return true;
        case VariableData::VT_INT64:
        case VariableData::VT_TIME:
            if (!FitsSigned(neg, mag, std::numeric_limits<long long>::min(),
                            std::numeric_limits<long long>::max())) {
                return false;
            }
            if (tag == VariableData::VT_TIME) {
                out.PutTimeValue(static_cast<long>(sv));
            } else {
                out = VariableData(sv);
            }
            return true;
        case VariableData::VT_UINT8:
            if (neg || mag > 255)
                return false;
            out = VariableData(static_cast<unsigned char>(mag));
            return true;
        case VariableData::VT_UINT32:
            if (neg || mag > 0xffffffffull)
                return false;
            out = VariableData(static_cast<unsigned int>(mag));
            return true;
        case VariableData::VT_UINT64:
            if (neg)
                return false;
            out = VariableData(mag);
            return true;
        default:
            return false;
    }
}

int CoerceToField(const bs_tdfield& field, const VariableData& in, VariableData& out) {
    if (!CoerceToTag(in, field.type, out))
        return BS_ERR_TYPE;
    if (IsFloatTag(field.type) && !out.IsEmpty() && std::isnan(static_cast<double>(out)))
        return BS_ERR_TYPE;
    if (field.length > 0 && out.GetStringLength() > field.length)
        return BS_ERR_TOO_BIG;
    return BS_OK;
}

}  // namespace bsapi
