// CDbVar: the serial forms of single values and of named-value maps (count, then key and value
// per entry, all as tarn::VariableData serial forms with nothing between them).
#include "db/DbVar.h"

using tarn::VariableData;

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
