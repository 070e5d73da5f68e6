// The tree-database calls: argument checks, handle look-up, then the engine's tree session.
#include <cstring>

#include "bsapi/Registry.h"

using namespace bsapi;

namespace {

// A key name (main key or one path part): a name without a backslash.
int CheckKeyName(const char* name, std::string& out) {
    int rc = CheckName(name, out);
    if (rc == BS_OK && out.find('\\') != std::string::npos)
        rc = BS_ERR_BAD_NAME;
    return rc;
}

// The names an open or a reopen targets: tree file name, main key and sub-key path.
int CheckOpenNames(const char* treeName, const char* mainKey, const char* subKey,
                   std::string& tree, std::string& main, std::vector<std::string>& sub) {
    int rc = CheckFileName(treeName, tree);
    if (rc == BS_OK)
        rc = CheckKeyName(mainKey, main);
    if (rc == BS_OK)
        rc = SplitPath(subKey, sub);
    return rc;
}

#define BS_TREE(h)                                                    \
    int found_ = BS_OK;                                               \
    std::shared_ptr<CApiHandle> obj = FindHandle(h, HK_TREE, found_); \
    if (!obj)                                                         \
        return found_;                                                \
    CTreeSession& tree = *obj->m_pTree;

}  // namespace

int bs_treedb_open(void*& handle, const char* mainKey, const char* subKey, const char* keyName,
                   unsigned int flags, const char* treeName, const char* address,
                   unsigned short port) {
    BS_CALL_BEGIN("bs_treedb_open")
    if (IsOpenValue(handle))
        return BS_ERR_OTHER_NAMES;
    std::string tree, main;
    std::vector<std::string> sub;
    int rc = CheckOpenNames(treeName, mainKey, subKey, tree, main, sub);
    if (rc != BS_OK)
        return rc;
    CEngine* engine = ChosenEngine(rc);
    if (engine == nullptr)
        return rc;
    auto obj = std::make_shared<CApiHandle>(HK_TREE);
    obj->m_pTree = engine->NewTree();
    obj->m_server = MakeServer(address, port);
    rc = obj->m_pTree->Open(obj->m_server, tree, main, sub, (flags & BS_OPEN_CREATE) != 0);
    if (rc != BS_OK)
        return rc;
    obj->m_strName1 = keyName ? keyName : "";
    obj->m_nFlags = flags;
    RegisterHandle(std::move(obj), handle);
    return BS_OK;
    BS_CALL_END
}

int bs_treedb_reopen(void*& handle, const char* mainKey, const char* subKey, const char* keyName,
                     unsigned int flags, const char* treeName) {
    BS_CALL_BEGIN("bs_treedb_reopen")
    BS_TREE(handle)
    std::string treeText, main;
    std::vector<std::string> sub;
    int rc = CheckOpenNames(treeName, mainKey, subKey, treeText, main, sub);
    if (rc != BS_OK)
        return rc;
    rc = tree.Open(obj->m_server, treeText, main, sub, (flags & BS_OPEN_CREATE) != 0);
    if (rc != BS_OK)
        return rc;
    obj->m_strName1 = keyName ? keyName : "";
    obj->m_nFlags = flags;
    return BS_OK;
    BS_CALL_END
}

int bs_treedb_open_subkey(void*& handle, const char* subKey, unsigned int flags) {
    BS_CALL_BEGIN("bs_treedb_open_subkey")
    BS_TREE(handle)
    std::vector<std::string> sub;
    int rc = SplitPath(subKey, sub);
    if (rc == BS_OK)
        rc = tree.OpenSubKey(sub);
    if (rc == BS_OK)
        obj->m_nFlags = flags;
    return rc;
    BS_CALL_END
}

int bs_treedb_query_handle(void*& handle, std::string& treeName, std::string& mainKey,
                           std::string& keyName, unsigned int& flags, std::string& subKey,
                           unsigned int& port) {
    BS_CALL_BEGIN("bs_treedb_query_handle")
    BS_TREE(handle)
    tree.Where(treeName, mainKey, subKey);
    keyName = obj->m_strName1;
    flags = obj->m_nFlags;
    port = obj->m_server.m_nPort;
    return BS_OK;
    BS_CALL_END
}

int bs_treedb_create_newfile(const char* treeName, const char* address, unsigned short port) {
    BS_CALL_BEGIN("bs_treedb_create_newfile")
    std::string tree;
    int rc = CheckFileName(treeName, tree);
    if (rc != BS_OK)
        return rc;
    CEngine* engine = ChosenEngine(rc);
    if (engine == nullptr)
        return rc;
    return engine->CreateTree(MakeServer(address, port), tree);
    BS_CALL_END
}

int bs_treedb_query_mainkeys(std::list<std::string>& names, const char* treeName,
                             const char* address, unsigned short port) {
    BS_CALL_BEGIN("bs_treedb_query_mainkeys")
    std::string tree;
    int rc = CheckFileName(treeName, tree);
    if (rc != BS_OK)
        return rc;
    CEngine* engine = ChosenEngine(rc);
    if (engine == nullptr)
        return rc;
    return engine->MainKeys(MakeServer(address, port), tree, names);
    BS_CALL_END
}

int bs_treedb_get_subkeys(void*& handle, std::list<std::string>& names) {
    BS_CALL_BEGIN("bs_treedb_get_subkeys")
    BS_TREE(handle)
    return tree.SubKeys(names);
    BS_CALL_END
}

int bs_treedb_insert_subkey(void*& handle, const char* name, int mode) {
    BS_CALL_BEGIN("bs_treedb_insert_subkey")
    BS_TREE(handle)
    std::vector<std::string> rel;
    int rc = SplitPath(name, rel);
    if (rc == BS_OK && rel.empty())
        rc = BS_ERR_BAD_NAME;
    if (rc != BS_OK)
        return rc;
    return tree.InsertSubKey(rel, mode == BS_INSERT_ACCEPT_EXISTING);
    BS_CALL_END
}

