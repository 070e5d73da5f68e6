// CDbVar: the per-conversion printing tables, the property-map getters, and the value and map
// serial forms (count, then key and value per entry, with nothing between them).
#include "db/DbVar.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

using tarn::VariableData;

namespace {

// Room for the text form: 999 characters and the terminating zero.
const int kTextRoom = 1000;

std::string Printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string Printf(const char* format, ...) {
    char buf[kTextRoom];
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(buf, sizeof buf, format, args);
    va_end(args);
    if (n < 0)
        return std::string();
    return std::string(buf, n < kTextRoom ? n : kTextRoom - 1);
}

std::string StringOf(const VariableData& var) {
    const std::string& s = var.GetText();
    if (s.size() < static_cast<size_t>(kTextRoom))
        return s;
    return s.substr(0, kTextRoom - 1);
}

long long Seconds(const VariableData& var) {
    long seconds = 0;
    var.GetTimeValue(seconds);
    return seconds;
}

// Double and float printing with a chosen number of decimals.
std::string Decimals(const VariableData& var, int decimals) {
    double d = var.GetType() == VariableData::VT_FLOAT
                   ? static_cast<double>(static_cast<float>(var))
                   : static_cast<double>(var);
    return Printf("%.*f", decimals, d);
}

int DoubleDecimals(int precision) {
    if (precision == 1)
        return 1;
    if (precision >= 3 && precision <= 10)
        return precision;
    return 2;
}

int StringDecimals(int precision) {
    if (precision == 1 || precision == 2)
        return precision;
    if (precision >= 4 && precision <= 10)
        return precision;
    return 3;
}

}  // namespace

