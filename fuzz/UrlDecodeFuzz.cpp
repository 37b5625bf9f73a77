// Fuzz target for the URL model: BaseUrl::decode of any bytes, then every
// operation on what it returns. A copy must equal its original and must not be
// less than it; everything else must merely not crash, leak or hang.
#include <cstdint>
#include <cstdlib>
#include <string>

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include "platform/Logger.h"
#include "vocal/BaseUrl.h"
#include "vocal/VException.h"

namespace {

// Every priority is enabled so that each log line is formatted with the input,
// and written nowhere.
void logEverythingToNowhere() {
    Tarvik::initializeLogging();
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    root.setLogLevel(log4cplus::TRACE_LOG_LEVEL);
}

void exercise(const Vocal::CountedPtr<Vocal::BaseUrl>& in_url) {
    const Vocal::TextBuffer encoded = in_url->encode();
    (void)in_url->encodeAddress();
    (void)in_url->getUserValue();
    (void)in_url->toString();
    (void)in_url->isLooseRouting();
    const Vocal::CountedPtr<Vocal::BaseUser> user = in_url->getUser();
    if (!user.isNull()) {
        const Vocal::CountedPtr<Vocal::BaseUser> userCopy = user->duplicate();
        if (!user->areEqual(userCopy) || user->isLessThan(userCopy)) std::abort();
    }
    const Vocal::CountedPtr<Vocal::BaseUrl> copy = in_url->duplicate();
    if (!in_url->areEqual(copy) || in_url->isLessThan(copy) || copy->isLessThan(in_url)) std::abort();
    if (copy->encode() != encoded) std::abort();

    // Whatever encode() writes is decoded again; it may be rejected.
    try {
        const Vocal::CountedPtr<Vocal::BaseUrl> again = Vocal::BaseUrl::decode(encoded);
        (void)in_url->areEqual(again);
        (void)in_url->isLessThan(again);
        (void)again->isLessThan(in_url);
    } catch (const VException&) {
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool s_logging = (logEverythingToNowhere(), true);
    (void)s_logging;
    const Vocal::TextBuffer text(reinterpret_cast<const char*>(data), static_cast<int>(size));
    try {
        const Vocal::CountedPtr<Vocal::BaseUrl> url = Vocal::BaseUrl::decode(text);
        if (url.isNull()) std::abort();
        exercise(url);
        // decode leaves its input as it was.
        if (text.view() != std::string_view(reinterpret_cast<const char*>(data), size)) std::abort();
    } catch (const VException& e) {
        (void)e.getName();
    }
    return 0;
}
