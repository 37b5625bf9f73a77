// An IPv4 address with a text form, the local interface that reaches a
// destination, and the hunt for a free local port.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include <ace/INET_Addr.h>

#include "platform/Fallible.h"

// libdnet's types, kept out of the clients' includes.
struct intf_handle;
struct intf_entry;

namespace Tarvik {
namespace Net {

// An IPv4 address and port whose text form is "a.b.c.d:port", or
// "INADDR_ANY:port" for address 0.
class IPAddress : public ACE_INET_Addr {
public:
    // 127.0.0.1, port 0.
    IPAddress();
    // The address in_uiIp (host byte order), port 0.
    IPAddress(unsigned int in_uiIp);  // NOLINT: converts, as ACE_INET_Addr does
    IPAddress(const IPAddress& in_other);
    IPAddress& operator=(const IPAddress& in_other);
    virtual ~IPAddress();

    // The dotted address without the port.
    const char* toString() const;
    // Writes the text form.
    std::ostream& write(std::ostream& io_os) const;
    // Reads the text form, the port being optional (":port" absent: port 0).
    // Malformed text sets failbit and leaves the address as it was.
    std::istream& read(std::istream& io_is);
};

// The local interface through which a destination address is reached.
// Copies share the source's libdnet handle and entry: an Interface must
// outlive its copies, and only one of them may be destroyed with the handle open.
class Interface {
public:
    Interface();
    ~Interface();
    Interface(const Interface& in_other);
    Interface& operator=(const Interface& in_other);

    // Finds the interface towards in_szDestination (a literal address).
    // Without a route to it, false and not valid.
    bool getForDestination(const char* in_szDestination);
    bool isValid() const { return m_bValid; }
    // The interface's own IPv4 address as dotted text; only when valid.
    void getIPAdress(std::string& out_strAddress) const;
    // Name, flags and MTU on the first line, then the addresses and aliases,
    // one a line; sets failbit and writes nothing when not valid.
    std::ostream& write(std::ostream& io_os) const;

private:
    std::vector<char> m_vChar;     // libdnet's entry followed by its alias addresses
    intf_handle* m_pIntf;          // open libdnet handle, or null
    intf_entry* m_pIntfEntry;      // start of m_vChar once getForDestination has sized it
    bool m_bValid;                 // true after a successful getForDestination
};

// Binds in_pSocket (an open, unbound IPv4 socket's descriptor) to the first
// local port of [in_uiMinPort, in_uiMaxPort] that can be bound, trying
// in_uiStartPort first, then upwards, then wrapping around to the minimum.
// The result holds the bound port, or is invalid when none could be bound
// (errno then tells the last bind failure).
Fallible<size_t> findFreeIPPortHunt(void* in_pSocket, size_t in_uiMinPort, size_t in_uiMaxPort,
                                    size_t in_uiStartPort);

}  // namespace Net
}  // namespace Tarvik
