// Fuzz target for the Uri value: initFrom of any text, then its text form;
// a fresh Uri and a reused one must never crash, leak or hang, and a Uri
// filled from a SIP URL must print a text that starts with "sip:".
#include <cstdint>
#include <cstdlib>
#include <string>

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include "net/Uri.h"
#include "platform/Assertion.h"
#include "platform/Logger.h"

namespace {

void quietEverything() {
    Tarvik::initializeLogging();
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    root.setLogLevel(log4cplus::TRACE_LOG_LEVEL);  // every message is built from the input
    Tarvik::Assertion::setHandler([](const Tarvik::AssertionReport&) {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool s_quiet = (quietEverything(), true);
    (void)s_quiet;
    const std::string text(reinterpret_cast<const char*>(data), size);  // stops at the first NUL
    static Tarvik::Uri s_reused;  // filled by every input in turn, as a caller reusing one would
    Tarvik::Uri fresh;
    std::string printed;
    if (fresh.initFrom(text.c_str())) {
        fresh.convertTo(printed);
        if (printed.compare(0, 4, "sip:") != 0) std::abort();
    }
    s_reused.initFrom(text.c_str());
    s_reused.convertTo(printed);
    return 0;
}
