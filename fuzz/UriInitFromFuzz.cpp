// The Uri value: initFrom of any text, then its text form, in a fresh Uri and in a reused one;
// a Uri filled from a SIP URL prints a text that starts with "sip:".
#include <cstdint>
#include <string>

#include "fuzz/FuzzLogging.h"
#include "net/Uri.h"
#include "platform/Assertion.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool s_quiet = logEverythingToNowhere();
    Tarvik::Assertion::setHandler([](const Tarvik::AssertionReport&) {});
    const std::string text(reinterpret_cast<const char*>(data), size);  // initFrom stops at the first NUL
    static Tarvik::Uri s_reused;  // filled by every input in turn, as a caller reusing one would
    Tarvik::Uri fresh;
    std::string printed;
    if (fresh.initFrom(text.c_str())) {
        fresh.convertTo(printed);
        if (printed.compare(0, 4, "sip:") != 0) __builtin_trap();
    }
    s_reused.initFrom(text.c_str());
    s_reused.convertTo(printed);
    return s_quiet ? 0 : 1;
}
