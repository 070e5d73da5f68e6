// bsctl tree commands and the seeding of verification codes.
#include <cstdio>

#include "tools/bsctl/BsCtl.h"

namespace bsctl {

namespace {

// A handle that closes itself.
struct CHandle {
    void* m_h = BS_INVALID_HANDLE;
    ~CHandle() {
        if (m_h != BS_INVALID_HANDLE)
            bs_close_handle(m_h);
    }
};

std::string PathArg(const std::string& word) {
    return word == "-" ? std::string() : word;
}

int OpenKey(const CArgs& a, CHandle& h, const std::string& path, unsigned flags) {
    return bs_treedb_open(h.m_h, a.Word(3).c_str(), path.c_str(), "", flags, a.Word(2).c_str(),
                          a.m_strServer.c_str(), a.m_nPort);
}

std::string KeyText(const CArgs& a, const std::string& path) {
    return a.Word(2) + ":" + a.Word(3) + (path.empty() ? "" : "\\" + path);
}

int List(const CArgs& a) {
    std::list<std::string> names;
    if (a.m_vecWords.size() == 3) {
        int rc =
            bs_treedb_query_mainkeys(names, a.Word(2).c_str(), a.m_strServer.c_str(), a.m_nPort);
        if (rc != BS_OK)
            return Refused("tree " + a.Word(2), rc);
    } else {
        CHandle h;
        std::string path = PathArg(a.Word(4));
        int rc = OpenKey(a, h, path, 0);
        if (rc == BS_OK)
            rc = bs_treedb_get_subkeys(h.m_h, names);
        if (rc != BS_OK)
            return Refused(KeyText(a, path), rc);
    }
    for (const std::string& n : names)
        std::printf("%s\n", n.c_str());
    return EXIT_DONE;
}

int Show(const CArgs& a) {
    CHandle h;
    std::string path = PathArg(a.Word(4));
    std::map<std::string, tarn::VariableData> props;
    int rc = OpenKey(a, h, path, 0);
    if (rc == BS_OK)
        rc = bs_treedb_get_all_properties(h.m_h, props);
    if (rc != BS_OK)
        return Refused(KeyText(a, path), rc);
    for (const auto& kv : props) {
        std::printf("%s\t%s\t%s\n", kv.first.c_str(), TypeName(kv.second.GetType()),
                    Printable(kv.second).c_str());
    }
    return EXIT_DONE;
}

int Set(const CArgs& a) {
    if (a.m_vecWords.size() != 8)
        return Usage("tree set needs TREE MAINKEY PATH|- NAME TYPE VALUE");
    unsigned char tag = TypeTag(a.Word(6));
    if (tag == 0)
        return Usage("unknown type '" + a.Word(6) + "'");
    tarn::VariableData value;
    if (!ParseValue(tag, a.Word(7), value))
        return Usage("'" + a.Word(7) + "' is not a valid " + a.Word(6));
    CHandle h;
    std::string path = PathArg(a.Word(4));
    int rc = OpenKey(a, h, path, BS_OPEN_CREATE);
    if (rc != BS_OK)
        return Refused(KeyText(a, path), rc);
    rc = bs_treedb_insert_property(h.m_h, a.Word(5).c_str(), value, true);
    if (rc != BS_OK)
        return Refused("property " + a.Word(5), rc);
    return EXIT_DONE;
}

int AddKey(const CArgs& a) {
    if (a.m_vecWords.size() != 5)
        return Usage("tree addkey needs TREE MAINKEY PATH");
    CHandle h;
    int rc = OpenKey(a, h, "", BS_OPEN_CREATE);
    if (rc != BS_OK)
        return Refused(KeyText(a, ""), rc);
    const std::string& path = a.Word(4);
    for (size_t pos = path.find('\\'); rc == BS_OK; pos = path.find('\\', pos + 1)) {
        rc = bs_treedb_insert_subkey(h.m_h, path.substr(0, pos).c_str(), BS_INSERT_ACCEPT_EXISTING);
        if (pos == std::string::npos)
            break;
    }
    return rc == BS_OK ? EXIT_DONE : Refused(KeyText(a, path), rc);
}

int DelKey(const CArgs& a) {
    if (a.m_vecWords.size() != 5)
        return Usage("tree delkey needs TREE MAINKEY PATH");
    CHandle h;
    int rc = OpenKey(a, h, "", 0);
    if (rc == BS_OK)
        rc = bs_treedb_delete_subkey(h.m_h, a.Word(4).c_str());
    return rc == BS_OK ? EXIT_DONE : Refused(KeyText(a, a.Word(4)), rc);
}

int DelProp(const CArgs& a) {
    if (a.m_vecWords.size() != 6)
        return Usage("tree delprop needs TREE MAINKEY PATH|- NAME");
    CHandle h;
    std::string path = PathArg(a.Word(4));
    int rc = OpenKey(a, h, path, 0);
    if (rc != BS_OK)
        return Refused(KeyText(a, path), rc);
    rc = bs_treedb_delete_property(h.m_h, a.Word(5).c_str());
    return rc == BS_OK ? EXIT_DONE : Refused("property " + a.Word(5), rc);
}

}  // namespace

int TreeCommand(const CArgs& a) {
    const std::string& sub = a.Word(1);
    size_t n = a.m_vecWords.size();
    if (sub == "list" && (n >= 3 && n <= 5))
        return List(a);
    if (sub == "show" && (n == 4 || n == 5))
        return Show(a);
    if (sub == "set")
        return Set(a);
    if (sub == "addkey")
        return AddKey(a);
    if (sub == "delkey")
        return DelKey(a);
    if (sub == "delprop")
        return DelProp(a);
    return Usage("tree needs list, show, set, addkey, delkey or delprop with their arguments");
}

// Codes live as sub keys of ccubase:Config\VerifyCode; the names are the codes.
int SeedCodes(const CArgs& a) {
    if (a.m_vecWords.size() < 2)
        return Usage("seed-codes needs at least one code");
    CHandle h;
    int rc = bs_treedb_open(h.m_h, "Config", nullptr, "", BS_OPEN_CREATE | BS_OPEN_APP, "ccubase",
                            a.m_strServer.c_str(), a.m_nPort);
    if (rc == BS_OK)
        rc = bs_treedb_insert_subkey(h.m_h, "VerifyCode", BS_INSERT_ACCEPT_EXISTING);
    if (rc != BS_OK)
        return Refused("ccubase:Config\\VerifyCode", rc);
    for (size_t i = 1; i < a.m_vecWords.size(); ++i) {
        const std::string& code = a.Word(i);
        if (code.find('\\') != std::string::npos)
            return Usage("a code cannot hold '\\': " + code);
        rc = bs_treedb_insert_subkey(h.m_h, ("VerifyCode\\" + code).c_str(),
                                     BS_INSERT_ACCEPT_EXISTING);
        if (rc != BS_OK)
            return Refused("code " + code, rc);
    }
    std::fprintf(Out(), "%zu codes seeded\n", a.m_vecWords.size() - 1);
    return EXIT_DONE;
}

}  // namespace bsctl
