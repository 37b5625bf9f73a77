// The URL model: BaseUrl::decode of any bytes leaves them as they were; a copy of what it returns
// equals it, is neither less nor more and prints the same texts. Nothing may crash, leak or hang.
#include <cstdint>
#include <string>

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
        if (text.view() != input || !url->areEqual(copy) || url->isLessThan(copy) || copy->isLessThan(url)) {
            __builtin_trap();
        }
        if (copy->toString() != url->encode().str() || copy->encodeAddress() != url->encodeAddress() ||
            copy->getUserValue() != url->getUserValue() || copy->isLooseRouting() != url->isLooseRouting()) {
            __builtin_trap();
        }
        if (!url->getUser().isNull() && !url->getUser()->areEqual(copy->getUser())) __builtin_trap();
        (void)url->isLessThan(Vocal::BaseUrl::decode(url->encode()));  // the printed text may be rejected
    } catch (const VException& e) {
        (void)e.getName();
    }
    return s_logging ? 0 : 1;
}
