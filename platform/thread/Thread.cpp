#include "platform/Thread.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <system_error>

namespace Tarvik {

namespace {

std::mutex& hookMutex() {
    static std::mutex* s_pMutex = new std::mutex;  // lives for the process: threads may start during exit
    return *s_pMutex;
}
// The installed fault predicate; null when none. Under hookMutex().
std::shared_ptr<std::function<bool()>>& hook() {
    static auto* s_pHook = new std::shared_ptr<std::function<bool()>>;
    return *s_pHook;
}

}  // namespace

bool startThread(std::thread& out_thread, std::function<void()> in_body, std::string& out_strError) {
    std::shared_ptr<std::function<bool()>> pRefuse;
    {
        std::lock_guard<std::mutex> guard(hookMutex());
        pRefuse = hook();
    }
    if (pRefuse && (*pRefuse)()) {
        out_strError = std::strerror(EAGAIN);
        return false;
    }
    try {
        out_thread = std::thread(std::move(in_body));
    } catch (const std::system_error& e) {
        out_strError = e.what();
        return false;
    } catch (const std::exception& e) {  // std::bad_alloc for the thread's state
        out_strError = e.what();
        return false;
    }
    return true;
}

void setThreadCreationFaultForTest(std::function<bool()> in_refuse) {
    std::shared_ptr<std::function<bool()>> pNew;
    if (in_refuse) pNew = std::make_shared<std::function<bool()>>(std::move(in_refuse));
    std::lock_guard<std::mutex> guard(hookMutex());
    hook().swap(pNew);
}

}  // namespace Tarvik
