// CQvTxn: the transaction state of one borrowed handle, below the locator that holds it.
#pragma once

#include "db/QvHandlePool.h"

// The locator (CQvHandleLoc) calls down into this piece; the piece knows nothing of the locator,
// only the pooled handle it is given (CConfHandle) and which family of calls applies to it.
// Results follow the locator's codes: 0 success, 1 without a handle, else the library's code.
// Owned by the locator, so by one thread at a time; no lock of its own.
class CQvTxn {
public:
    // Which family of library calls a handle takes: the locator's handle kinds.
    enum Kind { kTree = 0, kTable = 1, kQueue = 2 };

    // Begin opens the transaction on success and forgets any earlier one otherwise.
    int Begin(CConfHandle* handle, int kind);
    // Commit and Rollback answer 0 without a library call when nothing is open; a failed call
    // keeps the transaction open (the hand-back rolls it back).
    int Commit(CConfHandle* handle, int kind);
    int Rollback(CConfHandle* handle, int kind);
    // Before `handle` goes back to its pool: rolls back what is open; when that fails the
    // connection is closed, which ends the transaction, so that it never reaches the next
    // borrower. `report` prints the failure on standard output.
    void EndBeforeHandBack(CConfHandle* handle, int kind, bool report);
    // The connection that carried the transaction was closed.
    void Forget() { m_bOpen = false; }

private:
    bool m_bOpen = false;
};
