// DNS mode of the resolver: the c-ares channel built from the configured DNS
// servers, and A-record queries sent through the platform's DNS task.
#include <arpa/inet.h>
#include <netinet/in.h>

#include <ace/Guard_T.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include "net/DNS.h"
#include "net/HostNameServer.h"
#include "net/HostNameServerLog.h"
#include "net/HostNameServerWork.h"
#include "net/ResolverConfig.h"
#include "platform/Ares.h"
#include "platform/AresReactorTask.h"
#include "platform/Assertion.h"
#include "platform/Logger.h"
#include "platform/StringVector.h"

namespace Tarvik {

namespace {

Logger& dnsLogger() { return hostNameServerLogger(); }

const char* const kDnsServersParamName = "corvane.net.HostNameServer.DNSServerIPAddrList";
const int kDnsHeaderSize = 12;  // HFIXEDSZ
const int kRecordFixedSize = 10;  // RRFIXEDSZ

unsigned readShort(const unsigned char* p) { return (static_cast<unsigned>(p[0]) << 8) | p[1]; }

// Parses one answer record at in_pPos; null when it does not fit the buffer.
const unsigned char* parseRecord(const unsigned char* in_pPos, const unsigned char* in_pAnswer, int in_iLength,
                                 Hostent& io_hostent, ACE_Time_Value& io_ttl) {
    char* szOwner = nullptr;
    long ownerLength = 0;
    if (ares_expand_name(in_pPos, in_pAnswer, in_iLength, &szOwner, &ownerLength) != ARES_SUCCESS) return nullptr;
    ares_free_string(szOwner);
    const unsigned char* p = in_pPos + ownerLength;
    const unsigned char* pEnd = in_pAnswer + in_iLength;
    if (pEnd - p < kRecordFixedSize) return nullptr;
    const unsigned type = readShort(p);
    const uint32_t seconds = (static_cast<uint32_t>(p[4]) << 24) | (static_cast<uint32_t>(p[5]) << 16) |
                             (static_cast<uint32_t>(p[6]) << 8) | p[7];
    const unsigned dataLength = readShort(p + 8);
    p += kRecordFixedSize;
    if (pEnd - p < static_cast<long>(dataLength)) return nullptr;
    // Milliseconds in signed 32 bits: a time-to-live above 2,147,483 s wraps.
    const int32_t ms = static_cast<int32_t>(seconds * 1000U);
    io_ttl.set(static_cast<time_t>(ms / 1000), static_cast<suseconds_t>((ms % 1000) * 1000));
    if (type == 1 /* A */) {
        if (dataLength != 4) return nullptr;
        io_hostent.addAddress(p);
    }
    return p + dataLength;
}

}  // namespace

// The object handed to c-ares with a query: carries the answer to the inner
// callback and the cache.
class HostNameServer::DNSARecordWork::CallbackContainer : public HostNameServer::GetHostByNameCallback {
    CORVANE_STATIC_ALLOCATOR("HostNameServer::DNSARecordWork:: CallbackContainer")

public:
    CallbackContainer(HostNameServer& in_server, const std::string& in_strHostname,
                      GetHostByNameCallback* in_pCallback, bool in_bUseCache)
        : m_server(in_server), m_strHostname(in_strHostname), m_pCallback(in_pCallback), m_bUseCache(in_bUseCache) {}
    ~CallbackContainer() override { delete m_pCallback; }

