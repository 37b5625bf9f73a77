// corvane-net resolve: names through the library's resolver.
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>
#include <utility>

#include "Command.h"
#include "net/HostNameServer.h"
#include "net/Net.h"

namespace corvane {
namespace {

using Tarvik::HostNameServer;
using Tarvik::Hostent;

// The client side of an asynchronous request: its one notification, and
// whether the callback is gone. Shared with the callback, which may outlive
// a wait that gave up.
struct Notification {
    std::mutex mutex;
    std::condition_variable cond;
    bool told = false;        // a notification arrived
    bool gone = false;        // the callback was destroyed (after its notification, or refused)
    bool timedOut = false;    // it was the time-out
    Hostent hostent;          // the result's record
    Hostent::GetHostByNameStatus status = Hostent::GHBN_OTHER_ERROR;
};

class WaitingCallback : public HostNameServer::GetHostByNameCallback {
public:
    explicit WaitingCallback(std::shared_ptr<Notification> in_pNotification)
        : m_pNotification(std::move(in_pNotification)) {}
    ~WaitingCallback() override {
        std::lock_guard<std::mutex> guard(m_pNotification->mutex);
        m_pNotification->gone = true;
        m_pNotification->cond.notify_all();
    }
    bool onGhbnTimeout(const char*) override {
        std::lock_guard<std::mutex> guard(m_pNotification->mutex);
        m_pNotification->told = true;
        m_pNotification->timedOut = true;
        m_pNotification->cond.notify_all();
        return true;
    }
    bool onGhbnResult(const char*, const Hostent& in_hostent, Hostent::GetHostByNameStatus in_status,
                      ACE_Time_Value) override {
        std::lock_guard<std::mutex> guard(m_pNotification->mutex);
        m_pNotification->told = true;
        m_pNotification->hostent = in_hostent;
        m_pNotification->status = in_status;
        m_pNotification->cond.notify_all();
        return true;
    }

private:
    std::shared_ptr<Notification> m_pNotification;  // shared with the waiting command
};

// How long the command waits for an asynchronous request's notification
// beyond its time-out before it gives up on it.
const std::chrono::seconds kNotificationGrace(10);

// Resolves through the callback form and waits for its one notification.
// A refused request (library not running, DNS mode) leaves the callback with
// the command, which destroys it; otherwise the library tells the callback
// once and destroys it, so a request without a time-out waits for that.
bool resolveAsync(HostNameServer& io_server, const std::string& in_name, const ACE_Time_Value& in_timeout,
                  long in_timeoutMs, bool in_useCache, Hostent& out_hostent, std::string& out_statusText,
                  std::ostream& io_err) {
    auto pNotification = std::make_shared<Notification>();
    WaitingCallback* pCallback = new WaitingCallback(pNotification);
    if (!io_server.resolve(in_name.c_str(), pCallback, in_timeout, in_useCache) &&
        (io_server.isDnsMode() || io_server.getTaskState() != Tarvik::Task::RUNNING)) {
        delete pCallback;
    }
    std::unique_lock<std::mutex> lock(pNotification->mutex);
    const auto arrived = [&] { return pNotification->told || pNotification->gone; };
    if (in_timeoutMs < 0) {
        pNotification->cond.wait(lock, arrived);
    } else if (!pNotification->cond.wait_for(lock, std::chrono::milliseconds(in_timeoutMs) + kNotificationGrace,
                                             arrived)) {
        io_err << "corvane-net resolve: no notification for " << in_name << " within "
               << in_timeoutMs + kNotificationGrace.count() * 1000 << " ms\n";
    }
    out_hostent = pNotification->hostent;
    if (pNotification->told && pNotification->timedOut) {
        out_statusText = "CALLBACK_TIMEOUT";
        return false;
    }
    out_statusText = Hostent::getGetHostByNameStatusString(pNotification->status);
    return pNotification->told && pNotification->status == Hostent::GHBN_SUCCESS && out_hostent.isValid();
}

Json describe(const std::string& in_name, bool in_ok, const std::string& in_status, const Hostent& in_hostent,
              double in_elapsedMs) {
    Json item = Json::object();
    item["name"] = in_name;
    item["ok"] = in_ok;
    item["status"] = in_status;
    Json addresses = Json::array();
    for (size_t i = 0; i < in_hostent.getNumAddress(); ++i) {
        std::string address;
        if (in_hostent.getAddress(i, address)) addresses.push_back(address);
    }
    item["addresses"] = addresses;
    std::string primary;
    item["primary"] = in_hostent.getPrimaryOrFirstAddress(primary) ? Json(primary) : Json();
    std::ostringstream printed;
    in_hostent.write(printed);
    item["hostent"] = printed.str();
    item["elapsedMs"] = std::round(in_elapsedMs * 1000) / 1000;  // microseconds
    return item;
}

// The resolve command's options.
struct ResolveOptions {
    long timeoutMs = 2000;            // --timeout MS; negative: none
    long sleepMs = 0;                 // --sleep-ms N between items
    bool noCache = false;             // --no-cache
    bool async = false;               // --async: the callback form
    std::vector<std::string> names;   // the names, "-" for standard input
};

int runResolve(const ResolveOptions& in_options, CommandContext& io_ctx) {
    const long timeoutMs = in_options.timeoutMs;
    const long sleepMs = in_options.sleepMs;
    const bool useCache = !in_options.noCache;
    const bool async = in_options.async;
    std::vector<std::string> names = in_options.names;
    names = expandItems(names);
    if (names.empty()) throw UsageError("resolve needs at least one NAME");

    const ACE_Time_Value timeout =
        timeoutMs < 0 ? ACE_Time_Value::max_time : ACE_Time_Value(timeoutMs / 1000, (timeoutMs % 1000) * 1000);

    if (!Tarvik::Net::initializeLibrary()) {
        *io_ctx.err << "corvane-net resolve: the library could not be initialized (see its messages above)\n";
        Tarvik::Net::forcedCloseLibrary();
        return 1;
    }
    HostNameServer& server = HostNameServer::getInstance();
    int status = 0;
    for (size_t n = 0; n < names.size(); ++n) {
        const std::string& name = names[n];
        const auto start = std::chrono::steady_clock::now();
        bool ok = false;
        std::string statusText;
        Hostent hostent;
        if (async) {
            ok = resolveAsync(server, name, timeout, timeoutMs, useCache, hostent, statusText, *io_ctx.err);
        } else {
            Hostent::GetHostByNameStatus ghbnStatus = Hostent::GHBN_OTHER_ERROR;
            ok = server.resolve(name.c_str(), hostent, ghbnStatus, timeout, useCache);
            statusText = Hostent::getGetHostByNameStatusString(ghbnStatus);
        }
        const double elapsedMs =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        io_ctx.emit(describe(name, ok, statusText, hostent, elapsedMs));
        if (!ok) status = 1;
        if (sleepMs > 0 && n + 1 < names.size()) std::this_thread::sleep_for(std::chrono::milliseconds(sleepMs));
    }
    Tarvik::Net::forcedCloseLibrary();
    return status;
}

CommandRun declareResolve(CLI::App& io_app) {
    auto options = std::make_shared<ResolveOptions>();
    addNumberOption(io_app, "--timeout", options->timeoutMs,
                    "time-out of each resolution (default 2000; negative: none)")
        ->type_name("MS");
    io_app.add_flag("--no-cache", options->noCache, "do not use the resolution cache");
    io_app.add_flag("--async", options->async, "use the callback form and wait for its one notification");
    addNumberOption(io_app, "--sleep-ms", options->sleepMs, "pause between items, to let background work finish")
        ->type_name("N")
        ->check(notNegative("takes a number >= 0"));
    io_app.add_option("NAME", options->names, "the names; - reads them from standard input")->required();
    return [options](CommandContext& io_ctx) { return runResolve(*options, io_ctx); };
}

const CommandRegistrar s_registrar(
    {"resolve", 30, "resolve names through the library's resolver",
     "Starts the library and resolves each NAME (\"-\" reads names from standard input) through\n"
     "HostNameServer::resolve, one after another.",
     declareResolve});

}  // namespace
}  // namespace corvane
