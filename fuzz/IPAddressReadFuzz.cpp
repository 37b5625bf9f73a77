// IPAddress::read of any bytes leaves the address as it was, or consumes input and reads back its text.
#include <cstdint>
#include <sstream>
#include <string>

#include "net/NetInterface.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::istringstream is(std::string(reinterpret_cast<const char*>(data), size));
    Tarvik::Net::IPAddress ip(0x01020304);  // port 0
    ip.read(is);
    const bool kept = ip.get_ip_address() == 0x01020304 && ip.get_port_number() == 0;
    if (is.fail() ? !kept : is.rdbuf()->in_avail() >= static_cast<std::streamsize>(size)) __builtin_trap();
    std::stringstream text;
    ip.write(text);
    Tarvik::Net::IPAddress copy(0x05060708);
    copy.read(text);
    if (copy.get_ip_address() != ip.get_ip_address() || copy.get_port_number() != ip.get_port_number()) {
        __builtin_trap();
    }
    return 0;
}
