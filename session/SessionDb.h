// CSessionDb: reads and deletes the persisted copies of web sessions in the tree database
// ("master", main key "Session", one sub key per session id).
#pragma once

#include <list>
#include <string>

class CGWebSession;

// Stateless: every operation opens and gives back its own database handle. New records are
// owned by the caller.
class CSessionDb {
public:
    CSessionDb() {}
    ~CSessionDb() {}

    // Deletes one session's sub key; the database status (0 for success).
    int DeleteWebSession(std::string sessionId, std::string address);
    // The persisted session `sessionId` as a new record, or null when absent or incomplete.
    CGWebSession* GetOneSession(std::string address, std::string sessionId);
    // Appends one new record per valid persisted session; the database status.
    int GetOldWebSession(std::string address, std::list<CGWebSession*>& records);
};
