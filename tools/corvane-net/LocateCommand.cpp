// corvane-net locate: the SIP servers to try for each URI (RFC 3263), in
// order, with the DNS steps taken.
#include <chrono>
#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Command.h"
#include "net/SipServerLocator.h"

namespace corvane {
namespace {

using Tarvik::Net::SipServerLocator;

Json orNull(long in_value) { return in_value < 0 ? Json() : Json(in_value); }

Json describe(const std::string& in_uri, const SipServerLocator::Result& in_result, double in_elapsedMs) {
    Json item = Json::object();
    item["uri"] = in_uri;
    item["ok"] = !in_result.targets.empty();
    Json targets = Json::array();
    for (const SipServerLocator::Target& target : in_result.targets) {
        Json entry = Json::object();
        entry["transport"] = SipServerLocator::getTransportName(target.transport);
        entry["host"] = target.host;
        entry["address"] = target.address;
        entry["port"] = target.port;
        entry["priority"] = orNull(target.priority);
        entry["weight"] = orNull(target.weight);
        entry["ttl"] = target.ttl;
        entry["via"] = SipServerLocator::getViaName(target.via);
        targets.push_back(entry);
    }
    item["targets"] = targets;
    Json steps = Json::array();
    for (const SipServerLocator::Step& step : in_result.steps) {
        Json entry = Json::object();
        entry["name"] = step.name;
        entry["type"] = SipServerLocator::getRecordTypeName(step.type);
        entry["outcome"] = SipServerLocator::getOutcomeName(step.outcome);
        entry["records"] = step.records;
        entry["ttl"] = orNull(step.ttl);
        entry["cache"] = SipServerLocator::getCacheUseName(step.cache);
        steps.push_back(entry);
    }
    item["steps"] = steps;
    item["elapsedMs"] = std::round(in_elapsedMs * 1000) / 1000;  // microseconds
    if (in_result.targets.empty()) item["error"] = in_result.error;
    return item;
}

Json statistics(const SipServerLocator::Statistics& in_stats) {
    Json out = Json::object();
    out["queriesNAPTR"] = in_stats.queriesNaptr;
    out["queriesSRV"] = in_stats.queriesSrv;
    out["queriesA"] = in_stats.queriesA;
    out["queriesAAAA"] = in_stats.queriesAaaa;
    out["answers"] = in_stats.answers;
    out["timeouts"] = in_stats.timeouts;
    out["errors"] = in_stats.errors;
    out["requestTimeouts"] = in_stats.requestTimeouts;
    out["cacheHits"] = in_stats.cacheHits;
    out["cacheMisses"] = in_stats.cacheMisses;
    out["cacheNegativeHits"] = in_stats.cacheNegativeHits;
    out["evictions"] = in_stats.cacheEvictions;
    out["targetsMarkedFailed"] = in_stats.targetsMarkedFailed;
    out["reloads"] = in_stats.reloads;
    return out;
}

// The locate command's options.
struct LocateOptions {
    long timeoutMs = 2000;                                         // --timeout MS; negative: none
    SipServerLocator::Family family = SipServerLocator::FAMILY_IPV4_FIRST;  // --family
    long seed = 0;                                                 // --seed N
    bool seeded = false;                                           // --seed was given
    std::vector<std::string> uris;                                 // the URIs, "-" for standard input
};

int runLocate(const LocateOptions& in_options, CommandContext& io_ctx) {
    const std::vector<std::string> uris = expandItems(in_options.uris);
    if (uris.empty()) throw UsageError("locate needs at least one URI");
    const long timeoutMs = in_options.timeoutMs;
    const ACE_Time_Value timeout =
        timeoutMs < 0 ? ACE_Time_Value::max_time : ACE_Time_Value(timeoutMs / 1000, (timeoutMs % 1000) * 1000);

    SipServerLocator locator;
    if (in_options.seeded) locator.setRandomSeed(static_cast<uint64_t>(in_options.seed));
    if (!locator.start()) {
        *io_ctx.err << "corvane-net locate: the server locator could not start (see its messages above)\n";
        return 1;
    }
    int status = 0;
    for (const std::string& uri : uris) {
        const auto start = std::chrono::steady_clock::now();
        SipServerLocator::Result result;
        const bool bOk = locator.locate(uri, result, timeout, in_options.family);
        const double elapsedMs =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        io_ctx.emit(describe(uri, result, elapsedMs));
        if (!bOk) status = 1;
    }
    locator.stop();
    io_ctx.locatorStats = statistics(locator.getStatistics());
    return status;
}

CommandRun declareLocate(CLI::App& io_app) {
    auto options = std::make_shared<LocateOptions>();
    addNumberOption(io_app, "--timeout", options->timeoutMs, "time-out of each URI (default 2000; negative: none)")
        ->type_name("MS");
    const std::map<std::string, SipServerLocator::Family> families = {
        {"ipv4", SipServerLocator::FAMILY_IPV4},
        {"ipv6", SipServerLocator::FAMILY_IPV6},
        {"ipv4-first", SipServerLocator::FAMILY_IPV4_FIRST},
        {"ipv6-first", SipServerLocator::FAMILY_IPV6_FIRST}};
    io_app.add_option("--family", options->family, "addresses: ipv4, ipv6, ipv4-first (default) or ipv6-first")
        ->type_name("F")
        ->transform(CLI::CheckedTransformer(families).description(""));
    addNumberOption(io_app, "--seed", options->seed, "fixes the RFC 2782 weighted order of SRV records")
        ->type_name("N")
        ->each([options](const std::string&) { options->seeded = true; });
    io_app.add_option("URI", options->uris, "the SIP or SIPS URIs; - reads them from standard input")->required();
    return [options](CommandContext& io_ctx) { return runLocate(*options, io_ctx); };
}

const CommandRegistrar s_registrar(
    {"locate", 35, "the SIP servers to try for a URI (RFC 3263)",
     "Finds the servers to try for each SIP or SIPS URI (\"-\" reads URIs from standard input),\n"
     "in order, as RFC 3263 says: NAPTR, SRV, AAAA and A records through the server locator\n"
     "(Tarvik::Net::SipServerLocator), with the DNS steps taken and their cache outcome.",
     declareLocate});

}  // namespace
}  // namespace corvane
