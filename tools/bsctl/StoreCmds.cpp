// bsctl table and queue commands, and the copy of a whole installation between engines.
#include <algorithm>
#include <cstdio>

#include "tools/bsctl/BsCtl.h"

namespace bsctl {

namespace {

struct CHandle {
    void* m_h = BS_INVALID_HANDLE;
    ~CHandle() {
        if (m_h != BS_INVALID_HANDLE)
            bs_close_handle(m_h);
    }
};

// Opens an existing table database (opening would otherwise create an empty one).
int OpenDb(const CArgs& a, CHandle& h) {
    std::list<std::string> dbs;
    int rc = bs_tabledb_get_all_dbnames(dbs, a.m_strServer.c_str(), a.m_nPort);
    if (rc != BS_OK)
        return Refused("table databases", rc);
    if (std::find(dbs.begin(), dbs.end(), a.Word(2)) == dbs.end()) {
        std::fprintf(stderr, "bsctl: no table database '%s'\n", a.Word(2).c_str());
        return EXIT_REFUSED;
    }
    rc = bs_tabledb_open(h.m_h, a.Word(2).c_str(), "", "", 0, 0, a.m_strServer.c_str(), a.m_nPort);
    return rc == BS_OK ? EXIT_DONE : Refused("table database " + a.Word(2), rc);
}

int ShowTable(const CArgs& a) {
    unsigned long long limit = 0;
    if (!ParseNumber(a.Option("limit", "100"), 0xffffffffull, limit))
        return Usage("bad --limit");
    CHandle h;
    int st = OpenDb(a, h);
    if (st != EXIT_DONE)
        return st;
    std::list<bs_tdfield*> fields;
    int rc = bs_tabledb_get_fields(h.m_h, a.Word(3).c_str(), fields);
    if (rc != BS_OK)
        return Refused("table " + a.Word(3), rc);
    std::vector<std::string> names = {"_FIELD_AUTOID_", "_FIELD_CTIME_"};
    for (bs_tdfield* f : fields)
        names.push_back(f->name);
    bs_free_fields(fields);
    for (size_t i = 0; i < names.size(); ++i)
        std::printf("%s%s", i ? "\t" : "", names[i].c_str());
    std::printf("\n");
    void* cursor = BS_INVALID_HANDLE;
    unsigned int count = 0;
    rc = bs_tabledb_get_record(h.m_h, a.Word(3).c_str(), count, cursor);
    if (rc != BS_OK)
        return Refused("table " + a.Word(3), rc);
    bs_record r;
    for (unsigned long long shown = 0; shown < limit && bs_tabledb_get_cursor(cursor, r) == BS_OK;
         ++shown) {
        for (size_t i = 0; i < names.size(); ++i)
            std::printf("%s%s", i ? "\t" : "", Printable(r[names[i]]).c_str());
        std::printf("\n");
        if (bs_tabledb_cursor_next(cursor) != BS_OK)
            break;
    }
    bs_close_handle(cursor);
    return EXIT_DONE;
}

int TableDelete(const CArgs& a) {
    unsigned long long id = 0;
    if (!ParseNumber(a.Word(4), 0x7fffffffffffffffull, id))
        return Usage("bad record id '" + a.Word(4) + "'");
    CHandle h;
    int st = OpenDb(a, h);
    if (st != EXIT_DONE)
        return st;
    tarn::VariableData key(static_cast<long long>(id));
    unsigned int deleted = 0;
    int rc = bs_tabledb_delete_record_by_field(h.m_h, a.Word(3).c_str(), nullptr, &key, nullptr,
                                               BS_CMP_EQUAL, BS_SEL_AUTOID, deleted);
    if (rc != BS_OK)
        return Refused("table " + a.Word(3), rc);
    if (deleted == 0) {
        std::fprintf(stderr, "bsctl: no record %llu in %s\n", id, a.Word(3).c_str());
        return EXIT_REFUSED;
    }
    return EXIT_DONE;
}

}  // namespace

int TableCommand(const CArgs& a) {
    const std::string& sub = a.Word(1);
    size_t n = a.m_vecWords.size();
    if (sub == "list" && n == 2) {
        std::list<std::string> dbs;
        int rc = bs_tabledb_get_all_dbnames(dbs, a.m_strServer.c_str(), a.m_nPort);
        if (rc != BS_OK)
            return Refused("table databases", rc);
        for (const std::string& d : dbs)
            std::printf("%s\n", d.c_str());
        return EXIT_DONE;
    }
    if (sub == "list" && n == 3) {
        CHandle h;
        int st = OpenDb(a, h);
        if (st != EXIT_DONE)
            return st;
        std::list<std::string> tables;
        int rc = bs_tabledb_get_all_tablenames(h.m_h, tables);
        if (rc != BS_OK)
            return Refused("tables of " + a.Word(2), rc);
        for (const std::string& t : tables)
            std::printf("%s\n", t.c_str());
        return EXIT_DONE;
    }
    if (sub == "show" && n == 4)
        return ShowTable(a);
    if (sub == "delete" && n == 5)
        return TableDelete(a);
    return Usage("table needs list [DB], show DB TABLE or delete DB TABLE ID");
}

int QueueCommand(const CArgs& a) {
    const std::string& sub = a.Word(1);
    size_t n = a.m_vecWords.size();
    if (sub == "list" && n == 2) {
        std::list<std::string> names;
        int rc = bs_mq_query_all_names(names, a.m_strServer.c_str(), a.m_nPort);
        if (rc != BS_OK)
            return Refused("queues", rc);
        for (const std::string& q : names)
            std::printf("%s\n", q.c_str());
        return EXIT_DONE;
    }
    CHandle h;
    if (sub == "push" && n == 4) {
        unsigned long long prio = 0;
        if (!ParseNumber(a.Option("priority", "0"), 255, prio))
            return Usage("bad --priority");
        int rc = bs_mq_open(h.m_h, a.Word(2).c_str(), "", BS_MQ_OPEN_CREATE, 0,
                            a.m_strServer.c_str(), a.m_nPort);
        unsigned long long id = 0;
        if (rc == BS_OK) {
            rc = bs_mq_push(h.m_h, tarn::VariableData(a.Word(3)), a.Option("name", "").c_str(), id,
                            static_cast<unsigned char>(prio));
        }
        if (rc != BS_OK)
            return Refused("queue " + a.Word(2), rc);
        std::printf("%llu\n", id);
        return EXIT_DONE;
    }
    if (sub == "pop" && n == 3) {
        unsigned long long timeout = 0;
        if (!ParseNumber(a.Option("timeout", "0"), 0xffffffffull, timeout))
            return Usage("bad --timeout");
        int rc = bs_mq_open(h.m_h, a.Word(2).c_str(), "", BS_MQ_OPEN_EXISTING, 0,
                            a.m_strServer.c_str(), a.m_nPort);
        tarn::VariableData v;
        std::string name;
        long t = 0;
        unsigned long long id = 0;
        if (rc == BS_OK)
            rc = bs_mq_pop(h.m_h, v, name, t, id, static_cast<unsigned int>(timeout), false);
        if (rc == BS_ERR_TIMEOUT) {
            std::fprintf(stderr, "bsctl: queue %s is empty\n", a.Word(2).c_str());
            return EXIT_REFUSED;
        }
        if (rc != BS_OK)
            return Refused("queue " + a.Word(2), rc);
        std::printf("%llu\t%s\t%s\t%s\n", id, name.c_str(), TypeName(v.GetType()),
                    Printable(v).c_str());
        return EXIT_DONE;
    }
    return Usage("queue needs list, push QUEUE TEXT or pop QUEUE");
}

// copy --from ENGINE --to ENGINE: every server's data, each engine with its usual settings.
int CopyCommand(const CArgs& a) {
    std::string from = a.Option("from", ""), to = a.Option("to", "");
    if (a.m_vecWords.size() != 1 || from.empty() || to.empty() || from == to)
        return Usage("copy needs --from ENGINE --to ENGINE (sqlite, postgres), two different ones");
    std::string report;
    int rc = bs_copy_all_data(from.c_str(), to.c_str(), report);
    std::fputs(report.c_str(), rc == BS_OK ? stdout : stderr);
    return rc == BS_OK ? EXIT_DONE : Refused("copy from " + from + " to " + to, rc);
}

}  // namespace bsctl
