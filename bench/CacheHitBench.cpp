// A cache hit through HostNameServer::resolve with n names cached, against
// the naive design that sweeps every entry for expiry at every lookup. The
// resolver's hit should cost about the same at 100 and at 100,000 names.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>
#include <unordered_map>

#include "net/HostNameServer.h"
#include "net/Net.h"
#include "platform/GlobalConfig.h"

namespace {

const long kCounts[] = {100, 10000, 100000};

// Distinct dotted literals 10.x.y.z, parsed by the C library (nothing is sent).
std::string literalOf(long in_lIndex) {
    return "10." + std::to_string((in_lIndex >> 16) & 255) + "." + std::to_string((in_lIndex >> 8) & 255) + "." +
           std::to_string(in_lIndex & 255);
}

// The process-wide resolver with the success cache on, filled with the
// first s_lFilled literals. Refilled from empty when fewer names are asked
// for or when the resolver was stopped in between (a start flushes the cache).
long s_lFilled = 0;
bool s_bClosesAtExit = false;

bool setUpCache(long in_lCount, std::string& out_strError) {
    Tarvik::HostNameServer& server = Tarvik::HostNameServer::getInstance();
    const bool bRunning = server.getTaskState() == Tarvik::Task::RUNNING;
    if (!bRunning || s_lFilled > in_lCount) {
        if (bRunning) Tarvik::Net::forcedCloseLibrary();
        Tarvik::GlobalConfig& config = Tarvik::GlobalConfig::getInstance();
        if (!config.setValue(Tarvik::HostNameServer::getCacheSuccessParamName(), "true", out_strError) ||
            !config.setValue(Tarvik::HostNameServer::getCacheFlushTimeoutMsParamName(), "3600000", out_strError) ||
            !config.setValue("corvane.net.HostNameServer.numThread", "1", out_strError)) {
            return false;
        }
        if (!Tarvik::Net::initializeLibrary()) {
            out_strError = "initializeLibrary failed";
            return false;
        }
        if (!s_bClosesAtExit) {
            std::atexit([] { Tarvik::Net::forcedCloseLibrary(); });
            s_bClosesAtExit = true;
        }
        s_lFilled = 0;
    }
    Tarvik::Hostent hostent;
    Tarvik::Hostent::GetHostByNameStatus status = Tarvik::Hostent::GHBN_SUCCESS;
    for (; s_lFilled < in_lCount; ++s_lFilled) {
        if (!server.resolve(literalOf(s_lFilled).c_str(), hostent, status, ACE_Time_Value(2, 0), true)) {
            out_strError = "filling the cache failed at " + literalOf(s_lFilled);
            return false;
        }
    }
    return true;
}

void cacheHit(benchmark::State& io_state) {
    const long count = io_state.range(0);
    std::string error;
    if (!setUpCache(count, error)) {
        io_state.SkipWithError(error.c_str());
        return;
    }
    Tarvik::HostNameServer& server = Tarvik::HostNameServer::getInstance();
    const std::string name = literalOf(count / 2);
    Tarvik::Hostent hostent;
    Tarvik::Hostent::GetHostByNameStatus status = Tarvik::Hostent::GHBN_SUCCESS;
    for (auto _ : io_state) {
        if (!server.resolve(name.c_str(), hostent, status, ACE_Time_Value(2, 0), true)) {
            io_state.SkipWithError("cache hit failed");
            break;
        }
    }
}
BENCHMARK(cacheHit)->Name("CacheHit")->Arg(kCounts[0])->Arg(kCounts[1])->Arg(kCounts[2]);

// The naive cache: every lookup first walks the whole map for expired entries.
class NaiveSweepCache {
public:
    using Clock = std::chrono::steady_clock;
    struct Entry {
        Tarvik::Hostent hostent;  // deep copy of the result
        Clock::time_point expiry; // stale once now is past it
    };

    void store(const std::string& in_strName, const Tarvik::Hostent& in_hostent, Clock::duration in_ttl) {
        std::lock_guard<std::mutex> guard(m_mutex);
        Entry& entry = m_entries[in_strName];
        entry.hostent = in_hostent;
        entry.expiry = Clock::now() + in_ttl;
    }

    bool lookUp(const std::string& in_strName, Tarvik::Hostent& out_hostent) {
        std::lock_guard<std::mutex> guard(m_mutex);
        const Clock::time_point now = Clock::now();
        for (auto it = m_entries.begin(); it != m_entries.end();) {
            if (now > it->second.expiry) {
                it = m_entries.erase(it);
            } else {
                ++it;
            }
        }
        auto found = m_entries.find(in_strName);
        if (found == m_entries.end()) return false;
        out_hostent = found->second.hostent;
        return true;
    }

private:
    std::mutex m_mutex;                                // guards m_entries
    std::unordered_map<std::string, Entry> m_entries;  // name -> entry
};

void cacheHitNaiveSweep(benchmark::State& io_state) {
    const long count = io_state.range(0);
    Tarvik::Hostent record;
    Tarvik::Hostent::GetHostByNameStatus status = Tarvik::Hostent::GHBN_SUCCESS;
    if (!record.getHostByName("10.0.0.1", status)) {
        io_state.SkipWithError("gethostbyname_r failed");
        return;
    }
    NaiveSweepCache cache;
    for (long i = 0; i < count; ++i) cache.store(literalOf(i), record, std::chrono::hours(1));
    const std::string name = literalOf(count / 2);
    Tarvik::Hostent hostent;
    for (auto _ : io_state) {
        if (!cache.lookUp(name, hostent)) {
            io_state.SkipWithError("naive cache hit failed");
            break;
        }
    }
}
BENCHMARK(cacheHitNaiveSweep)->Name("CacheHitNaiveSweep")->Arg(kCounts[0])->Arg(kCounts[1])->Arg(kCounts[2]);

}  // namespace
