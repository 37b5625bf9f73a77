// The SIP server locator:
// - SipLocate/warm: a synchronous locate of a NAPTR+SRV+A name whose records
//   are all cached (goal: at most 1 us);
// - SipRecordCache/hot/N: look-ups of 100 names in a cache of N entries, and
//   SipRecordCache/spread/N: of names spread over all N entries (goal: N =
//   100,000 within 1.5 times N = 100); SipRecordCache/bytes reports the heap
//   bytes per entry at 100,000 entries;
// - SipLocate/cold and SipLocate/c-ares: locates with nothing cached, 16 in
//   flight, against a local dnsmasq, next to a bare c-ares event loop that
//   makes the same queries (NAPTR, then SRV on its replacement; the address
//   rides in the SRV answer's additional section) with 16 in flight (goal:
//   at least 0.8 of it).
#include <malloc.h>
#include <poll.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <ares.h>
#include <benchmark/benchmark.h>

#include "AresLoop.h"

#include "net/SipRecordCache.h"
#include "net/SipServerLocator.h"
#include "platform/GlobalConfig.h"
#include "support/AresChannel.h"
#include "support/Dnsmasq.h"

namespace {

using Locator = Tarvik::Net::SipServerLocator;
constexpr int kInFlight = 16;
const char* const kUri = "sip:bench.test";

// One dnsmasq for the run: a NAPTR to an SRV set to a host.
const std::string& serverAddress() {
    static std::unique_ptr<corvane_test::Dnsmasq> s_pServer = [] {
        auto pServer = std::make_unique<corvane_test::Dnsmasq>("127.53.201.1");
        pServer->localTtl(3600)
            .option("--naptr-record=bench.test,10,10,S,SIP+D2U,,_sip._udp.bench.test")
            .option("--srv-host=_sip._udp.bench.test,h.bench.test,5060,10,10")
            .option("--host-record=h.bench.test,10.201.0.1,3600");
        std::string error;
        if (!pServer->start(&error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            std::exit(1);
        }
        return pServer;
    }();
    return s_pServer->address();
}

// A started locator asking the benchmark's dnsmasq.
std::unique_ptr<Locator> startLocator() {
    std::string error;
    Tarvik::GlobalConfig::getInstance().setValue("corvane.net.HostNameServer.DNSServerIPAddrList", serverAddress(),
                                                 error);
    auto pLocator = std::make_unique<Locator>();
    if (!pLocator->start()) return nullptr;
    return pLocator;
}

void BM_SipLocateWarm(benchmark::State& state) {
    std::unique_ptr<Locator> pLocator = startLocator();
    Locator::Request request;
    std::string error;
    Locator::requestFromUri(kUri, request, error);
    request.family = Locator::FAMILY_IPV4;
    Locator::Result result;
    if (!pLocator || !pLocator->locate(request, result, ACE_Time_Value(5))) {
        state.SkipWithError("the first locate failed");
        return;
    }
    for (auto _ : state) {
        pLocator->locate(request, result, ACE_Time_Value(5));
        benchmark::DoNotOptimize(result);
    }
    if (result.targets.size() != 1 || result.steps.size() != 3 || result.steps[2].cache != Locator::CACHE_HIT) {
        state.SkipWithError("not answered from the cache");
    }
}
BENCHMARK(BM_SipLocateWarm)->Name("SipLocate/warm");

std::string cacheName(size_t in_index) { return "h" + std::to_string(in_index) + ".bench.example.test"; }

Tarvik::Net::SipDns::RecordSetPtr addressSet(size_t in_index) {
    auto pSet = std::make_shared<Tarvik::Net::SipDns::RecordSet>();
    pSet->kind = Tarvik::Net::SipDns::RecordSet::RECORDS;
    pSet->ttl = 3600;
    pSet->addresses.push_back("10." + std::to_string(in_index >> 16 & 255) + "." +
                              std::to_string(in_index >> 8 & 255) + "." + std::to_string(in_index & 255));
    return pSet;
}

void fill(Tarvik::Net::SipRecordCache& io_cache, size_t in_entries) {
    for (size_t i = 0; i < in_entries; ++i) io_cache.store(cacheName(i), 1, addressSet(i), 0);
}

// Hot: the same 100 names whatever the size; spread: names over the whole cache.
void BM_SipRecordCacheLookup(benchmark::State& state, bool in_bSpread) {
    const size_t entries = static_cast<size_t>(state.range(0));
    Tarvik::Net::SipRecordCache cache(entries);
    fill(cache, entries);
    std::vector<std::string> names;
    const size_t count = in_bSpread ? 4096 : 100;
    for (size_t i = 0; i < count; ++i) names.push_back(cacheName(in_bSpread ? (i * 7919) % entries : i % entries));
    size_t i = 0;
    size_t hits = 0;
    for (auto _ : state) {
        Tarvik::Net::SipDns::RecordSetPtr pSet;
        uint32_t left = 0;
        hits += cache.lookup(names[i], 1, 1, pSet, left) == Tarvik::Net::SipRecordCache::HIT;
        if (++i == names.size()) i = 0;
    }
    if (hits != static_cast<size_t>(state.iterations())) state.SkipWithError("a look-up missed");
}
BENCHMARK_CAPTURE(BM_SipRecordCacheLookup, hot, false)->Name("SipRecordCache/hot")->Arg(100)->Arg(100000);
BENCHMARK_CAPTURE(BM_SipRecordCacheLookup, spread, true)->Name("SipRecordCache/spread")->Arg(100)->Arg(100000);

void BM_SipRecordCacheBytes(benchmark::State& state) {
    const size_t entries = 100000;
    for (auto _ : state) {
        const size_t before = mallinfo2().uordblks;
        {
            Tarvik::Net::SipRecordCache cache(entries);
            fill(cache, entries);
            state.counters["bytesPerEntry"] = static_cast<double>(mallinfo2().uordblks - before) / entries;
        }
    }
}
BENCHMARK(BM_SipRecordCacheBytes)->Name("SipRecordCache/bytes")->Iterations(1)->Unit(benchmark::kMillisecond);

// Locates in flight, told on the DNS task's thread.
struct Window {
    std::mutex mutex;
    std::condition_variable changed;
    int inFlight = 0;  // locates not told yet
    long failed = 0;   // told without a target
};

class WindowCallback : public Locator::Callback {
public:
    explicit WindowCallback(Window& io_window) : m_window(io_window) {}
    void onLocated(const Locator::Result& in_result) override {
        {
            std::lock_guard<std::mutex> guard(m_window.mutex);
            --m_window.inFlight;
            if (in_result.targets.empty()) ++m_window.failed;
        }
        m_window.changed.notify_one();
    }

private:
    Window& m_window;  // outlives the benchmark's callbacks
};

void BM_SipLocateCold(benchmark::State& state) {
    std::unique_ptr<Locator> pLocator = startLocator();
    if (!pLocator) {
        state.SkipWithError("the locator did not start");
        return;
    }
    pLocator->setCacheBound(0);  // nothing kept: every locate asks
    Locator::Request request;
    std::string error;
    Locator::requestFromUri(kUri, request, error);
    request.family = Locator::FAMILY_IPV4;
    Window window;
    for (auto _ : state) {
        {
            std::unique_lock<std::mutex> lock(window.mutex);
            window.changed.wait(lock, [&] { return window.inFlight < kInFlight; });
            ++window.inFlight;
        }
        pLocator->locate(request, new WindowCallback(window), ACE_Time_Value(5));
    }
    {
        std::unique_lock<std::mutex> lock(window.mutex);
        window.changed.wait(lock, [&] { return window.inFlight == 0; });
    }
    state.SetItemsProcessed(state.iterations());
    const Locator::Statistics stats = pLocator->getStatistics();
    state.counters["queriesPerLocate"] =
        static_cast<double>(stats.queriesNaptr + stats.queriesSrv + stats.queriesA + stats.queriesAaaa) /
        static_cast<double>(state.iterations());
    if (window.failed > 0) state.SkipWithError("some locates failed");
}
BENCHMARK(BM_SipLocateCold)->Name("SipLocate/cold")->UseRealTime();

// The bare loop: each chain asks NAPTR, then SRV on the replacement.
struct BareChains {
    ares_channel channel;
    long completed = 0;   // chains ended
    long failed = 0;      // chains without an SRV answer
    int inFlight = 0;     // chains under way
    bool bRefill = true;  // each ended chain starts the next

    static void onSrv(void* in_pArg, int in_iStatus, int, unsigned char* in_pAnswer, int in_iLength) {
        BareChains* pChains = static_cast<BareChains*>(in_pArg);
        ares_srv_reply* pSrv = nullptr;
        const bool bOk = in_iStatus == ARES_SUCCESS && ares_parse_srv_reply(in_pAnswer, in_iLength, &pSrv) == ARES_SUCCESS;
        if (pSrv) ares_free_data(pSrv);
        pChains->end(bOk);
    }
    static void onNaptr(void* in_pArg, int in_iStatus, int, unsigned char* in_pAnswer, int in_iLength) {
        BareChains* pChains = static_cast<BareChains*>(in_pArg);
        ares_naptr_reply* pNaptr = nullptr;
        if (in_iStatus != ARES_SUCCESS || ares_parse_naptr_reply(in_pAnswer, in_iLength, &pNaptr) != ARES_SUCCESS) {
            pChains->end(false);
            return;
        }
        const std::string replacement = reinterpret_cast<const char*>(pNaptr->replacement) + std::string(".");
        ares_free_data(pNaptr);
        ares_search(pChains->channel, replacement.c_str(), 1, 33, &BareChains::onSrv, pChains);
    }
    void end(bool in_bOk) {
        --inFlight;
        ++completed;
        if (!in_bOk) ++failed;
        if (bRefill) start();
    }
    void start() {
        ++inFlight;
        ares_search(channel, "bench.test.", 1, 35, &BareChains::onNaptr, this);
    }
};

using corvane_bench::processOnce;

void BM_SipLocateCAres(benchmark::State& state) {
    corvane_test::AresChannel channel(serverAddress(), 1000, 3);
    BareChains chains{channel.get()};
    for (int i = 0; i < kInFlight; ++i) chains.start();
    for (auto _ : state) {
        const long before = chains.completed;
        while (chains.completed == before) processOnce(chains.channel);
    }
    const long completed = chains.completed;
    chains.bRefill = false;
    for (int i = 0; i < 1000 && chains.inFlight > 0; ++i) processOnce(chains.channel);
    state.SetItemsProcessed(completed);
    if (chains.failed > 0) state.SkipWithError("some chains failed");
}
BENCHMARK(BM_SipLocateCAres)->Name("SipLocate/c-ares")->UseRealTime();

}  // namespace