int CDbVar::VariableDataToInt(VariableData& var) {
    std::string text;
    switch (var.GetType()) {
        case VariableData::VT_STRING:
            text = StringOf(var);
            break;
        case VariableData::VT_INT32:
            text = Printf("%d", static_cast<int>(var));
            break;
        case VariableData::VT_INT64:
            text = Printf("%llu", static_cast<unsigned long long>(static_cast<long long>(var)));
            break;
        case VariableData::VT_CHAR:
            text = Printf("%d", static_cast<char>(var));
            break;
        case VariableData::VT_DOUBLE:
        case VariableData::VT_FLOAT:
            text = Decimals(var, 2);
            break;
        case VariableData::VT_TIME:
            text = Printf("%llu", static_cast<unsigned long long>(Seconds(var)));
            break;
        case VariableData::VT_UINT8:
            text = Printf("%d", static_cast<unsigned char>(var));
            break;
        default:
            break;
    }
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

long long CDbVar::VariableDataToInt64(VariableData& var) {
    switch (var.GetType()) {
        case VariableData::VT_STRING:
            return std::strtoll(StringOf(var).c_str(), nullptr, 10);
        case VariableData::VT_INT32:
        case VariableData::VT_INT64:
        case VariableData::VT_TIME:
            return static_cast<long long>(var);
        case VariableData::VT_UINT64:
            return static_cast<long long>(static_cast<unsigned long long>(var));
        case VariableData::VT_FLOAT:
            return std::strtoll(Decimals(var, 2).c_str(), nullptr, 10);
        default:
            return 0;
    }
}

float CDbVar::VariableDataToFloat(VariableData& var) {
    std::string text;
    switch (var.GetType()) {
        case VariableData::VT_STRING:
            text = StringOf(var);
            break;
        case VariableData::VT_INT32:
            text = Printf("%d", static_cast<int>(var));
            break;
        case VariableData::VT_INT64:
            text = Printf("%lld", static_cast<long long>(var));
            break;
        case VariableData::VT_DOUBLE:
        case VariableData::VT_FLOAT:
            text = Decimals(var, 2);
            break;
        case VariableData::VT_TIME:
            text = Printf("%lld", Seconds(var));
            break;
        default:
            break;
    }
    return static_cast<float>(std::strtod(text.c_str(), nullptr));
}

double CDbVar::VariableDataToDouble(VariableData& var, int precision) {
    std::string text;
    switch (var.GetType()) {
        case VariableData::VT_STRING:
            text = StringOf(var);
            break;
        case VariableData::VT_INT16:
            text = Printf("%d", static_cast<short>(var));
            break;
        case VariableData::VT_INT32:
            text = Printf("%d", static_cast<int>(var));
            break;
        case VariableData::VT_INT64:
            text = Printf("%lld", static_cast<long long>(var));
            break;
        case VariableData::VT_CHAR:
            text = Printf("%d", static_cast<char>(var));
            break;
        case VariableData::VT_DOUBLE:
        case VariableData::VT_FLOAT:
            text = Decimals(var, DoubleDecimals(precision));
            break;
        case VariableData::VT_TIME:
            return static_cast<double>(var);
        case VariableData::VT_UINT8:
            text = Printf("%d", static_cast<unsigned char>(var));
            break;
        default:
            break;
    }
    return std::strtod(text.c_str(), nullptr);
}

std::string CDbVar::VariableDataToString(VariableData& var, int precision) {
    switch (var.GetType()) {
        case VariableData::VT_STRING:
            return StringOf(var);
        case VariableData::VT_INT32:
            return Printf("%d", static_cast<int>(var));
        case VariableData::VT_INT64:
            return Printf("%llu", static_cast<unsigned long long>(static_cast<long long>(var)));
        case VariableData::VT_CHAR:
            return Printf("%d", static_cast<char>(var));
        case VariableData::VT_DOUBLE:
        case VariableData::VT_FLOAT:
            return Decimals(var, StringDecimals(precision));
        case VariableData::VT_TIME:
            return tarn::TimeFace(static_cast<long>(Seconds(var))).ToString();
        case VariableData::VT_UINT8:
            return Printf("%d", static_cast<unsigned char>(var));
        // Printed signed, as the other 32-bit values are: 4294967295 reads "-1".
        case VariableData::VT_UINT32:
            return Printf("%d", static_cast<int>(static_cast<unsigned int>(var)));
        case VariableData::VT_UINT64:
            return Printf("%llu", static_cast<unsigned long long>(var));
        default:
            return std::string();
    }
}

int CDbVar::GetIntFromProperty(const std::string& name, int def, VarMap& props) {
    auto it = props.find(name);
    return it == props.end() ? def : VariableDataToInt(it->second);
}

long long CDbVar::GetInt64FromProperty(const std::string& name, long long def, VarMap& props) {
    auto it = props.find(name);
    return it == props.end() ? def : VariableDataToInt64(it->second);
}

double CDbVar::GetDoubleFromProperty(const std::string& name, double def, VarMap& props) {
    auto it = props.find(name);
    return it == props.end() ? def : VariableDataToDouble(it->second, 2);
}

float CDbVar::GetFloatFromProperty(const std::string& name, float def, VarMap& props) {
    auto it = props.find(name);
    return it == props.end() ? def : VariableDataToFloat(it->second);
}

std::string CDbVar::GetStringFromProperty(const std::string& name, std::string def, VarMap& props) {
    auto it = props.find(name);
    return it == props.end() ? def : VariableDataToString(it->second, 3);
}

int CDbVar::FindMapField(const VarMap& props, const std::string& name) {
    return props.find(name) == props.end() ? 0 : 1;
}

int CDbVar::GetSomeDataFromProperty(VarMap& props, std::map<std::string, std::string>& fields) {
    int found = 0;
    for (auto& field : fields) {
        auto it = props.find(field.first);
        if (it == props.end())
            continue;
        field.second = VariableDataToString(it->second, 3);
        ++found;
    }
    return found;
}

// ------------------------------------------------------------------------- serial forms

int CDbVar::SerialVar(char** cursor, int room, VariableData var) {
    if (cursor == nullptr || *cursor == nullptr || room < 0)
        return -1;
    int size = room;
    if (!var.SerialData(*cursor, size))
        return -1;
    *cursor += size;
    return size;
}

int CDbVar::SerialInt(char** cursor, int room, int value) {
    return SerialVar(cursor, room, VariableData(value));
}

int CDbVar::SerialString(char** cursor, int room, std::string value) {
    return SerialVar(cursor, room, VariableData(value));
}

int CDbVar::SerialTime(char** cursor, int room, tarn::TimeFace value) {
    VariableData var;
    var.PutTimeValue(static_cast<long>(value.GetTime()));
    return SerialVar(cursor, room, var);
}

int CDbVar::UnSerialVar(char** cursor, VariableData& var, int room) {
    if (cursor == nullptr || *cursor == nullptr || room < 0)
        return SERIAL_ERROR;
    if (!var.UnSerial(*cursor, room))
        return SERIAL_ERROR;
    int size = var.Size();
    *cursor += size;
    // The value claims more than the room: the cursor has moved, the caller must not go on.
    if (size > room)
        return SERIAL_ERROR;
    return 0;
}

int CDbVar::CalMapSerialSize(const VarMap& props) {
    int size = VariableData(static_cast<int>(props.size())).Size();
    for (const auto& entry : props) {
        size += VariableData(entry.first).Size();
        size += entry.second.Size();
    }
    return size;
}

int CDbVar::SerialStringVarMap(char* buffer, int room, int& written, const VarMap& props) {
    written = 0;
    char* cursor = buffer;
    int n = SerialInt(&cursor, room - written, static_cast<int>(props.size()));
    if (n < 0)
        return 0;
    written += n;
    for (const auto& entry : props) {
        n = SerialString(&cursor, room - written, entry.first);
        if (n < 0)
            return 0;
        written += n;
        n = SerialVar(&cursor, room - written, entry.second);
        if (n < 0)
            return 0;
        written += n;
    }
    return 0;
}

int CDbVar::UnSerialStringVarMap(char** cursor, int length, VarMap& props) {
    if (cursor == nullptr || *cursor == nullptr)
        return SERIAL_ERROR;
    char* pos = *cursor;
    VariableData count;
    if (UnSerialVar(&pos, count, length) != 0)
        return SERIAL_ERROR;
    int entries = VariableDataToInt(count);
    if (entries < 1) {
        *cursor = pos;
        return 0;
    }
    for (int i = 0; i < entries; ++i) {
        VariableData key;
        if (UnSerialVar(&pos, key, length - static_cast<int>(pos - *cursor)) != 0) {
            return SERIAL_ERROR;
        }
        VariableData value;
        if (UnSerialVar(&pos, value, length - static_cast<int>(pos - *cursor)) != 0) {
            return SERIAL_ERROR;
        }
        props[VariableDataToString(key, 3)] = value;
    }
    *cursor = pos;
    return 0;
}
