// CSPropSetObj: typed access, merging and the serial form (count, then name and value pairs).
#include "db/PropSetObj.h"

#include <cstdint>
#include <cstring>

#include "db/DbVar.h"

using tarn::VariableData;

CSPropSetObj::CSPropSetObj() {}

CSPropSetObj::CSPropSetObj(const CSPropSetObj& other) : m_mapProps(other.m_mapProps) {}

CSPropSetObj::~CSPropSetObj() {}

bool CSPropSetObj::Empaty() const {
    return m_mapProps.empty();
}

void CSPropSetObj::Clear() {
    m_mapProps.clear();
}

bool CSPropSetObj::GetProperty(const std::string& name, VariableData& out) const {
    auto it = m_mapProps.find(name);
    if (it == m_mapProps.end())
        return false;
    out = it->second;
    return true;
}

int CSPropSetObj::GetPropertyInt(const std::string& name, int def) const {
    VariableData v;
    return GetProperty(name, v) ? CDbVar::VariableDataToInt(v) : def;
}

long long CSPropSetObj::GetPropertyInt64(const std::string& name, long long def) const {
    VariableData v;
    return GetProperty(name, v) ? CDbVar::VariableDataToInt64(v) : def;
}

float CSPropSetObj::GetPropertyFloat(const std::string& name, float def) const {
    VariableData v;
    return GetProperty(name, v) ? CDbVar::VariableDataToFloat(v) : def;
}

double CSPropSetObj::GetPropertyDouble(const std::string& name, double def) const {
    VariableData v;
    return GetProperty(name, v) ? CDbVar::VariableDataToDouble(v, 2) : def;
}

std::string CSPropSetObj::GetPropertyString(const std::string& name, std::string def) const {
    VariableData v;
    return GetProperty(name, v) ? CDbVar::VariableDataToString(v, 3) : def;
}

void CSPropSetObj::SetProperty(const std::string& name, const VariableData& value) {
    m_mapProps[name] = value;
}

void CSPropSetObj::SetPropertyInt(const std::string& name, int value) {
    SetProperty(name, VariableData(value));
}

void CSPropSetObj::SetPropertyInt64(const std::string& name, long long value) {
    SetProperty(name, VariableData(value));
}

void CSPropSetObj::SetPropertyFloat(const std::string& name, float value) {
    SetProperty(name, VariableData(value));
}

void CSPropSetObj::SetPropertyDouble(const std::string& name, double value) {
    SetProperty(name, VariableData(value));
}

void CSPropSetObj::SetPropertyString(const std::string& name, const std::string& value) {
    SetProperty(name, VariableData(value));
}

void CSPropSetObj::RemoveProperty(const std::string& name) {
    m_mapProps.erase(name);
}

void CSPropSetObj::GetPropSet(PropMap& out) const {
    out = m_mapProps;
}

void CSPropSetObj::GetPropSet(CSPropSetObj& out) const {
    if (&out != this)
        out.m_mapProps = m_mapProps;
}

CSPropSetObj& CSPropSetObj::operator=(const PropMap& props) {
    m_mapProps = props;
    return *this;
}

CSPropSetObj& CSPropSetObj::operator=(const CSPropSetObj& other) {
    if (&other != this)
        m_mapProps = other.m_mapProps;
    return *this;
}

CSPropSetObj& CSPropSetObj::operator+=(const PropMap& props) {
    // A copy first, so that merging a set into itself is safe.
    PropMap right = props;
    for (auto& entry : right)
        m_mapProps[entry.first] = entry.second;
    return *this;
}

CSPropSetObj& CSPropSetObj::operator+=(const CSPropSetObj& other) {
    return *this += other.m_mapProps;
}

int CSPropSetObj::SerialSize() const {
    int size = 4;
    for (const auto& entry : m_mapProps) {
        size += static_cast<int>(entry.first.size()) + 1 + entry.second.Size();
    }
    return size;
}

bool CSPropSetObj::Serial(char** cursor, int& room) const {
    if (cursor == nullptr || *cursor == nullptr || room < 4)
        return false;
    int32_t count = static_cast<int32_t>(m_mapProps.size());
    std::memcpy(*cursor, &count, 4);
    *cursor += 4;
    room -= 4;
    for (const auto& entry : m_mapProps) {
        const std::string& name = entry.first;
        if (name.find('\0') != std::string::npos)
            return false;
        int nameSize = static_cast<int>(name.size()) + 1;
        if (room < nameSize)
            return false;
        std::memcpy(*cursor, name.c_str(), nameSize);
        *cursor += nameSize;
        room -= nameSize;
        int size = room;
        if (!entry.second.SerialData(*cursor, size))
            return false;
        *cursor += size;
        room -= size;
    }
    return true;
}

bool CSPropSetObj::Unserial(char** cursor, int& room) {
    if (cursor == nullptr || *cursor == nullptr || room < 4)
        return false;
    int32_t count = 0;
    std::memcpy(&count, *cursor, 4);
    *cursor += 4;
    room -= 4;
    m_mapProps.clear();
    for (int32_t i = 0; i < count; ++i) {
        // The name must end inside the buffer.
        const void* end =
            room > 0 ? std::memchr(*cursor, '\0', static_cast<size_t>(room)) : nullptr;
        if (end == nullptr)
            return false;
        int nameSize = static_cast<int>(static_cast<const char*>(end) - *cursor) + 1;
        std::string name(*cursor, static_cast<size_t>(nameSize - 1));
        *cursor += nameSize;
        room -= nameSize;
        VariableData value;
        if (!value.UnSerial(*cursor, room))
            return false;
        *cursor += value.Size();
        room -= value.Size();
        m_mapProps[name] = value;
    }
    return true;
}
