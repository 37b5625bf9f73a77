// corvane-net uri and canonicalize: the Uri value and its canonicalisation.
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "net/Net.h"
#include "net/Uri.h"

namespace corvane {
namespace {

Json describe(const std::string& in_input, bool in_ok, const Tarvik::Uri& in_uri) {
    std::string text;
    in_uri.convertTo(text);
    Json item = Json::object();
    item["input"] = in_input;
    item["ok"] = in_ok;
    item["scheme"] = in_uri.getScheme();
    item["user"] = in_uri.getUser();
    item["host"] = in_uri.getHost();
    item["port"] = in_uri.getPort();
    item["text"] = text;
    return item;
}

int runUri(bool in_reuse, const std::vector<std::string>& in_args, CommandContext& io_ctx) {
    const std::vector<std::string> texts = expandItems(in_args);
    if (texts.empty()) throw UsageError("uri needs at least one TEXT");
    int status = 0;
    Tarvik::Uri shared;
    for (const std::string& text : texts) {
        Tarvik::Uri fresh;
        Tarvik::Uri& uri = in_reuse ? shared : fresh;
        const bool ok = uri.initFrom(text.c_str());
        io_ctx.emit(describe(text, ok, uri));
        if (!ok) status = 1;
    }
    return status;
}

// The canonicalize command's options.
struct CanonicalizeOptions {
    long timeoutMs = 2000;            // --timeout MS
    bool direct = false;              // --direct: no resolver, no time-out
    std::vector<std::string> uris;    // the URIs, "-" for standard input
};

int runCanonicalize(const CanonicalizeOptions& in_options, CommandContext& io_ctx) {
    const long ms = in_options.timeoutMs;
    ACE_Time_Value timeout(ms / 1000, (ms % 1000) * 1000);
    const bool direct = in_options.direct;
    const std::vector<std::string> uris = expandItems(in_options.uris);
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
        item["input"] = input;
        item["ok"] = ok;
        item["output"] = output;
        io_ctx.emit(item);
        if (!ok) status = 1;
    }
    if (!direct) Tarvik::Net::forcedCloseLibrary();
    return status;
}

CommandRun declareUri(CLI::App& io_app) {
    struct Options {
        bool reuse = false;              // --reuse
        std::vector<std::string> texts;  // the texts, "-" for standard input
    };
    auto options = std::make_shared<Options>();
    io_app.add_flag("--reuse", options->reuse, "fill one Uri with every item in turn, never cleared in between");
    io_app.add_option("TEXT", options->texts, "the texts; - reads them from standard input")->required();
    return [options](CommandContext& io_ctx) { return runUri(options->reuse, options->texts, io_ctx); };
}

CommandRun declareCanonicalize(CLI::App& io_app) {
    auto options = std::make_shared<CanonicalizeOptions>();
    addNumberOption(io_app, "--timeout", options->timeoutMs,
                    "resolve through the library's resolver with this time-out\n(default 2000)")
        ->type_name("MS")
        ->check(notNegative("takes a number >= 0 (use --direct for no time-out)"));
    io_app.add_flag("--direct", options->direct, "resolve directly, without the resolver and without a time-out");
    io_app.add_option("URI", options->uris, "the URIs; - reads them from standard input")->required();
    return [options](CommandContext& io_ctx) { return runCanonicalize(*options, io_ctx); };
}

const CommandRegistrar s_uri({"uri", 20, "the Uri value that Uri::initFrom makes of each text",
                              "Fills a Uri from each TEXT (\"-\" reads standard input) with Uri::initFrom and shows\n"
                              "what it holds. Each item gets a fresh Uri; with --reuse one Uri is filled by every\n"
                              "item in turn, never cleared in between.",
                              declareUri});
const CommandRegistrar s_canonicalize(
    {"canonicalize", 21, "canonicalise URIs (canonicalizeURI)",
     "Canonicalises each URI with canonicalizeURI: the host becomes the dotted address it\n"
     "resolves to and a sip URI without a port gets 5060.",
     declareCanonicalize});

}  // namespace
}  // namespace corvane
