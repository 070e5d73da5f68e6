// bsapi.h: the database client API (tree database, table database, message queues) and its values.
//
// Every call returns an int result code (table below; 0 is success) and never throws. Handles are
// opaque `void*` passed by reference; the all-ones value BS_INVALID_HANDLE means "not open", and
// bs_close_handle closes a handle and resets it to that value. Names are passed as C strings; a
// null name is read as "". Names are compared byte-wise: letter case matters everywhere.
//
// ---------------------------------------------------------------------------------------------
// Result codes
//   0     BS_OK                 success
//   5     BS_ERR_OTHER_NAMES    the handle is already open (on other names); close it first
//   28    BS_ERR_NO_SUBKEY      a sub-key path does not exist (open, reopen, open_subkey, insert
//                               under a missing parent)
//   40    BS_ERR_NO_TREE        the tree does not exist (open without BS_OPEN_CREATE)
//   58    BS_ERR_NO_TRANSACTION commit or rollback with no transaction open
//   121   BS_ERR_NO_QUEUE       the queue does not exist (open mode 1, or deleted meanwhile)
//   169   BS_ERR_NO_MAINKEY     the main key does not exist
//   176   BS_ERR_NO_KEY         the key or property does not exist (get, edit, delete, rename)
//   189   BS_ERR_BAD_NAME       an invalid name: empty, too long, or a path with an empty part
//   1005  BS_ERR_CONN_LOST      the connection is lost: the database file went away, or the
//                               database server's connection broke, could not be made or did not
//                               answer within its time-out (close the handle and open it again)
//   1006  BS_ERR_CONN_RESET     the connection was reset: the database was replaced under it (a
//                               file replaced, or the server's schema dropped while in use)
//   1024  BS_ERR_CONN_CLOSED    the handle is not open (all-ones, null, or closed since)
//   2001  BS_ERR_BUSY           another writer held the database (or the record) past the busy
//                               timeout
//   2002  BS_ERR_TIMEOUT        a pop found no message within its timeout
//   2003  BS_ERR_EXISTS         the key, property, table or tree already exists
//   2004  BS_ERR_CONSTRAINT     the change breaks a constraint (a second equal value in a field
//                               created BS_FIELD_UNIQUE)
//   2005  BS_ERR_TYPE           a value does not fit the field's type or range
//   2006  BS_ERR_NO_TABLE       the table does not exist
//   2007  BS_ERR_NO_FIELD       a field name is not a field of the table
//   2008  BS_ERR_BAD_ARG        a bad argument (mode, kind, count, missing value)
//   2009  BS_ERR_IO             the engine could not read or write its files
//   2010  BS_ERR_CORRUPT        a database file is damaged
//   2011  BS_ERR_BAD_HANDLE     the value is not a handle of this library, or of another kind
//   2012  BS_ERR_END            a cursor stands past its last record
//   2013  BS_ERR_TOO_BIG        a value or buffer is too large
//   2014  BS_ERR_IN_TRANSACTION begin while a transaction is already open
//   2015  BS_ERR_NO_MEMORY      out of memory
//   2016  BS_ERR_NO_ENGINE      the configured engine is unknown or not built in, or its
//                               configuration cannot be read (a malformed connection string)
//   2017  BS_ERR_INTERNAL       an unexpected internal failure
//   2018  BS_ERR_CONFLICT       the transaction lost a conflict with another one (a deadlock or a
//                               serialization failure). Nothing of it is kept: it is rolled back at
//                               once, later calls in it answer 2018, and so does its commit; start
//                               it again
//
// Tree open flags (bs_treedb_open, bs_treedb_reopen, bs_treedb_open_subkey)
//   0x80000 BS_OPEN_CREATE   create a missing tree and main key on open. Sub keys are never created
//                            by an open; only bs_treedb_insert_subkey creates them.
//   0x00080 BS_OPEN_APP      marks a handle on an application's own tree; recorded and reported
//                            back by bs_treedb_query_handle, no other effect.
//   other bits               recorded and reported back, no effect.
// Table open: the two numbers are recorded and reported back by bs_tabledb_qurey_handle; a missing
//   table database is created on open (an empty database holds nothing).
// Queue open modes: 1 open an existing queue (121 when missing); 2 open, creating it when missing.
//   Queue open flags are recorded only.
// Sub-key insert mode: BS_INSERT_ACCEPT_EXISTING (2) accepts an existing key (result 0); any other
//   mode answers BS_ERR_EXISTS for an existing key.
// Table create flags: BS_TABLE_ACCEPT_EXISTING (1) accepts an existing table. Table delete flags:
//   BS_TABLE_ACCEPT_MISSING (1) accepts a missing table.
// Record selections (get_record_by_field, update, delete): `kind` says what is compared:
//   0 the named field, 1 "_FIELD_AUTOID_", 2 the creation time "_FIELD_CTIME_";
//   `mode` says how: 0 from <= x <= to (no `to`: x >= from), 1 x < from, 2 x > from,
//   3 x == from, 4 every record (from and to ignored).
//
// Fault injection (tests only, off by default): bs_debug_fail_next(call, code, count) makes the
// next `count` calls of the named bs_* function (or of every call for "*") return `code` without
// doing anything; count 0 removes the rule.
// ---------------------------------------------------------------------------------------------
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#define BSAPI_API __attribute__((visibility("default")))

