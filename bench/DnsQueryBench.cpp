// DNS A queries per second against a local dnsmasq, 16 in flight:
// - DnsQuery/c-ares: a bare c-ares event loop on the benchmark's thread (the floor);
// - DnsQuery/reactor: searches handed from the benchmark's thread to
//   AresReactorTask, answers delivered on its loop thread;
// - DnsQuery/corvane: synchronous HostNameServer::resolve in DNS mode from 16
//   caller threads, cache off: caller -> resolver pool -> DNS task -> caller;
//   with one resolver pool thread and with three (the registered default).
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>

#include <poll.h>
#include <unistd.h>

#include <ares.h>
#include <benchmark/benchmark.h>

#include "AresLoop.h"

#include "net/HostNameServer.h"
#include "net/Net.h"
#include "net/ResolverConfig.h"
#include "platform/AresReactorTask.h"
#include "platform/GlobalConfig.h"
#include "support/AresChannel.h"
#include "support/Dnsmasq.h"
#include "support/HostNameServerPeer.h"

namespace {

constexpr int kInFlight = 16;
const char* const kName = "a.test";

// One dnsmasq for every DNS benchmark of the run, stopped at exit.
const std::string& serverAddress() {
    static std::unique_ptr<corvane_test::Dnsmasq> s_pServer = [] {
        auto pServer = std::make_unique<corvane_test::Dnsmasq>("127.53.200.1");
        pServer->hostRecord(kName, {"10.0.0.1"}).localTtl(60);
        std::string error;
        if (!pServer->start(&error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            std::exit(1);
        }
        return pServer;
    }();
    return s_pServer->address();
}

using corvane_bench::processOnce;

struct BareLoop {
    ares_channel channel;
    long completed = 0;  // answered queries
    long failed = 0;     // queries that did not succeed
    int inFlight = 0;    // queries sent and not answered
    bool bRefill = true; // each answer sends the next query

    static void callback(void* in_pArg, int in_iStatus, int, unsigned char*, int) {
        BareLoop* pLoop = static_cast<BareLoop*>(in_pArg);
        --pLoop->inFlight;
        ++pLoop->completed;
        if (in_iStatus != ARES_SUCCESS) ++pLoop->failed;
        if (pLoop->bRefill) pLoop->send();
    }
    void send() {
        ++inFlight;
        ares_search(channel, kName, 1, 1, &BareLoop::callback, this);
    }
};

void BM_DnsQueryCAres(benchmark::State& state) {
    corvane_test::AresChannel channel(serverAddress(), 2000, 2);
    BareLoop loop{channel.get()};
    for (int i = 0; i < kInFlight; ++i) loop.send();
    for (auto _ : state) {
        const long before = loop.completed;
        while (loop.completed == before) processOnce(loop.channel);
    }
    const long completed = loop.completed;
    loop.bRefill = false;
    for (int i = 0; i < 1000 && loop.inFlight > 0; ++i) processOnce(loop.channel);
    state.SetItemsProcessed(completed);
    if (loop.failed > 0) state.SkipWithError("some queries failed");
}
BENCHMARK(BM_DnsQueryCAres)->Name("DnsQuery/c-ares")->UseRealTime();

struct Window {
    std::mutex mutex;
    std::condition_variable changed;
    int inFlight = 0;  // searches whose callback has not come
    long failed = 0;   // callbacks without success

    static void callback(void* in_pArg, int in_iStatus, int, unsigned char*, int) {
        Window* pWindow = static_cast<Window*>(in_pArg);
        {
            std::lock_guard<std::mutex> guard(pWindow->mutex);
            --pWindow->inFlight;
            if (in_iStatus != ARES_SUCCESS) ++pWindow->failed;
        }
        pWindow->changed.notify_one();
    }
};

void BM_DnsQueryReactor(benchmark::State& state) {
    corvane_test::AresChannel channel(serverAddress(), 2000, 2);
    Tarvik::AresReactorTask& task = Tarvik::AresReactorTask::getInstance();
    if (!task.setChannel(channel.get()) || !task.start()) {
        state.SkipWithError("the task did not start");
        return;
    }
    Window window;
    for (auto _ : state) {
        {
            std::unique_lock<std::mutex> lock(window.mutex);
            window.changed.wait(lock, [&] { return window.inFlight < kInFlight; });
            ++window.inFlight;
        }
        task.search(kName, 1, 1, &Window::callback, &window);
    }
    {
        std::unique_lock<std::mutex> lock(window.mutex);
        window.changed.wait(lock, [&] { return window.inFlight == 0; });
    }
    task.stop();
    task.waitUntilDone();
    task.setChannel(nullptr);
    state.SetItemsProcessed(state.iterations());
    if (window.failed > 0) state.SkipWithError("some queries failed");
}
BENCHMARK(BM_DnsQueryReactor)->Name("DnsQuery/reactor")->UseRealTime();

// The library in DNS mode against the benchmark's dnsmasq; the primary domain
// comes from a resolver configuration file of the benchmark's own.
class DnsModeLibrary {
public:
    explicit DnsModeLibrary(int in_iPoolThreads) {
        char path[] = "/tmp/corvane-bench-resolv-XXXXXX";
        const int fd = mkstemp(path);
        if (fd >= 0) {
            const char text[] = "domain corvane.test\n";
            m_bOk = write(fd, text, sizeof text - 1) == static_cast<ssize_t>(sizeof text - 1);
            close(fd);
            m_strPath = path;
            Tarvik::Net::setResolverConfigPathForTest(m_strPath);
        }
        // Benchmarks run before this one may have left the process-wide resolver
        // running outside DNS mode: close it, so that it is configured afresh.
        for (int i = 0; i < 16 && Tarvik::HostNameServer::getInstance().getTaskState() != Tarvik::Task::STOPPED_STATE; ++i) {
            Tarvik::Net::forcedCloseLibrary();
        }
        std::string error;
        Tarvik::GlobalConfig& config = Tarvik::GlobalConfig::getInstance();
        m_bOk = m_bOk && config.setValue("corvane.net.HostNameServer.DNSServerIPAddrList", serverAddress(), error) &&
                config.setValue("corvane.net.HostNameServer.cacheSuccess", "false", error) &&
                config.setValue("corvane.net.HostNameServer.numThread", std::to_string(in_iPoolThreads), error) &&
                Tarvik::Net::initializeLibrary() && Tarvik::HostNameServer::getInstance().isDnsMode();
    }
    ~DnsModeLibrary() {
        // Stopped, the resolver leaves DNS mode, so that the next run configures it afresh.
        Tarvik::Net::forcedCloseLibrary();
        Tarvik::HostNameServerPeer::leaveDnsMode(Tarvik::HostNameServer::getInstance());
        Tarvik::GlobalConfig::getInstance().clear();
        Tarvik::Net::setResolverConfigPathForTest("");
        if (!m_strPath.empty()) unlink(m_strPath.c_str());
    }
    bool ok() const { return m_bOk; }

private:
    bool m_bOk = false;     // the library runs in DNS mode
    std::string m_strPath;  // the resolver configuration file
};

void BM_DnsQueryCorvane(benchmark::State& state) {
    static std::unique_ptr<DnsModeLibrary> s_pLibrary;
    if (state.thread_index() == 0) s_pLibrary = std::make_unique<DnsModeLibrary>(static_cast<int>(state.range(0)));
    long failed = 0;
    for (auto _ : state) {
        Tarvik::Hostent hostent;
        Tarvik::Hostent::GetHostByNameStatus status;
        // Outside DNS mode the name would go to the host's own resolver: never ask it.
        if (!s_pLibrary->ok() ||
            !Tarvik::HostNameServer::getInstance().resolve(kName, hostent, status, ACE_Time_Value(10), false)) {
            ++failed;
        }
    }
    state.SetItemsProcessed(state.iterations());
    if (failed > 0) state.SkipWithError("some resolutions failed");
    if (state.thread_index() == 0) {
        if (!s_pLibrary->ok()) state.SkipWithError("the library did not start in DNS mode");
        s_pLibrary.reset();
    }
}
// In DNS mode a pool thread only hands the query to the DNS task: one thread
// takes the callers' works in batches, while more threads are woken one per work.
BENCHMARK(BM_DnsQueryCorvane)
    ->Name("DnsQuery/corvane")
    ->ArgName("poolThreads")
    ->Arg(1)
    ->Arg(3)
    ->Threads(kInFlight)
    ->UseRealTime();

}  // namespace
