#include "vocal/BaseUrl.h"

#include "TextScan.h"
#include "vocal/ImpBaseUrl.h"
#include "vocal/SipUrl.h"
#include "vocal/TelUrl.h"
#include "vocal/UnknownUrl.h"
#include "vocal/cpLog.h"

namespace Vocal {

const char* getUrlTypeName(UrlType in_type) {
    switch (in_type) {
        case SIP_URL: return "SIP_URL";
        case TEL_URL: return "TEL_URL";
        case IM_URL: return "IM_URL";
        case PRES_URL: return "PRES_URL";
        case UNKNOWN_URL: return "UNKNOWN_URL";
    }
    return "";
}

bool BaseUrl::areEqual(CountedPtr<BaseUrl> in_other) const {
    return !in_other.isNull() && areEqual(in_other.get());
}

std::string BaseUrl::toString() const { return encode().toString(); }

CountedPtr<BaseUrl> BaseUrl::decode(const TextBuffer& in_text) {
    const std::string_view text = in_text.view();
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0) {
        CPLOG(LOG_DEBUG, "parse failed: could not find ':' separating URL type from body");
        CPLOG(LOG_DEBUG, "bad data in BaseUrl::decode: <%s>", in_text.c_str());
        return CountedPtr<BaseUrl>(new UnknownUrl(in_text));
    }
    // The scheme must match in length too: "sips" is not "sip".
    const std::string_view scheme = text.substr(0, colon);
    if (scan::equalNoCase(scheme, "sip")) return CountedPtr<BaseUrl>(new SipUrl(in_text));
    if (scan::equalNoCase(scheme, "tel")) return CountedPtr<BaseUrl>(new TelUrl(in_text));
    if (scan::equalNoCase(scheme, "im")) return CountedPtr<BaseUrl>(new ImUrl(in_text));
    if (scan::equalNoCase(scheme, "pres")) return CountedPtr<BaseUrl>(new PresUrl(in_text));
    // The text names SIP and TEL only, although IM and presence are accepted too.
    CPLOG(LOG_DEBUG, "parse failed: scheme not SIP or TEL: %s", in_text.c_str());
    return CountedPtr<BaseUrl>(new UnknownUrl(in_text));
}

}  // namespace Vocal
