// The URL model: BaseUrl::decode of any bytes, then every operation on what it
// returns. A copy equals its original and is not less than it; decode leaves
// its input as it was; everything else must merely not crash, leak or hang.
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/FuzzLogging.h"
#include "vocal/BaseUrl.h"
#include "vocal/VException.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool s_logging = logEverythingToNowhere();
    (void)s_logging;
    const Vocal::TextBuffer text(reinterpret_cast<const char*>(data), static_cast<int>(size));
    try {
        const Vocal::CountedPtr<Vocal::BaseUrl> url = Vocal::BaseUrl::decode(text);
        if (url.isNull() || text.view() != std::string_view(reinterpret_cast<const char*>(data), size)) std::abort();
        const Vocal::TextBuffer encoded = url->encode();
        (void)url->encodeAddress();
        (void)url->getUserValue();
        (void)url->isLooseRouting();
        const Vocal::CountedPtr<Vocal::BaseUser> user = url->getUser();
        if (!user.isNull() && (!user->areEqual(user->duplicate()) || user->isLessThan(user->duplicate()))) std::abort();
        const Vocal::CountedPtr<Vocal::BaseUrl> copy = url->duplicate();
        if (!url->areEqual(copy) || url->isLessThan(copy) || copy->isLessThan(url)) std::abort();
        if (copy->encode() != encoded || copy->toString() != encoded.str()) std::abort();
        const Vocal::CountedPtr<Vocal::BaseUrl> again = Vocal::BaseUrl::decode(encoded);  // may be rejected
        (void)url->areEqual(again);
        (void)(url->isLessThan(again) || again->isLessThan(url));
    } catch (const VException& e) {
        (void)e.getName();
    }
    return 0;
}
