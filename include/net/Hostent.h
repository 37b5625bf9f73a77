// The library's owned, deep-copied form of a resolution result (a hostent),
// the resolution statuses, the dotted-address pattern and a one-shot
// resolution through the operating system.
#pragma once

#include <netdb.h>

#include <cstddef>
#include <functional>
#include <ostream>
#include <string>

#include "platform/BoostRegex.h"
#include "platform/MemAccount.h"

namespace Tarvik {

class Hostent {
    CORVANE_STATIC_ALLOCATOR("Hostent")

public:
    enum GetHostByNameStatus {
        GHBN_SUCCESS = 0,
        GHBN_TIMEOUT = 1,
        GHBN_HOST_NOT_FOUND = 2,
        GHBN_NO_ADDRESS = 3,
        GHBN_NO_DATA = 4,
        GHBN_NO_RECOVERY = 5,
        GHBN_TRY_AGAIN = 6,
        GHBN_OTHER_ERROR = 7
    };

    Hostent();
    Hostent(const Hostent& in_other);
    Hostent& operator=(const Hostent& in_other);
    ~Hostent();
    // Exchanges the two records; never throws.
    void swap(Hostent& io_other) noexcept;

    operator const hostent&() const { return m_hostent; }

    // Building a record by hand: set the type and length before the first address.
    void setName(const char* in_szHostname);
    void setAddressTypeAndLength(short in_sType, short in_sLength);
    void addAddress(const void* in_pAddress);

    bool isValid() const { return m_hostent.h_addr_list != nullptr && m_hostent.h_addr_list[0] != nullptr; }
    size_t getNumAddress() const { return m_uiNumAddress; }
    // The dotted text of address i; false when i is not below the count.
    bool getAddress(size_t in_uiIndex, std::string& out_strAddress) const;
    // The address named by "corvane.net.primaryIPAddress" when the record holds
    // it, else address 0; false when there is no address.
    bool getPrimaryOrFirstAddress(std::string& out_strAddress) const;
    // The given address when the record holds it, else address 0.
    bool getPreferredAddressFirst(std::string& out_strAddress, const std::string& in_strPreferredAddress) const;
    // The printed form: HOSTNAME, ALIASE(S), ADDRTYPE, ADDRLENGTH, ADDRESS(ES).
    std::ostream& write(std::ostream& io_os) const;

    static const char* getGetHostByNameStatusString(GetHostByNameStatus in_status);
    // The whole text is a dotted address, with or without a port ("1.2", "10.0.0.1:5060").
    static bool isDottedIP(const std::string& in_strText);
    // Splits a dotted address into its address and its port (with its colon, or empty).
    static bool parseDottedIP(const std::string& in_strText, std::string& out_strAddress, std::string& out_strPort);
    static const BoostRegex getDottedIPRegexp();

    // One resolution through the operating system's resolver (a dotted
    // address with a port is resolved without its port).
    bool getHostByName(const char* in_szHostname, GetHostByNameStatus& out_status);

    // Replaces the operating system's lookup (gethostbyname_r's signature) for
    // tests that need a slow or failing resolver; an empty function restores it.
    using HostLookup = std::function<int(const char* name, hostent* result, char* buffer, size_t length,
                                         hostent** out_result, int* out_herrno)>;
    static void setHostLookupForTest(HostLookup in_lookup);

    const hostent& getHostent() const { return m_hostent; }

private:
    void copyFrom(const hostent& in_source);
    void resetName();
    void resetAliases();
    void resetAddresses();
    static std::ostream& writeAddress(std::ostream& io_os, const char* in_pAddress, size_t in_uiLength);

    hostent m_hostent;         // owns h_name, h_aliases (and texts), h_addr_list (and blocks)
    size_t m_uiNumAlias;       // entries of h_aliases before its null
    size_t m_uiNumAddress;     // entries of h_addr_list before its null
};

inline std::ostream& operator<<(std::ostream& io_os, const Hostent& in_hostent) {
    return in_hostent.write(io_os);
}

}  // namespace Tarvik