#define BS_INVALID_HANDLE ((void*)-1)

enum {
    BS_OK = 0,
    BS_ERR_OTHER_NAMES = 5,
    BS_ERR_NO_SUBKEY = 28,
    BS_ERR_NO_TREE = 40,
    BS_ERR_NO_TRANSACTION = 58,
    BS_ERR_NO_QUEUE = 121,
    BS_ERR_NO_MAINKEY = 169,
    BS_ERR_NO_KEY = 176,
    BS_ERR_BAD_NAME = 189,
    BS_ERR_CONN_LOST = 1005,
    BS_ERR_CONN_RESET = 1006,
    BS_ERR_CONN_CLOSED = 1024,
    BS_ERR_BUSY = 2001,
    BS_ERR_TIMEOUT = 2002,
    BS_ERR_EXISTS = 2003,
    BS_ERR_CONSTRAINT = 2004,
    BS_ERR_TYPE = 2005,
    BS_ERR_NO_TABLE = 2006,
    BS_ERR_NO_FIELD = 2007,
    BS_ERR_BAD_ARG = 2008,
    BS_ERR_IO = 2009,
    BS_ERR_CORRUPT = 2010,
    BS_ERR_BAD_HANDLE = 2011,
    BS_ERR_END = 2012,
    BS_ERR_TOO_BIG = 2013,
    BS_ERR_IN_TRANSACTION = 2014,
    BS_ERR_NO_MEMORY = 2015,
    BS_ERR_NO_ENGINE = 2016,
    BS_ERR_INTERNAL = 2017,
    BS_ERR_CONFLICT = 2018,
};

enum : unsigned {
    BS_OPEN_CREATE = 0x80000u,
    BS_OPEN_APP = 0x80u,
};
enum { BS_INSERT_ACCEPT_EXISTING = 2, BS_TABLE_ACCEPT_EXISTING = 1, BS_TABLE_ACCEPT_MISSING = 1 };
enum { BS_MQ_OPEN_EXISTING = 1, BS_MQ_OPEN_CREATE = 2 };
enum { BS_FIELD_PLAIN = 0, BS_FIELD_INDEXED = 1, BS_FIELD_UNIQUE = 2 };  // bs_tdfield::indexed
enum { BS_SEL_FIELD = 0, BS_SEL_AUTOID = 1, BS_SEL_CTIME = 2 };
enum { BS_CMP_RANGE = 0, BS_CMP_LESS = 1, BS_CMP_GREATER = 2, BS_CMP_EQUAL = 3, BS_CMP_ALL = 4 };

namespace tarn {

// A raw byte buffer. Holds `GetSize()` bytes; the storage is always followed by one zero byte so
// that text kept in it can be read as a C string.
class BSAPI_API MemCache {
public:
    MemCache();
    explicit MemCache(size_t size);
    MemCache(const void* data, size_t size);

