// Typed coercion of values into table fields: range-checked, never silently truncating.
#include "bsapi/Values.h"

#include <cctype>
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

// Reads a whole text as a decimal integer: an optional '-' and at least one digit, nothing
// before, between or after (no blanks, no '+', no zero byte: the length counts, not the C
// string). False when the text is anything else or its magnitude exceeds 64 bits.
bool ParseDecimal(const std::string& s, bool& negative, unsigned long long& magnitude) {
    size_t i = 0;
    negative = !s.empty() && s[0] == '-';
    if (negative)
        i = 1;
    if (i == s.size())
        return false;
    unsigned long long v = 0;
    for (; i < s.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        if (c < '0' || c > '9')
            return false;
        unsigned digit = c - '0';
        if (v > (std::numeric_limits<unsigned long long>::max() - digit) / 10)
            return false;
        v = v * 10 + digit;
    }
    magnitude = v;
    if (v == 0)
        negative = false;  // "-0" is zero
    return true;
}

// Reads a whole text as a floating-point number: strtod must take every byte of it, and leading
// blanks (which strtod would skip) are refused.
bool ParseFloating(const std::string& s, double& d) {
    if (s.empty() || std::isspace(static_cast<unsigned char>(s[0])))
        return false;
    char* end = nullptr;
    d = std::strtod(s.c_str(), &end);
    return end == s.c_str() + s.size();
}

// The exact integer held by `in`, as sign + magnitude; false for non-integral or unparsable values.
bool ExactInteger(const VariableData& in, bool& negative, unsigned long long& magnitude) {
    unsigned char t = in.GetType();
    if (t == VariableData::VT_STRING)
        return ParseDecimal(in.GetText(), negative, magnitude);
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
            if (!ParseFloating(in.GetText(), d))
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
