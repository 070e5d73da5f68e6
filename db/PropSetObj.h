// CSPropSetObj: a named-value bag (property name to tarn::VariableData) with typed getters and
// setters, merging, and a compact serial form of its own.
#pragma once

#include <map>
#include <string>

#include "bsapi/bsapi.h"
#include "common/Export.h"

// Serial form: the property count as 4 bytes in native byte order, then per property in name
// order the name's bytes with one zero byte, then the value's tarn::VariableData serial form.
// No header, version or padding. Names are unique; a name read twice keeps its last value.
class WS_API CSPropSetObj {
public:
    typedef std::map<std::string, tarn::VariableData> PropMap;

    CSPropSetObj();
    CSPropSetObj(const CSPropSetObj& other);
    ~CSPropSetObj();

    bool Empaty() const;  // true when the set holds no property
    void Clear();

    // False (and `out` untouched) when absent.
    bool GetProperty(const std::string& name, tarn::VariableData& out) const;
    // The default when absent; otherwise the CDbVar conversion (strings with three decimals).
    int GetPropertyInt(const std::string& name, int def) const;
    long long GetPropertyInt64(const std::string& name, long long def) const;
    float GetPropertyFloat(const std::string& name, float def) const;
    double GetPropertyDouble(const std::string& name, double def) const;
    std::string GetPropertyString(const std::string& name, std::string def) const;

    void SetProperty(const std::string& name, const tarn::VariableData& value);
    void SetPropertyInt(const std::string& name, int value);
    void SetPropertyInt64(const std::string& name, long long value);
    void SetPropertyFloat(const std::string& name, float value);
    void SetPropertyDouble(const std::string& name, double value);
    void SetPropertyString(const std::string& name, const std::string& value);
    void RemoveProperty(const std::string& name);

    void GetPropSet(PropMap& out) const;
    void GetPropSet(CSPropSetObj& out) const;
    CSPropSetObj& operator=(const PropMap& props);
    CSPropSetObj& operator=(const CSPropSetObj& other);
    // Merge: the right-hand side wins on a clash; properties only on the left stay.
    CSPropSetObj& operator+=(const PropMap& props);
    CSPropSetObj& operator+=(const CSPropSetObj& other);

    int SerialSize() const;
    // False when the room runs out (a partial image stays, cursor and room after the last piece
    // written) or when a name holds a zero byte, which the form cannot carry.
    bool Serial(char** cursor, int& room) const;
    // False for a short or damaged image; the set then holds the properties read so far.
    bool Unserial(char** cursor, int& room);

private:
    PropMap m_mapProps;  // the whole state; no lock: a set belongs to one thread at a time
};
