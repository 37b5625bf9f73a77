// corvane-net url, url-compare: the URL model's decoding, fields, encodings
// and comparisons.
#include "Command.h"
#include "vocal/BaseUrl.h"
#include "vocal/ImpBaseUrl.h"
#include "vocal/SipTelSubscriberUser.h"
#include "vocal/SipUrl.h"
#include "vocal/TelUrl.h"
#include "vocal/VException.h"

namespace corvane {
namespace {

using Vocal::TextBuffer;

Json text(const TextBuffer& in_text) { return Json(in_text.toString()); }

Json userJson(const Vocal::CountedPtr<Vocal::BaseUser>& in_user) {
    if (in_user.isNull()) return Json();
    Json user = Json::object();
    user.set("userType", in_user->getUserType());
    user.set("encode", text(in_user->encode()));
    if (const auto* pTel = dynamic_cast<const Vocal::SipTelSubscriberUser*>(in_user.get())) {
        user.set("global", pTel->isGlobal());
        user.set("number", text(pTel->getNumber()));
        user.set("isub", text(pTel->getIsub()));
        user.set("postd", text(pTel->getPostd()));
        user.set("phoneContext", text(pTel->getPhoneContext()));
        user.set("tsp", text(pTel->getTsp()));
        user.set("otherName", text(pTel->getOtherName()));
        user.set("otherValue", text(pTel->getOtherValue()));
        user.set("paramString", text(pTel->getParamString()));
        user.set("globalForm", text(pTel->getGlobalForm()));
        user.set("localForm", text(pTel->getLocalForm()));
    }
    return user;
}

Json exceptionJson(const VException& in_e) {
    Json e = Json::object();
    e.set("name", in_e.getName());
    e.set("message", in_e.getDescription());
    e.set("file", in_e.getFileName());
    e.set("code", in_e.getError());
    return e;
}

Json urlJson(const std::string& in_input, const Vocal::BaseUrl& in_url) {
    Json item = Json::object();
    item.set("input", in_input);
    item.set("type", Vocal::getUrlTypeName(in_url.getType()));
    item.set("encode", text(in_url.encode()));
    item.set("encodeAddress", text(in_url.encodeAddress()));
    item.set("userValue", text(in_url.getUserValue()));
    item.set("looseRouting", in_url.isLooseRouting());
    if (const auto* pSip = dynamic_cast<const Vocal::SipUrl*>(&in_url)) {
        item.set("scheme", text(pSip->getScheme()));
        item.set("passwd", text(pSip->getPasswd()));
        item.set("host", text(pSip->getHost()));
        item.set("port", text(pSip->getPort()));
        item.set("transport", text(pSip->getTransportParam()));
        item.set("ttl", text(pSip->getTtlParam()));
        item.set("maddr", text(pSip->getMaddrParam()));
        item.set("userParam", text(pSip->getUserParam()));
        item.set("method", text(pSip->getMethodParam()));
        item.set("otherName", text(pSip->getOtherName()));
        item.set("otherValue", text(pSip->getOtherValue()));
        item.set("headers", text(pSip->getHeaders()));
        item.set("ipv6Host", pSip->isIpv6Host());
        item.set("user", userJson(pSip->getUser()));
    } else if (const auto* pTel = dynamic_cast<const Vocal::TelUrl*>(&in_url)) {
        item.set("scheme", text(pTel->getScheme()));
        item.set("user", userJson(pTel->getUser()));
    } else if (const auto* pImp = dynamic_cast<const Vocal::ImpBaseUrl*>(&in_url)) {
        item.set("scheme", text(pImp->getScheme()));
        item.set("user", text(pImp->getUserValue()));
        item.set("host", text(pImp->getHost()));
    }
    return item;
}

int runUrl(const std::vector<std::string>& in_args, CommandContext& io_ctx) {
    const std::vector<std::string> items = expandItems(in_args);
    if (items.empty()) throw UsageError("url needs at least one URL");
    int status = 0;
    for (const std::string& input : items) {
        try {
            io_ctx.emit(urlJson(input, *Vocal::BaseUrl::decode(TextBuffer(input))));
        } catch (const VException& e) {
            Json item = Json::object();
            item.set("input", input);
            item.set("exception", exceptionJson(e));
            io_ctx.emit(item);
            status = 1;
        }
    }
    return status;
}

int runUrlCompare(const std::vector<std::string>& in_args, CommandContext& io_ctx) {
    const std::vector<std::string> items = expandItems(in_args);
    if (items.empty() || items.size() % 2 != 0) throw UsageError("url-compare needs URLs in pairs: A B");
    int status = 0;
    for (size_t i = 0; i < items.size(); i += 2) {
        Json item = Json::object();
        item.set("a", items[i]);
        item.set("b", items[i + 1]);
        const char* side = "a";
        try {
            const Vocal::CountedPtr<Vocal::BaseUrl> a = Vocal::BaseUrl::decode(TextBuffer(items[i]));
            side = "b";
            const Vocal::CountedPtr<Vocal::BaseUrl> b = Vocal::BaseUrl::decode(TextBuffer(items[i + 1]));
            item.set("equal", a->areEqual(b));
            item.set("aLessThanB", a->isLessThan(b));
            item.set("bLessThanA", b->isLessThan(a));
        } catch (const VException& e) {
            item.set("failed", side);
            item.set("exception", exceptionJson(e));
            status = 1;
        }
        io_ctx.emit(item);
    }
    return status;
}

const CommandRegistrar s_url({"url", 10, "url URL...",
                              "Decodes each URL with Vocal::BaseUrl::decode and shows its type, encodings,\n"
                              "user value, loose-routing flag and the fields of its class (SIP: scheme,\n"
                              "passwd, host, port, transport, ttl, maddr, userParam, method, otherName,\n"
                              "otherValue, headers, ipv6Host, user; TEL: scheme, user; IM/PRES: scheme,\n"
                              "user, host). A URL that fails shows its exception: name, message, file,\n"
                              "code. \"-\" reads one URL a line from standard input.",
                              runUrl});

const CommandRegistrar s_urlCompare({"url-compare", 11, "url-compare A B [A B]...",
                                     "Decodes each pair of URLs and compares them: equal (areEqual),\n"
                                     "aLessThanB and bLessThanA (isLessThan both ways). A URL that fails\n"
                                     "shows which one (failed: a or b) and its exception. \"-\" reads\n"
                                     "URLs from standard input, one a line, taken in pairs.",
                                     runUrlCompare});

}  // namespace
}  // namespace corvane
