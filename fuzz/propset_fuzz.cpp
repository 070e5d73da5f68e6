// Fuzz target: the property set CSPropSetObj, its serial form (a 4-byte native count, then per
// property the name with a zero byte and the value's serial form) and its merge.
//
// Input: any bytes, read as a serial image. Unserial must agree with a model reader (result,
// the properties read, the cursor and room of a complete read). A set read back serialises to
// exactly SerialSize bytes (the very bytes read when the image was in canonical form), reads
// back equal, refuses a room below 4 without writing, and leaves a prefix of its image when the
// room runs out. Merging another set keeps what only the left holds and takes the right's
// values on a clash.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "bsapi/bsapi.h"
#include "db/DbVar.h"
#include "db/PropSetObj.h"
#include "fuzz/FuzzCheck.h"
#include "fuzz/VarMapCheck.h"

namespace {

using tarn::VariableData;
using ws_fuzz::SameMap;
using ws_fuzz::Show;
using PropMap = CSPropSetObj::PropMap;

PropMap Props(const CSPropSetObj& set) {
    PropMap map;
    set.GetPropSet(map);
    return map;
}

// The reader as documented. `canonical` tells whether the image is the one the set would
// write: names strictly ascending, as many as counted.
bool ModelRead(const std::string& bytes, PropMap& map, size_t& consumed, bool& canonical) {
    canonical = false;
    if (bytes.size() < 4)
        return false;
    int32_t count = 0;
    std::memcpy(&count, bytes.data(), 4);
    map.clear();
    size_t offset = 4;
    std::string last;
    canonical = count >= 0;
    for (int32_t i = 0; i < count; ++i) {
        const size_t zero = bytes.find('\0', offset);
        if (zero == std::string::npos)
            return false;
        const std::string name = bytes.substr(offset, zero - offset);
        offset = zero + 1;
        VariableData value;
        if (!value.UnSerial(bytes.data() + offset, static_cast<int>(bytes.size() - offset)))
            return false;
        offset += static_cast<size_t>(value.Size());
        canonical = canonical && (i == 0 || last < name);
        last = name;
        map[name] = value;
    }
    consumed = offset;
    return true;
}

std::string Image(const CSPropSetObj& set, int room, bool& ok, int& left) {
    std::vector<char> buf(static_cast<size_t>(room) + 1, '\x5a');
    char* cursor = buf.data();
    left = room;
    ok = set.Serial(&cursor, left);
    FUZZ_EQ(cursor - buf.data(), room - left, "room " + std::to_string(room));
    FUZZ_EQ(buf[static_cast<size_t>(room)], '\x5a', "room " + std::to_string(room));
    return std::string(buf.data(), static_cast<size_t>(room - left));
}

void CheckWrite(const CSPropSetObj& set, const std::string& what) {
    const int size = set.SerialSize();
    bool ok = false;
    int left = -1;
    const std::string image = Image(set, size, ok, left);
    FUZZ_CHECK(ok && left == 0, what);
    FUZZ_EQ(static_cast<int>(image.size()), size, what);

    CSPropSetObj back;
    back.SetPropertyInt("\x01stale", 1);
    char* cursor = const_cast<char*>(image.data());
    int room = size;
    FUZZ_CHECK(back.Unserial(&cursor, room), what);
    FUZZ_CHECK(room == 0 && cursor == image.data() + size, what);
    FUZZ_CHECK(SameMap(Props(back), Props(set)), what);

    // A room below 4 writes nothing; a short room leaves a prefix of the image.
    for (const int shortRoom : {3, size - 1, size / 2}) {
        if (shortRoom < 0 || shortRoom >= size)
            continue;
        const std::string part = Image(set, shortRoom, ok, left);
        FUZZ_CHECK(!ok, what + "room " + std::to_string(shortRoom));
        FUZZ_CHECK(shortRoom >= 4 || part.empty(), what);
        FUZZ_CHECK(image.compare(0, part.size(), part) == 0, what);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 0x10000)
        return 0;
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::string what = "input " + Show(input) + "\n";

    CSPropSetObj set;
    set.SetPropertyString(
        "\x01"
        "before",
        "x");
    const PropMap before = Props(set);
    char* cursor = const_cast<char*>(input.data());
    int room = static_cast<int>(size);
    const bool ok = set.Unserial(&cursor, room);
    PropMap want;
    size_t consumed = 0;
    bool canonical = false;
    FUZZ_EQ(ok, ModelRead(input, want, consumed, canonical), what);
    FUZZ_EQ(cursor - input.data() + room, static_cast<std::ptrdiff_t>(size), what);
    if (size < 4) {
        FUZZ_CHECK(SameMap(Props(set), before) && cursor == input.data(), what);
        return 0;
    }
    // A failed read keeps what it read before the damage.
    FUZZ_CHECK(SameMap(Props(set), want), what);
    if (!ok)
        return 0;
    FUZZ_EQ(static_cast<size_t>(cursor - input.data()), consumed, what);
    FUZZ_CHECK(set.Empaty() == want.empty(), what);

    CheckWrite(set, what);
    if (canonical) {
        bool written = false;
        int left = -1;
        FUZZ_CHECK(Image(set, set.SerialSize(), written, left) == input.substr(0, consumed), what);
    }

    // Getters agree with the conversions, and an absent name gives the default.
    for (const auto& p : want) {
        VariableData v = p.second;
        FUZZ_EQ(set.GetPropertyString(p.first, "d"), CDbVar::VariableDataToString(v, 3), what);
        FUZZ_EQ(set.GetPropertyInt64(p.first, -1), CDbVar::VariableDataToInt64(v), what);
    }
    if (want.count("\x02"
                   "absent") == 0)
        FUZZ_EQ(set.GetPropertyInt("\x02"
                                   "absent",
                                   42),
                42, what);

    // Merge: every second property of the set gets a new value, and one name is new.
    CSPropSetObj right;
    PropMap merged = want;
    int i = 0;
    for (const auto& p : want) {
        if (i++ % 2 == 0) {
            right.SetPropertyInt(p.first, i);
            merged[p.first] = VariableData(i);
        }
    }
    right.SetPropertyString("\x7fnew", "n");
    merged["\x7fnew"] = VariableData(std::string("n"));
    set += right;
    FUZZ_CHECK(SameMap(Props(set), merged), what);
    set += set;
    FUZZ_CHECK(SameMap(Props(set), merged), what);

    // A name holding a zero byte cannot be written.
    set.SetPropertyInt(std::string("a\0b", 3), 1);
    bool written = true;
    int left = -1;
    Image(set, set.SerialSize(), written, left);
    FUZZ_CHECK(!written, what);
    return 0;
}
