#include "platform/Assertion.h"

#include <mutex>

namespace Tarvik {

namespace {
std::mutex& handlerMutex() {
    static std::mutex* s_pMutex = new std::mutex;
    return *s_pMutex;
}
Assertion::Handler& handler() {
    static Assertion::Handler* s_pHandler = new Assertion::Handler;
    return *s_pHandler;
}
}  // namespace

void Assertion::report(const Logger& in_logger, const char* in_szText, const char* in_szFile,
                       int in_iLine) {
    Handler current;
    {
        std::lock_guard<std::mutex> guard(handlerMutex());
        current = handler();
    }
    if (current) {
        current(AssertionReport{in_szText, in_logger.getName(), in_szFile, in_iLine});
        return;
    }
    if (in_logger.isEnabledFor(ERROR_LOG_LEVEL)) {
        in_logger.forcedLog(ERROR_LOG_LEVEL, std::string("ASSERTION FAILED: ") + in_szText, in_szFile,
                            in_iLine);
    }
}

Assertion::Handler Assertion::setHandler(Handler in_handler) {
    std::lock_guard<std::mutex> guard(handlerMutex());
    Handler previous = std::move(handler());
    handler() = std::move(in_handler);
    return previous;
}

}  // namespace Tarvik
