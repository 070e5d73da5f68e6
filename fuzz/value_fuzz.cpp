// Fuzz target: the serial form of tarn::VariableData and the conversions of CDbVar.
//
// Input: any bytes, read as one serial value. Properties: UnSerial accepts exactly the forms
// the format allows (and leaves the value alone otherwise); an accepted value re-serialises to
// the very bytes it was read from, refuses a buffer one byte short without writing, and reads
// back equal; numbers print as text that parses back to the same number; the CDbVar
// conversions give the documented results for each tag; CDbVar's cursor forms agree.
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "bsapi/bsapi.h"
#include "db/DbVar.h"
#include "fuzz/FuzzCheck.h"

namespace {

using tarn::VariableData;
using ws_fuzz::Show;

// The payload length the format gives a tag (after the tag byte), -1 for a string (length
// field) and -2 for a tag the format does not know.
int Payload(unsigned char tag) {
    switch (tag) {
        case 0:
            return 0;
        case 1:
            return -1;
        case 5:
        case 16:
            return 1;
        case 2:
            return 2;
        case 3:
        case 7:
        case 18:
            return 4;
        case 4:
        case 6:
        case 9:
        case 19:
            return 8;
        default:
            return -2;
    }
}

// The length of the serial value at the start of `bytes`, or 0 when it holds none.
size_t ModelLength(const std::string& bytes) {
    if (bytes.empty())
        return 0;
    const int payload = Payload(static_cast<unsigned char>(bytes[0]));
    if (payload == -2)
        return 0;
    if (payload >= 0)
        return bytes.size() >= 1u + payload ? 1u + payload : 0;
    if (bytes.size() < 5)
        return 0;
    uint64_t n = 0;
    for (int i = 0; i < 4; ++i)
        n |= static_cast<uint64_t>(static_cast<unsigned char>(bytes[1 + i])) << (8 * i);
    return n <= bytes.size() - 5 ? 5 + n : 0;
}

uint64_t LittleEndian(const std::string& bytes, size_t from, int n) {
    uint64_t v = 0;
    for (int i = 0; i < n; ++i)
        v |= static_cast<uint64_t>(static_cast<unsigned char>(bytes[from + i])) << (8 * i);
    return v;
}

std::string Print(const char* format, long long v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, format, v);
    return buf;
}

// A number's text parses back to the same number (bit for bit for floating values; NaN only
// to some NaN).
void CheckText(const VariableData& value, const std::string& what) {
    const std::string text = value.GetText();
    const char* p = text.c_str();
    switch (value.GetType()) {
        case VariableData::VT_INT16:
        case VariableData::VT_INT32:
        case VariableData::VT_INT64:
        case VariableData::VT_CHAR:
        case VariableData::VT_TIME:
            FUZZ_EQ(std::strtoll(p, nullptr, 10), static_cast<long long>(value), what + Show(text));
            break;
        case VariableData::VT_UINT8:
        case VariableData::VT_UINT32:
        case VariableData::VT_UINT64:
            FUZZ_EQ(std::strtoull(p, nullptr, 10), static_cast<unsigned long long>(value),
                    what + Show(text));
            break;
        case VariableData::VT_DOUBLE: {
            const double d = static_cast<double>(value);
            const double back = std::strtod(p, nullptr);
            FUZZ_CHECK(std::isnan(d) ? std::isnan(back) : std::memcmp(&d, &back, 8) == 0,
                       what + Show(text));
            break;
        }
        case VariableData::VT_FLOAT: {
            const float f = static_cast<float>(value);
            const float back = std::strtof(p, nullptr);
            FUZZ_CHECK(std::isnan(f) ? std::isnan(back) : std::memcmp(&f, &back, 4) == 0,
                       what + Show(text));
            break;
        }
        default:
            break;
    }
}