    char* GetBuffer() { return m_vecData.data(); }
    const char* GetBuffer() const { return m_vecData.data(); }
    size_t GetSize() const { return m_vecData.size() - 1; }
    bool Resize(size_t size);  // keeps the leading bytes, zero-fills new ones; false when no memory
    bool Assign(const void* data, size_t size);
    bool Append(const void* data, size_t size);
    void Clear();

private:
    std::vector<char> m_vecData;  // size + 1 bytes, the last one always zero
};

// A tagged variant value. Tags: 0 empty, 1 string, 2 int16, 3 int32, 4 int64, 5 char, 6 double,
// 7 float, 9 time (seconds since the epoch), 16 uint8, 18 uint32, 19 uint64.
//
// Serial form: one tag byte, then the payload: nothing for empty; for a string a 4-byte
// little-endian length n (at most 0x7fffffff - 5) followed by n bytes; for the others the value's
// bytes in little-endian order: 2 (int16), 4 (int32, uint32, float as IEEE-754), 8 (int64, uint64,
// double as IEEE-754, time as signed seconds), 1 (char, uint8). UnSerial refuses an unknown tag, a
// buffer shorter than the form it announces and a negative size.
class BSAPI_API VariableData {
public:
    enum : unsigned char {
        VT_EMPTY = 0,
        VT_STRING = 1,
        VT_INT16 = 2,
        VT_INT32 = 3,
        VT_INT64 = 4,
        VT_CHAR = 5,
        VT_DOUBLE = 6,
        VT_FLOAT = 7,
        VT_TIME = 9,
        VT_UINT8 = 16,
        VT_UINT32 = 18,
        VT_UINT64 = 19,
    };

    VariableData();
    VariableData(const VariableData& other);
    VariableData(VariableData&& other) noexcept;
    VariableData& operator=(const VariableData& other);
    VariableData& operator=(VariableData&& other) noexcept;
    ~VariableData();

    VariableData(const char* text);  // null gives the empty string
    VariableData(const std::string& text);
    VariableData(const void* data, size_t size);  // a string of raw bytes
    VariableData(short v);
    VariableData(int v);
    VariableData(long v);  // int64
    VariableData(long long v);
    VariableData(char v);
    VariableData(double v);
    VariableData(float v);
    VariableData(unsigned char v);
    VariableData(unsigned int v);
    VariableData(unsigned long v);  // uint64
    VariableData(unsigned long long v);

    unsigned char GetType() const { return m_byTag; }
    bool IsEmpty() const { return m_byTag == VT_EMPTY; }
    void Clear();
    bool Equals(const VariableData& other) const;  // same tag and same value (bit-exact)

    // The string's bytes (tag 1) or the value's decimal text; never null, zero-terminated.
    const std::string& GetText() const;
    size_t GetStringLength() const;

    void PutTimeValue(long seconds);
    bool GetTimeValue(long& seconds) const;  // false (seconds untouched) unless tag 9

    // Numbers convert between each other as C++ casts do; a time gives its seconds; a string is
    // parsed as a decimal number (0 when it is not one); empty gives 0.
    operator char*() const;  // the text, as GetText(); valid until the value changes
    operator char() const;
    operator short() const;
    operator int() const;
    operator long long() const;
    operator unsigned char() const;
    operator unsigned int() const;
    operator unsigned long long() const;
    operator float() const;
    operator double() const;

    int Size() const;                                // length of the serial form
    bool SerialData(char* buffer, int& size) const;  // size: room in, bytes written (or needed) out
    bool UnSerial(const char* buffer, int size);     // false: the value stays as it was

private:
    void SetText(const char* data, size_t size);
    unsigned char m_byTag;
    union {
        long long m_llValue;
        unsigned long long m_ullValue;
        double m_dValue;
        float m_fValue;
    };
    mutable std::string m_strText;  // the string (tag 1) or a cache of the decimal text
};

}  // namespace tarn

