// The message-queue calls: argument checks, handle look-up, then the engine's queue session.
#include <cstring>

#include "bsapi/Registry.h"

using namespace bsapi;

namespace {

#define BS_QUEUE(h)                                                    \
    int found_ = BS_OK;                                                \
    std::shared_ptr<CApiHandle> obj = FindHandle(h, HK_QUEUE, found_); \
    if (!obj)                                                          \
        return found_;                                                 \
    CQueueSession& queue = *obj->m_pQueue;

int CheckMode(unsigned int mode) {
    return mode == BS_MQ_OPEN_EXISTING || mode == BS_MQ_OPEN_CREATE ? BS_OK : BS_ERR_BAD_ARG;
}

int CheckMessageName(const char* name) {
    return name != nullptr && std::strlen(name) > kMaxKeyName ? BS_ERR_BAD_NAME : BS_OK;
}

}  // namespace

int bs_mq_open(void*& handle, const char* queueName, const char* secondName, unsigned int mode,
               unsigned int flags, const char* address, unsigned short port) {
    BS_CALL_BEGIN("bs_mq_open")
    if (IsOpenValue(handle))
        return BS_ERR_OTHER_NAMES;
    std::string name;
    int rc = CheckName(queueName, name);
    if (rc == BS_OK)
        rc = CheckMode(mode);
    if (rc != BS_OK)
        return rc;
    CEngine* engine = ChosenEngine(rc);
    if (engine == nullptr)
        return rc;
    auto obj = std::make_shared<CApiHandle>(HK_QUEUE);
    obj->m_pQueue = engine->NewQueue();
    obj->m_server = MakeServer(address, port);
    rc = obj->m_pQueue->Open(obj->m_server, name, mode == BS_MQ_OPEN_CREATE);
    if (rc != BS_OK)
        return rc;
    obj->m_strName1 = name;
    obj->m_strName2 = secondName ? secondName : "";
    obj->m_nFlags = flags;
    RegisterHandle(std::move(obj), handle);
    return BS_OK;
    BS_CALL_END
}

int bs_mq_reopen(void*& handle, const char* queueName, const char* secondName, unsigned int mode,
                 unsigned int flags) {
    BS_CALL_BEGIN("bs_mq_reopen")
    BS_QUEUE(handle)
    std::string name;
    int rc = CheckName(queueName, name);
    if (rc == BS_OK)
        rc = CheckMode(mode);
    if (rc == BS_OK)
        rc = queue.Open(obj->m_server, name, mode == BS_MQ_OPEN_CREATE);
    if (rc != BS_OK)
        return rc;
    obj->m_strName1 = name;
    obj->m_strName2 = secondName ? secondName : "";
    obj->m_nFlags = flags;
    return BS_OK;
    BS_CALL_END
}

int bs_mq_push(void*& handle, const tarn::VariableData& message, const char* name,
               unsigned long long& id, unsigned char priority) {
    BS_CALL_BEGIN("bs_mq_push")
    BS_QUEUE(handle)
    int rc = CheckMessageName(name);
    if (rc != BS_OK)
        return rc;
    return queue.Push(message, name ? name : "", priority, id);
    BS_CALL_END
}

int bs_mq_push(void*& handle, const tarn::MemCache& message, unsigned int size, const char* name,
               unsigned long long& id, unsigned char priority) {
    BS_CALL_BEGIN("bs_mq_push_raw")
    BS_QUEUE(handle)
    if (size > message.GetSize())
        return BS_ERR_BAD_ARG;
    int rc = CheckMessageName(name);
    if (rc != BS_OK)
        return rc;
    return queue.Push(tarn::VariableData(message.GetBuffer(), size), name ? name : "", priority,
                      id);
    BS_CALL_END
}

int bs_mq_pop(void*& handle, tarn::VariableData& message, std::string& name, long& time,
              unsigned long long& id, unsigned int timeoutMs, bool peek) {
    BS_CALL_BEGIN("bs_mq_pop")
    BS_QUEUE(handle)
    CMessage m;
    int rc = queue.Pop(m, timeoutMs, peek);
    if (rc != BS_OK)
        return rc;
    message = std::move(m.m_varValue);
    name.swap(m.m_strName);
    time = m.m_lTime;
    id = m.m_ullId;
    return BS_OK;
    BS_CALL_END
}

int bs_mq_pop(void*& handle, tarn::MemCache& message, unsigned int& size, std::string& name,
              long& time, unsigned long long& id, unsigned int timeoutMs, bool peek) {
    BS_CALL_BEGIN("bs_mq_pop_raw")
    BS_QUEUE(handle)
    CMessage m;
    int rc = queue.Pop(m, timeoutMs, peek);
    if (rc != BS_OK)
        return rc;
    bool ok;
    if (m.m_varValue.GetType() == tarn::VariableData::VT_STRING) {
        const std::string& s = m.m_varValue.GetText();
        ok = message.Assign(s.data(), s.size());
    } else {
        int n = m.m_varValue.Size();
        ok = message.Resize(static_cast<size_t>(n)) &&
             m.m_varValue.SerialData(message.GetBuffer(), n);
    }
    // The message has left the queue; an allocation failure here cannot put it back.
    if (!ok)
        return BS_ERR_NO_MEMORY;
    size = static_cast<unsigned int>(message.GetSize());
    name.swap(m.m_strName);
    time = m.m_lTime;
    id = m.m_ullId;
    return BS_OK;
    BS_CALL_END
}

int bs_mq_length(void*& handle, unsigned long long& length) {
    BS_CALL_BEGIN("bs_mq_length")
    BS_QUEUE(handle)
    return queue.Length(length);
    BS_CALL_END
}

int bs_mq_clear(void*& handle) {
    BS_CALL_BEGIN("bs_mq_clear")
    BS_QUEUE(handle)
    return queue.Clear();
    BS_CALL_END
}

int bs_mq_delete(void*& handle) {
    BS_CALL_BEGIN("bs_mq_delete")
    BS_QUEUE(handle)
    return queue.Delete();
    BS_CALL_END
}

int bs_mq_query_all_names(std::list<std::string>& names, const char* address, unsigned short port) {
    BS_CALL_BEGIN("bs_mq_query_all_names")
    int rc = BS_OK;
    CEngine* engine = ChosenEngine(rc);
    if (engine == nullptr)
        return rc;
    return engine->QueueNames(MakeServer(address, port), names);
    BS_CALL_END
}
