// CQvVar: helpers that work directly on a raw library handle: typed tree-key property readers and
// writers, tree-key navigation and bulk operations, and the opening of message queues.
#pragma once

#include <list>
#include <map>
#include <string>

#include "bsapi/bsapi.h"
#include "common/Export.h"

// Every function takes the library handle by reference (all ones when not open) and returns the
// library's code (0 success) unless said otherwise.
//
// Rules of the key helpers:
// - Dotted paths ("a.b.c", used by ReopenNewKey, AppendSubKey and the data-id helpers) name sub
//   keys below the main key; they are turned into the library's backslash paths ("a\b\c").
//   Empty parts are refused with the library's invalid-name code (189).
// - ReopenNewKey opens the path; when the library reports a missing key (28) it inserts every
//   missing part from the top, accepting parts that exist (insert mode 2), and opens again.
// - GetParentEntityName cuts at the last backslash, the separator of the library's key paths:
//   "a\b\c" -> "a\b"; a name without one gives "".
// - SelectKeyPropertys and GetKeyMap read every property of the current key (the map is
//   replaced); GetKeyMap gives the text forms (CDbVar::VariableDataToString, precision 3).
// - WriteKeyMap writes a whole property map in one library call, replacing existing values.
// - DeleteRealKey deletes the current key with its subtree (the handle then stands on the
//   parent); DeleteKeyList deletes each named sub key of the current key, treating a missing one
//   (176 or 28) as done, and returns the first other failure after trying them all.
// - MQ_PushOneMsg and MQ_PopOneMsg work on a handle of their own, opened for the call and closed
//   after it: the push creates a missing queue (OpenMQ mode 3), uses no message name and
//   priority 0; the pop opens an existing queue (mode 1), waits at most `timeoutMs` and takes
//   the message out of the queue (no peek).
class WS_API CQvVar {
public:
    CQvVar() {}
    ~CQvVar() {}

    // ---- tree-key properties
    static int WriteKeyProperty(void*& h, const std::string& name, const tarn::VariableData& value);
    static int WriteKeyString(const std::string& name, const std::string& value, void*& h);
    static int WriteKeyInt(const std::string& name, int value, void*& h);
    static int WriteKeyfloat(const std::string& name, float value, void*& h);
    static int WriteKeyInt64(const std::string& name, long long value, void*& h);
    // The default when the property cannot be read.
    static std::string GetKeyString(const std::string& name, const std::string& def, void*& h);
    static int GetKeyInt(const std::string& name, int def, void*& h);
    // Writes each entry in key order with WriteKeyString; the first failure stops and is returned.
    static int MapStringWrite(const std::map<std::string, std::string>& values, void*& h);

    // ---- names
    static std::string GetParentDataId(const std::string& id);        // "a.b.c" -> "a.b"
    static std::string GetParentEntityName(const std::string& name);  // "a\b\c" -> "a\b"
    static std::string DottedToKeyPath(const std::string& dotted);    // "a.b" -> "a\b"

    // ---- tree-key navigation and bulk operations
    static int ReopenSubKey(void*& h, const std::string& subKeyPath, unsigned int flags);
    static int ReopenNewKey(void*& h, const std::string& dottedPath, unsigned int flags);
    static int ReopenNewKey(void*& h, const std::string& parentDotted, const std::string& name,
                            unsigned int flags);
    // Inserts `name` below the current key (an existing one is accepted) and moves onto it.
    static int AppendSubKey(void*& h, const std::string& name, unsigned int flags);
    static int SelectSubKeys(void*& h, std::list<std::string>& names);
    static int SelectKeyPropertys(void*& h, std::map<std::string, tarn::VariableData>& props);
    static int GetKeyMap(void*& h, std::map<std::string, std::string>& values);
    static int WriteKeyMap(void*& h, const std::map<std::string, tarn::VariableData>& props);
    static int DeleteAllProperty(void*& h);
    static int DeleteRealKey(void*& h);
    static int DeleteKeyList(void*& h, const std::list<std::string>& names);

    // ---- message queues
    // Mode 2 creates a missing queue; modes 1 and 3 open an existing one, and mode 3 creates the
    // queue when the library answers 121. An open handle is probed first and, for mode 2, closed
    // before the queue is created.
    static int OpenMQ(const std::string& address, const std::string& queueName,
                      const std::string& secondName, void*& h, int mode, unsigned int flags,
                      int port);
    static int PushMQMessage(void*& h, const tarn::VariableData& msg, const std::string& name,
                             unsigned long long& id, unsigned char priority);
    static int PopMQMessage(void*& h, tarn::VariableData& msg, std::string& name, long& time,
                            unsigned long long& id, unsigned int timeoutMs, bool peek);
    static int PopMQMessage(void*& h, tarn::MemCache& msg, unsigned int& size, std::string& name,
                            long& time, unsigned long long& id, unsigned int timeoutMs, bool peek);
    static int DeleteMQ(void*& h);
    static int ClearMQ(void*& h);
    static int MQ_PushOneMsg(const std::string& address, const std::string& queueName,
                             const tarn::VariableData& msg, int port);
    static int MQ_PopOneMsg(const std::string& address, const std::string& queueName,
                            tarn::VariableData& msg, unsigned int timeoutMs, int port);
};