    bool onGhbnResult(const char* in_szHostname, const Hostent& in_hostent, Hostent::GetHostByNameStatus in_status,
                      ACE_Time_Value in_ttl) override {
        if (m_bUseCache) m_server.updateCache(m_strHostname, in_hostent, in_status, in_ttl);
        return m_pCallback->onGhbnResult(in_szHostname, in_hostent, in_status, in_ttl);
    }
    bool onGhbnTimeout(const char* in_szHostname) override {
        if (m_bUseCache) {
            ACE_Guard<ACE_Recursive_Thread_Mutex> guard(m_server.getCacheLock());
            m_server.cacheFailure(m_strHostname, Hostent::GHBN_TIMEOUT);
        }
        return m_pCallback->onGhbnTimeout(in_szHostname);
    }
    const std::string& getHostname() const { return m_strHostname; }

private:
    HostNameServer& m_server;                 // owner of the cache
    const std::string m_strHostname;          // the requested name
    GetHostByNameCallback* m_pCallback;       // owned; never null
    const bool m_bUseCache;                   // store the outcome in the cache
};

HostNameServer::DNSARecordWork::DNSARecordWork(HostNameServer& in_server, const char* in_szHostname,
                                               GetHostByNameCallback* in_pCallback, bool in_bUseCache)
    : m_server(in_server),
      m_strHostname(in_szHostname ? in_szHostname : ""),
      m_pCallback(in_pCallback ? in_pCallback : new FutureCallback(getProducer())),
      m_bUseCache(in_bUseCache) {}

HostNameServer::DNSARecordWork::~DNSARecordWork() { delete m_pCallback; }

bool HostNameServer::DNSARecordWork::doWork() {
    CORVANE_TRACE_SCOPE(dnsLogger(), "DNSARecordWork::doWork");
    CORVANE_DEBUG(dnsLogger(), traceScope.getName() << " : " << "thread-id = " << pthread_self());
    CORVANE_DEBUG(dnsLogger(), traceScope.getName() << " : " << "hostname = " << m_strHostname);
    if (m_pCallback == nullptr) {
        Assertion::report(dnsLogger(), "! m_pCallback.isNull()", __FILE__, __LINE__);
        return false;
    }
    CallbackContainer* pContainer = new CallbackContainer(m_server, m_strHostname, m_pCallback, m_bUseCache);
    m_pCallback = nullptr;
    AresReactorTask::getInstance().search(m_strHostname.c_str(), 1 /* IN */, 1 /* A */, &aresCallback, pContainer);
    return true;
}

void HostNameServer::DNSARecordWork::aresCallback(void* in_pArg, int in_iStatus, int /*in_iTimeouts*/,
                                                  unsigned char* in_pAnswer, int in_iLength) {
    CORVANE_TRACE_SCOPE(dnsLogger(), "HostNameServer::DNSARecordWork::aresCallback");
    CountedObjPtr<CallbackContainer> pCallback(static_cast<CallbackContainer*>(in_pArg));
    if (!CORVANE_ASSERT(dnsLogger(), ! pCallback.isNull())) return;
    const std::string& strHostname = pCallback->getHostname();
    const char* const prefix = traceScope.getName();
    if (in_iLength < kDnsHeaderSize || in_pAnswer == nullptr) {
        CORVANE_DEBUG(dnsLogger(), prefix << " : " << "alen < HFIXEDSZ. Possible cause : c-ares failed to build the DNS query. alen="
                                       << in_iLength << ", HFIXEDSZ=" << kDnsHeaderSize);
        pCallback->onGhbnResult(strHostname.c_str(), Hostent(), Hostent::GHBN_OTHER_ERROR, ACE_Time_Value::zero);
        return;
    }
    const unsigned id = readShort(in_pAnswer);
    const unsigned opcode = (in_pAnswer[2] >> 3) & 0x0F;
    const unsigned rcode = in_pAnswer[3] & 0x0F;
    const unsigned questions = readShort(in_pAnswer + 4);
    const unsigned answers = readShort(in_pAnswer + 6);
    CORVANE_DEBUG(dnsLogger(), prefix << " : " << "id=" << id << ", opcode=" << Ares::opcodes[opcode]
                                   << ", rcode=" << Ares::rcodes[rcode]);

    const unsigned char* aptr = in_pAnswer + kDnsHeaderSize;
    std::string strQuestionName;
    for (unsigned i = 0; i < questions; ++i) {
        std::string strQuestion;
        aptr = Ares::display_question(aptr, in_pAnswer, in_iLength, strQuestionName, strQuestion);
        if (aptr == nullptr) {
            CORVANE_ERROR(dnsLogger(), "aresCallback : aptr == 0");
            pCallback->onGhbnResult(strHostname.c_str(), Hostent(), Hostent::GHBN_OTHER_ERROR, ACE_Time_Value::zero);
            return;
        }
        CORVANE_DEBUG(dnsLogger(), prefix << " : " << "strQuestion=" << strQuestion);
    }
    std::string strName = strQuestionName;
    if (strName != strHostname) {
        CORVANE_DEBUG(dnsLogger(), prefix << " : " << "strHostName=" << strQuestionName
                                       << ", pCallback->m_strHostname=" << strHostname);
        strName = strHostname;
    }
    Hostent result;
    result.setName(strName.c_str());
    switch (in_iStatus) {
        case ARES_SUCCESS: {
            result.setAddressTypeAndLength(AF_INET, 4);
            ACE_Time_Value ttl = ACE_Time_Value::zero;
            for (unsigned i = 0; i < answers; ++i) {
                aptr = parseRecord(aptr, in_pAnswer, in_iLength, result, ttl);
                if (aptr == nullptr) {
                    CORVANE_ERROR(dnsLogger(), "aresCallback : aptr == 0");
                    pCallback->onGhbnResult("???hostname???", result, Hostent::GHBN_OTHER_ERROR, ACE_Time_Value::zero);
                    return;
                }
            }
            pCallback->onGhbnResult(strName.c_str(), result, Hostent::GHBN_SUCCESS, ttl);
            break;
        }
        case ARES_ENODATA:
            pCallback->onGhbnResult(strName.c_str(), result, Hostent::GHBN_NO_ADDRESS, ACE_Time_Value::zero);
            break;
        case ARES_ETIMEOUT:
            pCallback->onGhbnTimeout(strName.c_str());
            break;
        default:
            pCallback->onGhbnResult(strName.c_str(), result, Hostent::GHBN_OTHER_ERROR, ACE_Time_Value::zero);
            break;
    }
}

void HostNameServer::deliverDnsAnswerForTest(HostNameServer& in_server, const char* in_szHostname,
                                             GetHostByNameCallback* in_pNewCallback, bool in_bUseCache,
                                             int in_iStatus, const unsigned char* in_pAnswer, int in_iLength) {
    // A copy of exactly the given length, so that a sanitizer catches a read past it.
    const size_t length = in_pAnswer != nullptr && in_iLength > 0 ? static_cast<size_t>(in_iLength) : 0;
    std::vector<unsigned char> answer(in_pAnswer, in_pAnswer + length);
    auto* pContainer = new DNSARecordWork::CallbackContainer(in_server, in_szHostname ? in_szHostname : "",
                                                            in_pNewCallback, in_bUseCache);
    DNSARecordWork::aresCallback(pContainer, in_iStatus, 0, in_pAnswer != nullptr ? answer.data() : nullptr,
                                 in_iLength);
}

namespace {

// A work that runs a function of its producer: the test hook's stand-in for a query.
class ScriptedAnswerWork : public AddTimeoutToBlockingOpTask::Work<HostNameServer::GHBNResult> {
public:
    using Body = std::function<void(const ResultProducer<HostNameServer::GHBNResult>&)>;
    explicit ScriptedAnswerWork(Body in_body) : m_body(std::move(in_body)) {}
    bool doWork() override {
        m_body(getProducer());
        return true;
    }

private:
    Body m_body;  // delivers to the producer
};

}  // namespace

bool HostNameServer::resolveWithDnsAnswerForTest(HostNameServer& in_server, const char* in_szHostname,
                                                 int in_iStatus, const unsigned char* in_pAnswer, int in_iLength,
                                                 Hostent& out_hostent, Hostent::GetHostByNameStatus& out_status,
                                                 ACE_Time_Value in_timeout) {
    const std::string name(in_szHostname ? in_szHostname : "");
    const size_t length = in_pAnswer != nullptr && in_iLength > 0 ? static_cast<size_t>(in_iLength) : 0;
    std::vector<unsigned char> answer(in_pAnswer, in_pAnswer + length);
    auto* pWork = new ScriptedAnswerWork([&in_server, name, answer, in_iStatus,
                                          in_iLength](const ResultProducer<GHBNResult>& in_producer) {
        deliverDnsAnswerForTest(in_server, name.c_str(), new GHBNFutureCallback(in_producer), false, in_iStatus,
                                answer.empty() ? nullptr : answer.data(), in_iLength);
    });
    return in_server.waitForResult(pWork, out_hostent, out_status, in_timeout);
}

bool HostNameServer::getDNSARecords(const char* in_szHostname, Hostent& out_hostent,
                                    Hostent::GetHostByNameStatus& out_status, ACE_Time_Value in_timeout,
                                    bool in_bUseCache) {
    CORVANE_TRACE_SCOPE(dnsLogger(), "HostNameServer::getDNSARecords");
    const char* szHostname = in_szHostname ? in_szHostname : "";
    CORVANE_DEBUG(dnsLogger(), traceScope.getName() << " : " << "hostname=" << szHostname
                                   << " timeout=" << toLogMilliseconds(in_timeout) << "ms");
    bool bUsable = false;
    if (in_bUseCache && getHostentInCache(szHostname, out_hostent, out_status, bUsable)) return bUsable;

    std::string address;
    std::string port;
    if (Hostent::parseDottedIP(szHostname, address, port)) {
        in_addr addr{};
        if (inet_aton(szHostname, &addr) == 0) {
            out_status = Hostent::GHBN_OTHER_ERROR;
            return false;
        }
        // A fresh record: the output may hold an earlier result's addresses.
        Hostent literal;
        literal.setName(szHostname);
        literal.setAddressTypeAndLength(AF_INET, 4);
        literal.addAddress(&addr);
        out_hostent = literal;
        out_status = Hostent::GHBN_SUCCESS;
        return true;
    }

    return waitForResult(new DNSARecordWork(*this, szHostname, nullptr, in_bUseCache), out_hostent, out_status,
                         in_timeout);
}

bool HostNameServer::configureCAres(const TSHandle<ROConfiguration>& in_hConfig) {
    std::string value;
    if (!in_hConfig->getString(kDnsServersParamName, value)) return true;

    StringVector servers;
    if (value == "use-host-dns-list") {
        if (!Net::getAdapterDNSServers(servers, nullptr)) {
            CORVANE_ERROR(dnsLogger(), "failed to retrieve this host's DNS servers");
            return false;
        }
        if (servers.empty()) {
            CORVANE_ERROR(dnsLogger(), "failed to parse the value of parameter " << kDnsServersParamName);
            return false;
        }
    } else {
        strTokenize(value, servers, ',');
        if (servers.empty()) {
            CORVANE_ERROR(dnsLogger(), "failed to parse the value of parameter " << kDnsServersParamName);
            return false;
        }
    }
    CORVANE_INFO(dnsLogger(), "DNS server list, primary first : " << [&] {
        std::string joined;
        for (const std::string& server : servers) joined += (joined.empty() ? "" : " ") + server;
        return joined;
    }());
    if (!CORVANE_ASSERT(dnsLogger(), m_aresChannel == 0)) return false;

    int rc = ares_library_init(1 /* ARES_LIB_INIT_ALL */);
    if (rc != ARES_SUCCESS) {
        CORVANE_ERROR(dnsLogger(), "failed to initialize the C-Ares library to perform DNS resolution : " << ares_strerror(rc));
        return false;
    }
    ares_options options;
    std::memset(&options, 0, sizeof options);
    int mask = ARES_OPT_FLAGS;
    options.flags = 0;
    std::vector<in_addr> addresses;
    for (const std::string& server : servers) {
        Hostent hostent;
        Hostent::GetHostByNameStatus status = Hostent::GHBN_SUCCESS;
        if (!hostent.getHostByName(server.c_str(), status)) {
            CORVANE_ERROR(dnsLogger(), "failed to resolve hostname " << server << " while configuring DNS from parameter "
                                           << kDnsServersParamName << " : " << Hostent::getGetHostByNameStatusString(status));
            ares_library_cleanup();
            return false;
        }
        if (!CORVANE_ASSERT(dnsLogger(), hostent.getNumAddress() > 0)) {
            ares_library_cleanup();
            return false;
        }
        in_addr address;
        std::memcpy(&address, hostent.getHostent().h_addr_list[0], sizeof address);
        addresses.push_back(address);
        mask |= ARES_OPT_SERVERS;
    }
    options.servers = addresses.data();
    options.nservers = static_cast<int>(addresses.size());

    Net::ResolverConfig hostConfig;
    const std::string& domain = hostConfig.domain;
    if (!Net::readResolverConfig(hostConfig)) {
        CORVANE_DEBUG(dnsLogger(), "HostNameServer::configureCAres" << " : " << "call to GetNetworkParams() failed\n");
    } else if (!domain.empty()) {
        // ares_destroy_options frees these with the allocator c-ares was
        // initialised with: the C library's, as ares_library_init sets it.
        options.domains = static_cast<char**>(std::malloc(sizeof(char*)));
        options.domains[0] = strdup(domain.c_str());
        options.ndomains = 1;
        mask |= ARES_OPT_DOMAINS;
        CORVANE_INFO(dnsLogger(), "Primary DNS domain name : " << domain);
    }

    rc = ares_init_options(&m_aresChannel, &options, mask);
    options.servers = nullptr;  // the address list is ours, not c-ares's
    options.nservers = 0;
    ares_destroy_options(&options);
    if (rc != ARES_SUCCESS) {
        CORVANE_ERROR(dnsLogger(), "failed to initialize the C-Ares library to perform DNS resolution : " << ares_strerror(rc));
        m_aresChannel = nullptr;
        ares_library_cleanup();
        return false;
    }
    if (!CORVANE_ASSERT(dnsLogger(), m_aresChannel != 0)) return false;
    AresReactorTask& aresTask = AresReactorTask::getInstance();
    if (!CORVANE_ASSERT(dnsLogger(), "If this condition occurs, it means the " "AresReactorTask singleton was initialized in " "more than one place in the code. " "This is unsupported." && (aresTask.getTaskState() == Task::STOPPED_STATE))) {
        return false;
    }
    return aresTask.setChannel(m_aresChannel);
}

bool HostNameServer::startAresTask() {
    AresReactorTask& aresTask = AresReactorTask::getInstance();
    // Failures are the caller's to undo (the run is stopped); a task started
    // elsewhere is left to its owner at thread exit.
    if (!CORVANE_ASSERT(dnsLogger(), "If this condition occurs, it means the " "AresReactorTask singleton was initialized in " "more than one place in the code. " "This is unsupported." && (aresTask.getTaskState() == Task::STOPPED_STATE))) {
        return false;
    }
    m_bAresStarted = aresTask.start();
    return m_bAresStarted;
}

void HostNameServer::stopAresTask() {
    AresReactorTask& aresTask = AresReactorTask::getInstance();
    aresTask.stop();
    aresTask.waitUntilDone();
    m_bAresStarted = false;
}

void HostNameServer::releaseAresChannel() {
    if (m_aresChannel == nullptr) return;
    // The DNS task must not keep driving a channel that is about to go.
    AresReactorTask::releaseChannel(m_aresChannel);
    ares_destroy(m_aresChannel);
    m_aresChannel = nullptr;
    ares_library_cleanup();
}

}  // namespace Tarvik