// A table field description. Lists of them are given to bs_tabledb_create_table and filled by
// bs_tabledb_get_fields (those records are allocated with new; the caller deletes them, or calls
// bs_free_fields).
struct BSAPI_API bs_tdfield {
    bs_tdfield();
    bs_tdfield(const char* fieldName, unsigned char fieldType, unsigned int fieldLength = 0,
               unsigned char fieldIndexed = BS_FIELD_PLAIN);
    std::string name;
    unsigned char type;     // a VariableData tag other than 0
    unsigned int length;    // for strings: the most bytes a value may hold; 0 without limit
    unsigned char indexed;  // BS_FIELD_PLAIN, BS_FIELD_INDEXED or BS_FIELD_UNIQUE
};

typedef std::unordered_map<std::string, tarn::VariableData> bs_record;

// ----------------------------------------------------------------------------- handles
BSAPI_API const char* bs_result_text(int code);    // a short English text for a result code
BSAPI_API int bs_close_handle(void*& handle);      // any handle or cursor; resets it to all-ones
BSAPI_API int bs_handle_keep_live(void*& handle);  // 0 while the handle can still serve

// ----------------------------------------------------------------------------- tree database
// A tree holds main keys; a main key holds a hierarchy of sub keys addressed by backslash paths
// relative to the main key ("a\b\c"); every key holds typed properties. A handle stands on one
// key: the main key itself (sub key null or "") or one sub key.
BSAPI_API int bs_treedb_open(void*& handle, const char* mainKey, const char* subKey,
                             const char* keyName, unsigned int flags, const char* treeName,
                             const char* address, unsigned short port);
BSAPI_API int bs_treedb_reopen(void*& handle, const char* mainKey, const char* subKey,
                               const char* keyName, unsigned int flags, const char* treeName);
BSAPI_API int bs_treedb_open_subkey(void*& handle, const char* subKey, unsigned int flags);
BSAPI_API int bs_treedb_query_handle(void*& handle, std::string& treeName, std::string& mainKey,
                                     std::string& keyName, unsigned int& flags, std::string& subKey,
                                     unsigned int& port);
BSAPI_API int bs_treedb_create_newfile(const char* treeName, const char* address,
                                       unsigned short port);
BSAPI_API int bs_treedb_query_mainkeys(std::list<std::string>& names, const char* treeName,
                                       const char* address, unsigned short port);
// Sub keys of the current key (names only, byte order); the list is replaced.
BSAPI_API int bs_treedb_get_subkeys(void*& handle, std::list<std::string>& names);
// `name` is a path relative to the current key; every part but the last must exist.
BSAPI_API int bs_treedb_insert_subkey(void*& handle, const char* name, int mode);
BSAPI_API int bs_treedb_delete_subkey(void*& handle, const char* name);  // with its subtree
BSAPI_API int bs_treedb_rename_subkey(void*& handle, const char* oldName, const char* newName);
// The current key: delete (with its subtree; the handle moves to the parent) or rename.
BSAPI_API int bs_treedb_delete_key(void*& handle);
BSAPI_API int bs_treedb_rename_key(void*& handle, const char* newName);

BSAPI_API int bs_treedb_get_property(void*& handle, const char* name, tarn::VariableData& value);
BSAPI_API int bs_treedb_insert_property(void*& handle, const char* name,
                                        const tarn::VariableData& value, bool replace);
BSAPI_API int bs_treedb_edit_property(void*& handle, const char* name,
                                      const tarn::VariableData& value);
BSAPI_API int bs_treedb_delete_property(void*& handle, const char* name);
BSAPI_API int bs_treedb_delete_all_property(void*& handle);
BSAPI_API int bs_treedb_rename_property(void*& handle, const char* oldName, const char* newName);
BSAPI_API int bs_treedb_get_all_property_names(void*& handle, std::list<std::string>& names);
// All properties at once; the map is replaced. Writing a map is all or nothing.
BSAPI_API int bs_treedb_get_all_properties(void*& handle,
                                           std::map<std::string, tarn::VariableData>& values);