// What the conversion table documents for the tags each conversion prints itself.
void CheckConversions(VariableData& value, const std::string& serial, const std::string& what) {
    const unsigned char tag = value.GetType();
    const int payload = Payload(tag);
    const uint64_t raw = payload > 0 ? LittleEndian(serial, 1, payload) : 0;
    const long long i32 = static_cast<int32_t>(raw);
    const long long i64 = static_cast<long long>(raw);
    const long long ch = static_cast<signed char>(raw);

    // Every conversion runs for every tag: none may misbehave on any value.
    const int asInt = CDbVar::VariableDataToInt(value);
    const long long asInt64 = CDbVar::VariableDataToInt64(value);
    CDbVar::VariableDataToFloat(value);
    for (int precision = 0; precision <= 11; ++precision) {
        CDbVar::VariableDataToDouble(value, precision);
        CDbVar::VariableDataToString(value, precision);
    }
    const std::string asText = CDbVar::VariableDataToString(value, 3);

    switch (tag) {
        case VariableData::VT_EMPTY:
        case VariableData::VT_INT16:
            // Tags a conversion does not print give empty text, so 0 or "".
            FUZZ_EQ(asInt, 0, what);
            FUZZ_EQ(asInt64, 0, what);
            FUZZ_EQ(asText, "", what);
            break;
        case VariableData::VT_STRING: {
            const std::string held = serial.substr(5, value.GetStringLength());
            const std::string cut = held.substr(0, 999);
            FUZZ_EQ(asText, cut, what);
            FUZZ_EQ(asInt64, std::strtoll(cut.c_str(), nullptr, 10), what);
            FUZZ_EQ(asInt, static_cast<int>(std::strtol(cut.c_str(), nullptr, 10)), what);
            break;
        }
        case VariableData::VT_INT32:
            FUZZ_EQ(asInt, i32, what);
            FUZZ_EQ(asInt64, i32, what);
            FUZZ_EQ(asText, Print("%lld", i32), what);
            break;
        case VariableData::VT_INT64:
            // Printed unsigned on purpose: -5 reads "18446744073709551611".
            FUZZ_EQ(asInt64, i64, what);
            FUZZ_EQ(asText, Print("%llu", i64), what);
            if (i64 >= 0 && i64 <= INT_MAX)
                FUZZ_EQ(asInt, i64, what);
            break;
        case VariableData::VT_CHAR:
            FUZZ_EQ(asInt, ch, what);
            FUZZ_EQ(asInt64, 0, what);
            FUZZ_EQ(asText, Print("%lld", ch), what);
            break;
        case VariableData::VT_UINT8:
            FUZZ_EQ(asInt, static_cast<long long>(raw), what);
            FUZZ_EQ(asInt64, 0, what);
            FUZZ_EQ(asText, Print("%lld", static_cast<long long>(raw)), what);
            break;
        case VariableData::VT_UINT32:
            FUZZ_EQ(asInt, 0, what);
            FUZZ_EQ(asInt64, 0, what);
            FUZZ_EQ(asText, Print("%lld", i32), what);  // printed signed, as "%d"
            break;
        case VariableData::VT_UINT64:
            FUZZ_EQ(asInt, 0, what);
            FUZZ_EQ(asInt64, i64, what);
            FUZZ_EQ(asText, Print("%llu", i64), what);
            break;
        case VariableData::VT_TIME:
            FUZZ_EQ(asInt64, i64, what);
            FUZZ_EQ(asText, tarn::TimeFace(static_cast<long>(i64)).ToString(), what);
            break;
        case VariableData::VT_DOUBLE:
        case VariableData::VT_FLOAT: {
            const double d = tag == VariableData::VT_DOUBLE ? static_cast<double>(value)
                                                            : static_cast<float>(value);
            char buf[400];
            std::snprintf(buf, sizeof buf, "%.3f", d);
            FUZZ_EQ(asText, std::string(buf), what);
            break;
        }
        default:
            break;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 0x10000)
        return 0;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string what = "input " + Show(input) + "\n";

    const VariableData sentinel(std::string("sentinel"));
    VariableData value = sentinel;
    const bool ok = value.UnSerial(input.data(), static_cast<int>(size));
    const size_t length = ModelLength(input);
    FUZZ_EQ(ok, length != 0, what);

    // CDbVar's cursor form reads the same value and moves by its size.
    char* cursor = const_cast<char*>(input.data());
    VariableData viaCursor;
    const int status = CDbVar::UnSerialVar(&cursor, viaCursor, static_cast<int>(size));
    FUZZ_EQ(status, ok ? 0 : static_cast<int>(CDbVar::SERIAL_ERROR), what);
    if (!ok) {
        FUZZ_CHECK(value.Equals(sentinel), what);
        FUZZ_CHECK(cursor == input.data(), what);
        return 0;
    }
    FUZZ_EQ(static_cast<size_t>(cursor - input.data()), length, what);
    FUZZ_CHECK(viaCursor.Equals(value), what);

    FUZZ_EQ(value.GetType(), static_cast<unsigned char>(input[0]), what);
    FUZZ_EQ(static_cast<size_t>(value.Size()), length, what);
    const int need = value.Size();
    std::vector<char> exact(static_cast<size_t>(need), '\x5a');
    int room = need;
    FUZZ_CHECK(value.SerialData(exact.data(), room), what);
    FUZZ_EQ(room, need, what);
    FUZZ_CHECK(std::string(exact.data(), exact.size()) == input.substr(0, length),
               what + "wrote " + Show(std::string(exact.data(), exact.size())));

    std::vector<char> shortBuf(static_cast<size_t>(need - 1) + 1, '\x5a');
    room = need - 1;
    FUZZ_CHECK(!value.SerialData(shortBuf.data(), room), what);
    FUZZ_EQ(room, need, what);
    FUZZ_CHECK(shortBuf == std::vector<char>(shortBuf.size(), '\x5a'), what);

    char* out = shortBuf.data();
    FUZZ_EQ(CDbVar::SerialVar(&out, need - 1, value), -1, what);
    FUZZ_CHECK(out == shortBuf.data(), what);
    std::vector<char> viaVar(static_cast<size_t>(need));
    out = viaVar.data();
    FUZZ_EQ(CDbVar::SerialVar(&out, need, value), need, what);
    FUZZ_CHECK(viaVar == exact && out == viaVar.data() + need, what);

    VariableData back;
    FUZZ_CHECK(back.UnSerial(exact.data(), need), what);
    FUZZ_CHECK(back.Equals(value), what);
    VariableData copy(value);
    VariableData assigned;
    assigned = value;
    VariableData moved(std::move(copy));
    FUZZ_CHECK(assigned.Equals(value) && moved.Equals(value), what);

    // Every conversion operator, for every tag.
    (void)static_cast<char>(value);
    (void)static_cast<short>(value);
    (void)static_cast<int>(value);
    (void)static_cast<unsigned char>(value);
    (void)static_cast<unsigned int>(value);
    (void)static_cast<unsigned long long>(value);
    (void)static_cast<float>(value);
    (void)static_cast<double>(value);
    (void)static_cast<char*>(value);
    CheckText(value, what);
    CheckConversions(value, input, what);
    return 0;
}
