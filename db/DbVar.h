// CDbVar: conversions of tarn::VariableData to plain types, typed property-map getters, and the
// serial forms of single values and of named-value maps.
#pragma once

#include <map>
#include <string>

#include "bsapi/bsapi.h"
#include "common/Export.h"
#include "common/TimeFace.h"

// Every conversion goes through the value's decimal text: the value is printed according to its
// tag (each conversion has its own printing table, see DbVar.cpp), then parsed into the target
// type. A tag that a conversion does not print gives empty text and so 0 (or "").
//
// Kept on purpose: a 64-bit signed value is printed with "%llu" by the int and string
// conversions, so a negative value becomes its unsigned text (-5 -> "18446744073709551611")
// before it is parsed again. Stored records depend on that text; do not "fix" it.
class WS_API CDbVar {
public:
    enum { SERIAL_ERROR = 5001 };  // a buffer that holds no valid value or is too short

    static int VariableDataToInt(tarn::VariableData& var);
    static long long VariableDataToInt64(tarn::VariableData& var);
    static float VariableDataToFloat(tarn::VariableData& var);
    // Doubles and floats are printed with `precision` decimals first: 1 -> "%.1f", 3..10 ->
    // "%.3f".."%.10f", anything else "%.2f".
    static double VariableDataToDouble(tarn::VariableData& var, int precision = 2);
    // At most 999 characters. Doubles and floats: 1, 2, 4..10 select that many decimals, 3 and
    // anything else three.
    static std::string VariableDataToString(tarn::VariableData& var, int precision = 3);

    typedef std::map<std::string, tarn::VariableData> VarMap;
    static int GetIntFromProperty(const std::string& name, int def, VarMap& props);
    static long long GetInt64FromProperty(const std::string& name, long long def, VarMap& props);
    static double GetDoubleFromProperty(const std::string& name, double def, VarMap& props);
    static float GetFloatFromProperty(const std::string& name, float def, VarMap& props);
    static std::string GetStringFromProperty(const std::string& name, std::string def,
                                             VarMap& props);
    // 0 when `name` is absent, 1 when present.
    static int FindMapField(const VarMap& props, const std::string& name);
    // Reads several properties at once: every name that `fields` holds as a key receives the text
    // of that property (GetStringFromProperty with precision 3) when the property is present; the
    // value already in `fields` stands as that name's default otherwise. Returns how many of the
    // names were present.
    static int GetSomeDataFromProperty(VarMap& props, std::map<std::string, std::string>& fields);

    // Write one value's serial form at *cursor, advance the cursor and return the bytes written;
    // -1 (cursor unchanged) when it does not fit in `room`.
    static int SerialVar(char** cursor, int room, tarn::VariableData var);
    static int SerialInt(char** cursor, int room, int value);
    static int SerialString(char** cursor, int room, std::string value);
    static int SerialTime(char** cursor, int room, tarn::TimeFace value);
    // Read one value; 0 and the cursor advanced by the value's size, or 5001.
    static int UnSerialVar(char** cursor, tarn::VariableData& var, int room);

    // Map form: the entry count as an int value, then key (string value) and value per entry in
    // key order. CalMapSerialSize is its exact length.
    static int CalMapSerialSize(const VarMap& props);
    // Always 0; `written` tells how far it got (equal to CalMapSerialSize when all fitted).
    static int SerialStringVarMap(char* buffer, int room, int& written, const VarMap& props);
    // 0, or 5001 with *cursor unchanged (pairs read before the failure stay in `props`). Entries
    // of `props` that the buffer does not name are kept.
    static int UnSerialStringVarMap(char** cursor, int length, VarMap& props);
};
