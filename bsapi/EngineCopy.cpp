// Moving an installation's data between engines (bs_copy_all_data): every server the source holds;
// each tree walked key by key through the sessions, each table database table by table with its
// records, each queue with its messages; records and messages written with the ids they had.
// Nothing is written while the destination holds any object of the same name.
#include <algorithm>
#include <deque>

#include "bsapi/Registry.h"

namespace bsapi {

namespace {

using tarn::VariableData;

std::string Where(const CServerAddr& s) {
    return s.m_strAddress + ":" + std::to_string(s.m_nPort);
}

// The names `from` and `to` both hold; the calls list the names of one kind on one server.
template <typename F>
int Clashes(F list, CEngine& from, CEngine& to, const CServerAddr& server, const char* kind,
            std::string& report) {
    std::list<std::string> a, b;
    int rc = list(from, a);
    if (rc == BS_OK)
        rc = list(to, b);
    for (const std::string& n : a) {
        if (rc == BS_OK && std::find(b.begin(), b.end(), n) != b.end())
            report += std::string(kind) + " " + n + " of " + Where(server) + " exists already\n";
    }
    return rc;
}

// Copies one tree in one transaction of the destination, breadth first.
int CopyTree(CEngine& from, CEngine& to, const CServerAddr& server, const std::string& tree,
             size_t& keys) {
    std::list<std::string> mains;
    int rc = from.MainKeys(server, tree, mains);
    if (rc == BS_OK)
        rc = to.CreateTree(server, tree);
    for (const std::string& main : mains) {
        std::unique_ptr<CTreeSession> src = from.NewTree(), dst = to.NewTree();
        if (rc == BS_OK)
            rc = src->Open(server, tree, main, {}, false);
        if (rc == BS_OK)
            rc = dst->Open(server, tree, main, {}, true);
        if (rc == BS_OK)
            rc = dst->Begin();
        std::deque<std::vector<std::string>> pending{{}};
        while (rc == BS_OK && !pending.empty()) {
            std::vector<std::string> path = pending.front();
            pending.pop_front();
            std::map<std::string, VariableData> props;
            std::list<std::string> children;
            rc = src->OpenSubKey(path);
            if (rc == BS_OK)
                rc = dst->OpenSubKey(path);
            if (rc == BS_OK)
                rc = src->AllProperties(props);
            if (rc == BS_OK)
                rc = dst->PutProperties(props, false);
            if (rc == BS_OK)
                rc = src->SubKeys(children);
            for (const std::string& c : children) {
                if (rc == BS_OK)
                    rc = dst->InsertSubKey({c}, false);
                pending.push_back(path);
                pending.back().push_back(c);
            }
            ++keys;
        }
        if (rc == BS_OK)
            rc = dst->Commit();
    }
    return rc;
}

int CopyTableDb(CEngine& from, CEngine& to, const CServerAddr& server, const std::string& db,
                size_t& tables, size_t& records) {
    std::unique_ptr<CTableSession> src = from.NewTable(), dst = to.NewTable();
    std::list<std::string> names;
    int rc = src->Open(server, db);
    if (rc == BS_OK)
        rc = dst->Open(server, db);
    if (rc == BS_OK)
        rc = src->TableNames(names);
    for (const std::string& table : names) {
        std::vector<bs_tdfield> fields;
        CSelection all;
        all.m_byKind = BS_SEL_AUTOID;
        all.m_byMode = BS_CMP_ALL;
        unsigned int count = 0;
        std::unique_ptr<CCursor> cursor;
        if (rc == BS_OK)
            rc = src->Fields(table, fields);
        if (rc == BS_OK)
            rc = dst->CreateTable(table, fields, false);
        if (rc == BS_OK)
            rc = src->Select(table, all, count, cursor);
        std::vector<bs_record> batch;
        while (rc == BS_OK) {
            bs_record r;
            int at = cursor->Current(r);
            if (at == BS_OK)
                batch.push_back(std::move(r));
            if (batch.size() == 500 || (at != BS_OK && !batch.empty())) {
                rc = to.Store().PutRecords(server, db, table, fields, batch);
                records += batch.size();
                batch.clear();
            }
            if (at != BS_OK || rc != BS_OK)
                break;
            at = cursor->Next();
            if (at != BS_OK && at != BS_ERR_END)
                rc = at;
        }
        ++tables;
    }
    return rc;
}

int CopyQueue(CEngine& from, CEngine& to, const CServerAddr& server, const std::string& queue,
              size_t& messages) {
    std::vector<CStoredMessage> all;
    std::unique_ptr<CQueueSession> dst = to.NewQueue();
    int rc = from.Store().Messages(server, queue, all);
    if (rc == BS_OK)
        rc = dst->Open(server, queue, true);
    if (rc == BS_OK)
        rc = to.Store().PutMessages(server, queue, all);
    messages = all.size();
    return rc;
}

int CopyAll(CEngine& from, CEngine& to, std::string& report) {
    std::list<CServerAddr> servers;
    int rc = from.Store().Servers(servers);
    std::string clashes;
    for (const CServerAddr& s : servers) {
        auto trees = [&](CEngine& e, std::list<std::string>& n) { return e.Store().Trees(s, n); };
        auto dbs = [&](CEngine& e, std::list<std::string>& n) { return e.TableDbNames(s, n); };
        auto queues = [&](CEngine& e, std::list<std::string>& n) { return e.QueueNames(s, n); };
        if (rc == BS_OK)
            rc = Clashes(trees, from, to, s, "tree", clashes);
        if (rc == BS_OK)
            rc = Clashes(dbs, from, to, s, "table database", clashes);
        if (rc == BS_OK)
            rc = Clashes(queues, from, to, s, "queue", clashes);
    }
    if (rc != BS_OK)
        return rc;
    if (!clashes.empty()) {
        report = clashes;
        return BS_ERR_EXISTS;
    }
    for (const CServerAddr& s : servers) {
        std::list<std::string> trees, dbs, queues;
        rc = from.Store().Trees(s, trees);
        if (rc == BS_OK)
            rc = from.TableDbNames(s, dbs);
        if (rc == BS_OK)
            rc = from.QueueNames(s, queues);
        for (const std::string& t : trees) {
            size_t keys = 0;
            if (rc == BS_OK)
                rc = CopyTree(from, to, s, t, keys);
            report += "tree " + t + " of " + Where(s) + ": " + std::to_string(keys) + " keys\n";
        }
        for (const std::string& d : dbs) {
            size_t tables = 0, records = 0;
            if (rc == BS_OK)
                rc = CopyTableDb(from, to, s, d, tables, records);
            report += "table database " + d + " of " + Where(s) + ": " + std::to_string(tables) +
                      " tables, " + std::to_string(records) + " records\n";
        }
        for (const std::string& q : queues) {
            size_t messages = 0;
            if (rc == BS_OK)
                rc = CopyQueue(from, to, s, q, messages);
            report +=
                "queue " + q + " of " + Where(s) + ": " + std::to_string(messages) + " messages\n";
        }
        if (rc != BS_OK)
            return rc;
    }
    return BS_OK;
}

}  // namespace

}  // namespace bsapi

int bs_copy_all_data(const char* from, const char* to, std::string& report) {
    BS_CALL_BEGIN("bs_copy_all_data")
    using namespace bsapi;
    CEngine* src = EngineNamed(from ? from : "");
    CEngine* dst = EngineNamed(to ? to : "");
    if (src == nullptr || dst == nullptr)
        return BS_ERR_NO_ENGINE;
    if (src == dst)
        return BS_ERR_BAD_ARG;
    report.clear();
    return CopyAll(*src, *dst, report);
    BS_CALL_END
}
