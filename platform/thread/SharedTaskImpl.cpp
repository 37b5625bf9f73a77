#include "platform/SharedTaskImpl.h"

namespace Tarvik {

SharedTaskImpl::SharedTaskImpl(bool in_bStopOnLastUser) : m_bStopOnLastUser(in_bStopOnLastUser) {}

bool SharedTaskImpl::start() {
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_iUsers > 0) {
        ++m_iUsers;
        return true;
    }
    if (!sharedStart()) return false;
    m_iUsers = 1;
    return true;
}

bool SharedTaskImpl::stop() {
    std::lock_guard<std::mutex> guard(m_mutex);
    if (m_iUsers > 0) --m_iUsers;
    if (m_bStopOnLastUser && m_iUsers > 0) return true;
    m_iUsers = 0;
    return sharedStop();
}

bool SharedTaskImpl::kill() {
    std::lock_guard<std::mutex> guard(m_mutex);
    m_iUsers = 0;
    return sharedKill();
}

bool SharedTaskImpl::waitUntilDone() {
    {
        std::lock_guard<std::mutex> guard(m_mutex);
        if (m_iUsers > 0) return false;
    }
    return sharedWaitUntilDone();
}

int SharedTaskImpl::getUserCount() const {
    std::lock_guard<std::mutex> guard(m_mutex);
    return m_iUsers;
}

}  // namespace Tarvik
