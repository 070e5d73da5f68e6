// Fuzz target: CDbVar's serial form of a variable map (the count as an int value, then key and
// value per entry, in key order).
//
// Input: any bytes. Read as a serial map, UnSerialStringVarMap must agree with a model reader
// of the format (result, cursor, every entry, entries already in the map kept). Read as a
// sequence of serial values taken in pairs (key text, value), the bytes also give a map that
// must serialise to exactly CalMapSerialSize bytes, read back equal (keys cut at 999 bytes, the
// documented limit of a key's text) and re-serialise to the same bytes; a room too short stops
// at a piece boundary with a prefix of the image, and a cut image gives 5001 with the complete
// pairs before the cut read.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bsapi/bsapi.h"
#include "db/DbVar.h"
#include "fuzz/FuzzCheck.h"
#include "fuzz/VarMapCheck.h"

namespace {

using tarn::VariableData;
using ws_fuzz::SameMap;
using ws_fuzz::Show;
using VarMap = CDbVar::VarMap;

std::string ShowMap(const VarMap& map) {
    std::string out;
    for (const auto& e : map)
        out += Show(e.first) + " tag " + std::to_string(e.second.GetType()) + " " +
               Show(e.second.GetText()) + "\n";
    return out;
}

// One value at `offset`; false when the rest of the buffer holds none.
bool ReadValue(const std::string& bytes, size_t& offset, VariableData& value) {
    VariableData v;
    if (!v.UnSerial(bytes.data() + offset, static_cast<int>(bytes.size() - offset)))
        return false;
    offset += static_cast<size_t>(v.Size());
    value = v;
    return true;
}

// The reader as documented: 5001 and the cursor unmoved when any value is missing; a count
// below 1 reads nothing more; keys are the text of their value with precision 3.
int ModelRead(const std::string& bytes, size_t& consumed, VarMap& map) {
    size_t offset = 0;
    VariableData count;
    if (!ReadValue(bytes, offset, count))
        return CDbVar::SERIAL_ERROR;
    const int entries = CDbVar::VariableDataToInt(count);
    for (int i = 0; i < entries; ++i) {
        VariableData key, value;
        if (!ReadValue(bytes, offset, key) || !ReadValue(bytes, offset, value))
            return CDbVar::SERIAL_ERROR;
        map[CDbVar::VariableDataToString(key, 3)] = value;
    }
    consumed = offset;
    return 0;
}

void CheckRead(const std::string& input) {
    const VarMap start = {{"\x01kept", VariableData(7)}};
    VarMap got = start;
    VarMap want = start;
    char* cursor = const_cast<char*>(input.data());
    const int status = CDbVar::UnSerialStringVarMap(&cursor, static_cast<int>(input.size()), got);
    size_t consumed = 0;
    FUZZ_EQ(status, ModelRead(input, consumed, want), Show(input));
    FUZZ_EQ(static_cast<size_t>(cursor - input.data()), consumed, Show(input));
    FUZZ_CHECK(SameMap(got, want),
               Show(input) + "\ngot\n" + ShowMap(got) + "want\n" + ShowMap(want));
}

// The map made of the input's values in pairs; a key is its value's text.
VarMap MapFromValues(const std::string& input) {
    VarMap map;
    size_t offset = 0;
    VariableData key, value;
    while (ReadValue(input, offset, key) && ReadValue(input, offset, value))
        map[key.GetText()] = value;
    return map;
}

std::string Serialise(const VarMap& map, int room, int& written) {
    std::vector<char> buf(static_cast<size_t>(room) + 1, '\x5a');
    FUZZ_EQ(CDbVar::SerialStringVarMap(buf.data(), room, written, map), 0, ShowMap(map));
    FUZZ_CHECK(written >= 0 && written <= room, ShowMap(map));
    FUZZ_EQ(buf[static_cast<size_t>(room)], '\x5a', ShowMap(map));
    return std::string(buf.data(), static_cast<size_t>(written));
}

void CheckRoundTrip(const VarMap& map) {
    const int size = CDbVar::CalMapSerialSize(map);
    int written = -1;
    const std::string image = Serialise(map, size, written);
    FUZZ_EQ(written, size, ShowMap(map));

    // Piece boundaries: the count, then each key and each value.
    std::vector<int> ends = {VariableData(static_cast<int>(map.size())).Size()};
    for (const auto& e : map) {
        ends.push_back(ends.back() + VariableData(e.first).Size());
        ends.push_back(ends.back() + e.second.Size());
    }
    FUZZ_EQ(ends.back(), size, ShowMap(map));

    VarMap back;
    char* cursor = const_cast<char*>(image.data());
    FUZZ_EQ(CDbVar::UnSerialStringVarMap(&cursor, size, back), 0, ShowMap(map));
    FUZZ_EQ(cursor - image.data(), size, ShowMap(map));
    VarMap want;
    bool cut = false;
    for (const auto& e : map) {
        cut = cut || e.first.size() > 999;
        want[e.first.substr(0, 999)] = e.second;
    }
    FUZZ_CHECK(SameMap(back, want), "sent\n" + ShowMap(map) + "read\n" + ShowMap(back));
    if (!cut) {
        int again = -1;
        FUZZ_CHECK(Serialise(back, size, again) == image, ShowMap(map));
    }

    // Too little room: stops after the last piece that fits.
    for (const int room : {0, size - 1, size / 2}) {
        if (room < 0 || room >= size)
            continue;
        int part = -1;
        const std::string prefix = Serialise(map, room, part);
        int boundary = 0;
        for (const int end : ends)
            boundary = end <= room ? end : boundary;
        FUZZ_EQ(part, boundary, "room " + std::to_string(room) + "\n" + ShowMap(map));
        FUZZ_CHECK(prefix == image.substr(0, static_cast<size_t>(part)), ShowMap(map));

        // A cut image: 5001, the cursor unmoved, the complete pairs before the cut read.
        VarMap partial;
        char* at = const_cast<char*>(image.data());
        FUZZ_EQ(CDbVar::UnSerialStringVarMap(&at, room, partial),
                static_cast<int>(CDbVar::SERIAL_ERROR), ShowMap(map));
        FUZZ_CHECK(at == image.data(), ShowMap(map));
        size_t pairs = 0;
        while (2 * pairs + 2 < ends.size() && ends[2 * pairs + 2] <= room)
            ++pairs;
        FUZZ_EQ(partial.size(), cut ? partial.size() : pairs, ShowMap(map));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 0x10000)
        return 0;
    const std::string input(reinterpret_cast<const char*>(data), size);
    CheckRead(input);
    CheckRoundTrip(MapFromValues(input));
    return 0;
}