int bs_treedb_delete_subkey(void*& handle, const char* name) {
    BS_CALL_BEGIN("bs_treedb_delete_subkey")
    BS_TREE(handle)
    std::vector<std::string> rel;
    int rc = SplitPath(name, rel);
    if (rc == BS_OK && rel.empty())
        rc = BS_ERR_BAD_NAME;
    if (rc != BS_OK)
        return rc;
    return tree.DeleteSubKey(rel);
    BS_CALL_END
}

int bs_treedb_rename_subkey(void*& handle, const char* oldName, const char* newName) {
    BS_CALL_BEGIN("bs_treedb_rename_subkey")
    BS_TREE(handle)
    std::vector<std::string> rel;
    std::string newText;
    int rc = SplitPath(oldName, rel);
    if (rc == BS_OK && rel.empty())
        rc = BS_ERR_BAD_NAME;
    if (rc == BS_OK)
        rc = CheckKeyName(newName, newText);
    if (rc != BS_OK)
        return rc;
    return tree.RenameSubKey(rel, newText);
    BS_CALL_END
}

int bs_treedb_delete_key(void*& handle) {
    BS_CALL_BEGIN("bs_treedb_delete_key")
    BS_TREE(handle)
    return tree.DeleteSubKey({});
    BS_CALL_END
}

int bs_treedb_rename_key(void*& handle, const char* newName) {
    BS_CALL_BEGIN("bs_treedb_rename_key")
    BS_TREE(handle)
    std::string newText;
    int rc = CheckKeyName(newName, newText);
    if (rc != BS_OK)
        return rc;
    return tree.RenameSubKey({}, newText);
    BS_CALL_END
}

int bs_treedb_get_property(void*& handle, const char* name, tarn::VariableData& value) {
    BS_CALL_BEGIN("bs_treedb_get_property")
    BS_TREE(handle)
    if (name == nullptr || *name == '\0' || std::strlen(name) > kMaxKeyName)
        return BS_ERR_BAD_NAME;
    return tree.GetProperty(name, value);
    BS_CALL_END
}

int bs_treedb_insert_property(void*& handle, const char* name, const tarn::VariableData& value,
                              bool replace) {
    BS_CALL_BEGIN("bs_treedb_insert_property")
    BS_TREE(handle)
    if (name == nullptr || *name == '\0' || std::strlen(name) > kMaxKeyName)
        return BS_ERR_BAD_NAME;
    return tree.PutProperty(name, value, replace);
    BS_CALL_END
}

int bs_treedb_edit_property(void*& handle, const char* name, const tarn::VariableData& value) {
    BS_CALL_BEGIN("bs_treedb_edit_property")
    BS_TREE(handle)
    std::string text;
    int rc = CheckName(name, text);
    return rc != BS_OK ? rc : tree.EditProperty(text, value);
    BS_CALL_END
}

int bs_treedb_delete_property(void*& handle, const char* name) {
    BS_CALL_BEGIN("bs_treedb_delete_property")
    BS_TREE(handle)
    std::string text;
    int rc = CheckName(name, text);
    return rc != BS_OK ? rc : tree.DeleteProperty(text);
    BS_CALL_END
}

int bs_treedb_delete_all_property(void*& handle) {
    BS_CALL_BEGIN("bs_treedb_delete_all_property")
    BS_TREE(handle)
    return tree.DeleteAllProperties();
    BS_CALL_END
}

int bs_treedb_rename_property(void*& handle, const char* oldName, const char* newName) {
    BS_CALL_BEGIN("bs_treedb_rename_property")
    BS_TREE(handle)
    std::string oldText, newText;
    int rc = CheckName(oldName, oldText);
    if (rc == BS_OK)
        rc = CheckName(newName, newText);
    return rc != BS_OK ? rc : tree.RenameProperty(oldText, newText);
    BS_CALL_END
}

int bs_treedb_get_all_property_names(void*& handle, std::list<std::string>& names) {
    BS_CALL_BEGIN("bs_treedb_get_all_property_names")
    BS_TREE(handle)
    return tree.PropertyNames(names);
    BS_CALL_END
}

int bs_treedb_get_all_properties(void*& handle, std::map<std::string, tarn::VariableData>& values) {
    BS_CALL_BEGIN("bs_treedb_get_all_properties")
    BS_TREE(handle)
    return tree.AllProperties(values);
    BS_CALL_END
}

int bs_treedb_insert_properties(void*& handle,
                                const std::map<std::string, tarn::VariableData>& values,
                                bool replace) {
    BS_CALL_BEGIN("bs_treedb_insert_properties")
    BS_TREE(handle)
    for (const auto& kv : values) {
        if (kv.first.empty() || kv.first.size() > kMaxKeyName)
            return BS_ERR_BAD_NAME;
    }
    return tree.PutProperties(values, replace);
    BS_CALL_END
}

int bs_treedb_begin_transaction(void*& handle) {
    BS_CALL_BEGIN("bs_treedb_begin_transaction")
    BS_TREE(handle)
    return tree.Begin();
    BS_CALL_END
}

int bs_treedb_commit_transaction(void*& handle) {
    BS_CALL_BEGIN("bs_treedb_commit_transaction")
    BS_TREE(handle)
    return tree.Commit();
    BS_CALL_END
}

int bs_treedb_rollback_transaction(void*& handle) {
    BS_CALL_BEGIN("bs_treedb_rollback_transaction")
    BS_TREE(handle)
    return tree.Rollback();
    BS_CALL_END
}
