// Uri::initFrom of any text into a fresh and a reused Uri, then their text; a filled Uri prints "sip:...".
#include <cstdint>
#include <string>

#include "fuzz/FuzzLogging.h"
#include "net/Uri.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool s_quiet = logEverythingToNowhere();
    static Tarvik::Uri s_reused;  // filled by every input in turn, as a caller reusing one would
    const std::string text(reinterpret_cast<const char*>(data), size);  // initFrom stops at the first NUL
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
