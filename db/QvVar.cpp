// CQvVar: typed property readers and writers, name helpers, and tree-key navigation and bulk
// operations on a raw tree handle.
#include "db/QvVar.h"

#include "db/DbVar.h"

using tarn::VariableData;

namespace {

const char* SubOrNull(const std::string& s) {
    return s.empty() ? nullptr : s.c_str();
}

}  // namespace

int CQvVar::WriteKeyProperty(void*& h, const std::string& name, const VariableData& value) {
    return bs_treedb_insert_property(h, name.c_str(), value, true);
}

int CQvVar::WriteKeyString(const std::string& name, const std::string& value, void*& h) {
    return WriteKeyProperty(h, name, VariableData(value));
}

int CQvVar::WriteKeyInt(const std::string& name, int value, void*& h) {
    return WriteKeyProperty(h, name, VariableData(value));
}

int CQvVar::WriteKeyfloat(const std::string& name, float value, void*& h) {
    return WriteKeyProperty(h, name, VariableData(value));
}

int CQvVar::WriteKeyInt64(const std::string& name, long long value, void*& h) {
    return WriteKeyProperty(h, name, VariableData(value));
}

std::string CQvVar::GetKeyString(const std::string& name, const std::string& def, void*& h) {
    VariableData value;
    if (bs_treedb_get_property(h, name.c_str(), value) != 0)
        return def;
    return CDbVar::VariableDataToString(value, 3);
}

int CQvVar::GetKeyInt(const std::string& name, int def, void*& h) {
    VariableData value;
    if (bs_treedb_get_property(h, name.c_str(), value) != 0)
        return def;
    return CDbVar::VariableDataToInt(value);
}

int CQvVar::MapStringWrite(const std::map<std::string, std::string>& values, void*& h) {
    for (const auto& entry : values) {
        int rc = WriteKeyString(entry.first, entry.second, h);
        if (rc != 0)
            return rc;
    }
    return 0;
}

std::string CQvVar::GetParentDataId(const std::string& id) {
    size_t dot = id.rfind('.');
    return dot == std::string::npos ? std::string() : id.substr(0, dot);
}

std::string CQvVar::GetParentEntityName(const std::string& name) {
    size_t sep = name.rfind('\\');
    return sep == std::string::npos ? std::string() : name.substr(0, sep);
}

std::string CQvVar::DottedToKeyPath(const std::string& dotted) {
    std::string path = dotted;
    for (char& c : path) {
        if (c == '.')
            c = '\\';
    }
    return path;
}

int CQvVar::ReopenSubKey(void*& h, const std::string& subKeyPath, unsigned int flags) {
    return bs_treedb_open_subkey(h, SubOrNull(subKeyPath), flags);
}

int CQvVar::ReopenNewKey(void*& h, const std::string& dottedPath, unsigned int flags) {
    std::string path = DottedToKeyPath(dottedPath);
    int rc = bs_treedb_open_subkey(h, SubOrNull(path), flags);
    if (rc != BS_ERR_NO_SUBKEY)
        return rc;
    // Insert the missing parts from the main key down, then stand on the full path.
    rc = bs_treedb_open_subkey(h, nullptr, flags);
    if (rc != 0)
        return rc;
    size_t pos = 0;
    while (true) {
        size_t sep = path.find('\\', pos);
        std::string prefix = sep == std::string::npos ? path : path.substr(0, sep);
        rc = bs_treedb_insert_subkey(h, prefix.c_str(), BS_INSERT_ACCEPT_EXISTING);
        if (rc != 0)
            return rc;
        if (sep == std::string::npos)
            break;
        pos = sep + 1;
    }
    return bs_treedb_open_subkey(h, path.c_str(), flags);
}

int CQvVar::ReopenNewKey(void*& h, const std::string& parentDotted, const std::string& name,
                         unsigned int flags) {
    if (name.empty())
        return BS_ERR_BAD_NAME;
    return ReopenNewKey(h, parentDotted.empty() ? name : parentDotted + "." + name, flags);
}

int CQvVar::AppendSubKey(void*& h, const std::string& name, unsigned int flags) {
    std::string current, tree, mainKey, keyName;
    unsigned int oldFlags = 0, port = 0;
    int rc = bs_treedb_query_handle(h, tree, mainKey, keyName, oldFlags, current, port);
    if (rc != 0)
        return rc;
    rc = bs_treedb_insert_subkey(h, name.c_str(), BS_INSERT_ACCEPT_EXISTING);
    if (rc != 0)
        return rc;
    std::string path = current.empty() ? name : current + "\\" + name;
    return bs_treedb_open_subkey(h, path.c_str(), flags);
}

int CQvVar::SelectSubKeys(void*& h, std::list<std::string>& names) {
    return bs_treedb_get_subkeys(h, names);
}

int CQvVar::SelectKeyPropertys(void*& h, std::map<std::string, VariableData>& props) {
    return bs_treedb_get_all_properties(h, props);
}

int CQvVar::GetKeyMap(void*& h, std::map<std::string, std::string>& values) {
    std::map<std::string, VariableData> props;
    int rc = bs_treedb_get_all_properties(h, props);
    if (rc != 0)
        return rc;
    values.clear();
    for (auto& entry : props)
        values[entry.first] = CDbVar::VariableDataToString(entry.second, 3);
    return 0;
}

int CQvVar::WriteKeyMap(void*& h, const std::map<std::string, VariableData>& props) {
    return bs_treedb_insert_properties(h, props, true);
}

int CQvVar::DeleteAllProperty(void*& h) {
    return bs_treedb_delete_all_property(h);
}

int CQvVar::DeleteRealKey(void*& h) {
    return bs_treedb_delete_key(h);
}

int CQvVar::DeleteKeyList(void*& h, const std::list<std::string>& names) {
    int first = 0;
    for (const std::string& name : names) {
        int rc = bs_treedb_delete_subkey(h, name.c_str());
        if (rc == 0 || rc == BS_ERR_NO_KEY || rc == BS_ERR_NO_SUBKEY)
            continue;
        if (first == 0)
            first = rc;
    }
    return first;
}