BSAPI_API int bs_treedb_insert_properties(void*& handle,
                                          const std::map<std::string, tarn::VariableData>& values,
                                          bool replace);

BSAPI_API int bs_treedb_begin_transaction(void*& handle);
BSAPI_API int bs_treedb_commit_transaction(void*& handle);
BSAPI_API int bs_treedb_rollback_transaction(void*& handle);

// ----------------------------------------------------------------------------- table database
BSAPI_API int bs_tabledb_open(void*& handle, const char* dbName, const char* secondName,
                              const char* thirdName, unsigned int mode, unsigned int option,
                              const char* address, unsigned short port);
BSAPI_API int bs_tabledb_reopen(void*& handle, const char* dbName, const char* secondName,
                                const char* thirdName, unsigned int mode, unsigned int option);
BSAPI_API int bs_tabledb_qurey_handle(void*& handle, std::string& dbName, std::string& secondName,
                                      std::string& thirdName, unsigned int& mode,
                                      unsigned int& option, std::string& address,
                                      unsigned short& port);
BSAPI_API int bs_tabledb_get_all_dbnames(std::list<std::string>& names, const char* address,
                                         unsigned short port);

BSAPI_API int bs_tabledb_create_table(void*& handle, const char* table,
                                      const std::list<bs_tdfield*>& fields, unsigned int flags);
BSAPI_API int bs_tabledb_delete_table(void*& handle, const char* table, unsigned short flags);
BSAPI_API int bs_tabledb_get_all_tablenames(void*& handle, std::list<std::string>& names);
BSAPI_API int bs_tabledb_get_fields(void*& handle, const char* table,
                                    std::list<bs_tdfield*>& fields);
BSAPI_API void bs_free_fields(std::list<bs_tdfield*>& fields);

// Values in field order (fewer values leave the rest empty); `id` receives "_FIELD_AUTOID_". The
// creation time "_FIELD_CTIME_" is now, or `createTime` in the second form.
BSAPI_API int bs_tabledb_insert_record(void*& handle, const char* table,
                                       const std::list<tarn::VariableData>& values,
                                       unsigned long long& id);
BSAPI_API int bs_tabledb_insert_record(void*& handle, const char* table,
                                       const std::list<tarn::VariableData>& values,
                                       unsigned long long& id, long createTime);
inline int bs_tabledb_insert_record(void*& h, const char* t, const std::list<tarn::VariableData>& v,
                                    long long& id) {
    unsigned long long u = 0;
    int rc = bs_tabledb_insert_record(h, t, v, u);
    if (rc == BS_OK)
        id = static_cast<long long>(u);
    return rc;
}

// Selections: see kind and mode at the top; null `from`/`to` mean "none". A cursor is a handle of
// its own, walked with get_cursor/cursor_next and closed with bs_close_handle.
BSAPI_API int bs_tabledb_get_record(void*& handle, const char* table, unsigned int& count,
                                    void*& cursor);
BSAPI_API int bs_tabledb_get_record_by_field(void*& handle, const char* table, const char* field,
                                             const tarn::VariableData* from,
                                             const tarn::VariableData* to, unsigned char mode,
                                             unsigned char kind, unsigned int& count,
                                             void*& cursor);
BSAPI_API int bs_tabledb_get_cursor(void*& cursor, bs_record& record);  // BS_ERR_END past the end
BSAPI_API int bs_tabledb_cursor_next(void*& cursor);  // BS_ERR_END when no record follows

BSAPI_API int bs_tabledb_update_record_by_field(void*& handle, const char* table,
                                                const std::list<std::string>& fields,
                                                const std::list<tarn::VariableData>& values,
                                                const char* selectField,
                                                const tarn::VariableData* from,
                                                const tarn::VariableData* to, unsigned char mode,
                                                unsigned char kind, unsigned int& changed);
BSAPI_API int bs_tabledb_delete_record_by_field(void*& handle, const char* table, const char* field,
                                                const tarn::VariableData* from,
                                                const tarn::VariableData* to, unsigned char mode,
                                                unsigned char kind, unsigned int& deleted);
