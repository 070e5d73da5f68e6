// CQvHandleLoc: the message-queue operations on the held queue handle.
#include "db/QvHandle.h"
#include "db/QvVar.h"

int CQvHandleLoc::MQdb_PushMessage(const tarn::VariableData& msg, std::string name,
                                   unsigned long long& id, unsigned char priority) {
    if (m_pHandle == nullptr)
        return 1;
    return CQvVar::PushMQMessage(Lib(), msg, name, id, priority);
}

int CQvHandleLoc::MQdb_PopMessage(tarn::VariableData& msg, std::string& name, long& time,
                                  unsigned long long& id, unsigned int timeoutMs, bool peek) {
    if (m_pHandle == nullptr)
        return 1;
    return CQvVar::PopMQMessage(Lib(), msg, name, time, id, timeoutMs, peek);
}

int CQvHandleLoc::MQdb_PopMessage(tarn::MemCache& msg, unsigned int& size, std::string& name,
                                  long& time, unsigned long long& id, unsigned int timeoutMs,
                                  bool peek) {
    if (m_pHandle == nullptr)
        return 1;
    return CQvVar::PopMQMessage(Lib(), msg, size, name, time, id, timeoutMs, peek);
}

int CQvHandleLoc::MQdb_GetLength(unsigned long long& length) {
    if (m_pHandle == nullptr)
        return 1;
    return bs_mq_length(Lib(), length);
}

int CQvHandleLoc::MQdb_ClearMQ() {
    if (m_pHandle == nullptr)
        return 1;
    return CQvVar::ClearMQ(Lib());
}

int CQvHandleLoc::MQdb_DeleteMQ() {
    if (m_pHandle == nullptr)
        return 1;
    return CQvVar::DeleteMQ(Lib());
}

int CQvHandleLoc::MQdb_GetAllMQNames(std::list<std::string>& names, std::string address, int port) {
    return bs_mq_query_all_names(names, address.c_str(), static_cast<unsigned short>(port));
}
