// BaseUrl::decode of any bytes keeps them; a copy of its URL equals it, is not less nor more, prints the same.
#include <cstdint>
#include <string_view>

#include "fuzz/FuzzLogging.h"
#include "vocal/BaseUrl.h"
#include "vocal/VException.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool s_logging = logEverythingToNowhere();
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const Vocal::TextBuffer text(input);
    try {
        const Vocal::CountedPtr<Vocal::BaseUrl> url = Vocal::BaseUrl::decode(text);
        const Vocal::CountedPtr<Vocal::BaseUrl> copy = url->duplicate();
        if (text.view() != input || !url->areEqual(copy) || url->isLessThan(copy) || copy->isLessThan(url) ||
            copy->toString() != url->encode().str() || copy->encodeAddress() != url->encodeAddress() ||
            copy->getUserValue() != url->getUserValue() || copy->isLooseRouting() != url->isLooseRouting()) {
            __builtin_trap();
        }
        (void)url->isLessThan(Vocal::BaseUrl::decode(url->encode()));  // the printed text may be rejected
    } catch (const VException&) {  // a text the URL's class rejects
    }
    return s_logging ? 0 : 1;
}
