// CQvHandleLoc: the tree-database operations: typed property getters and writers, property
// maintenance, and sub-key navigation and maintenance.
#include "db/DbVar.h"
#include "db/QvHandle.h"
#include "db/QvVar.h"

using tarn::VariableData;

int CQvHandleLoc::Treedb_GetProperty(std::string name, VariableData& value) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_get_property(Lib(), name.c_str(), value);
}

int CQvHandleLoc::Treedb_GetPropertyInt(std::string name, int def) {
    VariableData value;
    if (m_pHandle == nullptr || bs_treedb_get_property(Lib(), name.c_str(), value) != 0) {
        return def;
    }
    return CDbVar::VariableDataToInt(value);
}

long long CQvHandleLoc::Treedb_GetPropertyInt64(std::string name, long long def) {
    VariableData value;
    if (m_pHandle == nullptr || bs_treedb_get_property(Lib(), name.c_str(), value) != 0) {
        return def;
    }
    return CDbVar::VariableDataToInt64(value);
}

float CQvHandleLoc::Treedb_GetPropertyFloat(std::string name, float def) {
    VariableData value;
    if (m_pHandle == nullptr || bs_treedb_get_property(Lib(), name.c_str(), value) != 0) {
        return def;
    }
    return CDbVar::VariableDataToFloat(value);
}

double CQvHandleLoc::Treedb_GetPropertyDouble(std::string name, double def) {
    VariableData value;
    if (m_pHandle == nullptr || bs_treedb_get_property(Lib(), name.c_str(), value) != 0) {
        return def;
    }
    return CDbVar::VariableDataToDouble(value, 2);
}

std::string CQvHandleLoc::Treedb_GetPropertyString(std::string name, std::string def) {
    VariableData value;
    if (m_pHandle == nullptr || bs_treedb_get_property(Lib(), name.c_str(), value) != 0) {
        return def;
    }
    return CDbVar::VariableDataToString(value, 3);
}

int CQvHandleLoc::Treedb_WriteKeyString(std::string name, std::string value) {
    return Treedb_WriteKeyVariable(name, VariableData(value));
}

int CQvHandleLoc::Treedb_WriteKeyInt(std::string name, int value) {
    return Treedb_WriteKeyVariable(name, VariableData(value));
}

int CQvHandleLoc::Treedb_WriteKeyInt64(std::string name, long long value) {
    return Treedb_WriteKeyVariable(name, VariableData(value));
}

int CQvHandleLoc::Treedb_WriteKeyDouble(std::string name, double value) {
    return Treedb_WriteKeyVariable(name, VariableData(value));
}

int CQvHandleLoc::Treedb_WriteKeyVariable(std::string name, VariableData value) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_insert_property(Lib(), name.c_str(), value, true);
}

int CQvHandleLoc::Treedb_InsertProperty(std::string name, VariableData& value) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_insert_property(Lib(), name.c_str(), value, true);
}

int CQvHandleLoc::Treedb_WriteMap(PropMap& props, bool replace) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_insert_properties(Lib(), props, replace);
}

int CQvHandleLoc::Treedb_EditProperty(std::string name, VariableData& value) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_edit_property(Lib(), name.c_str(), value);
}

int CQvHandleLoc::Treedb_DeleteProperty(std::string name) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_delete_property(Lib(), name.c_str());
}

int CQvHandleLoc::Treedb_DeleteAllProperty() {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_delete_all_property(Lib());
}

int CQvHandleLoc::Treedb_RenameProperty(std::string oldName, std::string newName) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_rename_property(Lib(), oldName.c_str(), newName.c_str());
}

int CQvHandleLoc::Treedb_GetAllPropertyNames(std::list<std::string>& names) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_get_all_property_names(Lib(), names);
}

int CQvHandleLoc::Treedb_SelectKeyPropertys(PropMap& props) {
    if (m_pHandle == nullptr)
        return 1;
    return CQvVar::SelectKeyPropertys(Lib(), props);
}

int CQvHandleLoc::Treedb_CreateFile(std::string treeName, std::string address, int port) {
    return bs_treedb_create_newfile(treeName.c_str(), address.c_str(),
                                    static_cast<unsigned short>(port));
}

int CQvHandleLoc::Treedb_GetAllMainKeyNames(std::list<std::string>& names, std::string treeName,
                                            std::string address, int port) {
    return bs_treedb_query_mainkeys(names, treeName.c_str(), address.c_str(),
                                    static_cast<unsigned short>(port));
}

int CQvHandleLoc::Treedb_InsertSubKey(std::string name, int mode) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_insert_subkey(Lib(), name.c_str(), mode);
}

int CQvHandleLoc::Treedb_AppendSubKey(std::string parent, std::string name, int mode) {
    if (m_pHandle == nullptr)
        return 1;
    int rc = Treedb_ReopenSubKey(parent, -1);
    if (rc != 0)
        return rc;
    return bs_treedb_insert_subkey(Lib(), name.c_str(), mode);
}

int CQvHandleLoc::Treedb_DeleteSubKey(std::string name) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_delete_subkey(Lib(), name.c_str());
}

int CQvHandleLoc::Treedb_DeleteThisKey() {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_delete_key(Lib());
}

int CQvHandleLoc::Treedb_RenameSubKey(std::string oldName, std::string newName) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_rename_subkey(Lib(), oldName.c_str(), newName.c_str());
}

int CQvHandleLoc::Treedb_RenameThisKey(std::string newName) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_rename_key(Lib(), newName.c_str());
}

int CQvHandleLoc::Treedb_GetAllSubKeys(std::list<std::string>& names) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_get_subkeys(Lib(), names);
}

int CQvHandleLoc::Treedb_QueryHandle(std::string& treeName, std::string& mainKey,
                                     std::string& keyName, unsigned int& flags, std::string& subKey,
                                     unsigned int& port) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_treedb_query_handle(Lib(), treeName, mainKey, keyName, flags, subKey, port);
}
