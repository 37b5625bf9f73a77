// corvane-net uri and canonicalize: the Uri value and its canonicalisation.
#include "Command.h"
#include "net/Net.h"
#include "net/Uri.h"

namespace corvane {
namespace {

Json describe(const std::string& in_input, bool in_ok, const Tarvik::Uri& in_uri) {
    std::string text;
    in_uri.convertTo(text);
    Json item = Json::object();
    item.set("input", in_input);
    item.set("ok", in_ok);
    item.set("scheme", in_uri.getScheme());
    item.set("user", in_uri.getUser());
    item.set("host", in_uri.getHost());
    item.set("port", in_uri.getPort());
    item.set("text", text);
    return item;
}

int runUri(const std::vector<std::string>& in_args, CommandContext& io_ctx) {
    bool reuse = false;
    std::vector<std::string> texts;
    for (const std::string& arg : in_args) {
        if (arg == "--reuse") {
            reuse = true;
        } else if (arg.size() > 1 && arg[0] == '-' && arg.find(':') == std::string::npos) {
            throw UsageError("unknown option " + arg);
        } else {
            texts.push_back(arg);
        }
    }
    texts = expandItems(texts);
    if (texts.empty()) throw UsageError("uri needs at least one TEXT");
    int status = 0;
    Tarvik::Uri shared;
    for (const std::string& text : texts) {
        Tarvik::Uri fresh;
        Tarvik::Uri& uri = reuse ? shared : fresh;
        const bool ok = uri.initFrom(text.c_str());
        io_ctx.emit(describe(text, ok, uri));
        if (!ok) status = 1;
    }
    return status;
}

int runCanonicalize(const std::vector<std::string>& in_args, CommandContext& io_ctx) {
    ACE_Time_Value timeout(2);
    bool direct = false;
    std::vector<std::string> uris;
    for (size_t i = 0; i < in_args.size(); ++i) {
        const std::string& arg = in_args[i];
        if (arg == "--timeout") {
            if (i + 1 >= in_args.size()) throw UsageError("--timeout needs a number of milliseconds");
            const long ms = parseNumberOption(arg, in_args[++i]);
            if (ms < 0) throw UsageError("--timeout takes a number >= 0 (use --direct for no time-out)");
            timeout = ACE_Time_Value(ms / 1000, (ms % 1000) * 1000);
        } else if (arg == "--direct") {
            direct = true;
        } else if (arg.size() > 1 && arg[0] == '-' && arg.find(':') == std::string::npos) {
            throw UsageError("unknown option " + arg);
        } else {
            uris.push_back(arg);
        }
    }
    uris = expandItems(uris);
    if (uris.empty()) throw UsageError("canonicalize needs at least one URI");
    if (direct) timeout = ACE_Time_Value::max_time;
    if (!direct && !Tarvik::Net::initializeLibrary()) {
        *io_ctx.err << "corvane-net canonicalize: the library could not be initialized (see its messages above)\n";
        Tarvik::Net::forcedCloseLibrary();
        return 1;
    }
    int status = 0;
    for (const std::string& input : uris) {
        std::string output;
        const bool ok = Tarvik::canonicalizeURI(input, output, timeout);
        Json item = Json::object();
        item.set("input", input);
        item.set("ok", ok);
        item.set("output", output);
        io_ctx.emit(item);
        if (!ok) status = 1;
    }
    if (!direct) Tarvik::Net::forcedCloseLibrary();
    return status;
}

const CommandRegistrar s_uri({"uri", 20, "uri [--reuse] TEXT...",
                              "Fills a Uri from each TEXT (\"-\" reads standard input) with Uri::initFrom and shows\n"
                              "what it holds. Each item gets a fresh Uri; with --reuse one Uri is filled by every\n"
                              "item in turn, never cleared in between.",
                              runUri});
const CommandRegistrar s_canonicalize(
    {"canonicalize", 21, "canonicalize [--timeout MS | --direct] URI...",
     "Canonicalises each URI with canonicalizeURI: the host becomes the dotted address it\n"
     "resolves to and a sip URI without a port gets 5060.\n"
     "  --timeout MS   resolve through the library's resolver with this time-out (default 2000)\n"
     "  --direct       resolve directly, without the resolver and without a time-out",
     runCanonicalize});

}  // namespace
}  // namespace corvane
