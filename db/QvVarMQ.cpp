// CQvVar: opening message queues on a raw handle (with the create-on-missing mode 3), and the
// queue forwards.
#include <cstdio>

#include "common/DebugLog.h"
#include "db/QvVar.h"

using _qvcomm::CDebugLog;
using tarn::VariableData;

namespace {

// These two texts are kept in GBK, unlike the library's other texts: "测试handle失败" and
// "创建MQ之前先将已打开MQ的handle关闭!".
const char kProbeFailedGbk[] = "\xb2\xe2\xca\xd4handle\xca\xa7\xb0\xdc";
const char kCloseBeforeCreateGbk[] =
    "\xb4\xb4\xbd\xa8MQ\xd6\xae\xc7\xb0\xcf\xc8\xbd\xab\xd2\xd1\xb4\xf2\xbf\xaaMQ\xb5\xc4handle"
    "\xb9\xd8\xb1\xd5!";

bool IsOpen(void* h) {
    return h != BS_INVALID_HANDLE;
}

void CloseMarked(void*& h) {
    if (IsOpen(h))
        bs_close_handle(h);
    h = BS_INVALID_HANDLE;
}

int Open(void*& h, const std::string& queue, const std::string& second, unsigned int mode,
         unsigned int flags, const std::string& address, int port) {
    int rc = bs_mq_open(h, queue.c_str(), second.c_str(), mode, flags, address.c_str(),
                        static_cast<unsigned short>(port));
    CDebugLog::WriteTimeFmtLog("handle.log", 10, "open bs_mq_open %s handle ", queue.c_str());
    return rc;
}

}  // namespace

int CQvVar::OpenMQ(const std::string& address, const std::string& queueName,
                   const std::string& secondName, void*& h, int mode, unsigned int flags,
                   int port) {
    if (queueName.empty())
        return 1;
    if (IsOpen(h) && bs_handle_keep_live(h) != 0) {
        CloseMarked(h);
        CDebugLog::WriteTimeLog("handle.log", 0, kProbeFailedGbk);
    }
    if (IsOpen(h)) {
        int rc = 0;
        if (mode != 2) {
            rc = bs_mq_reopen(h, queueName.c_str(), secondName.c_str(), BS_MQ_OPEN_EXISTING, flags);
        } else {
            std::printf("%s", kCloseBeforeCreateGbk);
            CloseMarked(h);
            rc = Open(h, queueName, secondName, BS_MQ_OPEN_CREATE, flags, address, port);
        }
        if (!(rc == BS_ERR_NO_QUEUE && mode == 3))
            return rc;
        CDebugLog::WriteTimeFmtLog("handle.log", 10, "new mq handle ,mq name is %s",
                                   queueName.c_str());
        CloseMarked(h);
        return bs_mq_open(h, queueName.c_str(), secondName.c_str(), BS_MQ_OPEN_CREATE, flags,
                          address.c_str(), static_cast<unsigned short>(port));
    }
    CDebugLog::WriteTimeFmtLog("handle.log", 10, "new mq handle ,mq name is %s", queueName.c_str());
    unsigned int openMode = mode == 2 ? BS_MQ_OPEN_CREATE : BS_MQ_OPEN_EXISTING;
    int rc = Open(h, queueName, secondName, openMode, flags, address, port);
    if (rc == BS_ERR_NO_QUEUE && mode == 3) {
        rc = Open(h, queueName, secondName, BS_MQ_OPEN_CREATE, flags, address, port);
    }
    return rc;
}

int CQvVar::PushMQMessage(void*& h, const VariableData& msg, const std::string& name,
                          unsigned long long& id, unsigned char priority) {
    return bs_mq_push(h, msg, name.c_str(), id, priority);
}

int CQvVar::PopMQMessage(void*& h, VariableData& msg, std::string& name, long& time,
                         unsigned long long& id, unsigned int timeoutMs, bool peek) {
    return bs_mq_pop(h, msg, name, time, id, timeoutMs, peek);
}

int CQvVar::PopMQMessage(void*& h, tarn::MemCache& msg, unsigned int& size, std::string& name,
                         long& time, unsigned long long& id, unsigned int timeoutMs, bool peek) {
    return bs_mq_pop(h, msg, size, name, time, id, timeoutMs, peek);
}

int CQvVar::DeleteMQ(void*& h) {
    return bs_mq_delete(h);
}

int CQvVar::ClearMQ(void*& h) {
    return bs_mq_clear(h);
}

int CQvVar::MQ_PushOneMsg(const std::string& address, const std::string& queueName,
                          const VariableData& msg, int port) {
    void* h = BS_INVALID_HANDLE;
    int rc = OpenMQ(address, queueName, "", h, 3, 0, port);
    if (rc == 0) {
        unsigned long long id = 0;
        rc = PushMQMessage(h, msg, "", id, 0);
    }
    CloseMarked(h);
    return rc;
}

int CQvVar::MQ_PopOneMsg(const std::string& address, const std::string& queueName,
                         VariableData& msg, unsigned int timeoutMs, int port) {
    void* h = BS_INVALID_HANDLE;
    int rc = OpenMQ(address, queueName, "", h, 1, 0, port);
    if (rc == 0) {
        std::string name;
        long time = 0;
        unsigned long long id = 0;
        rc = PopMQMessage(h, msg, name, time, id, timeoutMs, false);
    }
    CloseMarked(h);
    return rc;
}
