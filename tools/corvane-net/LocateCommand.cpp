// corvane-net locate: the SIP servers to try for each URI (RFC 3263), in
// order, with the DNS steps taken.
#include <chrono>
#include <string>
#include <vector>

#include "Command.h"
#include "net/SipServerLocator.h"

namespace corvane {
namespace {

using Tarvik::Net::SipServerLocator;

Json orNull(int in_iValue) { return in_iValue < 0 ? Json() : Json(in_iValue); }

Json describe(const std::string& in_uri, const SipServerLocator::Result& in_result, double in_elapsedMs) {
    Json item = Json::object();
    item.set("uri", in_uri);
    item.set("ok", !in_result.targets.empty());
    Json targets = Json::array();
    for (const SipServerLocator::Target& target : in_result.targets) {
        Json entry = Json::object();
        entry.set("transport", SipServerLocator::getTransportName(target.transport));
        entry.set("host", target.host);
        entry.set("address", target.address);
        entry.set("port", target.port);
        entry.set("priority", orNull(target.priority));
        entry.set("weight", orNull(target.weight));
        entry.set("ttl", target.ttl);
        entry.set("via", SipServerLocator::getViaName(target.via));
        targets.push(entry);
    }
    item.set("targets", targets);
    Json steps = Json::array();
    for (const SipServerLocator::Step& step : in_result.steps) {
        Json entry = Json::object();
        entry.set("name", step.name);
        entry.set("type", SipServerLocator::getRecordTypeName(step.type));
        entry.set("outcome", SipServerLocator::getOutcomeName(step.outcome));
        entry.set("records", step.records);
        entry.set("ttl", step.ttl < 0 ? Json() : Json(step.ttl));
        entry.set("cache", SipServerLocator::getCacheUseName(step.cache));
        steps.push(entry);
    }
    item.set("steps", steps);
    item.set("elapsedMs", in_elapsedMs);
    if (in_result.targets.empty()) item.set("error", in_result.error);
    return item;
}

Json statistics(const SipServerLocator::Statistics& in_stats) {
    Json out = Json::object();
    out.set("queriesNAPTR", in_stats.queriesNaptr);
    out.set("queriesSRV", in_stats.queriesSrv);
    out.set("queriesA", in_stats.queriesA);
    out.set("queriesAAAA", in_stats.queriesAaaa);
    out.set("answers", in_stats.answers);
    out.set("timeouts", in_stats.timeouts);
    out.set("errors", in_stats.errors);
    out.set("requestTimeouts", in_stats.requestTimeouts);
    out.set("cacheHits", in_stats.cacheHits);
    out.set("cacheMisses", in_stats.cacheMisses);
    out.set("cacheNegativeHits", in_stats.cacheNegativeHits);
    out.set("evictions", in_stats.cacheEvictions);
    out.set("targetsMarkedFailed", in_stats.targetsMarkedFailed);
    out.set("reloads", in_stats.reloads);
    return out;
}

int runLocate(const std::vector<std::string>& in_args, CommandContext& io_ctx) {
    long timeoutMs = 2000;
    SipServerLocator::Family family = SipServerLocator::FAMILY_IPV4_FIRST;
    bool bSeeded = false;
    long seed = 0;
    std::vector<std::string> uris;
    for (size_t i = 0; i < in_args.size(); ++i) {
        const std::string& arg = in_args[i];
        if (arg == "--timeout" || arg == "--family" || arg == "--seed") {
            if (i + 1 >= in_args.size()) throw UsageError(arg + " needs a value");
            const std::string& value = in_args[++i];
            if (arg == "--timeout") {
                timeoutMs = parseNumberOption(arg, value);
            } else if (arg == "--seed") {
                seed = parseNumberOption(arg, value);
                bSeeded = true;
            } else if (value == "ipv4") {
                family = SipServerLocator::FAMILY_IPV4;
            } else if (value == "ipv6") {
                family = SipServerLocator::FAMILY_IPV6;
            } else if (value == "ipv4-first") {
                family = SipServerLocator::FAMILY_IPV4_FIRST;
            } else if (value == "ipv6-first") {
                family = SipServerLocator::FAMILY_IPV6_FIRST;
            } else {
                throw UsageError("--family takes ipv4, ipv6, ipv4-first or ipv6-first, not \"" + value + "\"");
            }
        } else if (arg.size() > 1 && arg[0] == '-') {
            throw UsageError("unknown option " + arg);
        } else {
            uris.push_back(arg);
        }
    }
    uris = expandItems(uris);
    if (uris.empty()) throw UsageError("locate needs at least one URI");
    const ACE_Time_Value timeout =
        timeoutMs < 0 ? ACE_Time_Value::max_time : ACE_Time_Value(timeoutMs / 1000, (timeoutMs % 1000) * 1000);

    SipServerLocator locator;
    if (bSeeded) locator.setRandomSeed(static_cast<uint64_t>(seed));
    if (!locator.start()) {
        *io_ctx.err << "corvane-net locate: the server locator could not start (see its messages above)\n";
        return 1;
    }
    int status = 0;
    for (const std::string& uri : uris) {
        const auto start = std::chrono::steady_clock::now();
        SipServerLocator::Result result;
        const bool bOk = locator.locate(uri, result, timeout, family);
        const double elapsedMs =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        io_ctx.emit(describe(uri, result, elapsedMs));
        if (!bOk) status = 1;
    }
    locator.stop();
    io_ctx.locatorStats = statistics(locator.getStatistics());
    return status;
}

const CommandRegistrar s_registrar(
    {"locate", 35, "locate [--timeout MS] [--family ipv4|ipv6|ipv4-first|ipv6-first] [--seed N] URI...",
     "Finds the servers to try for each SIP or SIPS URI (\"-\" reads URIs from standard input),\n"
     "in order, as RFC 3263 says: NAPTR, SRV, AAAA and A records through the server locator\n"
     "(Tarvik::Net::SipServerLocator), with the DNS steps taken and their cache outcome.\n"
     "  --timeout MS   time-out of each URI (default 2000; negative: none)\n"
     "  --family F     addresses: ipv4, ipv6, ipv4-first (default) or ipv6-first\n"
     "  --seed N       fixes the RFC 2782 weighted order of SRV records",
     runLocate});

}  // namespace
}  // namespace corvane