// By creation time; `to` null means none; `limit` > 0 deletes at most that many, oldest first.
BSAPI_API int bs_tabledb_delete_record_by_ctime(void*& handle, const char* table, long from,
                                                const long* to, unsigned int limit,
                                                unsigned char mode, unsigned int& deleted);
inline int bs_tabledb_get_record(void*& h, const char* t, int& count, void*& cursor) {
    unsigned int n = 0;
    int rc = bs_tabledb_get_record(h, t, n, cursor);
    if (rc == BS_OK)
        count = static_cast<int>(n);
    return rc;
}
inline int bs_tabledb_get_record_by_field(void*& h, const char* t, const char* f,
                                          const tarn::VariableData* from,
                                          const tarn::VariableData* to, unsigned char mode,
                                          unsigned char kind, int& count, void*& cursor) {
    unsigned int n = 0;
    int rc = bs_tabledb_get_record_by_field(h, t, f, from, to, mode, kind, n, cursor);
    if (rc == BS_OK)
        count = static_cast<int>(n);
    return rc;
}

// The last `count` records (newest first) of each named table; tables without records are absent.
BSAPI_API int bs_get_tables_last_rd(void*& handle, const std::list<std::string>& tables,
                                    unsigned int count,
                                    std::map<std::string, std::list<bs_record>>& records);

BSAPI_API int bs_tabledb_begin_transaction(void*& handle);
BSAPI_API int bs_tabledb_commit_transaction(void*& handle);
BSAPI_API int bs_tabledb_rollback_transaction(void*& handle);

// ----------------------------------------------------------------------------- message queues
// Messages leave in priority order (higher first), then in push order. A pop with a timeout
// (milliseconds; 0 does not wait) sleeps until a push from any process or the timeout, and
// answers BS_ERR_TIMEOUT when nothing came. `peek` leaves the message in the queue.
BSAPI_API int bs_mq_open(void*& handle, const char* queueName, const char* secondName,
                         unsigned int mode, unsigned int flags, const char* address,
                         unsigned short port);
BSAPI_API int bs_mq_reopen(void*& handle, const char* queueName, const char* secondName,
                           unsigned int mode, unsigned int flags);
BSAPI_API int bs_mq_push(void*& handle, const tarn::VariableData& message, const char* name,
                         unsigned long long& id, unsigned char priority);
BSAPI_API int bs_mq_push(void*& handle, const tarn::MemCache& message, unsigned int size,
                         const char* name, unsigned long long& id, unsigned char priority);
BSAPI_API int bs_mq_pop(void*& handle, tarn::VariableData& message, std::string& name, long& time,
                        unsigned long long& id, unsigned int timeoutMs, bool peek);
// Raw bytes: a string message gives its bytes, any other message its serial form.
BSAPI_API int bs_mq_pop(void*& handle, tarn::MemCache& message, unsigned int& size,
                        std::string& name, long& time, unsigned long long& id,
                        unsigned int timeoutMs, bool peek);
BSAPI_API int bs_mq_length(void*& handle, unsigned long long& length);
BSAPI_API int bs_mq_clear(void*& handle);
BSAPI_API int bs_mq_delete(void*& handle);  // the handle stays open; later calls answer 121
BSAPI_API int bs_mq_query_all_names(std::list<std::string>& names, const char* address,
                                    unsigned short port);

// ----------------------------------------------------------------------------- tools
// Copies an installation's data from engine `from` to engine `to` ("sqlite", "postgres"; each
// with its usual settings): every tree, table database and queue of every database server, with
// key paths, property types, record ids and creation times, and message ids, priorities, names
// and times. The source is only read. BS_ERR_EXISTS (nothing written) when the destination holds
// a tree, table database or queue of the same name on the same server already. `report` gets one
// line per object copied, or the names in the way.
BSAPI_API int bs_copy_all_data(const char* from, const char* to, std::string& report);

// ----------------------------------------------------------------------------- tests only
BSAPI_API void bs_debug_fail_next(const char* call, int code, int count);
