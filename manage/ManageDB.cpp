// CManageDb (interim: only the start-up wait, which cannot reach a database yet).
#include "manage/ManageDB.h"

// INTERIM. The database client and the handle locator are not part of the build yet, so there
// is nothing to wait for: the database counts as ready at once. The real body tries an
// allocation on the plug-in data tree and retries every 500 ms until the server answers.
void CManageDb::WaitDBStart(std::string /*address*/) {}
