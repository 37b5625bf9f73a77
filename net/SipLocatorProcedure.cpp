#include "net/SipLocatorProcedure.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>

#include <algorithm>
#include <cctype>

namespace Tarvik {
namespace Net {

namespace {

using Locator = SipServerLocator;

const uint32_t kNoTtl = UINT32_MAX;  // no record on the way so far

unsigned defaultPort(Locator::Transport in_transport) { return in_transport == Locator::TRANSPORT_TLS ? 5061 : 5060; }

std::string srvName(Locator::Transport in_transport, const std::string& in_host) {
    switch (in_transport) {
        case Locator::TRANSPORT_TLS: return "_sips._tcp." + in_host;
        case Locator::TRANSPORT_TCP: return "_sip._tcp." + in_host;
        case Locator::TRANSPORT_UDP: break;
    }
    return "_sip._udp." + in_host;
}

bool serviceTransport(const std::string& in_service, bool in_bSecure, Locator::Transport& out_transport) {
    if (strcasecmp(in_service.c_str(), "SIPS+D2T") == 0) {
        out_transport = Locator::TRANSPORT_TLS;
        return true;
    }
    if (in_bSecure) return false;
    if (strcasecmp(in_service.c_str(), "SIP+D2T") == 0) {
        out_transport = Locator::TRANSPORT_TCP;
        return true;
    }
    if (strcasecmp(in_service.c_str(), "SIP+D2U") == 0) {
        out_transport = Locator::TRANSPORT_UDP;
        return true;
    }
    return false;
}

bool lowerHostName(std::string& io_host) {
    if (io_host.empty() || io_host.size() > 253) return false;
    size_t label = 0;
    for (char& c : io_host) {
        if (c == '.') {
            if (label == 0) return false;
            label = 0;
            continue;
        }
        if (c >= 'A' && c <= 'Z') {
            c = static_cast<char>(c - 'A' + 'a');
        } else if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_')) {
            return false;
        }
        if (++label > 63) return false;
    }
    return label > 0;
}

}  // namespace

uint64_t SipRandom::next() {
    uint64_t z = (m_ullState += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

uint64_t SipRandom::upTo(uint64_t in_ullMax) {
    if (in_ullMax == UINT64_MAX) return next();
    const uint64_t bound = in_ullMax + 1;
    // Draws below the threshold would favour small values: draw again.
    const uint64_t threshold = (0 - bound) % bound;
    for (;;) {
        const uint64_t x = next();
        if (x >= threshold) return x % bound;
    }
}

void orderSrvRecords(const std::vector<SipDns::SrvRecord>& in_records, SipRandom& io_random,
                     std::vector<size_t>& out_order) {
    out_order.clear();
    if (in_records.size() == 1) {
        out_order.push_back(0);
        return;
    }
    std::vector<size_t> byPriority(in_records.size());
    for (size_t i = 0; i < byPriority.size(); ++i) byPriority[i] = i;
    std::stable_sort(byPriority.begin(), byPriority.end(),
                     [&](size_t a, size_t b) { return in_records[a].priority < in_records[b].priority; });
    std::vector<size_t> left;
    for (size_t begin = 0; begin < byPriority.size();) {
        size_t end = begin;
        while (end < byPriority.size() && in_records[byPriority[end]].priority == in_records[byPriority[begin]].priority) {
            ++end;
        }
        left.assign(byPriority.begin() + static_cast<long>(begin), byPriority.begin() + static_cast<long>(end));
        std::stable_partition(left.begin(), left.end(), [&](size_t i) { return in_records[i].weight == 0; });
        while (!left.empty()) {
            uint64_t sum = 0;
            for (size_t i : left) sum += in_records[i].weight;
            const uint64_t pick = io_random.upTo(sum);
            uint64_t running = 0;
            size_t chosen = left.size() - 1;
            for (size_t k = 0; k < left.size(); ++k) {
                running += in_records[left[k]].weight;
                if (running >= pick) {
                    chosen = k;
                    break;
                }
            }
            out_order.push_back(left[chosen]);
            left.erase(left.begin() + static_cast<long>(chosen));
        }
        begin = end;
    }
}

bool SipLocatorProcedure::normalise(const Locator::Request& in_request, Locator::Request& out_request,
                                    bool& out_bNumeric, std::string& out_strError) {
    Locator::Request request = in_request;
    std::string& host = request.host;
    if (host.size() >= 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    if (host.size() > 1 && host.back() == '.') host.pop_back();
    in6_addr address6;
    in_addr address4;
    out_bNumeric = true;
    if (host.find(':') != std::string::npos) {
        char text[INET6_ADDRSTRLEN];
        if (inet_pton(AF_INET6, host.c_str(), &address6) != 1 || !inet_ntop(AF_INET6, &address6, text, sizeof text)) {
            out_strError = "not an IPv6 address: " + in_request.host;
            return false;
        }
        host = text;
    } else if (!lowerHostName(host)) {
        out_strError = host.empty() ? std::string("no host to locate") : "not a host name: " + in_request.host;
        return false;
    } else {
        // Digits and dots only may be an IPv4 address.
        out_bNumeric = host.find_first_not_of("0123456789.") == std::string::npos &&
                       inet_pton(AF_INET, host.c_str(), &address4) == 1;
    }
    if (request.port > 65535) {
        out_strError = "not a port: " + std::to_string(request.port);
        return false;
    }
    if (request.secure && request.hasTransport) {
        if (request.transport == Locator::TRANSPORT_UDP) {
            out_strError = "a SIPS URI cannot use UDP";
            return false;
        }
        request.transport = Locator::TRANSPORT_TLS;  // TLS over TCP
    }
    out_request = std::move(request);
    return true;
}

SipLocatorProcedure::SipLocatorProcedure(Locator::Request&& in_request, bool in_bNumeric, uint64_t in_ullSeed)
    : m_request(std::move(in_request)), m_bNumeric(in_bNumeric), m_ullSeed(in_ullSeed) {
    m_lookups.reserve(4);
    m_order.reserve(4);
}

void SipLocatorProcedure::usableServices(const Found& in_naptr) {
    m_services.clear();
    if (in_naptr.outcome != Locator::OUTCOME_ANSWER || in_naptr.records == nullptr) return;
    for (const SipDns::NaptrRecord& record : in_naptr.records->naptr) {
        Locator::Transport transport;
        if (record.flags.size() != 1 || (record.flags[0] != 'S' && record.flags[0] != 's')) continue;
        if (!record.regexp.empty() || record.replacement.empty()) continue;
        if (!serviceTransport(record.service, m_request.secure, transport)) continue;
        m_services.push_back(Service{record.order, record.preference, transport, &record.replacement});
    }
    std::stable_sort(m_services.begin(), m_services.end(), [](const Service& a, const Service& b) {
        return a.order != b.order ? a.order < b.order : a.preference < b.preference;
    });
}

SipLocatorProcedure::Lookup* SipLocatorProcedure::findLookup(const std::string& in_name, uint16_t in_uiType) {
    for (Lookup& lookup : m_lookups) {
        if (lookup.type == in_uiType && lookup.name == in_name) return &lookup;
    }
    return nullptr;
}

bool SipLocatorProcedure::run(Source& io_source, const SipHostsTable* in_pHosts, bool in_bExpired) {
    m_pSource = &io_source;
    m_pHosts = in_pHosts;
    m_bExpired = in_bExpired;
    m_bPending = false;
    m_bNotOffered = false;
    m_bExpiredLookup = false;
    m_random = SipRandom(m_ullSeed);
    m_order.clear();
    m_targets.clear();

    const Locator::Request& request = m_request;
    const std::string& host = request.host;
    const Locator::Transport transport =
        request.hasTransport ? request.transport : (request.secure ? Locator::TRANSPORT_TLS : Locator::TRANSPORT_UDP);
    if (m_bNumeric) {
        addTarget(transport, host, host, request.port != 0 ? request.port : defaultPort(transport), nullptr, 0,
                  Locator::VIA_NUMERIC);
    } else if (request.port != 0 || (m_pHosts != nullptr && m_pHosts->count(host) != 0)) {
        // A port given asks for addresses only; a name of the hosts file is
        // not asked in DNS at all.
        addHost(host, transport, request.port != 0 ? request.port : defaultPort(transport), Locator::VIA_A, nullptr,
                kNoTtl);
    } else if (request.hasTransport) {
        Found srv;
        if (need(srvName(transport, host), SipDns::kTypeSrv, srv) &&
            addSrv(srv, transport, Locator::VIA_SRV, kNoTtl) == SRV_NONE) {
            addHost(host, transport, defaultPort(transport), Locator::VIA_A, nullptr, kNoTtl);
        }
    } else {
        Found naptr;
        if (need(host, SipDns::kTypeNaptr, naptr)) {
            usableServices(naptr);
            bool bPending = false;
            SrvUse use = SRV_NONE;
            Locator::Transport fallback = transport;
            Found srv;
            if (!m_services.empty()) {
                for (const Service& service : m_services) {
                    if (!need(*service.replacement, SipDns::kTypeSrv, srv)) {
                        bPending = true;
                        continue;
                    }
                    use = std::max(use, addSrv(srv, service.transport, Locator::VIA_NAPTR, naptr.ttl));
                }
                fallback = m_services.front().transport;
            } else {
                static const Locator::Transport s_all[] = {Locator::TRANSPORT_TLS, Locator::TRANSPORT_TCP,
                                                           Locator::TRANSPORT_UDP};
                const size_t count = request.secure ? 1 : 3;
                for (size_t i = 0; i < count; ++i) {
                    if (!need(srvName(s_all[i], host), SipDns::kTypeSrv, srv)) {
                        bPending = true;
                        continue;
                    }
                    use = std::max(use, addSrv(srv, s_all[i], Locator::VIA_SRV, kNoTtl));
                }
            }
            if (!bPending && use == SRV_NONE) {
                addHost(host, fallback, defaultPort(fallback), Locator::VIA_A, nullptr, kNoTtl);
            }
        }
    }
    m_pSource = nullptr;
    m_pHosts = nullptr;
    return !m_bPending;
}

bool SipLocatorProcedure::need(const std::string& in_name, uint16_t in_uiType, Found& out_found) {
    Lookup* pLookup = findLookup(in_name, in_uiType);
    if (pLookup == nullptr) {
        if (m_bExpired) {
            // Too late to ask: the lookup is left out, as one that found nothing.
            m_bExpiredLookup = true;
            out_found = Found();
            return true;
        }
        m_lookups.emplace_back();
        pLookup = &m_lookups.back();
        pLookup->name = in_name;
        pLookup->type = in_uiType;
        m_pSource->find(*pLookup);
    }
    const size_t index = static_cast<size_t>(pLookup - m_lookups.data());
    if (std::find(m_order.begin(), m_order.end(), index) == m_order.end()) m_order.push_back(index);
    if (!pLookup->done) {
        if (!m_bExpired) {
            m_bPending = true;
            return false;
        }
        pLookup->done = true;
        pLookup->outcome = Locator::OUTCOME_TIMEOUT;
        pLookup->error = "no answer within the request's time-out";
        m_bExpiredLookup = true;
    }
    out_found.outcome = pLookup->outcome;
    out_found.records = pLookup->records.get();
    out_found.ttl = pLookup->ttl;
    return true;
}

bool SipLocatorProcedure::addHost(const std::string& in_name, Locator::Transport in_transport, unsigned in_uiPort,
                                  Locator::Via in_via, const SipDns::SrvRecord* in_pSrv, uint32_t in_uiTtl) {
    const Locator::Family family = m_request.family;
    const bool bWant4 = family != Locator::FAMILY_IPV6;
    const bool bWant6 = family != Locator::FAMILY_IPV4;
    if (m_pHosts != nullptr) {
        const auto found = m_pHosts->find(in_name);
        if (found != m_pHosts->end() && ((bWant4 && !found->second.ipv4.empty()) || (bWant6 && !found->second.ipv6.empty()))) {
            const Locator::Via via = in_via == Locator::VIA_A ? Locator::VIA_HOSTS : in_via;
            addAddresses(&found->second.ipv4, &found->second.ipv6, in_transport, in_name, in_uiPort, in_pSrv, 0, 0, via,
                         via);
            return true;
        }
    }
    // Both asked before either is waited for: their queries go out together.
    Found a;
    Found aaaa;
    const bool bKnown4 = !bWant4 || need(in_name, SipDns::kTypeA, a);
    const bool bKnown6 = !bWant6 || need(in_name, SipDns::kTypeAaaa, aaaa);
    if (!bKnown4 || !bKnown6) return false;
    const auto addresses = [](const Found& in_found) {
        return in_found.outcome == Locator::OUTCOME_ANSWER && in_found.records ? &in_found.records->addresses : nullptr;
    };
    const bool bPlain = in_via == Locator::VIA_A;
    addAddresses(bWant4 ? addresses(a) : nullptr, bWant6 ? addresses(aaaa) : nullptr, in_transport, in_name,
                 in_uiPort, in_pSrv, std::min(in_uiTtl, a.ttl), std::min(in_uiTtl, aaaa.ttl), in_via,
                 bPlain ? Locator::VIA_AAAA : in_via);
    return true;
}

SipLocatorProcedure::SrvUse SipLocatorProcedure::addSrv(const Found& in_srv, Locator::Transport in_transport,
                                                        Locator::Via in_via, uint32_t in_uiTtl) {
    if (in_srv.outcome != Locator::OUTCOME_ANSWER || !in_srv.records || in_srv.records->srv.empty()) return SRV_NONE;
    const std::vector<SipDns::SrvRecord>& records = in_srv.records->srv;
    if (records.size() == 1 && records.front().target.empty()) {
        m_bNotOffered = true;
        return SRV_NOT_OFFERED;
    }
    const uint32_t ttl = std::min(in_uiTtl, in_srv.ttl);
    // addHost below may run addSrv no more: the scratch order stays whole.
    std::vector<size_t>& order = m_srvOrder;
    orderSrvRecords(records, m_random, order);
    for (size_t i : order) {
        if (!records[i].target.empty()) addHost(records[i].target, in_transport, records[i].port, in_via, &records[i], ttl);
    }
    return SRV_RECORDS;
}

void SipLocatorProcedure::addAddresses(const std::vector<std::string>* in_pIpv4,
                                       const std::vector<std::string>* in_pIpv6, Locator::Transport in_transport,
                                       const std::string& in_host, unsigned in_uiPort, const SipDns::SrvRecord* in_pSrv,
                                       uint32_t in_uiTtl4, uint32_t in_uiTtl6, Locator::Via in_via4,
                                       Locator::Via in_via6) {
    static const std::vector<std::string> s_none;
    const Locator::Family family = m_request.family;
    const std::vector<std::string>& v4 = family != Locator::FAMILY_IPV6 && in_pIpv4 ? *in_pIpv4 : s_none;
    const std::vector<std::string>& v6 = family != Locator::FAMILY_IPV4 && in_pIpv6 ? *in_pIpv6 : s_none;
    const auto add4 = [&](size_t i) { addTarget(in_transport, in_host, v4[i], in_uiPort, in_pSrv, in_uiTtl4, in_via4); };
    const auto add6 = [&](size_t i) { addTarget(in_transport, in_host, v6[i], in_uiPort, in_pSrv, in_uiTtl6, in_via6); };
    if (family == Locator::FAMILY_IPV6_FIRST) {
        for (size_t i = 0; i < std::max(v4.size(), v6.size()); ++i) {
            if (i < v6.size()) add6(i);
            if (i < v4.size()) add4(i);
        }
        return;
    }
    for (size_t i = 0; i < v4.size(); ++i) add4(i);
    for (size_t i = 0; i < v6.size(); ++i) add6(i);
}

void SipLocatorProcedure::addTarget(Locator::Transport in_transport, const std::string& in_host,
                                    const std::string& in_address, unsigned in_uiPort, const SipDns::SrvRecord* in_pSrv,
                                    uint32_t in_uiTtl, Locator::Via in_via) {
    for (const Locator::Target& target : m_targets) {
        if (target.transport == in_transport && target.port == in_uiPort && target.address == in_address) return;
    }
    m_targets.emplace_back();
    Locator::Target& target = m_targets.back();
    target.transport = in_transport;
    target.host = in_host;
    target.address = in_address;
    target.port = in_uiPort;
    target.priority = in_pSrv ? in_pSrv->priority : -1;
    target.weight = in_pSrv ? in_pSrv->weight : -1;
    target.ttl = in_uiTtl == kNoTtl ? 0 : in_uiTtl;
    target.via = in_via;
}

void SipLocatorProcedure::steps(std::vector<Locator::Step>& out_steps) const {
    out_steps.clear();
    out_steps.reserve(m_order.size());
    for (size_t index : m_order) {
        const Lookup& lookup = m_lookups[index];
        out_steps.emplace_back();
        Locator::Step& step = out_steps.back();
        step.name = lookup.name;
        step.type = static_cast<Locator::RecordType>(lookup.type);
        step.outcome = lookup.done ? lookup.outcome : Locator::OUTCOME_TIMEOUT;
        step.records = lookup.outcome == Locator::OUTCOME_ANSWER && lookup.records
                           ? static_cast<unsigned>(lookup.records->size())
                           : 0;
        const bool bSet = lookup.done && lookup.records &&
                          (lookup.outcome == Locator::OUTCOME_ANSWER || lookup.outcome == Locator::OUTCOME_NXDOMAIN ||
                           lookup.outcome == Locator::OUTCOME_NODATA);
        step.ttl = bSet ? static_cast<long>(lookup.ttl) : -1;
        step.cache = lookup.cache;
    }
}

std::string SipLocatorProcedure::error() const {
    if (!m_targets.empty()) return std::string();
    if (m_bExpiredLookup) return "no answer within the time-out";
    if (m_bNotOffered) return "the domain does not offer the service (SRV target \".\")";
    for (size_t index : m_order) {
        const Lookup& lookup = m_lookups[index];
        if (lookup.done && (lookup.outcome == Locator::OUTCOME_ERROR || lookup.outcome == Locator::OUTCOME_TIMEOUT)) {
            return lookup.name + " " + Locator::getRecordTypeName(static_cast<Locator::RecordType>(lookup.type)) +
                   ": " + lookup.error;
        }
    }
    return "no record leads to an address of " + m_request.host;
}

}  // namespace Net
}  // namespace Tarvik
