#include "net/Hostent.h"

#include <utility>

#include <arpa/inet.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/Assertion.h"
#include "platform/GlobalConfig.h"
#include "platform/Logger.h"

namespace Tarvik {

namespace {

Logger& hostentLogger() {
    static Logger& s_logger = getLogger("corvane.net.Hostent");
    return s_logger;
}

MemAccount& bufferAccount() { return Hostent::getMemAccount(); }

char* copyText(const char* in_szText) {
    const size_t length = std::strlen(in_szText) + 1;
    char* pCopy = static_cast<char*>(NoSizeMemAllocator::allocate(bufferAccount(), length));
    std::memcpy(pCopy, in_szText, length);
    return pCopy;
}

size_t countEntries(char** in_ppList) {
    size_t count = 0;
    while (in_ppList[count] != nullptr) ++count;
    return count;
}

// Built when the library is loaded; only read afterwards.
const BoostRegex s_dottedIPRegex("^(\\d+(?:\\.\\d+)+)(:(?:\\d+))?$");

// The test replacement of the operating system's lookup.
std::atomic<bool> s_bHasLookupHook{false};
std::mutex s_lookupHookMutex;
Hostent::HostLookup s_lookupHook;

int lookUp(const char* in_szName, hostent* out_pResult, char* io_pBuffer, size_t in_uiLength,
           hostent** out_ppResult, int* out_pHErrno) {
    if (s_bHasLookupHook.load(std::memory_order_acquire)) {
        Hostent::HostLookup hook;
        {
            std::lock_guard<std::mutex> guard(s_lookupHookMutex);
            hook = s_lookupHook;
        }
        if (hook) return hook(in_szName, out_pResult, io_pBuffer, in_uiLength, out_ppResult, out_pHErrno);
    }
    return ::gethostbyname_r(in_szName, out_pResult, io_pBuffer, in_uiLength, out_ppResult, out_pHErrno);
}

Hostent::GetHostByNameStatus statusOfHErrno(int in_iHErrno) {
    switch (in_iHErrno) {
        case HOST_NOT_FOUND: return Hostent::GHBN_HOST_NOT_FOUND;
        case TRY_AGAIN: return Hostent::GHBN_TRY_AGAIN;
        case NO_RECOVERY: return Hostent::GHBN_NO_RECOVERY;
        case NO_DATA: return Hostent::GHBN_NO_DATA;
        default: return Hostent::GHBN_OTHER_ERROR;
    }
}

}  // namespace

Hostent::Hostent() : m_hostent(), m_uiNumAlias(0), m_uiNumAddress(0) {}

Hostent::Hostent(const Hostent& in_other) : Hostent() { copyFrom(in_other.m_hostent); }

Hostent& Hostent::operator=(const Hostent& in_other) {
    if (this != &in_other) copyFrom(in_other.m_hostent);
    return *this;
}

void Hostent::swap(Hostent& io_other) noexcept {
    std::swap(m_hostent, io_other.m_hostent);
    std::swap(m_uiNumAlias, io_other.m_uiNumAlias);
    std::swap(m_uiNumAddress, io_other.m_uiNumAddress);
}

Hostent::~Hostent() {
    resetName();
    resetAliases();
    resetAddresses();
    m_hostent.h_addrtype = 0;
    m_hostent.h_length = 0;
}

void Hostent::copyFrom(const hostent& in_source) {
    if (in_source.h_name != nullptr) {
        setName(in_source.h_name);
    } else {
        resetName();
    }
    resetAliases();
    if (in_source.h_aliases != nullptr) {
        m_uiNumAlias = countEntries(in_source.h_aliases);
        m_hostent.h_aliases = static_cast<char**>(
            NoSizeMemAllocator::allocate(bufferAccount(), (m_uiNumAlias + 1) * sizeof(char*)));
        for (size_t i = 0; i < m_uiNumAlias; ++i) m_hostent.h_aliases[i] = copyText(in_source.h_aliases[i]);
        m_hostent.h_aliases[m_uiNumAlias] = nullptr;
    }
    m_hostent.h_addrtype = in_source.h_addrtype;
    m_hostent.h_length = in_source.h_length;
    resetAddresses();
    if (in_source.h_addr_list != nullptr) {
        m_uiNumAddress = countEntries(in_source.h_addr_list);
        const size_t length = static_cast<size_t>(in_source.h_length > 0 ? in_source.h_length : 0);
        m_hostent.h_addr_list = static_cast<char**>(
            NoSizeMemAllocator::allocate(bufferAccount(), (m_uiNumAddress + 1) * sizeof(char*)));
        for (size_t i = 0; i < m_uiNumAddress; ++i) {
            char* pBlock = static_cast<char*>(NoSizeMemAllocator::allocate(bufferAccount(), length));
            if (length) std::memcpy(pBlock, in_source.h_addr_list[i], length);
            m_hostent.h_addr_list[i] = pBlock;
        }
        m_hostent.h_addr_list[m_uiNumAddress] = nullptr;
    }
}

void Hostent::resetName() {
    NoSizeMemAllocator::deallocate(m_hostent.h_name);
    m_hostent.h_name = nullptr;
}

void Hostent::resetAliases() {
    if (m_hostent.h_aliases != nullptr) {
        CORVANE_ASSERT(hostentLogger(), (m_uiNumAlias > 0) || (*m_hostent.h_aliases == 0));
        for (size_t i = 0; i < m_uiNumAlias; ++i) NoSizeMemAllocator::deallocate(m_hostent.h_aliases[i]);
        NoSizeMemAllocator::deallocate(m_hostent.h_aliases);
        m_hostent.h_aliases = nullptr;
    } else {
        CORVANE_ASSERT(hostentLogger(), m_uiNumAlias == 0);
    }
    m_uiNumAlias = 0;
}

void Hostent::resetAddresses() {
    if (m_hostent.h_addr_list != nullptr) {
        CORVANE_ASSERT(hostentLogger(), (m_uiNumAddress > 0) || (*m_hostent.h_addr_list == 0));
        for (size_t i = 0; i < m_uiNumAddress; ++i) NoSizeMemAllocator::deallocate(m_hostent.h_addr_list[i]);
        NoSizeMemAllocator::deallocate(m_hostent.h_addr_list);
        m_hostent.h_addr_list = nullptr;
    } else {
        CORVANE_ASSERT(hostentLogger(), m_uiNumAddress == 0);
    }
    m_uiNumAddress = 0;
}

void Hostent::setName(const char* in_szHostname) {
    if (!CORVANE_ASSERT(hostentLogger(), in_szHostname != 0)) return;
    const size_t length = std::strlen(in_szHostname) + 1;
    m_hostent.h_name = static_cast<char*>(NoSizeMemAllocator::reallocate(bufferAccount(), m_hostent.h_name, length));
    std::memcpy(m_hostent.h_name, in_szHostname, length);
}

void Hostent::setAddressTypeAndLength(short in_sType, short in_sLength) {
    m_hostent.h_addrtype = in_sType;
    m_hostent.h_length = in_sLength;
}

void Hostent::addAddress(const void* in_pAddress) {
    if (!CORVANE_ASSERT(hostentLogger(), in_pAddress != 0)) return;
    ++m_uiNumAddress;
    m_hostent.h_addr_list = static_cast<char**>(NoSizeMemAllocator::reallocate(
        bufferAccount(), m_hostent.h_addr_list, (m_uiNumAddress + 1) * sizeof(char*)));
    const size_t length = static_cast<size_t>(m_hostent.h_length > 0 ? m_hostent.h_length : 0);
    char* pBlock = static_cast<char*>(NoSizeMemAllocator::allocate(bufferAccount(), length));
    if (length) std::memcpy(pBlock, in_pAddress, length);
    m_hostent.h_addr_list[m_uiNumAddress - 1] = pBlock;
    m_hostent.h_addr_list[m_uiNumAddress] = nullptr;
}

bool Hostent::getAddress(size_t in_uiIndex, std::string& out_strAddress) const {
    if (in_uiIndex >= m_uiNumAddress) return false;
    if (!CORVANE_ASSERT(hostentLogger(), m_hostent.h_addr_list != 0)) return false;
    const char* pAddress = m_hostent.h_addr_list[in_uiIndex];
    if (!CORVANE_ASSERT(hostentLogger(), pAddress != 0)) return false;
    out_strAddress.clear();
    const int length = m_hostent.h_length;
    for (int i = 0; i < length; ++i) {
        if (i) out_strAddress += '.';
        out_strAddress += std::to_string(static_cast<unsigned char>(pAddress[i]));
    }
    return true;
}

bool Hostent::getPrimaryOrFirstAddress(std::string& out_strAddress) const {
    if (m_uiNumAddress == 0) return false;
    std::string primary;
    if (!GlobalConfig::getInstance().getConfig()->getString("corvane.net.primaryIPAddress", primary)) {
        return CORVANE_ASSERT(hostentLogger(), getAddress(0, out_strAddress));
    }
    for (int i = static_cast<int>(m_uiNumAddress) - 1; i >= 0; --i) {
        if (!CORVANE_ASSERT(hostentLogger(), getAddress(i, out_strAddress))) return false;
        if (out_strAddress == primary) break;
    }
    return true;
}

bool Hostent::getPreferredAddressFirst(std::string& out_strAddress,
                                       const std::string& in_strPreferredAddress) const {
    if (m_uiNumAddress == 0) return false;
    for (int i = static_cast<int>(m_uiNumAddress) - 1; i >= 0; --i) {
        if (!CORVANE_ASSERT(hostentLogger(), getAddress(i, out_strAddress))) return false;
        CORVANE_DEBUG(hostentLogger(), "Fetched Address: " << out_strAddress);
        if (out_strAddress == in_strPreferredAddress) break;
    }
    CORVANE_DEBUG(hostentLogger(), "Address find: " << out_strAddress);
    return true;
}

std::ostream& Hostent::writeAddress(std::ostream& io_os, const char* in_pAddress, size_t in_uiLength) {
    if (in_pAddress == nullptr || in_uiLength == 0) return io_os;
    for (size_t i = 0; i < in_uiLength; ++i) {
        if (i) io_os << '.';
        io_os << static_cast<unsigned>(static_cast<unsigned char>(in_pAddress[i]));
    }
    return io_os;
}

std::ostream& Hostent::write(std::ostream& io_os) const {
    bool bFirst = true;
    const auto line = [&]() -> std::ostream& {
        if (!bFirst) io_os << std::endl;
        bFirst = false;
        return io_os;
    };
    if (m_hostent.h_name != nullptr) line() << "HOSTNAME : " << m_hostent.h_name;
    if (m_hostent.h_aliases != nullptr && m_hostent.h_aliases[0] != nullptr) {
        line() << "ALIASE(S) : ";
        for (char** ppAlias = m_hostent.h_aliases; *ppAlias != nullptr; ++ppAlias) line() << '\t' << *ppAlias;
    }
    line() << "ADDRTYPE : " << m_hostent.h_addrtype;
    line() << "ADDRLENGTH : " << m_hostent.h_length;
    if (m_hostent.h_addr_list != nullptr && m_hostent.h_addr_list[0] != nullptr) {
        line() << "ADDRESS(ES) : ";
        const size_t length = static_cast<size_t>(m_hostent.h_length > 0 ? m_hostent.h_length : 0);
        for (char** ppAddress = m_hostent.h_addr_list; *ppAddress != nullptr; ++ppAddress) {
            writeAddress(line() << '\t', *ppAddress, length);
        }
    }
    return io_os;
}

const char* Hostent::getGetHostByNameStatusString(GetHostByNameStatus in_status) {
    static const char* const s_names[] = {"GHBN_SUCCESS",   "GHBN_TIMEOUT",     "GHBN_HOST_NOT_FOUND",
                                          "GHBN_NO_ADDRESS", "GHBN_NO_DATA",     "GHBN_NO_RECOVERY",
                                          "GHBN_TRY_AGAIN",  "GHBN_OTHER_ERROR"};
    const int index = static_cast<int>(in_status);
    return index >= 0 && index < 8 ? s_names[index] : "???";
}

namespace {

// How a text stands to the dotted-address pattern without running it.
enum class DottedShape {
    kNoMatch,   // the pattern cannot match anywhere in the text
    kOneLine,   // only digits, dots and colons: the whole text is the one line the pattern sees
    kAskRegex   // line breaks or other control or non-ASCII bytes: let the pattern decide
};

DottedShape dottedShape(const std::string& in_strText) {
    bool bOnlyDottedChars = true;
    for (unsigned char c : in_strText) {
        if ((c >= '0' && c <= '9') || c == '.' || c == ':') continue;
        if (c < 0x20 || c >= 0x7f) return DottedShape::kAskRegex;
        bOnlyDottedChars = false;
    }
    return bOnlyDottedChars && !in_strText.empty() ? DottedShape::kOneLine : DottedShape::kNoMatch;
}

// The pattern "^(\d+(?:\.\d+)+)(:(?:\d+))?$" on a text of digits, dots and
// colons only: the length of the address part, or 0 when it does not match.
size_t matchDottedLine(const std::string& in_strText) {
    const auto digits = [&](size_t i) {
        size_t j = i;
        while (j < in_strText.size() && in_strText[j] >= '0' && in_strText[j] <= '9') ++j;
        return j - i;
    };
    size_t i = digits(0);
    if (i == 0) return 0;
    size_t runs = 1;
    while (i < in_strText.size() && in_strText[i] == '.') {
        const size_t n = digits(i + 1);
        if (n == 0) return 0;
        i += 1 + n;
        ++runs;
    }
    if (runs < 2) return 0;
    const size_t addressLength = i;
    if (i == in_strText.size()) return addressLength;
    if (in_strText[i] != ':') return 0;
    const size_t n = digits(i + 1);
    return n > 0 && i + 1 + n == in_strText.size() ? addressLength : 0;
}

}  // namespace

bool Hostent::isDottedIP(const std::string& in_strText) {
    switch (dottedShape(in_strText)) {
        case DottedShape::kOneLine: return matchDottedLine(in_strText) != 0;
        case DottedShape::kAskRegex: return s_dottedIPRegex.match(in_strText);
        default: return false;
    }
}

bool Hostent::parseDottedIP(const std::string& in_strText, std::string& out_strAddress, std::string& out_strPort) {
    const DottedShape shape = dottedShape(in_strText);
    if (shape == DottedShape::kNoMatch) return false;
    if (shape == DottedShape::kOneLine) {
        // The same outcome as the pattern's search, without running it.
        const size_t addressLength = matchDottedLine(in_strText);
        if (addressLength == 0) return false;
        out_strAddress.assign(in_strText, 0, addressLength);
        out_strPort.assign(in_strText, addressLength, std::string::npos);
        return true;
    }
    boost::smatch matchResult;
    if (!s_dottedIPRegex.search(in_strText, matchResult)) return false;
    if (!CORVANE_ASSERT(hostentLogger(), matchResult.size() == 3)) return false;
    out_strAddress = matchResult[1].str();
    out_strPort = matchResult[2].str();
    return true;
}

const BoostRegex Hostent::getDottedIPRegexp() { return s_dottedIPRegex; }

bool Hostent::getHostByName(const char* in_szHostname, GetHostByNameStatus& out_status) {
    out_status = GHBN_SUCCESS;
    std::string name = in_szHostname ? in_szHostname : "";
    std::string address;
    std::string port;
    if (parseDottedIP(name, address, port)) name = address;

    hostent result;
    hostent* pResult = nullptr;
    int hErrno = 0;
    alignas(16) char stackBuffer[8192];
    std::vector<char> heapBuffer;
    char* pBuffer = stackBuffer;
    size_t length = sizeof stackBuffer;
    int rc;
    while ((rc = lookUp(name.c_str(), &result, pBuffer, length, &pResult, &hErrno)) == ERANGE && length < (1u << 20)) {
        length *= 4;
        heapBuffer.resize(length);
        pBuffer = heapBuffer.data();
    }
    if (rc == 0 && pResult != nullptr) {
        copyFrom(*pResult);
        return true;
    }
    out_status = statusOfHErrno(hErrno);
    CORVANE_DEBUG(hostentLogger(), "ACE_OS::gethostbyname_r failed on hostname " << name << " : "
                                       << getGetHostByNameStatusString(out_status)
                                       << ". localErrno = " << hErrno);
    resetName();
    resetAliases();
    resetAddresses();
    m_hostent.h_addrtype = 0;
    m_hostent.h_length = 0;
    return false;
}

void Hostent::setHostLookupForTest(HostLookup in_lookup) {
    std::lock_guard<std::mutex> guard(s_lookupHookMutex);
    s_bHasLookupHook.store(static_cast<bool>(in_lookup), std::memory_order_release);
    s_lookupHook = std::move(in_lookup);
}

}  // namespace Tarvik
