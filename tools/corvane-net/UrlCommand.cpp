// corvane-net url, url-compare: the URL model's decoding, fields, encodings
// and comparisons.
#include <memory>
#include <string>
#include <vector>

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
    user["userType"] = in_user->getUserType();
    user["encode"] = text(in_user->encode());
    if (const auto* pTel = dynamic_cast<const Vocal::SipTelSubscriberUser*>(in_user.get())) {
        user["global"] = pTel->isGlobal();
        user["number"] = text(pTel->getNumber());
        user["isub"] = text(pTel->getIsub());
        user["postd"] = text(pTel->getPostd());
        user["phoneContext"] = text(pTel->getPhoneContext());
        user["tsp"] = text(pTel->getTsp());
        user["otherName"] = text(pTel->getOtherName());
        user["otherValue"] = text(pTel->getOtherValue());
        user["paramString"] = text(pTel->getParamString());
        user["globalForm"] = text(pTel->getGlobalForm());
        user["localForm"] = text(pTel->getLocalForm());
    }
    return user;
}

Json exceptionJson(const VException& in_e) {
    Json e = Json::object();
    e["name"] = in_e.getName();
    e["message"] = in_e.getDescription();
    e["file"] = in_e.getFileName();
    e["code"] = in_e.getError();
    return e;
}

Json urlJson(const std::string& in_input, const Vocal::BaseUrl& in_url) {
    Json item = Json::object();
    item["input"] = in_input;
    item["type"] = Vocal::getUrlTypeName(in_url.getType());
    item["encode"] = text(in_url.encode());
    item["encodeAddress"] = text(in_url.encodeAddress());
    item["userValue"] = text(in_url.getUserValue());
    item["looseRouting"] = in_url.isLooseRouting();
    if (const auto* pSip = dynamic_cast<const Vocal::SipUrl*>(&in_url)) {
        item["scheme"] = text(pSip->getScheme());
        item["passwd"] = text(pSip->getPasswd());
        item["host"] = text(pSip->getHost());
        item["port"] = text(pSip->getPort());
        item["transport"] = text(pSip->getTransportParam());
        item["ttl"] = text(pSip->getTtlParam());
        item["maddr"] = text(pSip->getMaddrParam());
        item["userParam"] = text(pSip->getUserParam());
        item["method"] = text(pSip->getMethodParam());
        item["otherName"] = text(pSip->getOtherName());
        item["otherValue"] = text(pSip->getOtherValue());
        item["headers"] = text(pSip->getHeaders());
        item["ipv6Host"] = pSip->isIpv6Host();
        item["user"] = userJson(pSip->getUser());
    } else if (const auto* pTel = dynamic_cast<const Vocal::TelUrl*>(&in_url)) {
        item["scheme"] = text(pTel->getScheme());
        item["user"] = userJson(pTel->getUser());
    } else if (const auto* pImp = dynamic_cast<const Vocal::ImpBaseUrl*>(&in_url)) {
        item["scheme"] = text(pImp->getScheme());
        item["user"] = text(pImp->getUserValue());
        item["host"] = text(pImp->getHost());
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
            item["input"] = input;
            item["exception"] = exceptionJson(e);
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
        item["a"] = items[i];
        item["b"] = items[i + 1];
        const char* side = "a";
        try {
            const Vocal::CountedPtr<Vocal::BaseUrl> a = Vocal::BaseUrl::decode(TextBuffer(items[i]));
            side = "b";
            const Vocal::CountedPtr<Vocal::BaseUrl> b = Vocal::BaseUrl::decode(TextBuffer(items[i + 1]));
            item["equal"] = a->areEqual(b);
            item["aLessThanB"] = a->isLessThan(b);
            item["bLessThanA"] = b->isLessThan(a);
        } catch (const VException& e) {
            item["failed"] = side;
            item["exception"] = exceptionJson(e);
            status = 1;
        }
        io_ctx.emit(item);
    }
    return status;
}

CommandRun declareUrl(CLI::App& io_app) {
    auto urls = std::make_shared<std::vector<std::string>>();
    io_app.add_option("URL", *urls, "the URLs to decode; - reads them from standard input")->required();
    return [urls](CommandContext& io_ctx) { return runUrl(*urls, io_ctx); };
}

CommandRun declareUrlCompare(CLI::App& io_app) {
    auto urls = std::make_shared<std::vector<std::string>>();
    io_app.add_option("URL", *urls, "the URLs to compare, in pairs A B; - reads them from standard input")->required();
    return [urls](CommandContext& io_ctx) { return runUrlCompare(*urls, io_ctx); };
}

const CommandRegistrar s_url({"url", 10, "decode SIP, TEL, IM, presence and other URLs",
                              "Decodes each URL with Vocal::BaseUrl::decode and shows its type, encodings,\n"
                              "user value, loose-routing flag and the fields of its class (SIP: scheme,\n"
                              "passwd, host, port, transport, ttl, maddr, userParam, method, otherName,\n"
                              "otherValue, headers, ipv6Host, user; TEL: scheme, user; IM/PRES: scheme,\n"
                              "user, host). A URL that fails shows its exception: name, message, file,\n"
                              "code. \"-\" reads one URL a line from standard input.",
                              declareUrl});

const CommandRegistrar s_urlCompare({"url-compare", 11, "decode URLs in pairs A B and compare them",
                                     "Decodes each pair of URLs and compares them: equal (areEqual),\n"
                                     "aLessThanB and bLessThanA (isLessThan both ways). A URL that fails\n"
                                     "shows which one (failed: a or b) and its exception. \"-\" reads\n"
                                     "URLs from standard input, one a line, taken in pairs.",
                                     declareUrlCompare});

}  // namespace
}  // namespace corvane
