// IPv4 addresses with a text form, the interface towards a destination
// (through libdnet), and the free-port hunt.
#include "net/NetInterface.h"

#include <cctype>
#include <cstdint>
#include <cstring>
#include <istream>
#include <ostream>
#include <string>

#include <dumbnet.h>

#include "platform/Assertion.h"
#include "platform/Logger.h"
#include "platform/StringVector.h"
#include "vocal/UdpStack.h"

namespace Tarvik {
namespace Net {

namespace {

const char kAnyAddressText[] = "INADDR_ANY";
// Room for libdnet's entry and the alias addresses it appends.
const size_t kIntfBufferSize = 1024;
// Room for any address text of libdnet.
const size_t kAddressTextSize = 128;

Logger& interfaceLogger() {
    static Logger& s_logger = getLogger("corvane.net.Interface");
    return s_logger;
}

// Extracts an unsigned decimal 16-bit number after optional white space. A
// sign is refused: the stream would otherwise wrap "-1" to 65535.
bool extractNumber(std::istream& io_is, unsigned short& out_usValue) {
    io_is >> std::ws;
    const int next = io_is.peek();
    if (next == std::char_traits<char>::eof() || !std::isdigit(next)) {
        io_is.setstate(std::ios::failbit);
        return false;
    }
    return static_cast<bool>(io_is >> out_usValue);
}

// The port after an optional ':'; 0 without one. False (failbit set) when a
// ':' is not followed by a port.
bool extractOptionalPort(std::istream& io_is, unsigned short& out_usPort) {
    out_usPort = 0;
    if (io_is.eof() || io_is.peek() != ':') return true;
    io_is.get();
    return extractNumber(io_is, out_usPort);
}

// "UP,LOOPBACK,..." for the flag bits that have names, in bit order.
std::string flagNames(unsigned int in_uiFlags) {
    static const struct {
        unsigned int bit;
        const char* name;
    } kFlags[] = {{INTF_FLAG_UP, ",UP"},           {INTF_FLAG_LOOPBACK, ",LOOPBACK"},
                  {INTF_FLAG_POINTOPOINT, ",POINTOPOINT"}, {INTF_FLAG_NOARP, ",NOARP"},
                  {INTF_FLAG_BROADCAST, ",BROADCAST"}, {INTF_FLAG_MULTICAST, ",MULTICAST"}};
    std::string names;
    for (const auto& flag : kFlags) {
        if (in_uiFlags & flag.bit) names += flag.name;
    }
    return names.empty() ? names : names.substr(1);
}

}  // namespace

// ---------------------------------------------------------------- IPAddress

IPAddress::IPAddress() : ACE_INET_Addr(static_cast<u_short>(0), static_cast<ACE_UINT32>(INADDR_LOOPBACK)) {}

IPAddress::IPAddress(unsigned int in_uiIp)
    : ACE_INET_Addr(static_cast<u_short>(0), static_cast<ACE_UINT32>(in_uiIp)) {}

IPAddress::IPAddress(const IPAddress& in_other) = default;

IPAddress& IPAddress::operator=(const IPAddress& in_other) = default;

IPAddress::~IPAddress() = default;

const char* IPAddress::toString() const {
    // ACE's own form of this call shares one buffer between all threads.
    static thread_local char s_text[INET6_ADDRSTRLEN];
    return get_host_addr(s_text, sizeof(s_text));
}

std::ostream& IPAddress::write(std::ostream& io_os) const {
    if (get_ip_address() != 0) {
        io_os << toString();
    } else {
        io_os << kAnyAddressText;
    }
    // Decimal whatever the stream's base.
    return io_os << ':' << std::to_string(get_port_number());
}

std::istream& IPAddress::read(std::istream& io_is) {
    // Like any extractor: a stream that is not good is not read.
    if (!io_is.good()) {
        io_is.setstate(std::ios::failbit);
        return io_is;
    }
    io_is >> std::ws;
    const int first = io_is.peek();
    if (first == std::char_traits<char>::eof() || !std::isdigit(first)) {
        // Not a dotted address: "INADDR_ANY", or a prefix of it that ends the stream.
        io_is.clear();
        size_t matched = 0;
        for (; matched < sizeof(kAnyAddressText) - 1; ++matched) {
            const int c = io_is.get();
            if (c == std::char_traits<char>::eof()) break;
            if (c != kAnyAddressText[matched]) {
                io_is.setstate(std::ios::failbit);
                return io_is;
            }
        }
        if (io_is.eof()) {
            // Nothing at all is no address: a read loop must end at the end of a stream.
            io_is.clear(matched == 0 ? std::ios::eofbit | std::ios::failbit : std::ios::eofbit);
            if (matched == 0) return io_is;
        }
        unsigned short port = 0;
        if (!extractOptionalPort(io_is, port)) return io_is;
        if (set(port, static_cast<ACE_UINT32>(INADDR_ANY), 1) != 0) io_is.setstate(std::ios::failbit);
        return io_is;
    }

    unsigned short a = 0;
    if (!(io_is >> a)) return io_is;
    char separator[3] = {};
    unsigned short b = 0, c = 0, d = 0;
    io_is >> separator[0];
    if (io_is) extractNumber(io_is, b);
    if (io_is) io_is >> separator[1];
    if (io_is) extractNumber(io_is, c);
    if (io_is) io_is >> separator[2];
    if (io_is) extractNumber(io_is, d);
    if (!io_is) return io_is;
    if (separator[0] != '.' || separator[1] != '.' || separator[2] != '.') {
        io_is.setstate(std::ios::failbit);
        return io_is;
    }
    unsigned short port = 0;
    if (!extractOptionalPort(io_is, port)) return io_is;

    // The numbers are decimal ("010" is 10). A number above 255 makes no
    // address; it is refused here rather than handed, as text, to the
    // host-name resolver.
    if (a > 255 || b > 255 || c > 255 || d > 255) {
        io_is.setstate(std::ios::failbit);
        return io_is;
    }
    const ACE_UINT32 ip = (static_cast<ACE_UINT32>(a) << 24) | (static_cast<ACE_UINT32>(b) << 16) |
                          (static_cast<ACE_UINT32>(c) << 8) | static_cast<ACE_UINT32>(d);
    ACE_INET_Addr address;
    if (address.set(port, ip, 1) != 0) {
        io_is.setstate(std::ios::failbit);
        return io_is;
    }
    ACE_INET_Addr::operator=(address);
    return io_is;
}

// ---------------------------------------------------------------- Interface

Interface::Interface() : m_pIntf(nullptr), m_pIntfEntry(nullptr), m_bValid(false) {}

Interface::~Interface() {
    if (m_pIntf != nullptr) intf_close(m_pIntf);
}

// Member-wise on purpose: a copy shares the source's handle and entry.
Interface::Interface(const Interface& in_other) = default;
Interface& Interface::operator=(const Interface& in_other) = default;

bool Interface::getForDestination(const char* in_szDestination) {
    Logger& logger = interfaceLogger();
    CORVANE_TRACE_SCOPE(logger, "Interface::getForDestination");
    m_bValid = false;
    if (!CORVANE_ASSERT(logger, in_szDestination != nullptr)) return false;
    if (m_pIntf != nullptr) {
        intf_close(m_pIntf);
        m_pIntf = nullptr;
    }
    m_pIntf = intf_open();
    if (m_pIntf == nullptr) {
        CORVANE_ERROR(logger, traceScope.getName() << " : intf_open failed");
        return false;
    }

    if (m_vChar.capacity() < kIntfBufferSize) m_vChar.reserve(kIntfBufferSize);
    m_vChar.resize(m_vChar.capacity());
    m_pIntfEntry = reinterpret_cast<intf_entry*>(m_vChar.data());
    if (!CORVANE_ASSERT(logger, sizeof(*m_pIntfEntry) <= m_vChar.size())) return false;
    // libdnet appends the alias addresses behind the entry, up to intf_len.
    std::memset(m_pIntfEntry, 0, sizeof(*m_pIntfEntry));
    m_pIntfEntry->intf_len = static_cast<u_int>(m_vChar.size());

    addr destination;
    if (addr_pton(in_szDestination, &destination) < 0) {
        CORVANE_ERROR(logger, traceScope.getName() << " : addr_pton failed on " << in_szDestination);
        return false;
    }
    if (intf_get_dst(m_pIntf, m_pIntfEntry, &destination) < 0) {
        CORVANE_ERROR(logger, traceScope.getName() << " : intf_get_dst failed on " << in_szDestination);
        return false;
    }
    m_bValid = true;
    return true;
}

void Interface::getIPAdress(std::string& out_strAddress) const {
    if (!CORVANE_ASSERT(interfaceLogger(), m_bValid)) return;
    out_strAddress.assign(kAddressTextSize, '\0');
    if (ip_ntop(&m_pIntfEntry->intf_addr.addr_ip, &out_strAddress[0], out_strAddress.size()) == nullptr) {
        out_strAddress.clear();
        return;
    }
    out_strAddress.resize(std::strlen(out_strAddress.c_str()));
}

std::ostream& Interface::write(std::ostream& io_os) const {
    if (!m_bValid) {
        io_os.setstate(std::ios::failbit);
        return io_os;
    }
    const intf_entry& entry = *m_pIntfEntry;
    const std::string name(entry.intf_name, strnlen(entry.intf_name, sizeof(entry.intf_name)));
    io_os << format("%s:", name.c_str());
    io_os << format(" flags=0x%x<%s>", static_cast<unsigned int>(entry.intf_flags),
                    flagNames(entry.intf_flags).c_str());
    if (entry.intf_mtu != 0) io_os << format(" mtu %d", static_cast<int>(entry.intf_mtu));
    io_os << std::endl;

    char text[kAddressTextSize] = {};
    if (entry.intf_addr.addr_type == ADDR_TYPE_IP) {
        if (entry.intf_dst_addr.addr_type == ADDR_TYPE_IP) {
            // Both texts go through the one buffer, the interface address
            // last, so this line shows the interface address twice. Scripts
            // read the line in this form; it is kept.
            const char* pDestination = addr_ntop(&entry.intf_dst_addr, text, sizeof(text));
            const char* pAddress = addr_ntop(&entry.intf_addr, text, sizeof(text));
            io_os << format("\tinet %s --> %s\n", pDestination ? pDestination : "",
                            pAddress ? pAddress : "");
        } else {
            const char* pAddress = addr_ntop(&entry.intf_addr, text, sizeof(text));
            io_os << format("\tinet %s\n", pAddress ? pAddress : "");
        }
    }
    if (entry.intf_link_addr.addr_type == ADDR_TYPE_ETH) {
        const char* pLink = addr_ntop(&entry.intf_link_addr, text, sizeof(text));
        io_os << format("\tlink %s\n", pLink ? pLink : "");
    }
    for (u_int i = 0; i < entry.intf_alias_num; ++i) {
        const char* pAlias = addr_ntop(&entry.intf_alias_addrs[i], text, sizeof(text));
        io_os << format("\talias %s\n", pAlias ? pAlias : "");
    }
    return io_os;
}

// ---------------------------------------------------------------- port hunt

Fallible<size_t> findFreeIPPortHunt(void* in_pSocket, size_t in_uiMinPort, size_t in_uiMaxPort,
                                    size_t in_uiStartPort) {
    // The handle is a file descriptor carried in a pointer.
    const int socket = static_cast<int>(reinterpret_cast<intptr_t>(in_pSocket));
    const int port = Vocal::huntFreePort(socket, static_cast<int>(in_uiMinPort),
                                         static_cast<int>(in_uiMaxPort),
                                         static_cast<int>(in_uiStartPort), Vocal::ANY_PORT);
    if (port < 0) return Fallible<size_t>();
    return Fallible<size_t>(static_cast<size_t>(port));
}

}  // namespace Net
}  // namespace Tarvik
